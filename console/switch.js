// switch.js - shows ports, VLANs, addresses and counters, all read through the public interface. What the numbers mean is
// as on the virtual switch; check it against your switch.
import * as api from './api.js';
import {$, element, fill} from './dom.js';

const PAUSE = 4000;          // milliseconds between two updates
const SETUP_EVERY = 8;       // updates between two reads of the setup, which only requests change
const ADDRESSES_MOST = 1000; // addresses that one update reads
const HISTORY = 60;          // updates that the graph of a counter shows
const MODES = {1: 'access', 2: 'trunk', 3: 'general'};
const STATES = {1: 'down', 2: 'blocking', 3: 'listening', 4: 'learning', 5: 'forwarding', 6: 'broken'};
const INCLUDE = 1, EXCLUDE = 2, UNTAGGED = 0, TAGGED = 1;

let showTrouble = () => {};
let timer = 0;
let updates = 0;
let ports = [];     // {number, mode, pvid, tagged, untagged, state, isShut}
let vlans = [];
let addresses = [];
let sortedBy = 'vlan';
let history = [];   // readings of the chosen port's counters

const value = async (target, member, method) => (await api.poll(target, method))?.[member] ?? null;

export function showSwitch(report) {
  showTrouble = report;
  if (!timer) update();
}

export function hideSwitch() {
  clearTimeout(timer);
  timer = 0;
}

$('filter').addEventListener('input', showAddresses);
$('counterPort').addEventListener('change', () => { history = []; readCounters(); });
addEventListener('visibilitychange', () => { if (timer && !document.hidden) update(); });

/* Updates the view, and again after each pause. Skips an update while the page is hidden or a request is running. */
async function update() {
  clearTimeout(timer);
  timer = setTimeout(update, PAUSE);
  if (document.hidden || api.pollsPause()) return;
  const before = api.requestCount;
  try {
    if (updates++ % SETUP_EVERY === 0) await readSetup();
    await Promise.all([...ports.map(readState), readAddresses(), readCounters()]);
    showPorts();
    showTrouble('');
    $('updates').textContent = `This update took ${api.requestCount - before} requests; the next one is in ` +
                               `${PAUSE / 1000} seconds. They do not extend the session.`;
  } catch (reason) {
    updates = 0; // read everything again when the switch is back
    showTrouble(reason instanceof api.NoSession ? api.verdictOf({status: 403}) : 'The server does not answer; trying again.');
  }
  if (timer) {
    clearTimeout(timer);
    timer = setTimeout(update, PAUSE);
  }
}

async function readSetup() {
  const count = await value('bridge/dot1d-base-num-ports', 'numPorts') ?? 0;
  vlans = [];
  for (let vlan = 0; (vlan = await value(`vlan/next-vlan?vid=${vlan}`, 'nextVid'));) vlans.push(vlan);
  ports = await Promise.all(Array.from({length: count}, (_, index) => readPort(index + 1)));
  if ($('counterPort').options.length !== count)
    fill($('counterPort'), ...ports.map(port => element('option', {}, String(port.number))));
  showVlans();
}

async function readPort(number) {
  const [mode, tagged, untagged] = await Promise.all([
    value(`vlan/dot1q-sw-port-mode?intf=${number}`, 'mode'),
    value(`vlan/dot1q-sw-port-tagged-vlan-list?intf=${number}`, 'vidList'),
    value(`vlan/dot1q-sw-port-untagged-vlan-list?intf=${number}`, 'vidList')]);
  const pvid = mode === 1 ? await value(`vlan/dot1q-sw-port-access-vlan?intf=${number}`, 'vlanId')
             : mode === 2 ? await value(`vlan/dot1q-sw-port-trunk-native-vlan?intf=${number}`, 'vlanId') : null;
  return {number, mode, pvid, tagged: tagged ?? [], untagged: untagged ?? [], state: null, isShut: false};
}

