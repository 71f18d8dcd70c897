// requests.js - every endpoint to be found, filled in and tried; with what the switch was asked, and as a curl line.
import * as api from './api.js';
import {$, element, fill} from './dom.js';

let operations = [];
let scene = [];
let current = null;

/** Loads the description; until then there is nothing to find. */
export async function openRequests() {
  ({operations, scene} = await api.loadOperations());
  for (const event of ['input', 'change']) $('search').addEventListener(event, listEndpoints);
  $('placeholders').addEventListener('change', listEndpoints);
  $('search').addEventListener('keydown', event => {
    if (event.key === 'Enter') $('list').querySelector('a')?.click();
  });
  $('form').addEventListener('input', showCurl);
  $('form').addEventListener('submit', event => { event.preventDefault(); sendIt(); });
  $('playScene').addEventListener('click', playScene);
  $('copy').addEventListener('click', async () => {
    await navigator.clipboard.writeText($('curl').textContent);
    $('copied').textContent = 'copied';
  });
  listEndpoints();
}

function listEndpoints() {
  const words = $('search').value.toLowerCase().split(/\s+/).filter(Boolean);
  const found = operations.filter(operation => ($('placeholders').checked || !operation.placeholder) &&
                                               words.every(word => operation.words.includes(word)));
  $('found').textContent = `${found.length} of ${operations.length} endpoints`;
  fill($('list'), ...found.map(operation => element('li', {},
    element('a', {href: operation.link, 'aria-current': operation === current && 'true'},
            element('b', {class: operation.method}, operation.method), ' ', element('code', {}, operation.path),
            element('small', {}, operation.summary)))));
}

/** Shows the endpoint of a link: its path, and "@METHOD" where it is not the path's first. */
export function showEndpoint(link) {
  const [path, method] = link.split('@');
  const chosen = operations.find(operation => operation.path === path && (!method || operation.method === method));
  if (!chosen || chosen === current) return;
  current = chosen;
  listEndpoints();
  $('title').textContent = `${chosen.method} ${chosen.path}`;
  $('summary').textContent = chosen.description || chosen.summary;
  fill($('description'), element('p', {}, chosen.asks.length ? 'Asks the switch: ' : 'Asks the switch nothing.',
               ...chosen.asks.flatMap(name => [element('code', {}, name), ' '])));
  fill($('fields'), ...chosen.fields.map(fieldRow));
  $('details').hidden = false;
  $('outcome').hidden = true;
  $('copied').textContent = $('sceneSays').textContent = '';
  showCurl();
  $('endpoint').focus();
}

const PLACES = {query: 'query', body: 'body', whole: 'JSON in the query'};

function fieldRow(field, index) {
  const id = `field${index}`;
  const words = field.schema.enum ?? (field.schema.type === 'boolean' ? ['true', 'false'] : null);
  const example = field.example === undefined ? '' : Array.isArray(field.example) ? field.example.join(', ') : String(field.example);
  const control = words
    ? element('select', {id, 'aria-describedby': id + 'text'}, element('option', {value: ''}, '(not sent)'),
              ...words.map(word => element('option', {value: word, selected: String(word) === example}, String(word))))
    : element('input', {id, value: example, autocomplete: 'off', spellcheck: 'false', 'aria-describedby': id + 'text'});
  return element('p', {class: 'field'},
    element('label', {for: id}, element('code', {}, field.key), ` (${PLACES[field.place]}${field.required ? ', required' : ''})`),
    control, element('small', {id: id + 'text'}, field.text));
}

/** What is in the form; fields that are left empty are not sent. */
const filled = () => current.fields.map((field, index) => ({...field, value: $(`field${index}`).value}))
                                   .filter(field => field.value !== '');

/** A field as JSON has it; what is not of the field's type is sent as a text, to see what the program makes of it. */
function jsonOf({schema, value}) {
  if (schema.type === 'array') return value.split(',').map(item => jsonOf({schema: {type: 'integer'}, value: item.trim()}));
  const isLiteral = schema.type === 'boolean' ? /^(true|false)$/ : /^-?\d+(\.\d+)?$/;
  return schema.type !== 'string' && isLiteral.test(value) ? JSON.parse(value) : value;
}

