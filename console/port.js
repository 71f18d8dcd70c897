// port.js - the chosen port: settings, counters, VLANs, addresses, and what the trace says of it.
import * as api from './api.js';
import {addressesOf} from './addresses.js';
import {showCountersOf} from './counters.js';
import {$, element, fill, number, shown} from './dom.js';
import {nameOf, stateOf} from './panel.js';
import {pvidOf, read, reading, valueOf} from './readings.js';
import {membershipOf} from './vlans.js';

const MODES = {1: 'access', 2: 'trunk', 3: 'general'};
const ADDRESSES = 12;      // addresses that are listed
const TRACE_BYTES = 65536; // of the trace's end that are searched
const TRACE_LINES = 8;

let traceLines = null; // null: not served

/** Reads what the panel does not show of the port. */
export const readDetails = port => Promise.all([read('priority', port), read('pathCost', port)]);

/** Reads the end of the trace, and keeps the calls that change something of the port, and its events. */
export async function readTrace(port) {
  const end = await api.traceEnd();
  const ofPort = new RegExp(String.raw`\b(if|intf|port|intIf|ifNum|intIfNum)=${port}\b|\bport ${port}\b`);
  const isRead = /rpcclt_openapi\w*(Get|Next|Status|First|Disabled|Valid\w*)\b/;
  traceLines = end === null ? null
    : (await api.traceSince(Math.max(0, end - TRACE_BYTES))).filter(line => ofPort.test(line) && !isRead.test(line)).slice(-TRACE_LINES);
}

export function showPort(port) {
  const [word, letter] = stateOf(port);
  fill($('portTitle'), element('i', {class: word}, letter), ` ${nameOf(port)}: ${word}`);
  showSettings(port);
  showCountersOf(port);
  showMembership(port);
  showAddressesOf(port);
  $('portTraceBox').hidden = traceLines === null;
  $('portTrace').textContent = traceLines?.join('\n') || '(no change lately)';
}

function showSettings(port) {
  const settings = {
    State: shown(reading('state', port), () => stateOf(port)[0]),
    Mode: shown(reading('mode', port), mode => MODES[mode] ?? `mode ${mode}`),
    PVID: pvidOf(port) ? shown(pvidOf(port)) : valueOf('mode', port) ? 'not readable' : shown(reading('mode', port)),
    Priority: shown(reading('priority', port)),
    'Path cost': shown(reading('pathCost', port), number),
    'Shut (loop)': valueOf('loopProtection') === 0 ? 'no'
      : stateOf(port)[0] === 'forwarding' ? 'no' : shown(reading('shut', port), shut => String(shut) === 'true' ? 'yes' : 'no')};
  fill($('settings'), ...Object.entries(settings).flatMap(([name, value]) => [element('dt', {}, name), element('dd', {}, value)]));
}

function showMembership(port) {
  const vlans = [...valueOf('untagged', port) ?? [], ...valueOf('tagged', port) ?? []].sort((a, b) => a - b);
  const isKnown = valueOf('untagged', port) && valueOf('tagged', port);
  fill($('portVlans'), ...vlans.map(vlan => element('li', {class: membershipOf(port, vlan)}, `${vlan} ${membershipOf(port, vlan)}`)),
       ...(isKnown ? vlans.length ? [] : [element('li', {}, 'none')] : [element('li', {class: 'unknown'}, '?')]));
}

function showAddressesOf(port) {
  const found = addressesOf(port);
  $('portAddressCount').textContent = found ? `(${number(found.length)})` : '(?)';
  const more = (found?.length ?? 0) - ADDRESSES;
  fill($('portAddresses'), ...(found ?? []).slice(0, ADDRESSES).map(({mac, vlan}) =>
         element('li', {}, element('code', {}, mac), ` VLAN ${vlan}`)),
       ...(more > 0 ? [element('li', {}, element('button', {type: 'button', onclick: () => filterBy(port)}, `${number(more)} more`))] : []));
}

function filterBy(port) {
  $('filter').value = nameOf(port);
  $('filter').dispatchEvent(new Event('input'));
  $('filter').focus();
}
