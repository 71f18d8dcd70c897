// description.js - loads the description of the interface: its endpoints, and the requests that the examples need.

/**
 * Returns endpoints as prepare() makes them; what each family is about; and the scene: the requests that the examples
 * need.
 */
export async function loadDescription() {
  const answer = await fetch('openapi.json');
  if (!answer.ok) throw new Error('The description of the interface is missing (openapi.json).');
  const description = await answer.json();
  const endpoints = [];
  for (const [path, methods] of Object.entries(description.paths))
    for (const [method, operation] of Object.entries(methods))
      endpoints.push({...prepare(path.slice(1), method.toUpperCase(), operation),
                      ...answersOf(operation, description.components.schemas)});
  const families = Object.fromEntries((description.tags ?? []).map(({name, description}) => [name, sentenceOf(description)]));
  return {endpoints, families, scene: description['x-scene'] ?? []};
}

const sentenceOf = (text = '') => text.split(/(?<=\.) /)[0];

function prepare(path, method, operation) {
  const fields = (operation.parameters ?? []).filter(parameter => parameter.in === 'query').map(parameter => ({
    place: 'query', key: parameter.name, schema: parameter.schema, required: Boolean(parameter.required),
    text: parameter.description ?? '', example: parameter.example, raw: parameter['x-lookup'] !== 'decoded',
    names: parameter['x-names'] ?? parameter.schema['x-names']}));
  const [type, content] = Object.entries(operation.requestBody?.content ?? {})[0] ?? [];
  const jsonQuery = operation['x-query-string'];
  const object = jsonQuery?.schema ?? content?.schema;
  for (const [key, schema] of Object.entries(object?.properties ?? {}))
    fields.push({place: jsonQuery ? 'jsonQuery' : 'body', key, schema, names: schema['x-names'],
                 required: Boolean(object.required?.includes(key)), text: schema.description ?? '',
                 example: content?.example?.[key] ?? exampleOf(jsonQuery)?.[key]});
  const calls = operation['x-operations'] ?? [];
  const found = [path, method, operation.summary, ...calls, ...fields.map(field => field.key)];
  return {path, method, type, fields, calls, form: type?.includes('urlencoded') ?? false,
          family: operation.tags?.[0] ?? path.split('/')[0],
          hasBody: Boolean(content), summary: operation.summary ?? '', description: operation.description ?? '',
          placeholder: Boolean(operation.deprecated), searchText: found.join(' ').toLowerCase(),
          link: '#/' + path + (method === 'GET' ? '' : '@' + method)};
}

/* The members of a success, {name: schema}, and the outcomes: [codes, message]. */
function answersOf(operation, schemas) {
  const plain = schema => schema.$ref ? plain(schemas[schema.$ref.split('/').at(-1)]) : schema;
  const alternatives = schema => plain(schema).oneOf?.flatMap(alternatives) ?? [plain(schema)];
  const answers = alternatives(operation.responses['200'].content['application/json'].schema);
  const data = answers.flatMap(({properties: {resp, ...rest}}) => Object.values(rest));
  const outcomes = answers.map(answer => plain(answer.properties.resp).properties).map(({respCode, respMsg}) =>
    [respCode.enum ?? [respCode.const], respMsg.const]);
  return {members: data[0]?.properties ?? {}, outcomes};
}

/** The JSON object at the start of a query string: the longest part up to a "}" that is valid JSON. */
function exampleOf(jsonQuery) {
  const text = jsonQuery?.example;
  if (typeof text !== 'string') return text;
  for (let end = text.length; end > 0; end = text.lastIndexOf('}', end - 2) + 1)
    try { return JSON.parse(text.slice(0, end)); } catch { /* try a shorter part */ }
  return undefined;
}
