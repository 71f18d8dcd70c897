// addresses.js - the table of addresses. A walk through a large one takes long: each look continues it for a while.
import * as api from './api.js';
import {$, ageOf, element, fill, number, sortableHead, sorted} from './dom.js';
import {nameOf} from './panel.js';
import {noteProblem, reading, valueOf} from './readings.js';

const SLICE = 2500;     // milliseconds that one look continues the walk
const REST = 60000;     // milliseconds between two walks, if the number of addresses stays the same
const SHORT_REST = 5000; // if it changes
const WORK = 0.25;       // of its time, the page walks at most
const MOST = 4000;      // addresses that a walk reads
const MOST_SHOWN = 500;
const PATH = 'fdb/entry-next';
const COLUMNS = {vlan: 'VLAN', mac: 'Address', port: 'Port', type: 'Type'};

let walk = null;     // under way: {vlans, last, entries, problem, count}
let entries = null;  // {vlan, mac, port, type}; null: never read
let readAt = 0;
let countThen;       // the switch's count when the last walk began
let spent = 0;       // milliseconds that the last walk took
let problem = '';
const sorting = {by: 'vlan', descending: false};

export function openAddresses() {
  $('filter').addEventListener('input', showAddresses);
}

export const addressesOf = port => entries?.filter(entry => entry.port === port);

/** Begins a new walk with the next look. */
export function readAddressesSoon() {
  walk = null;
  readAt = 0;
}

/** Continues the walk, or begins a new one when it is time. */
export async function readAddresses() {
  const vlans = valueOf('vlans'), count = valueOf('addressCount');
  if (!vlans) return;
  const rest = Math.max(count === countThen ? REST : SHORT_REST, spent / WORK - spent);
  if (!walk && Date.now() - readAt < rest) return;
  walk ??= {vlans: [...vlans], last: null, entries: [], problem: '', count, spent: 0};
  const started = Date.now(), deadline = started + SLICE;
  while (walk?.vlans.length && Date.now() < deadline) await step(walk);
  if (walk) walk.spent += Date.now() - started;
  if (walk && !walk.vlans.length) endWalk();
}

/* Reads one entry of the first VLAN that is left. */
async function step(walk) {
  const [vlan] = walk.vlans, {last} = walk;
  const answer = await api.poll(`${PATH}?vlanId=${vlan}` + (last ? `&mac=${last.mac}&fdbIfNum=${last.port}` : ''));
  if (api.succeeded(answer)) {
    const {mac, fdbIfNum, entryType} = answer.data ?? {};
    const entry = {vlan, mac: String(mac), port: fdbIfNum, type: String(entryType)};
    if (!last || entry.mac > last.mac || (entry.mac === last.mac && entry.port > last.port)) {
      walk.entries.push(walk.last = entry);
      if (walk.entries.length >= MOST) walk.vlans = [];
      return;
    }
    noteProblem(PATH, walk.problem = `the walk through VLAN ${vlan} does not ascend: ${entry.mac} follows ${last.mac}`);
  } else if (!last) {
    walk.refusal = api.verdictOf(answer); // the end of an empty table, or a failure
  }
  walk.vlans.shift();
  walk.last = null;
}

function endWalk() {
  const isRefused = !walk.entries.length && walk.refusal && walk.count !== 0;
  problem = isRefused ? walk.refusal : walk.problem;
  if (isRefused) noteProblem(PATH, walk.refusal);
  else entries = walk.entries;
  countThen = walk.count;
  spent = walk.spent;
  readAt = Date.now();
  walk = null;
}

function stateText() {
  const count = reading('addressCount').value;
  const all = count === undefined ? '' : ` of ${number(count)}`;
  const reads = walk ? ` Reading: ${number(walk.entries.length)}${all} so far.` : '';
  if (!entries) return walk ? reads.trim() : `? addresses${problem ? `: ${problem}` : ''}`;
  const age = problem ? ` These are old: ${problem}.` : walk ? '' : ` Read ${ageOf(readAt)} ago.`;
  return age + reads;
}

/** Shows the addresses that contain the filter; while none were read completely, those that the walk has so far. */
export function showAddresses() {
  const known = entries ?? walk?.entries ?? [];
  const filter = $('filter').value.toLowerCase();
  const textOf = entry => [...Object.values(entry), nameOf(entry.port)].join(' ').toLowerCase();
  const found = sorted(known.filter(entry => textOf(entry).includes(filter)), sorting);
  const most = found.length > MOST_SHOWN ? `, the first ${MOST_SHOWN} are shown` : '';
  const limit = known.length >= MOST ? ` The page reads ${number(MOST)} at most.` : '';
  $('addressCount').textContent =
    (entries ? `${number(found.length)} of ${number(known.length)} addresses${most}.` : '') + limit + stateText();
  $('addresses').classList.toggle('old', Boolean(problem));
  fill($('addresses'), sortableHead('addresses', COLUMNS, sorting, showAddresses),
    element('tbody', {}, ...found.slice(0, MOST_SHOWN).map(entry => element('tr', {},
      element('td', {}, String(entry.vlan)), element('td', {}, entry.mac),
      element('td', {}, nameOf(entry.port)), element('td', {}, entry.type)))));
}
