// dom.js - the functions with which the views build the page. Data from the switch becomes text, never markup.

export const $ = id => document.getElementById(id);

/**
 * Creates an element. Attributes that are false or undefined are left out; "on..." adds a listener. Children are
 * elements or texts.
 */
export function element(name, attributes = {}, ...children) {
  const created = document.createElement(name);
  for (const [key, value] of Object.entries(attributes))
    if (key.startsWith('on')) created.addEventListener(key.slice(2), value);
    else if (value !== false && value !== undefined) created.setAttribute(key, value === true ? '' : value);
  created.append(...children);
  return created;
}

/** Replaces all children of `parent`. The element with the focus keeps it, if its id is there again. */
export function fill(parent, ...children) {
  const focused = parent.contains(document.activeElement) ? document.activeElement.id : '';
  parent.replaceChildren(...children);
  if (focused) $(focused)?.focus({preventScroll: true});
}

/** Marks the link of what is shown, for those who do not see it as well. */
export function markCurrent(link, isCurrent) {
  if (isCurrent) link.setAttribute('aria-current', 'true');
  else link.removeAttribute('aria-current');
}

export const number = value => value.toLocaleString('en');

export function ageOf(time) {
  const seconds = Math.round((Date.now() - time) / 1000);
  return seconds < 120 ? `${seconds} s`
       : seconds < 7200 ? `${Math.round(seconds / 60)} min` : `${Math.round(seconds / 3600)} h`;
}

/** A reading as text for the page: "?" if it was never read; grey and with its age if the last attempt failed. */
export function shown({value, at, problem}, format = String) {
  if (value === undefined) return element('span', {class: 'unknown', title: problem || undefined}, '?');
  if (!problem) return format(value);
  return element('span', {class: 'old', title: problem}, format(value), ` (${ageOf(at)} ago)`);
}

/**
 * Makes the buttons of `parent` one stop of the tab key; the arrow keys move between them. `next(button, direction)`
 * returns the button to which a key (Left, Right, Up, Down) leads.
 */
export function moveByArrows(parent, next) {
  const makeStop = button => {
    parent.querySelector('button[tabindex="0"]')?.setAttribute('tabindex', -1);
    button.setAttribute('tabindex', 0);
  };
  parent.addEventListener('focusin', ({target}) => { if (target.matches('button[tabindex]')) makeStop(target); });
  parent.addEventListener('keydown', event => {
    const target = event.key.startsWith('Arrow') && next(event.target, event.key.slice(5));
    if (!target) return;
    event.preventDefault();
    target.focus();
  });
}

/**
 * A table head whose buttons sort. `sorting` is {by, descending}; `columns` maps keys to titles. The columns in
 * `mostFirst` begin with the largest values.
 */
export function sortableHead(id, columns, sorting, show, mostFirst = []) {
  const sortBy = key => {
    sorting.descending = sorting.by === key ? !sorting.descending : mostFirst.includes(key);
    sorting.by = key;
    show();
  };
  const order = sorting.descending ? 'descending' : 'ascending';
  return element('thead', {}, element('tr', {}, ...Object.entries(columns).map(([key, title]) =>
    element('th', {scope: 'col', 'aria-sort': key === sorting.by ? order : undefined},
      element('button', {type: 'button', id: `${id}-${key}`, onclick: () => sortBy(key)}, title)))));
}

/** Sorts rows by a member. Unknown values come last in both directions. */
export function sorted(rows, {by, descending}) {
  const sign = descending ? -1 : 1;
  return rows.toSorted(({[by]: a}, {[by]: b}) =>
    a === b ? 0 : a === undefined ? 1 : b === undefined ? -1 : a < b ? -sign : sign);
}
