// api.js - the session, requests to the switch, the trace of its operations, and the description of the interface.

export const BASE = '/api/v2/switching/';

/** Moves the token from the address bar to the session storage of this tab. */
export function takeSession() {
  const given = /^#session=([^&]*)/.exec(location.hash);
  if (given) {
    sessionStorage.setItem('session', decodeURIComponent(given[1]));
    history.replaceState(null, '', location.pathname + '#/');
  }
}

export const session = () => sessionStorage.getItem('session') ?? '';

export let requestCount = 0; // requests so far, with polls

let running = 0;
/** Runs `action` while polling pauses. So the trace has the lines of the user's request only. */
export async function withoutPolls(action) {
  running++;
  try { return await action(); } finally { running--; }
}
export const pollsPause = () => running > 0;

/**
 * Sends a request. `target` is the path below BASE and the query, sent raw. Returns {status, text, resp, data}; resp and
 * data are null if the answer is not the interface's JSON object. Throws if the server does not answer.
 */
export async function send(method, target, {body, type = 'application/json', poll = false} = {}) {
  requestCount++;
  const headers = {Session: session()};
  if (poll) headers.Refresh = '1';
  if (body !== undefined) headers['Content-Type'] = type;
  const answer = await fetch(BASE + target, {method, headers, body: method === 'POST' ? body ?? '' : body, cache: 'no-store'});
  const text = await answer.text();
  let json = null;
  try { json = JSON.parse(text); } catch { /* json stays null */ }
  const {resp = null, ...data} = json ?? {};
  return {status: answer.status, text, resp, data: Object.values(data)[0] ?? null};
}

export const succeeded = answer => answer.status === 200 && answer.resp?.status === 'success';

/** Reads one data object without extending the session. Returns null if the switch refuses. */
export async function poll(target, method = 'GET') {
  const answer = await send(method, target, {poll: true});
  if (answer.status === 403) throw new NoSession();
  return succeeded(answer) ? answer.data ?? {} : null;
}

export class NoSession extends Error {}

/** The outcome of an answer, as a text for the page. */
export function verdictOf({status, resp}) {
  if (status === 403)
    return 'HTTP 403: the session has ended or is unknown, or its user may only read. Open the address that serve.sh prints.';
  if (status !== 200 || !resp)
    return `HTTP ${status}: the program gave no answer. The path or method is unknown, or the switch cannot be reached.`;
  return `${resp.status === 'success' ? 'Success' : 'Failure'}: ${resp.respCode} “${resp.respMsg}”`;
}

/** The trace is a file that grows. Returns its size in bytes, or null if it is not served. */
export async function traceEnd() {
  const head = await fetch('trace', {method: 'HEAD', headers: {Session: session()}, cache: 'no-store'});
  return head.ok ? Number(head.headers.get('Content-Length') ?? 0) : null;
}

/** The lines that were added to the trace since it had `end` bytes. */
export async function traceSince(end) {
  const headers = {Session: session(), Range: `bytes=${end}-`};
  const answer = await fetch('trace', {headers, cache: 'no-store'});
  if (answer.status === 416) return []; // no new lines
  const text = answer.ok ? await answer.text() : '';
  return (answer.status === 206 ? text : text.slice(end)).split('\n').filter(Boolean);
}

/** Loads the description: its endpoints as prepare() returns them, and the scene, the requests that its examples need. */
export async function loadDescription() {
  const answer = await fetch('openapi.json');
  if (!answer.ok) throw new Error('The description of the interface is missing (openapi.json).');
  const description = await answer.json();
  const endpoints = [];
  for (const [path, methods] of Object.entries(description.paths))
    for (const [method, operation] of Object.entries(methods))
      endpoints.push(prepare(path.slice(1), method.toUpperCase(), operation));
  return {endpoints, scene: description['x-scene'] ?? []};
}

function prepare(path, method, operation) {
  const fields = (operation.parameters ?? []).filter(parameter => parameter.in === 'query').map(parameter => ({
    place: 'query', key: parameter.name, schema: parameter.schema, required: Boolean(parameter.required),
    text: parameter.description ?? '', example: parameter.example, raw: parameter['x-lookup'] !== 'decoded'}));
  const [type, content] = Object.entries(operation.requestBody?.content ?? {})[0] ?? [];
  const jsonQuery = operation['x-query-string'];
  const object = jsonQuery?.schema ?? content?.schema;
  for (const [key, schema] of Object.entries(object?.properties ?? {}))
    fields.push({place: jsonQuery ? 'jsonQuery' : 'body', key, schema, required: Boolean(object.required?.includes(key)),
                 text: schema.description ?? '', example: content?.example?.[key] ?? exampleOf(jsonQuery)?.[key]});
  const calls = operation['x-operations'] ?? [];
  const found = [path, method, operation.summary, ...calls, ...fields.map(field => field.key)];
  return {path, method, type, fields, calls, form: type?.includes('urlencoded') ?? false,
          hasBody: Boolean(content), summary: operation.summary ?? '', description: operation.description ?? '',
          placeholder: Boolean(operation.deprecated), searchText: found.join(' ').toLowerCase(),
          link: '#/' + path + (method === 'GET' ? '' : '@' + method)};
}

/** The JSON object at the start of a query string: the longest part up to a "}" that is valid JSON. */
function exampleOf(jsonQuery) {
  const text = jsonQuery?.example;
  if (typeof text !== 'string') return text;
  for (let end = text.length; end > 0; end = text.lastIndexOf('}', end - 2) + 1)
    try { return JSON.parse(text.slice(0, end)); } catch { /* try a shorter part */ }
  return undefined;
}
