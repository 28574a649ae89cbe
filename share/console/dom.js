// Nodes without markup: text from files and devices is only ever text.

// el("button", {class: "big", onclick: go, disabled: true}, "Go"): attributes by their names, which may be none, handlers
// as "on..."; false, null and undefined are left out, as attributes and as children. A button submits nothing.
export function el(tag, ...parts) {
  const node = document.createElement(tag);
  if (tag === "button") node.type = tag;
  return fill(node, parts);
}

// The same for drawings.
export function svg(tag, ...parts) {
  return fill(document.createElementNS("http://www.w3.org/2000/svg", tag), parts);
}

function fill(node, parts) {
  const attributes = parts[0]?.constructor === Object ? parts.shift() : {};
  for (const [name, value] of Object.entries(attributes)) {
    if (value === false || value === null || value === undefined) continue;
    if (name.startsWith("on")) node.addEventListener(name.slice(2), value);
    else if (name === "value") node.value = value;
    else node.setAttribute(name, value === true ? "" : value);
  }
  node.append(...some(parts));
  return node;
}

function some(children) {
  return children.flat(Infinity).filter((child) => child !== false && child !== null && child !== undefined);
}

// Whoever works by the keyboard goes on where he was: on what is called the same, else on the node, or on what it is in
// where that is hidden. What was scrolled stays where it was.
export function replace(node, ...children) {
  const focused = document.activeElement;
  const held = node !== focused && node.contains(focused);
  const one = held && sameIn(node, focused).length === 1;
  const places = [...node.querySelectorAll(".scroll")].map((of) => [of, of.scrollLeft, of.scrollTop]);
  node.replaceChildren(...some(children));
  for (const [of, ...place] of places) sameIn(node, of)[0]?.scrollTo(...place);
  if (!held) return;
  const now = one ? sameIn(node, focused) : [];
  if (now.length === 1) return now[0].focus(kHere);
  let place = node;
  while (!place.checkVisibility()) place = place.parentElement;
  goOnFrom(place);
}

const kHere = {preventScroll: true};

const nameOf = (node) => node.id || (node.getAttribute("aria-label") ?? node.textContent);

function sameIn(node, of) {
  return [...node.querySelectorAll(of.tagName)].filter((one) => nameOf(one) === nameOf(of));
}

// Where what had the focus is gone: the keyboard goes on from here.
export function goOnFrom(node) {
  node.tabIndex = -1;
  node.focus(kHere);
}

// Changes a text only where it differs: what reads the page aloud says nothing twice.
export function setText(node, text) {
  if (node.textContent !== text) node.textContent = text;
}
