// api.js - the session, requests to the switch, the trace of its operations, and commands to the virtual switch.

export const BASE = '/api/v2/switching/';
const POLLS_AT_ONCE = 5;  // a browser opens six connections: one is left for the user
const PATIENCE = 1000;    // milliseconds that a request of the user waits for the polls that are under way

/** Moves the token from the address bar to the session storage of this tab. */
export function takeSession() {
  const given = /^#session=([^&]*)/.exec(location.hash);
  if (!given) return;
  sessionStorage.setItem('session', decodeURIComponent(given[1]));
  history.replaceState(null, '', location.pathname + '#/');
}

export const session = () => sessionStorage.getItem('session') ?? '';

/**
 * Sends a request. `target` is the path below BASE and the query, sent raw. Returns {status, text, resp, data}; resp
 * and data are null if the answer is not the interface's JSON object. Throws if the server does not answer. A write
 * that is no poll causes the event "written" on the window.
 */
export async function send(method, target, {body, type = 'application/json', isPoll = false} = {}) {
  const headers = {Session: session()};
  if (isPoll) headers.Refresh = '1';
  if (body !== undefined) headers['Content-Type'] = type;
  if (method === 'POST') body ??= '';
  const answer = await fetch(BASE + target, {method, headers, body, cache: 'no-store'});
  const text = await answer.text();
  if (!isPoll && method !== 'GET') dispatchEvent(new Event('written'));
  let json = null;
  try { json = JSON.parse(text); } catch { /* json stays null */ }
  const {resp = null, ...data} = json ?? {};
  return {status: answer.status, text, resp, data: Object.values(data)[0] ?? null};
}

export const succeeded = answer => answer.status === 200 && answer.resp?.status === 'success';

/** The outcome of an answer, as a text for the page. */
export function verdictOf({status, resp}) {
  if (status === 403)
    return 'HTTP 403: the session has ended or is unknown, or its user may only read. ' +
           'Open the address that serve.sh prints.';
  if (status !== 200 || !resp)
    return `HTTP ${status}: the program gave no answer. The path or method is unknown, ` +
           'or the switch cannot be reached.';
  return `${resp.status === 'success' ? 'Success' : 'Failure'}: ${resp.respCode} “${resp.respMsg}”`;
}

/* Polls: a few at a time, and none while a request of the user is under way. So the trace has the lines of that request
 * only. */

export class NoSession extends Error {}
export class Stopped extends Error {}

export let pollCount = 0; // polls so far
let polls = 0;            // under way
let actions = 0;          // of the user, under way
let areStopped = false;
let waiting = [];

const changes = () => new Promise(resolve => waiting.push(resolve));

function announceChange() {
  for (const resolve of waiting.splice(0)) resolve();
}

/** While polls are stopped, poll() throws Stopped. */
export function stopPolls(stop) {
  areStopped = stop;
  announceChange();
}

/** Runs `action` without polls. */
export async function withoutPolls(action) {
  actions++;
  const deadline = Date.now() + PATIENCE;
  while (polls > 0 && Date.now() < deadline)
    await Promise.race([changes(), new Promise(resolve => setTimeout(resolve, PATIENCE))]);
  try { return await action(); } finally { actions--; announceChange(); }
}

/** Sends a request that does not extend the session. Throws NoSession if the session may not even read. */
export async function poll(target, method = 'GET') {
  while (!areStopped && (actions > 0 || polls >= POLLS_AT_ONCE)) await changes();
  if (areStopped) throw new Stopped();
  polls++;
  pollCount++;
  try {
    const answer = await send(method, target, {isPoll: true});
    if (answer.status === 403 && method === 'GET') throw new NoSession();
    return answer;
  } finally {
    polls--;
    announceChange();
  }
}

/* The trace is a file that grows. */

/** The size of the trace in bytes, or null if it is not served. */
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

/**
 * Sends a command to the virtual switch. An empty command lists its faults. Returns {ok, text}; ok is false where there
 * is no virtual switch or the session may only read.
 */
export async function command(words) {
  const answer = await fetch('vswitch', {method: words ? 'POST' : 'GET', body: words || undefined,
                                         headers: {Session: session()}, cache: 'no-store'});
  const text = (await answer.text()).trim();
  if (words) dispatchEvent(new Event('written'));
  return {ok: answer.ok, text: answer.status === 403 ? 'HTTP 403: this session may not send commands.' : text};
}
