// dom.js - the few words in which the views build the page. What comes from the switch is text, never markup.

export const $ = id => document.getElementById(id);

/** An element with attributes (those that are false are left out) and children: elements and texts. */
export function element(name, attributes = {}, ...children) {
  const made = document.createElement(name);
  for (const [key, value] of Object.entries(attributes))
    if (key.startsWith('on')) made.addEventListener(key.slice(2), value);
    else if (value !== false && value !== undefined) made.setAttribute(key, value === true ? '' : value);
  made.append(...children);
  return made;
}

export const fill = (parent, ...children) => parent.replaceChildren(...children);
