// counters.js - the counters of all ports in a table, and how those of one port grow, as lines.
import {$, ageOf, element, fill, number, shown, sortableHead, sorted} from './dom.js';
import {nameOf, stateOf} from './panel.js';
import {portNumbers, read, reading} from './readings.js';

const COUNTERS = {received: 'frames received', sent: 'frames sent', discarded: 'frames discarded'};
const HISTORY = 60; // samples in a line
const FEW = 12;     // with fewer samples, a line does not take the whole width
const WIDTH = 160, HEIGHT = 40;
const COLUMNS = {port: 'Port', received: 'Received', receivedRate: '/s', sent: 'Sent', sentRate: '/s',
                 discarded: 'Discarded', discardedRate: '/s'};

const COUNTED = Object.keys(COLUMNS).slice(1);

const histories = new Map(); // port -> samples {at, received, sent, discarded}; undefined: was not read
const sorting = {by: 'port', descending: false};

/** Reads the counters of a port, and adds a sample to its history. */
export async function readCounters(port) {
  const names = Object.keys(COUNTERS);
  const readings = await Promise.all(names.map(name => read(name, port)));
  const values = readings.map(({value, problem}) => problem ? undefined : value);
  addSample(port, Object.fromEntries(names.map((name, index) => [name, values[index]])));
}

/** Adds a sample in which nothing is known: a gap in the line. */
export const addGap = port => addSample(port, {});

function addSample(port, values) {
  histories.set(port, [...histories.get(port) ?? [], {at: Date.now(), ...values}].slice(-HISTORY));
}

/* How much a counter grew per second, between each two samples; undefined where one is not known or it shrank. */
function ratesOf(port, name) {
  const samples = histories.get(port) ?? [];
  return samples.slice(1).map((sample, index) => {
    const grown = sample[name] - samples[index][name];
    return grown >= 0 ? grown * 1000 / Math.max(1, sample.at - samples[index].at) : undefined;
  });
}

const rounded = rate => rate === undefined ? '?' : number(Math.round(rate * 10) / 10);

export function showCountersOf(port) {
  fill($('counters'), ...Object.entries(COUNTERS).map(([name, title]) => {
    const rates = ratesOf(port, name);
    return element('figure', {class: name}, lineOf(title, rates),
      element('figcaption', {}, element('b', {}, shown(reading(name, port), number)),
              ` ${title}, ${rounded(rates.at(-1))} per second`));
  }));
}

function lineOf(title, rates) {
  const highest = Math.max(1, ...rates.filter(rate => rate !== undefined));
  const drawing = shape('svg', {viewBox: `0 0 ${WIDTH} ${HEIGHT}`, preserveAspectRatio: 'none', role: 'img',
    'aria-label': `${title}: ${rounded(rates.at(-1))} per second now, ${rounded(highest)} at most`});
  const span = Math.min(HISTORY - 2, Math.max(FEW, rates.length - 1));
  let points = [];
  const end = () => {
    if (points.length) drawing.append(shape('polyline', {points: [...points, points.at(-1)].join(' ')}));
    points = [];
  };
  rates.forEach((rate, index) => {
    if (rate === undefined) return end();
    const x = WIDTH - (rates.length - 1 - index) * WIDTH / span; // the newest is on the right
    points.push(`${x},${HEIGHT - 2 - rate / highest * (HEIGHT - 4)}`);
  });
  end();
  return drawing;
}

function shape(name, attributes) {
  const created = document.createElementNS('http://www.w3.org/2000/svg', name);
  for (const [key, text] of Object.entries(attributes)) created.setAttribute(key, text);
  return created;
}

export function showCounterTable(choose) {
  const rows = portNumbers().map(port => {
    const row = {port};
    for (const name of Object.keys(COUNTERS)) {
      row[name] = reading(name, port).value;
      row[name + 'Rate'] = ratesOf(port, name).at(-1);
    }
    return row;
  });
  fill($('counterTable'), sortableHead('counters', COLUMNS, sorting, () => showCounterTable(choose), COUNTED),
    element('tbody', {}, ...sorted(rows, sorting).map(row => counterRow(row, choose))));
}

function counterRow(row, choose) {
  const [word, letter] = stateOf(row.port);
  const {at, problem, value} = reading('received', row.port);
  const isOld = problem && value !== undefined;
  const cells = COUNTED.map(key => {
    const text = row[key] === undefined ? '?' : key.endsWith('Rate') ? rounded(row[key]) : number(row[key]);
    return element('td', {class: row[key] ? undefined : 'none'}, text);
  });
  return element('tr', {class: isOld ? 'old' : undefined, title: isOld ? `${ageOf(at)} ago: ${problem}` : undefined},
    element('th', {scope: 'row'},
      element('button', {type: 'button', id: `counterRow${row.port}`, 'aria-label': nameOf(row.port),
                         onclick: () => choose(row.port)}, String(row.port)), ' ',
      element('i', {class: word, title: word}, letter)), ...cells);
}
