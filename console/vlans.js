// vlans.js - which port is in which VLAN, as a table in which a click changes it. The last change can be undone.
import * as api from './api.js';
import {$, element, fill, moveByArrows, shown} from './dom.js';
import {nameOf} from './panel.js';
import {interfaceNumbers, pvidOf, read, reading, valueOf} from './readings.js';

const MOST_SHOWN = 64;
const ACCESS = 1, TRUNK = 2;
const INCLUDE = 1, EXCLUDE = 2, UNTAGGED = 0, TAGGED = 1;
const LETTERS = {none: '', untagged: 'U', tagged: 'T', unknown: '?'};
const TYPES = {1: 'default', 3: 'dynamic'}; // static ones need no word
const PRIVATE_TYPES = {1: 'primary', 2: 'isolated', 3: 'community'};
const touches = matchMedia('(pointer: coarse)');

let undo = null;               // the requests that take back the last change, and the text that names it
let reportTrouble = () => {};
let changed = () => {};        // shows the new settings of a port elsewhere on the page

export function openVlans(report, showChange) {
  reportTrouble = report;
  changed = showChange;
  $('vlanFilter').addEventListener('input', showVlans);
  $('undo').addEventListener('click', () => undoChange());
  moveByArrows($('vlans'), (button, direction) => {
    const rows = [...$('vlans').tBodies[0]?.rows ?? []].map(row => [...row.querySelectorAll('button')]);
    const row = rows.findIndex(buttons => buttons.includes(button)), column = rows[row]?.indexOf(button);
    return rows[row + ({Up: -1, Down: 1}[direction] ?? 0)]?.[column + ({Left: -1, Right: 1}[direction] ?? 0)];
  });
}

const shownVlans = () => {
  const words = $('vlanFilter').value.split(/[\s,]+/).filter(Boolean);
  const all = valueOf('vlans') ?? [];
  return words.length ? all.filter(vlan => words.some(word => String(vlan).startsWith(word))) : all;
};

/** Reads what the shown VLANs are called: the interface has no names of VLANs, only types. */
export async function readVlanTypes() {
  await Promise.all(shownVlans().slice(0, MOST_SHOWN).map(async vlan => {
    await read('vlanType', vlan);
    await read('privateType', vlan);
  }));
}

const typeOf = vlan =>
  [TYPES[valueOf('vlanType', vlan)], PRIVATE_TYPES[valueOf('privateType', vlan)]].filter(Boolean).join(' ');

export function membershipOf(port, vlan) {
  const untagged = valueOf('untagged', port), tagged = valueOf('tagged', port);
  if (untagged?.includes(vlan)) return 'untagged';
  if (tagged?.includes(vlan)) return 'tagged';
  return untagged && tagged ? 'none' : 'unknown';
}

export function showVlans() {
  const ports = interfaceNumbers(), found = shownVlans(), vlans = found.slice(0, MOST_SHOWN);
  const isOld = port => reading('untagged', port).problem || reading('tagged', port).problem;
  $('vlanCount').replaceChildren(shown(reading('vlans'), list => `${found.length} of ${list.length}`), ' VLANs',
    found.length > MOST_SHOWN ? `, the first ${MOST_SHOWN} are shown. Use the filter for others.` : '');
  $('vlans').classList.toggle('old', Boolean(reading('vlans').problem));
  fill($('vlans'),
    element('thead', {}, element('tr', {}, element('th', {scope: 'col'}, 'VLAN'), ...ports.map(port =>
      element('th', {scope: 'col', class: isOld(port) ? 'old' : undefined, title: nameOf(port)},
              nameOf(port).replace(/Port |AG /, ''))))),
    element('tbody', {}, ...vlans.map((vlan, row) => element('tr', {},
      element('th', {scope: 'row'}, `${vlan} `, element('small', {}, typeOf(vlan))),
      ...ports.map((port, column) => cellOf(vlan, port, row + column === 0))))));
}

function cellOf(vlan, port, isStop) {
  const membership = membershipOf(port, vlan);
  return element('td', {}, element('button', {type: 'button', id: `cell${vlan}-${port}`, class: membership,
    tabindex: isStop ? 0 : -1, 'aria-label': `VLAN ${vlan}, ${nameOf(port)}: ${membership}`,
    title: `VLAN ${vlan}, ${nameOf(port)}: ${membership}`, onclick: () => change(port, vlan)}, LETTERS[membership]));
}

/* Changes. A request is [target, body] of a PUT. */

