// requests.js - finds an endpoint, fills in its form, sends the request, shows the calls to the switch and a curl line.
import * as api from './api.js';
import {loadDescription} from './description.js';
import {$, element, fill, markCurrent} from './dom.js';

/* What every start of the program calls. */
const AT_START = /_openapi(ConnectivityCheck|NetworkOSVersionGet|ApiVersionGet)\b/;

let endpoints = [];
let families = {}; // name -> what it is about
let scene = [];
let current = null;

/** Loads the description, and fills the list of endpoints. */
export async function openRequests() {
  ({endpoints, families, scene} = await loadDescription());
  for (const event of ['input', 'change']) $('search').addEventListener(event, listEndpoints);
  $('placeholders').addEventListener('change', listEndpoints);
  $('search').addEventListener('keydown', event => {
    if (event.key === 'Enter') $('list').querySelector('a')?.click();
  });
  $('form').addEventListener('input', showCurl);
  $('form').addEventListener('submit', event => { event.preventDefault(); sendRequest(); });
  $('playScene').addEventListener('click', playScene);
  $('copy').addEventListener('click', async () => {
    await navigator.clipboard.writeText($('curl').textContent);
    $('copied').textContent = 'copied';
  });
  showScene();
  listEndpoints();
}

function listEndpoints() {
  const terms = $('search').value.toLowerCase().split(/\s+/).filter(Boolean);
  const found = endpoints.filter(endpoint => ($('placeholders').checked || !endpoint.placeholder) &&
                                             terms.every(term => endpoint.searchText.includes(term)));
  $('found').textContent = `${found.length} of ${endpoints.length} endpoints`;
  const members = Object.entries(Object.groupBy(found, endpoint => endpoint.family));
  fill($('list'), ...members.map(([family, some]) => element('details', {open: terms.length > 0},
    element('summary', {}, element('b', {}, family), ` ${some.length}`, element('small', {}, families[family])),
    element('ul', {}, ...some.map(endpoint => element('li', {}, linkTo(endpoint)))))));
  markInList();
}

const linkTo = endpoint =>
  element('a', {href: endpoint.link}, methodOf(endpoint.method), ' ', element('code', {}, endpoint.path),
          element('small', {}, endpoint.summary));

const methodOf = method => element('b', {class: `method ${method}`}, method);

/* Marks the chosen endpoint in the list, where its family opens. */
function markInList() {
  for (const link of $('list').querySelectorAll('a')) {
    const isCurrent = link.getAttribute('href') === current?.link;
    markCurrent(link, isCurrent);
    if (!isCurrent) continue;
    link.closest('details').open = true;
    showInList(link);
  }
}

/* Scrolls the list, but not the page. */
function showInList(link) {
  const list = $('list'), above = link.offsetTop - list.scrollTop;
  if (above < 0 || above + link.offsetHeight > list.clientHeight) list.scrollTop = link.offsetTop - list.clientHeight / 3;
}

/** Shows the endpoint of a link, "PATH" or "PATH@METHOD". Without a method: the first endpoint of the path. */
export function showEndpoint(link) {
  const [path, method] = link.split('@');
  const chosen = endpoints.find(endpoint => endpoint.path === path && (!method || endpoint.method === method));
  if (!chosen || chosen === current) return;
  current = chosen;
  markInList();
  fill($('title'), methodOf(chosen.method), ` ${chosen.path}`);
  $('summary').textContent = chosen.description || chosen.summary;
  fill($('description'), element('p', {},
    chosen.calls.length ? 'Calls to the switch: ' : 'Makes no call to the switch.',
    ...chosen.calls.flatMap(name => [element('code', {}, name), ' '])));
  fill($('fields'), ...chosen.fields.map(fieldRow));
  showAnswers(chosen);
  $('details').hidden = false;
  $('outcome').hidden = true;
  $('copied').textContent = '';
  showCurl();
  $('endpoint').focus();
}

