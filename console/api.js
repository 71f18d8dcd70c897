// api.js - the session, requests to the switch, its trace, and the description of its interface.

export const BASE = '/api/v2/switching/';

/** Takes the token out of the address bar at once: it lives in this tab alone. */
export function takeSession() {
  const given = /^#session=([^&]*)/.exec(location.hash);
  if (given) {
    sessionStorage.setItem('session', decodeURIComponent(given[1]));
    history.replaceState(null, '', location.pathname + '#/');
  }
}

export const session = () => sessionStorage.getItem('session') ?? '';

export let asked = 0; // requests so far, polls included

let tried = 0;
/** While somebody tries a request nothing else is sent: the lines of the trace are that request's own. */
export const isTrying = () => tried > 0;
export async function trying(action) {
  tried++;
  try { return await action(); } finally { tried--; }
}

/**
 * Sends a request as it stands: `target` is path and query below BASE, raw. Gives {status, text, resp, data}: resp and
 * data are null where the answer is no envelope. A server that does not answer throws.
 */
export async function send(method, target, {body, type = 'application/json', poll = false} = {}) {
  asked++;
  const headers = {Session: session()};
  if (poll) headers.Refresh = '1';
  if (body !== undefined) headers['Content-Type'] = type;
  const answer = await fetch(BASE + target, {method, headers, body: method === 'POST' ? body ?? '' : body, cache: 'no-store'});
  const text = await answer.text();
  let json = null;
  try { json = JSON.parse(text); } catch { /* told by the null */ }
  const {resp = null, ...data} = json ?? {};
  return {status: answer.status, text, resp, data: Object.values(data)[0] ?? null};
}

export const succeeded = answer => answer.status === 200 && answer.resp?.status === 'success';

/** A poll for one data object: null when the switch refuses. */
export async function look(target, method = 'GET') {
  const answer = await send(method, target, {poll: true});
  if (answer.status === 403) throw new NoSession();
  return succeeded(answer) ? answer.data ?? {} : null;
}

export class NoSession extends Error {}

/** What an answer says, in words. */
export function verdictOf({status, resp}) {
  if (status === 403)
    return 'HTTP 403: the session has ended or is unknown, or its user may only read. Open the address that serve.sh prints.';
  if (status !== 200 || !resp)
    return `HTTP ${status}: the program gave no answer. The path or method is unknown, or the switch is away.`;
  return `${resp.status === 'success' ? 'Success' : 'Failure'}: ${resp.respCode} “${resp.respMsg}”`;
}

/* The trace is a file that grows; what is behind the byte it ended with belongs to what came after. */
export async function traceEnd() {
  const head = await fetch('trace', {method: 'HEAD', headers: {Session: session()}, cache: 'no-store'});
  return head.ok ? Number(head.headers.get('Content-Length') ?? 0) : null;
}

export async function traceSince(end) {
  const headers = {Session: session(), Range: `bytes=${end}-`};
  const answer = await fetch('trace', {headers, cache: 'no-store'});
  if (answer.status === 416) return []; // nothing came
  const text = answer.ok ? await answer.text() : '';
  return (answer.status === 206 ? text : text.slice(end)).split('\n').filter(Boolean);
}

/** The operations of the description, as {id, method, path, summary, fields, ...}. */
export async function loadOperations() {
  const answer = await fetch('openapi.json');
  if (!answer.ok) throw new Error('The description of the interface is missing (openapi.json).');
  const description = await answer.json();
  const operations = [];
  for (const [path, methods] of Object.entries(description.paths))
    for (const [method, operation] of Object.entries(methods))
      operations.push(prepare(path.slice(1), method.toUpperCase(), operation));
  return {operations, scene: description['x-scene'] ?? []};
}

function prepare(path, method, operation) {
  const fields = (operation.parameters ?? []).filter(parameter => parameter.in === 'query').map(parameter => ({
    place: 'query', key: parameter.name, schema: parameter.schema, required: Boolean(parameter.required),
    text: parameter.description ?? '', example: parameter.example, raw: parameter['x-lookup'] !== 'decoded'}));
  const [type, content] = Object.entries(operation.requestBody?.content ?? {})[0] ?? [];
  const whole = operation['x-query-string'];
  const object = whole?.schema ?? content?.schema;
  for (const [key, schema] of Object.entries(object?.properties ?? {}))
    fields.push({place: whole ? 'whole' : 'body', key, schema, required: Boolean(object.required?.includes(key)),
                 text: schema.description ?? '', example: content?.example?.[key] ?? exampleOf(whole)?.[key]});
  const asks = operation['x-operations'] ?? [];
  const words = [path, method, operation.summary, ...asks, ...fields.map(field => field.key)];
  return {path, method, type, fields, asks, whole: Boolean(whole), form: type?.includes('urlencoded') ?? false,
          hasBody: Boolean(content), summary: operation.summary ?? '', description: operation.description ?? '',
          placeholder: Boolean(operation.deprecated), words: words.join(' ').toLowerCase(),
          link: '#/' + path + (method === 'GET' ? '' : '@' + method)};
}

/** The object at the start of a query string that is JSON: it ends where the brackets close. */
function exampleOf(whole) {
  const text = whole?.example;
  if (typeof text !== 'string') return text;
  for (let end = text.length; end > 0; end = text.lastIndexOf('}', end - 2) + 1)
    try { return JSON.parse(text.slice(0, end)); } catch { /* shorter */ }
  return undefined;
}
