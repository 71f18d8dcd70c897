// panel.js - the front panel: the ports as on the device, odd numbers above even ones, and a line that sums up.
import {$, ageOf, element, fill, moveByArrows, number, shown} from './dom.js';
import {MOST_PORTS, interfaceNumbers, lagNumbers, portNumbers, reading, valueOf} from './readings.js';

const GROUP = 12; // ports
const STATES = { // what the virtual switch means by a number; check it against your switch
  1: ['down', 'D'], 2: ['blocking', 'B'], 3: ['listening', 'I'], 4: ['learning', 'L'],
  5: ['forwarding', 'F'], 6: ['broken', 'X']};
export const FORWARDING = 5;
const SHUT = ['shut', 'S'], UNKNOWN = ['unknown', '?'];
const WORDS = {forwarding: 'up', shut: 'shut by loop protection'}; // in the line that sums up

/** The word and the letter for the state of a port. */
export function stateOf(port) {
  const state = valueOf('state', port);
  if (state !== FORWARDING && valueOf('loopProtection') !== 0 && String(valueOf('shut', port)) === 'true') return SHUT;
  return state === undefined ? UNKNOWN : STATES[state] ?? [`state ${state}`, String(state).slice(0, 2)];
}

export function nameOf(port) {
  const lag = lagNumbers().indexOf(port);
  return port === 0 ? 'the switch' : lag < 0 ? `Port ${port}` : `LAG ${lag + 1}`;
}

let choose = () => {};
let chosen = 1;
let drawn = ''; // the ports that are drawn

export function openPanel(chooses) {
  choose = chooses;
  moveByArrows($('ports'), (button, direction) => {
    const ports = interfaceNumbers();
    const step = {Left: -2, Right: 2, Up: -1, Down: 1}[direction];
    return $(`port${ports[ports.indexOf(Number(button.value)) + step]}`);
  });
}

export function markChosen(port) {
  chosen = port;
  for (const button of $('ports').querySelectorAll('button'))
    button.setAttribute('aria-pressed', Number(button.value) === port);
}

export function showPanel() {
  const ports = portNumbers(), lags = lagNumbers();
  if (drawn !== `${ports.length} ${lags.length}`) draw(ports, lags);
  for (const port of interfaceNumbers()) showPort($(`port${port}`), port);
  fill($('sum'), ...summary());
}

function draw(ports, lags) {
  drawn = `${ports.length} ${lags.length}`;
  const groups = [];
  for (let first = 0; first < ports.length; first += GROUP) groups.push(['group', ports.slice(first, first + GROUP)]);
  if (lags.length) groups.push(['group lags', lags]);
  fill($('ports'), ...groups.map(([kind, members]) => element('div', {class: kind}, ...members.map(port =>
    element('button', {type: 'button', id: `port${port}`, value: port, tabindex: port === chosen ? 0 : -1,
                       'aria-pressed': String(port === chosen), onclick: () => choose(port)},
            element('b', {}, kind === 'group' ? String(port) : `L${lags.indexOf(port) + 1}`), element('i', {}))))));
  if (!ports.length) fill($('ports'), element('p', {class: 'unknown'}, '? The number of ports is not known.'));
}

function showPort(button, port) {
  const [word, letter] = stateOf(port), {at, problem, value} = reading('state', port);
  const isOld = problem && value !== undefined;
  const age = isOld ? `, ${ageOf(at)} ago` : '';
  button.className = `${/^state/.test(word) ? 'unknown' : word}${isOld ? ' old' : ''}`;
  button.lastChild.textContent = letter;
  button.title = `${nameOf(port)}: ${word}${age}`;
  button.setAttribute('aria-label', button.title);
}

/* "23 up, 28 down, 1 blocking; 12 VLANs; 616 addresses; root: this switch" */
function summary() {
  const counts = new Map([STATES[5], STATES[1]].map(([word, letter]) => [word, {letter, count: 0}])); // in this order
  for (const port of portNumbers()) {
    const [word, letter] = stateOf(port);
    counts.set(word, {letter, count: (counts.get(word)?.count ?? 0) + 1});
  }
  const states = [...counts].filter(([, {count}]) => count > 0).map(([word, {letter, count}]) =>
    element('span', {}, element('i', {class: word}, letter), ` ${count} ${WORDS[word] ?? word}`));
  const old = portNumbers().map(port => reading('state', port)).find(({problem, value}) => problem && value !== undefined);
  if (old) states.push(element('span', {class: 'old', title: old.problem}, `(${ageOf(old.at)} ago)`));
  const vlans = reading('vlans'), addresses = reading('addressCount'), count = valueOf('portCount');
  const cut = count > MOST_PORTS ? [element('span', {}, `the first ${MOST_PORTS} of ${number(count)} ports`)] : [];
  return [...states, ...cut,
          element('span', {}, shown(vlans, list => number(list.length)),
                  vlans.value?.length === 1 ? ' VLAN' : ' VLANs'),
          element('span', {}, shown(addresses, number), ' addresses'),
          element('span', {}, 'root: ', rootText())];
}

function rootText() {
  const root = reading('root'), own = valueOf('bridgeAddress'), rootPort = valueOf('rootPort');
  return shown(root, id => own && id.includes(own) ? 'this switch' : `${id}, through port ${rootPort ?? '?'}`);
}