function showAnswers({members, outcomes}) {
  fill($('members'), ...Object.entries(members).flatMap(([name, {description}]) =>
    [element('dt', {}, element('code', {}, name)), element('dd', {}, description ?? '')]));
  $('codes').textContent = outcomes.map(([codes, message]) => `${rangesOf(codes)} “${message}”`).join('; ');
}

/* Ascending numbers as text: "-29 to -8, -6". */
function rangesOf(numbers) {
  const ranges = [];
  for (const number of numbers)
    if (ranges.at(-1)?.[1] === number - 1) ranges.at(-1)[1] = number;
    else ranges.push([number, number]);
  return ranges.map(([first, last]) => first === last ? first : `${first} to ${last}`).join(', ');
}

const PLACES = {query: 'query', body: 'body', jsonQuery: 'JSON in the query'};

function fieldRow(field, index) {
  const id = `field${index}`;
  const place = PLACES[field.place] + (field.required ? ', required' : '');
  return element('p', {class: 'field'},
    element('label', {for: id}, element('code', {}, field.key), ` (${place})`),
    controlOf(field, id), element('small', {id: id + 'text'}, field.text));
}

/* A drop-down where the description names the values, otherwise a text field. */
function controlOf(field, id) {
  const example = Array.isArray(field.example) ? field.example.join(', ') : String(field.example ?? '');
  const values = valuesOf(field);
  const described = {id, 'aria-describedby': id + 'text'};
  const input = value => element('input', {...described, value, autocomplete: 'off', spellcheck: 'false'});
  if (!values) return input(example);
  const options = Object.entries(values).map(([value, text]) =>
    element('option', {value, selected: value === example}, text));
  const select = element('select', {...described, onchange: () => {
    if (select.value !== OTHER) return;
    select.replaceWith(input(''));
    $(id).focus();
  }}, element('option', {value: ''}, '(not sent)'), ...options, element('option', {value: OTHER}, 'another value…'));
  return select;
}

const OTHER = 'other';

/* Values and the texts for them, or null if a field takes any. */
function valuesOf({schema, names}) {
  if (names) return Object.fromEntries(Object.entries(names).map(([value, name]) => [value, `${value} ${name}`]));
  const values = schema.enum ?? (schema.type === 'boolean' ? ['true', 'false'] : null);
  return values && Object.fromEntries(values.map(value => [value, String(value)]));
}

/** The fields of the form that have a value. Empty fields are not sent. */
const filled = () => current.fields.map((field, index) => ({...field, value: $(`field${index}`).value}))
                                   .filter(field => field.value !== '' && field.value !== OTHER);

/** The JSON value of a field. A value of the wrong type becomes a text: the user sees how the program refuses it. */
function jsonOf({schema, value}) {
  if (schema.type === 'array')
    return value.split(',').map(item => jsonOf({schema: {type: 'integer'}, value: item.trim()}));
  const isLiteral = schema.type === 'boolean' ? /^(true|false)$/ : /^-?\d+(\.\d+)?$/;
  return schema.type !== 'string' && isLiteral.test(value) ? JSON.parse(value) : value;
}

const objectOf = fields => JSON.stringify(Object.fromEntries(fields.map(field => [field.key, jsonOf(field)])));

/** The request of the form. `refusal` says why a browser cannot send it; empty if it can. */
function requestOf(fields) {
  const query = fields.filter(field => field.place === 'query');
  const inBody = fields.filter(field => field.place === 'body');
  const jsonQuery = fields.filter(field => field.place === 'jsonQuery');
  const pairs = query.map(field => field.key + '=' + (field.raw ? field.value : encodeURIComponent(field.value)));
  if (jsonQuery.length) pairs.unshift(objectOf(jsonQuery));
  const target = current.path + (pairs.length ? '?' + pairs.join('&') : '');
  const body = !current.hasBody ? (current.method === 'POST' ? '' : undefined)
             : current.form ? inBody.map(field => field.key + '=' + field.value).join('&') : objectOf(inBody);
  return {target, body, type: current.type, refusal: refusalOf(query.filter(field => field.raw), jsonQuery)};
}