const objectOf = fields => JSON.stringify(Object.fromEntries(fields.map(field => [field.key, jsonOf(field)])));

/** The request of the form, and why a browser cannot send it, if it cannot. */
function requestOf(fields) {
  const query = fields.filter(field => field.place === 'query');
  const inBody = fields.filter(field => field.place === 'body');
  const whole = fields.filter(field => field.place === 'whole');
  const pairs = query.map(field => field.key + '=' + (field.raw ? field.value : encodeURIComponent(field.value)));
  if (whole.length) pairs.unshift(objectOf(whole));
  const target = current.path + (pairs.length ? '?' + pairs.join('&') : '');
  const body = !current.hasBody ? (current.method === 'POST' ? '' : undefined)
             : current.form ? inBody.map(field => field.key + '=' + field.value).join('&') : objectOf(inBody);
  return {target, body, type: current.type, refusal: refusalOf(query.filter(field => field.raw), whole)};
}

function refusalOf(rawFields, whole) {
  if (whole.length) return 'The query is JSON as it stands. A browser would encode its quotes; the curl line sends them raw.';
  const odd = rawFields.find(field => /[^\x21-\x7e]|["'<>#]/.test(field.value));
  if (odd) return `${odd.key} goes into the query raw. A browser would encode its spaces, quotes or other letters; the curl line sends them raw.`;
  const split = rawFields.find(field => /[&/]/.test(field.value));
  if (split) return `${split.key} holds a "${/[&/]/.exec(split.value)[0]}": in a query it ends the value ("&") or the path ("/"). No request can name it.`;
  return '';
}

const quoted = text => `'${text.replaceAll("'", String.raw`'\''`)}'`;

function curlOf({target, body, type}) {
  const parts = ['curl', '-g', '-H', quoted(`Session: ${api.session()}`)];
  if (!(current.method === 'GET' || (current.method === 'POST' && body !== undefined))) parts.push('-X', current.method);
  if (current.form) parts.push('-H', quoted(`Content-Type: ${type}`));
  if (body !== undefined) parts.push('-d', quoted(body));
  return [...parts, quoted(location.origin + api.BASE + target)].join(' ');
}

function showCurl() {
  const request = requestOf(filled());
  $('curl').textContent = curlOf(request);
  $('refusal').textContent = request.refusal;
}

async function sendIt() {
  const request = requestOf(filled());
  if (request.refusal) return showCurl();
  const asked = current;
  await api.trying(async () => {
    let answer, lines;
    try {
      const end = await api.traceEnd();
      answer = await api.send(asked.method, request.target, request);
      lines = end === null ? null : ownLines(await api.traceSince(end), asked.asks);
    } catch {
      answer = null;
    }
    if (asked === current) showOutcome(answer, lines);
  });
}

/* Each line begins with the process that asked. Others may ask at the same moment: ours asks for what the endpoint does. */
function ownLines(lines, asks) {
  const processOf = line => /^\[(\d+)\]/.exec(line)?.[1];
  const ours = lines.filter(line => asks.some(name => line.includes(name))).map(processOf);
  return ours.length ? lines.filter(line => ours.includes(processOf(line))) : lines;
}

function showOutcome(answer, lines) {
  $('outcome').hidden = false;
  $('verdict').className = answer && api.succeeded(answer) ? 'good' : 'bad';
  $('verdict').textContent = answer ? api.verdictOf(answer) : 'The server does not answer. Is serve.sh running?';
  $('answer').textContent = answer?.text || '(nothing)';
  $('trace').textContent = !lines ? '(the trace is not served here)' : lines.join('\n') || '(nothing)';
}

/** The requests after which every example succeeds. What is there already may refuse to be made again. */
async function playScene() {
  await api.trying(async () => {
    let good = 0;
    for (const {method, target, body} of scene)
      if (api.succeeded(await api.send(method, target.slice(api.BASE.length), {body: body || undefined}))) good++;
    $('sceneSays').textContent = `${good} of ${scene.length} requests succeeded`;
  }).catch(() => { $('sceneSays').textContent = 'The server does not answer.'; });
}