async function readState(port) {
  port.state = await value(`bridge/dot1d-stp-port-state?port=${port.number}`, 'portState');
  const shut = await api.send('POST', `loop-protect/is-port-disabled?ifNum=${port.number}`, {poll: true});
  port.isShut = shut.status === 200 && String(Object.values(shut.data ?? {})[0]) === 'true'; // 403 for a user who only reads
}

function showPorts() {
  fill($('ports'), ...ports.map(port => {
    const state = port.isShut ? 'shut (loop)' : STATES[port.state] ?? `state ${port.state}`;
    const pvid = port.pvid ? `PVID ${port.pvid}` : '';
    return element('li', {class: port.isShut ? 'shut' : STATES[port.state] ?? ''},
                   element('b', {}, String(port.number)), ' ', state, element('small', {}, `${MODES[port.mode] ?? `mode ${port.mode}`} ${pvid}`));
  }));
}

/* VLANs */

const membershipOf = (port, vlan) => port.untagged.includes(vlan) ? 'untagged' : port.tagged.includes(vlan) ? 'tagged' : 'none';
const LETTERS = {none: '–', untagged: 'U', tagged: 'T'};

function showVlans() {
  const focused = document.activeElement?.id;
  fill($('vlans'),
    element('thead', {}, element('tr', {}, element('th', {scope: 'col'}, 'VLAN'),
      ...ports.map(port => element('th', {scope: 'col'}, String(port.number))))),
    element('tbody', {}, ...vlans.map(vlan => element('tr', {}, element('th', {scope: 'row'}, String(vlan)),
      ...ports.map(port => {
        const membership = membershipOf(port, vlan);
        return element('td', {}, element('button', {type: 'button', id: `cell${vlan}-${port.number}`, class: membership,
          'aria-label': `VLAN ${vlan}, port ${port.number}: ${membership}`,
          onclick: () => changeMembership(port, vlan, membership)}, LETTERS[membership]));
      })))));
  document.getElementById(focused)?.focus();
}

/* The requests that change a port's membership in a VLAN to the next of none, untagged, tagged. They depend on its mode. */
function requestsFor(port, vlan, membership) {
  const {number, mode} = port;
  const allowed = add => ({intf: number, vidList: [...port.tagged, ...port.untagged].filter(id => id !== vlan).concat(add)});
  const list = 'vlan/dot1q-sw-port-trunk-allowed-vlan-list', native = `vlan/dot1q-sw-port-trunk-native-vlan?intf=${number}`;
  if (mode === 1) return membership === 'none' ? [[`vlan/dot1q-sw-port-access-vlan?intf=${number}`, {vlanId: vlan}]] : [];
  if (mode === 2)
    return {none: [[list, allowed([vlan])], [native, {vlanId: vlan}]], untagged: [[native, {vlanId: 1}]],
            tagged: [[list, allowed([])]]}[membership];
  const cell = `vlanNum=${vlan}&ifNum=${number}`, tagging = tag => [`vlan/if-tagging?${cell}`, {tagging: tag}];
  const participation = mode => [`vlan/if-participation?${cell}`, {participationMode: mode}];
  return {none: [participation(INCLUDE), tagging(UNTAGGED)], untagged: [tagging(TAGGED)], tagged: [participation(EXCLUDE)]}[membership];
}

async function changeMembership(port, vlan, membership) {
  const requests = requestsFor(port, vlan, membership);
  if (!requests.length) {
    $('changed').textContent = `Port ${port.number} is an access port. It is always in one VLAN: ` +
                               'click on the VLAN that it should be in.';
    return;
  }
  await api.withoutPolls(async () => {
    for (const [target, body] of requests) {
      const answer = await api.send('PUT', target, {body: JSON.stringify(body)});
      $('changed').textContent = `Port ${port.number}, VLAN ${vlan}. ${api.verdictOf(answer)}`;
      if (!api.succeeded(answer)) break;
    }
    ports[port.number - 1] = {...await readPort(port.number), state: port.state, isShut: port.isShut};
    showVlans();
    showPorts();
  }).catch(() => showTrouble('The server does not answer; trying again.'));
}

