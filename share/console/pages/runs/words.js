// A run in words: how it ended, with what it ran, how to have it once more.

import {el} from "../../dom.js";
import {kept} from "../../kept.js";
import {mark, tr} from "../../texts.js";
import {wire} from "../../wire.js";

export const kOutcomes = {
  success: mark("Success"),
  "no-light": mark("No light"),
  "gas-open": mark("Gas still open"),
  collision: mark("Collision"),
  stopped: mark("Stopped"),
  paused: mark("Paused"),
  alarm: mark("Alarm"),
  error: mark("Failed"),
  refused: mark("Refused"),
  unfinished: mark("Unfinished"),
  lost: mark("Lost"),
};

export function outcomeText(run) {
  return run.outcome ? tr(kOutcomes[run.outcome] ?? run.outcome) : tr("Running");
}

// With a sign that needs no colour.
export function outcomeNode(run) {
  if (!run.outcome) return el("span", outcomeText(run));
  const good = run.outcome === "success";
  return el("span", {class: good ? "outcome good" : "outcome bad"}, (good ? "\u2713 " : "\u2717 ") + outcomeText(run));
}

// Where it ended without success, why, and what to do, where that is known; the outcome itself stands beside it.
export function whyNode({problem, outcome, lang}) {
  if (!problem) return null;
  const {what, where, why, remedy} = problem;
  return el("div", {class: "problem", lang}, what !== outcomeText({outcome}) && el("strong", what), where && el("div", {class: "where"}, where),
    why && el("div", why), remedy && el("div", {class: "remedy"}, remedy));
}

// "x 40, y 30"; of a sequence its calls.
export function paramsText(params) {
  if (Array.isArray(params)) return params.join("; ");
  return Object.entries(params ?? {}).map(([name, value]) => name + " " + (value === true ? tr("yes") : value === false ? tr("no") : value)).join(", ");
}

// As the machine file calls it.
export function outputName(number) {
  return wire.machine?.outputs.find((port) => port.number === number)?.name ?? tr("output %d", number);
}

// Whether there is a form that it can be started from: a calibration, which has no calls, has its own page.
export function canAgain({kind, calls, params}) {
  return kind !== "calibration" && calls?.length !== 0 && Boolean(params);
}

// Opens the form with the same values; nothing starts.
export function again(run) {
  if (run.sequence) kept("procedures").set({tab: "sequences", sequence: run.procedure, draft: null});
  else kept("procedures").set({tab: "start", procedure: run.procedure, values: {...kept("procedures").get("values"), [run.procedure]: run.params}});
  openPage("procedures");
}

// Also where it is open already: it is opened anew.
export function openPage(hash) {
  if (location.hash === "#" + hash) window.dispatchEvent(new HashChangeEvent("hashchange"));
  else location.hash = hash;
}
