// readings.js - what the page knows of the switch. A reading is {value, at, problem}: the last value that was read
// (undefined: none so far), when that was, and why a later attempt failed (empty: it did not).
import * as api from './api.js';

export const MOST_PORTS = 128;         // the page shows no more
const MOST_BELIEVABLE_PORTS = 4096;
const MOST_VLAN = 4094;
const NO_SUCH_PORT = 10003;

const isNumber = value => Number.isSafeInteger(value) && value >= 0;
const isPortCount = value => isNumber(value) && value <= MOST_BELIEVABLE_PORTS;
const isList = value => Array.isArray(value) && value.every(isNumber);
const isText = value => typeof value === 'string';
const isWord = value => ['true', 'false'].includes(String(value));

/* Name of a reading: path of the endpoint, to which the number of the port or VLAN is appended; member of the answer;
 * what a valid value is; the method, if it is not GET. */
const QUESTIONS = {
  portCount: ['bridge/dot1d-base-num-ports', 'numPorts', isPortCount],
  bridgeAddress: ['bridge/dot1d-base-bridge-address', 'bridgeAddress', isText],
  root: ['bridge/dot1d-stp-designated-root', 'designatedRoot', isText],
  rootPort: ['bridge/dot1d-stp-root-port', 'rootPort', isNumber],
  addressCount: ['fdb/active-addr-entries', 'entriesNum', isNumber],
  loopProtection: ['loop-protect/admin-mode', 'adminMode', isNumber],
  state: ['bridge/dot1d-stp-port-state?port=', 'portState', isNumber],
  shut: ['loop-protect/is-port-disabled?ifNum=', 'status', isWord, 'POST'],
  mode: ['vlan/dot1q-sw-port-mode?intf=', 'mode', isNumber],
  tagged: ['vlan/dot1q-sw-port-tagged-vlan-list?intf=', 'vidList', isList],
  untagged: ['vlan/dot1q-sw-port-untagged-vlan-list?intf=', 'vidList', isList],
  accessVlan: ['vlan/dot1q-sw-port-access-vlan?intf=', 'vlanId', isNumber],
  nativeVlan: ['vlan/dot1q-sw-port-trunk-native-vlan?intf=', 'vlanId', isNumber],
  priority: ['bridge/dot1d-stp-port-priority?port=', 'portPriority', isNumber],
  pathCost: ['bridge/dot1d-stp-port-path-cost?port=', 'portPathCost', isNumber],
  received: ['bridge/dot1d-tp-port-in-frames?port=', 'inFrames', isNumber],
  sent: ['bridge/dot1d-tp-port-out-frames?port=', 'outFrames', isNumber],
  discarded: ['bridge/dot1d-tp-port-in-discards?port=', 'inDiscards', isNumber],
  vlanType: ['vlan/type?vlanNum=', 'vlanType', isNumber],
  privateType: ['vlan/dot1q-private-vlan?vlanId=', 'pvlanType', isNumber],
};

const readings = new Map();
let problems = new Map(); // of this look: "PATH: PROBLEM" -> how often

export const reading = (name, number = '') => readings.get(name + number) ?? {value: undefined, at: 0, problem: ''};
export const valueOf = (name, number) => reading(name, number).value;

function store(name, value) {
  readings.set(name, {value, at: Date.now(), problem: ''});
}

function fail(name, path, problem) {
  readings.set(name, {...reading(name), problem});
  noteProblem(path, problem);
}

export function noteProblem(path, problem) {
  const text = `${path.split('?')[0]}: ${problem}`;
  problems.set(text, (problems.get(text) ?? 0) + 1);
}

/** What was refused since the last call, as texts, the most frequent first. */
export function takeProblems() {
  const texts = [...problems].sort((a, b) => b[1] - a[1])
    .map(([text, times]) => times > 1 ? `${text} (${times} times)` : text);
  problems = new Map();
  return texts;
}

/** Marks everything as old: the server does not answer. */
export function markAllOld(problem) {
  for (const [name, old] of readings) readings.set(name, {...old, problem});
}

/** Asks the switch, and returns the new reading. Throws if the server does not answer, or the session has ended. */
export async function read(name, number = '') {
  const [path, member, isValid, method] = QUESTIONS[name];
  const answer = await api.poll(path + number, method);
  const value = answer.data?.[member];
  if (!api.succeeded(answer)) fail(name + number, path, api.verdictOf(answer));
  else if (!isValid(value)) fail(name + number, path, `${member} = ${JSON.stringify(value)} cannot be true`);
  else store(name + number, value);
  return reading(name, number);
}

/** The numbers of the ports; and of the interfaces behind them, the LAGs, as readLags() found them. */
export const portNumbers = () =>
  Array.from({length: Math.min(valueOf('portCount') ?? 0, MOST_PORTS)}, (_, index) => index + 1);
export const lagNumbers = () => valueOf('lags') ?? [];
export const interfaceNumbers = () => [...portNumbers(), ...lagNumbers()];

/** Finds the interfaces behind the ports: those that have a spanning tree state, until the first that has none. */
export async function readLags() {
  const first = (valueOf('portCount') ?? 0) + 1, found = [];
  if (first === 1 || first > MOST_PORTS) return;
  for (let number = first; number < first + MOST_PORTS; number++) {
    const answer = await api.poll(`bridge/dot1d-stp-port-state?port=${number}`);
    if (!api.succeeded(answer)) {
      if (!found.length && answer.resp?.respCode !== NO_SUCH_PORT) return;
      break;
    }
    found.push(number);
    store(`state${number}`, answer.data?.portState);
  }
  store('lags', found);
}

/** Walks through the VLANs. Stops where the walk ends, or does not ascend. */
export async function readVlans() {
  const path = 'vlan/next-vlan', found = [];
  for (let last = 0; ;) {
    const answer = await api.poll(`${path}?vid=${last}`);
    const next = api.succeeded(answer) ? answer.data?.nextVid : 0;
    if (!next && !found.length) return fail('vlans', path, api.verdictOf(answer)); // VLAN 1 always exists
    if (!next) return store('vlans', found);
    if (!isNumber(next) || next <= last || next > MOST_VLAN) {
      store('vlans', found);
      return fail('vlans', path, `the walk does not ascend: ${JSON.stringify(next)} follows ${last}`);
    }
    found.push(last = next);
  }
}

/** Reads what only requests change of a port or LAG. */
export async function readSettings(number) {
  await Promise.all(['mode', 'tagged', 'untagged'].map(name => read(name, number)));
  if (valueOf('mode', number) === 1) await read('accessVlan', number);
  if (valueOf('mode', number) === 2) await read('nativeVlan', number);
}

/** The reading of a port's PVID; undefined in a mode in which the interface has none to read. */
export const pvidOf = number =>
  ({1: reading('accessVlan', number), 2: reading('nativeVlan', number)})[valueOf('mode', number)];
