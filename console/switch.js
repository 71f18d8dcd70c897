// switch.js - the view of the switch: one look after the other, with a pause after each. Reads the public interface,
// and the trace where it is served. What the numbers mean is as on the virtual switch; check it against your switch.
import * as api from './api.js';
import {openAddresses, readAddresses, readAddressesSoon, showAddresses} from './addresses.js';
import {openCommands, readFaults} from './commands.js';
import {addGap, readCounters, showCounterTable} from './counters.js';
import {$, ageOf} from './dom.js';
import {FORWARDING, markChosen, openPanel, showPanel} from './panel.js';
import {readDetails, readTrace, showPort} from './port.js';
import {interfaceNumbers, markAllOld, portNumbers, read, readLags, readSettings, readVlans, takeProblems,
        valueOf} from './readings.js';
import {openVlans, readVlanTypes, showVlans} from './vlans.js';

const PAUSE = 4000;          // milliseconds after a look, or as long as the look took
const COUNTERS_EVERY = 3;    // looks between two readings of all ports' counters
const MOST_PROBLEMS = 4;     // that the banner names

let reportTrouble = () => {};
let mayWrite = false;
let isShown = false;
let isRunning = false;
let hasEnded = false;        // the session: nothing more is read until the user asks for it
let wantsSetup = false;
let looks = 0;
let lookedAt = 0;
let lookText = '';          // what the last look cost
let chosen = 1;
let wake = () => {};         // ends the pause

export function openSwitch(report) {
  reportTrouble = report;
  openPanel(choose);
  openVlans(report, showChange);
  openAddresses();
  openCommands(() => chosen);
  $('readNow').addEventListener('click', readAll);
  addEventListener('written', readSetupSoon);
  addEventListener('visibilitychange', () => document.hidden ? stop() : run());
  setInterval(showAge, 1000);
}

export function allowWriting(allowed) {
  mayWrite = allowed;
}

export function showSwitch() {
  if (isShown) return;
  isShown = true;
  hasEnded = false;
  readSetupSoon();
  run();
}

export function hideSwitch() {
  isShown = false;
  stop();
}

function stop() {
  api.stopPolls(true);
  wake();
}

function readSetupSoon() {
  wantsSetup = true;
  wake();
}

function readAll() {
  hasEnded = false;
  looks = 0;
  readAddressesSoon();
  readSetupSoon();
  run();
}

const pause = milliseconds => new Promise(resolve => {
  wake = resolve;
  setTimeout(resolve, milliseconds);
});

const isWanted = () => isShown && !hasEnded && !document.hidden;

async function run() {
  api.stopPolls(false);
  if (isRunning) return wake();
  isRunning = true;
  while (isWanted()) {
    const started = Date.now();
    const isDone = await lookAndReport();
    if (isWanted() && !(isDone && wantsSetup)) await pause(Math.max(PAUSE, Date.now() - started));
  }
  isRunning = false;
}

/* One look, and what the page says of it. Returns whether the server answered. */
async function lookAndReport() {
  const polls = api.pollCount, started = Date.now();
  const readsSetup = wantsSetup;
  $('switch').setAttribute('aria-busy', true);
  $('updates').textContent = 'Reading…';
  takeProblems();
  let isDone = true;
  try {
    await look();
    reportTrouble(textOf(takeProblems()));
    lookedAt = Date.now();
  } catch (reason) {
    wantsSetup ||= readsSetup;
    isDone = reason instanceof api.Stopped;
    if (!isDone) giveUp(reason);
  }
  lookText = `${api.pollCount - polls} requests in ${((Date.now() - started) / 1000).toFixed(1)} s`;
  $('switch').removeAttribute('aria-busy');
  showAll();
  return isDone;
}

function textOf(problems) {
  if (!problems.length) return '';
  const more = problems.length - MOST_PROBLEMS;
  return `The switch refused. ${problems.slice(0, MOST_PROBLEMS).join('; ')}` + (more > 0 ? `; and ${more} more` : '');
}

function giveUp(reason) {
  hasEnded = reason instanceof api.NoSession;
  const problem = hasEnded ? api.verdictOf({status: 403}) : 'The server does not answer; trying again.';
  if (!hasEnded && !(reason instanceof TypeError)) console.error(reason);
  markAllOld(problem);
  addGap(chosen);
  reportTrouble(problem);
}

/* Ports come first; then what else is quick; the walk through the addresses comes last, and only a part of it. */
async function look() {
  const readsSetup = wantsSetup;
  wantsSetup = false;
  await read('portCount');
  showPanel();
  await Promise.all(interfaceNumbers().map(port => read('state', port)));
  showPanel();
  if (readsSetup) await readLags();
  await Promise.all([...['addressCount', 'root', 'rootPort', 'bridgeAddress', 'loopProtection'].map(name => read(name)),
                     readSetup(readsSetup)]);
  await readShut();
  await Promise.all([readCounters(chosen), readTrace(), readDetails(chosen), readFaults()]);
  showAll();
  if (looks++ % COUNTERS_EVERY === 0)
    await Promise.all(portNumbers().filter(port => port !== chosen).map(readCounters));
  showCounterTable(choose);
  await readAddresses();
}

async function readSetup(isWanted) {
  if (!isWanted) return;
  await Promise.all([readVlans(), ...interfaceNumbers().map(readSettings)]);
  await readVlanTypes();
  showVlans();
}

/* A port that forwards is not shut. The question is a POST: a user who may only read cannot ask it. */
async function readShut() {
  if (!mayWrite || valueOf('loopProtection') === 0) return;
  const ports = portNumbers().filter(port => valueOf('state', port) !== FORWARDING);
  await Promise.all(ports.map(port => read('shut', port)));
}

function showAll() {
  showPanel();
  showPort(chosen);
  showAddresses();
  showCounterTable(choose);
  showAge();
}

function showAge() {
  if (!isShown || $('switch').hasAttribute('aria-busy')) return;
  $('updates').textContent = !lookedAt ? 'Nothing was read yet.'
    : `Last look ${ageOf(lookedAt)} ago: ${lookText}.${hasEnded ? ' Reading has stopped.' : ''}`;
}

function choose(port) {
  chosen = port;
  markChosen(port);
  showPort(port);
  $('port').scrollIntoView({block: 'nearest', behavior: 'smooth'});
  wake();
}

/* Shows a change at once; the next look reads all settings again. */
async function showChange(port) {
  await readSettings(port);
  showVlans();
  if (port === chosen) showPort(port);
}