function refusalOf(rawFields, jsonQuery) {
  if (jsonQuery.length)
    return 'The query is raw JSON. A browser would encode its quotes; the curl line sends them raw.';
  const odd = rawFields.find(field => /[^\x21-\x7e]|["'<>#]/.test(field.value));
  if (odd)
    return `${odd.key} goes into the query raw. A browser would encode its spaces, quotes or special characters; ` +
           'the curl line sends them raw.';
  const split = rawFields.find(field => /[&/]/.test(field.value));
  if (split)
    return `${split.key} contains "${/[&/]/.exec(split.value)[0]}". In a query, "&" ends the value and "/" is part ` +
           'of the path: no request can send this value.';
  return '';
}

const quoted = text => `'${text.replaceAll("'", String.raw`'\''`)}'`;

function curlOf({target, body, type}) {
  const parts = ['curl', '-g', '-H', quoted(`Session: ${api.session()}`)];
  const isDefault = current.method === 'GET' || (current.method === 'POST' && body !== undefined);
  if (!isDefault) parts.push('-X', current.method);
  if (current.form) parts.push('-H', quoted(`Content-Type: ${type}`));
  if (body !== undefined) parts.push('-d', quoted(body));
  return [...parts, quoted(location.origin + api.BASE + target)].join(' ');
}

function showCurl() {
  const request = requestOf(filled());
  $('curl').textContent = curlOf(request);
  $('refusal').textContent = request.refusal;
}

async function sendRequest() {
  const request = requestOf(filled());
  if (request.refusal) return showCurl();
  const endpoint = current;
  await api.withoutPolls(async () => {
    let answer, lines;
    try {
      const end = await api.traceEnd();
      answer = await api.send(endpoint.method, request.target, request);
      lines = end === null ? null : linesOfRequest(await api.traceSince(end), endpoint.calls);
    } catch {
      answer = null;
    }
    if (endpoint === current) showOutcome(answer, lines);
  });
}

/* Each line begins with a process id. Picks the lines of the processes that called an operation of the endpoint. */
function linesOfRequest(lines, calls) {
  const processOf = line => /^\[(\d+)\]/.exec(line)?.[1];
  const processes = lines.filter(line => calls.some(name => line.includes(name))).map(processOf);
  return processes.length ? lines.filter(line => processes.includes(processOf(line))) : lines;
}

function showOutcome(answer, lines) {
  $('outcome').hidden = false;
  $('verdict').className = answer && api.succeeded(answer) ? 'good' : 'bad';
  $('verdict').textContent = answer ? api.verdictOf(answer) : 'The server does not answer. Is serve.sh running?';
  $('answer').textContent = answer?.text || '(nothing)';
  showTrace(lines);
  $('outcome').scrollIntoView({block: 'nearest', behavior: 'smooth'}); // on a telephone it is below the form
}

function showTrace(lines) {
  if (!lines?.length) return fill($('trace'), lines ? '(nothing)' : '(the trace is not served here)');
  fill($('trace'), ...lines.map(line => element('span', {class: AT_START.test(line) && 'quiet'}, line + '\n')));
}

function showScene() {
  $('sceneText').textContent =
    `The examples need VLANs, lists and filters that a fresh switch does not have. The button sends ${scene.length} ` +
    'requests: they create these, and change settings of some ports. On the virtual switch, “Reset the switch” ' +
    '(in the view Switch) takes everything back.';
  fill($('sceneRequests'), ...scene.map(({method, target, body}) => element('li', {},
    methodOf(method), ' ',
    element('code', {}, `${target.slice(api.BASE.length)} ${body ?? ''}`))));
}

/** Sends the requests that the examples need. Some can fail: what exists already cannot be created again. */
async function playScene() {
  await api.withoutPolls(async () => {
    let good = 0;
    for (const {method, target, body} of scene)
      if (api.succeeded(await api.send(method, target.slice(api.BASE.length), {body: body || undefined}))) good++;
    $('sceneOutcome').textContent = `${good} of ${scene.length} requests succeeded`;
  }).catch(() => { $('sceneOutcome').textContent = 'The server does not answer.'; });
}