/* Addresses */

async function readAddresses() {
  const entries = [];
  for (const vlan of vlans)
    for (let at = {}; at && entries.length < ADDRESSES_MOST;) {
      const from = at.mac ? `&mac=${at.mac}&fdbIfNum=${at.fdbIfNum}` : '';
      at = await api.poll(`fdb/entry-next?vlanId=${vlan}${from}`);
      if (at) entries.push({vlan, mac: at.mac, port: at.fdbIfNum, type: at.entryType});
    }
  addresses = entries;
  showAddresses();
}

function showAddresses() {
  const columns = {vlan: 'VLAN', mac: 'Address', port: 'Port', type: 'Type'};
  const filter = $('filter').value.toLowerCase();
  const shown = addresses.filter(entry => Object.values(entry).join(' ').toLowerCase().includes(filter))
    .sort((a, b) => a[sortedBy] < b[sortedBy] ? -1 : a[sortedBy] > b[sortedBy] ? 1 : 0);
  const most = addresses.length >= ADDRESSES_MOST ? `; the page reads ${ADDRESSES_MOST} at most` : '';
  $('addressCount').textContent = `${shown.length} of ${addresses.length} addresses${most}`;
  const focused = document.activeElement?.id;
  fill($('addresses'),
    element('thead', {}, element('tr', {}, ...Object.entries(columns).map(([key, title]) =>
      element('th', {scope: 'col', 'aria-sort': key === sortedBy ? 'ascending' : 'none'},
        element('button', {type: 'button', id: `by-${key}`, onclick: () => { sortedBy = key; showAddresses(); }}, title))))),
    element('tbody', {}, ...shown.map(entry => element('tr', {}, ...Object.keys(columns).map(key =>
      element('td', {}, key === 'port' && entry.port === 0 ? 'switch' : String(entry[key])))))));
  document.getElementById(focused)?.focus();
}

/* Counters of one port, and how much they grew with each update */

const COUNTERS = {'frames received': ['dot1d-tp-port-in-frames', 'received'], 'frames sent': ['dot1d-tp-port-out-frames', 'sent'],
                  'frames discarded': ['dot1d-tp-port-in-discards', 'discarded']};

async function readCounters() {
  const port = $('counterPort').value || 1;
  const now = await Promise.all(Object.values(COUNTERS).map(async ([name]) =>
    Object.values(await api.poll(`bridge/${name}?port=${port}`) ?? {0: 0})[0]));
  history = [...history, now].slice(-HISTORY);
  fill($('counters'), ...Object.entries(COUNTERS).map(([title, [, kind]], index) =>
    element('figure', {class: kind}, graphOf(title, history.map(reading => reading[index])),
            element('figcaption', {}, element('b', {}, now[index].toLocaleString('en')), ` ${title}`))));
}

/* A graph of how much a counter grew with each update. */
function graphOf(title, readings) {
  const steps = readings.slice(1).map((reading, index) => Math.max(0, reading - readings[index]));
  const highest = Math.max(1, ...steps);
  const points = steps.map((step, index) => `${index * 160 / (HISTORY - 2)},${38 - step / highest * 36}`).join(' ');
  const create = (name, attributes) => {
    const created = document.createElementNS('http://www.w3.org/2000/svg', name);
    for (const [key, text] of Object.entries(attributes)) created.setAttribute(key, text);
    return created;
  };
  const drawing = create('svg', {viewBox: '0 0 160 40', role: 'img',
                                 'aria-label': `${title}: ${steps.at(-1) ?? 0} since the last update, at most ${highest}`});
  drawing.append(create('polyline', {points}));
  return drawing;
}
