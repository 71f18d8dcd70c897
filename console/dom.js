// dom.js - the functions with which the views build the page. Data from the switch becomes text, never markup.

export const $ = id => document.getElementById(id);

/**
 * Creates an element. Attributes that are false or undefined are left out; "on..." adds a listener. Children are elements
 * or texts.
 */
export function element(name, attributes = {}, ...children) {
  const created = document.createElement(name);
  for (const [key, value] of Object.entries(attributes))
    if (key.startsWith('on')) created.addEventListener(key.slice(2), value);
    else if (value !== false && value !== undefined) created.setAttribute(key, value === true ? '' : value);
  created.append(...children);
  return created;
}

/** Replaces all children of `parent`. */
export const fill = (parent, ...children) => parent.replaceChildren(...children);
