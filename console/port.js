// port.js - the chosen port: settings, counters, VLANs, addresses, and what the trace says of it.
import * as api from './api.js';
import {addressesOf} from './addresses.js';
import {showCountersOf} from './counters.js';
import {$, element, fill, number, shown} from './dom.js';
import {FORWARDING, nameOf, stateOf} from './panel.js';
import {pvidOf, read, reading, valueOf} from './readings.js';
import {membershipOf} from './vlans.js';

const MODES = {1: 'access', 2: 'trunk', 3: 'general'};
const ADDRESSES = 12;      // addresses that are listed
const TRACE_BYTES = 262144; // of the trace's end that are read at first
const TRACE_KEPT = 500;    // lines
const TRACE_SHOWN = 8;     // lines
const READS = /rpcclt_openapi\w*(Get|Next|Check|Status|First|Detected|Disabled|Valid\w*|Filtering|InCurrentInstance)\b/;

let traceEnd = null;       // bytes that were read; null: the trace is not served
let changes = [];          // the lines of the trace that are no reads

/** Reads what the panel does not show of the port. */
export const readDetails = port => Promise.all([read('priority', port), read('pathCost', port)]);

/** Reads what was added to the trace, and keeps what is no read: most reads are the page's. */
export async function readTrace() {
  const end = await api.traceEnd();
  if (end !== null) {
    const lines = await api.traceSince(traceEnd ?? Math.max(0, end - TRACE_BYTES));
    changes = [...changes, ...lines.filter(line => !READS.test(line))].slice(-TRACE_KEPT);
  }
  traceEnd = end;
}

function showTrace(port) {
  const ofPort = new RegExp(String.raw`\b(if|intf|port|intIf|ifNum|intIfNum)=${port}\b|\bport ${port}\b`);
  $('portTraceBox').hidden = traceEnd === null;
  const lines = changes.filter(line => ofPort.test(line)).slice(-TRACE_SHOWN);
  $('portTrace').textContent = lines.join('\n') || '(no change lately)';
}

export function showPort(port) {
  const [word, letter] = stateOf(port);
  fill($('portTitle'), element('i', {class: word}, letter), ` ${nameOf(port)}: ${word}`);
  showSettings(port);
  showCountersOf(port);
  showMembership(port);
  showAddressesOf(port);
  showTrace(port);
}

function showSettings(port) {
  const settings = {
    State: shown(reading('state', port), () => stateOf(port)[0]),
    Mode: shown(reading('mode', port), mode => MODES[mode] ?? `mode ${mode}`),
    PVID: pvidOf(port) ? shown(pvidOf(port)) : valueOf('mode', port) ? 'not readable' : shown(reading('mode', port)),
    Priority: shown(reading('priority', port)),
    'Path cost': shown(reading('pathCost', port), number),
    'Shut (loop)': valueOf('loopProtection') === 0 || valueOf('state', port) === FORWARDING ? 'no'
      : shown(reading('shut', port), shut => String(shut) === 'true' ? 'yes' : 'no')};
  fill($('settings'), ...Object.entries(settings).flatMap(([name, value]) =>
    [element('dt', {}, name), element('dd', {}, value)]));
}

function showMembership(port) {
  const vlans = [...valueOf('untagged', port) ?? [], ...valueOf('tagged', port) ?? []].sort((a, b) => a - b);
  const isKnown = valueOf('untagged', port) && valueOf('tagged', port);
  const items = vlans.map(vlan => [membershipOf(port, vlan), `${vlan} ${membershipOf(port, vlan)}`]);
  if (!isKnown) items.push(['unknown', '?']);
  else if (!vlans.length) items.push([undefined, 'none']);
  fill($('portVlans'), ...items.map(([kind, text]) => element('li', {class: kind}, text)));
}

function showAddressesOf(port) {
  const found = addressesOf(port);
  $('portAddressCount').textContent = found ? `(${number(found.length)})` : '(?)';
  if (!found) return fill($('portAddresses'), element('li', {class: 'hint'}, 'The walk has not ended yet.'));
  fill($('portAddresses'), ...found.slice(0, ADDRESSES).map(({mac, vlan}) =>
    element('li', {}, element('code', {}, mac), ` VLAN ${vlan}`)));
  const more = found.length - ADDRESSES;
  if (more <= 0) return;
  const button = element('button', {type: 'button', onclick: () => filterBy(port)}, `${number(more)} more`);
  $('portAddresses').append(element('li', {}, button));
}

function filterBy(port) {
  $('filter').value = nameOf(port);
  $('filter').dispatchEvent(new Event('input'));
  $('filter').focus();
}
