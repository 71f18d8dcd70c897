// commands.js - buttons that make things happen on the virtual switch. Elsewhere nothing answers, and they stay hidden.
import * as api from './api.js';
import {loadDescription} from './description.js';
import {$, element, fill} from './dom.js';
import {nameOf} from './panel.js';

let portChosen = () => 1;
let refused = null; // the session to which nothing answers

/* The commands: the id of the button, and what it sends. */
const COMMANDS = {
  linkUp: () => `link ${portChosen()} up`, linkDown: () => `link ${portChosen()} down`,
  loopOn: () => `loop ${portChosen()} on`, loopOff: () => `loop ${portChosen()} off`,
  storm: () => `storm ${portChosen()} ${$('stormKind').value} ${$('stormPackets').value}`,
  learn: () => `learn ${$('stationVlan').value} ${$('stationMac').value} ${portChosen()}`,
  silence: () => `silence ${$('stationVlan').value} ${$('stationMac').value}`,
  advance: () => `advance ${$('seconds').value}`, hold: () => 'hold', reset: () => 'reset',
  fault: () => ['fault', $('faultOperation').value || '*', $('faultEffect').value.replace('N', $('faultNumber').value),
                $('faultTimes').value && `times=${$('faultTimes').value}`].filter(Boolean).join(' '),
  clearFaults: () => 'clear'};

/** `chosen()` returns the number of the port that the buttons are about. */
export function openCommands(chosen) {
  portChosen = chosen;
  for (const [id, words] of Object.entries(COMMANDS)) $(id).addEventListener('click', () => sendCommand(words()));
  $('faultEffect').addEventListener('change', showFaultFields);
  $('faultOperation').addEventListener('focus', listOperations, {once: true});
  showFaultFields();
}

async function sendCommand(words) {
  await api.withoutPolls(async () => {
    const {ok, text} = await api.command(words);
    $('commandOutcome').textContent = `${words}: ${text || (ok ? 'done' : 'refused')}`;
  }).catch(() => { $('commandOutcome').textContent = 'The server does not answer.'; });
}

function showFaultFields() {
  $('faultNumberBox').hidden = !$('faultEffect').value.includes('N');
}

async function listOperations() {
  const {endpoints} = await loadDescription();
  const names = new Set(endpoints.flatMap(endpoint => endpoint.calls));
  fill($('operations'), ...[...names].sort().map(value => element('option', {value})));
}

/** Shows the faults that are set. Shows nothing at all where there is no virtual switch, or the user may only read. */
export async function readFaults() {
  if (refused === api.session()) return;
  const {ok, text} = await api.command('');
  refused = ok ? null : api.session();
  $('simulation').hidden = !ok;
  $('faults').textContent = text || 'none';
  $('portOfCommands').textContent = nameOf(portChosen());
}