const NATIVE = 'vlan/dot1q-sw-port-trunk-native-vlan', ACCESS_VLAN = 'vlan/dot1q-sw-port-access-vlan';
const allowedList = (port, list) => ['vlan/dot1q-sw-port-trunk-allowed-vlan-list', {intf: port, vidList: list}];
const vlansOf = port => [...valueOf('tagged', port), ...valueOf('untagged', port)].sort((a, b) => a - b);
const participation = (cell, mode) => [`vlan/if-participation?${cell}`, {participationMode: mode}];
const tagging = (cell, tag) => [`vlan/if-tagging?${cell}`, {tagging: tag}];

/* The requests that change a port's membership in a VLAN to the next of none, untagged, tagged. They depend on its
 * mode. */
function requestsFor(port, vlan, membership) {
  const mode = valueOf('mode', port), cell = `vlanNum=${vlan}&ifNum=${port}`;
  if (mode === ACCESS) return membership === 'none' ? [[`${ACCESS_VLAN}?intf=${port}`, {vlanId: vlan}]] : [];
  if (mode === TRUNK) {
    const others = vlansOf(port).filter(id => id !== vlan), native = id => [`${NATIVE}?intf=${port}`, {vlanId: id}];
    return {none: [allowedList(port, [...others, vlan]), native(vlan)], untagged: [native(1)],
            tagged: [allowedList(port, others)]}[membership];
  }
  return {none: [participation(cell, INCLUDE), tagging(cell, UNTAGGED)], untagged: [tagging(cell, TAGGED)],
          tagged: [participation(cell, EXCLUDE)]}[membership];
}

/* The requests that restore what is set now. Throws if the switch does not say what that is. */
async function requestsToRestore(port, vlan) {
  const mode = valueOf('mode', port), pvid = pvidOf(port)?.value, cell = `vlanNum=${vlan}&ifNum=${port}`;
  if (mode === ACCESS) return [[`${ACCESS_VLAN}?intf=${port}`, {vlanId: pvid}]];
  if (mode === TRUNK) return [allowedList(port, vlansOf(port)), [`${NATIVE}?intf=${port}`, {vlanId: pvid}]];
  const part = await api.send('GET', `vlan/if-participation?${cell}`);
  const tag = await api.send('GET', `vlan/tagged?vlanId=${vlan}&ifNum=${port}`);
  if (!api.succeeded(part)) throw new Error(api.verdictOf(part));
  return [participation(cell, part.data.participationMode),
          ...(api.succeeded(tag) ? [tagging(cell, tag.data.val)] : [])];
}

const NEXT = {none: 'untagged', untagged: 'tagged', tagged: 'none'};

async function change(port, vlan) {
  const membership = membershipOf(port, vlan), name = `${nameOf(port)}, VLAN ${vlan}`;
  if (membership === 'unknown') return say(`${name}: the page could not read it, so it does not change it.`);
  const requests = requestsFor(port, vlan, membership);
  if (!requests.length)
    return say(`${nameOf(port)} is an access port. It is always in one VLAN: choose the VLAN that it should be in.`);
  const step = `${name}: ${membership} → ${NEXT[membership]}`;
  if (touches.matches && !await isWanted(step)) return;
  offerUndo(null);
  await api.withoutPolls(async () => {
    const restore = await requestsToRestore(port, vlan);
    if (await send(requests, `${name}.`)) offerUndo({requests: restore, port, text: step});
  }).then(() => changed(port), reason => reportTrouble(`${name} was not changed. ${reason.message}`));
}

async function undoChange() {
  const {requests, port, text} = undo;
  offerUndo(null);
  await api.withoutPolls(() => send(requests, `Undone: ${text}.`))
    .then(() => changed(port), reason => reportTrouble(`Nothing was undone. ${reason.message}`));
}

/* Sends requests until one fails. Returns whether all succeeded. */
async function send(requests, text) {
  let answer;
  for (const [target, body] of requests) {
    answer = await api.send('PUT', target, {body: JSON.stringify(body)});
    if (!api.succeeded(answer)) break;
  }
  say(`${text} ${api.verdictOf(answer)}`);
  return api.succeeded(answer);
}

function say(text) {
  $('changed').textContent = text;
}

function offerUndo(change) {
  undo = change;
  $('undo').hidden = !change;
}

/* Asks before a change: on a touch screen, a finger hits the wrong cell easily. */
function isWanted(step) {
  $('askText').textContent = step;
  $('ask').returnValue = '';
  $('ask').showModal();
  return new Promise(resolve => {
    $('askYes').onclick = () => $('ask').close('yes');
    $('askNo').onclick = () => $('ask').close('');
    $('ask').addEventListener('close', () => resolve($('ask').returnValue === 'yes'), {once: true});
  });
}
