// The panel's keys as their pages name them, and what refuses one.

import {el} from "../dom.js";
import {mark, tr} from "../texts.js";

export const kStopKeys = ["CK_STOP", "CK_PAUSE", "CK_EGYSTOP"];

// Only the button at the machine is an emergency stop.
const kOwnLabels = {CK_EGYSTOP: mark("STOP ALL")};

const kMasks = {
  client: mark("Form"),
  alarm: mark("Alarms"),
  state: mark("State"),
  warning: mark("Maintenance"),
  machine: mark("Cutting system"),
};

export function keyLabel(key, label) {
  return kOwnLabels[key] ? tr(kOwnLabels[key]) : label;
}

export function maskText(mask) {
  return tr(kMasks[mask] ?? mask);
}

// A sign and a word, whatever their colour.
export function verdict(good, text) {
  return el("span", {class: good ? "good" : "bad"}, (good ? "✓ " : "✕ ") + text);
}

// What each of those that are asked says, and what would change the mind of one that refuses.
export function reasonsList(masks) {
  return el("ul", {class: "reasons"}, masks.map((mask) =>
    el("li", verdict(mask.permits, maskText(mask.mask)), ": ", mask.because,
      mask.change && el("div", {class: "aside"}, mask.change))));
}
