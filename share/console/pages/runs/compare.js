// Two runs step by step.

import {el, replace} from "../../dom.js";
import {tr} from "../../texts.js";
import {durationText, problemBox, table, timeText} from "../../widgets.js";
import {wire} from "../../wire.js";
import {outcomeNode, paramsText} from "./words.js";
import {stepName} from "./report.js";

const kMuchMs = 100;  // a difference that is worth a mark,
const kMuchShare = 0.1;  // and of what the step took

function differs({aMs, differenceMs}) {
  return differenceMs !== null && Math.abs(differenceMs) >= Math.max(kMuchMs, kMuchShare * aMs);
}

function differenceText(ms) {
  return ms === null ? "-" : (ms > 0 ? "+" : ms < 0 ? "\u2212" : "") + durationText(Math.abs(ms));
}

export function openCompare(root, a, b) {
  let closed = false;
  const query = new URLSearchParams({a: a ?? "", b: b ?? ""});
  wire.get("runs/compare?" + query).then((both) => {
    if (closed) return;
    const head = (run) => [el("a", {href: "#runs/" + run.id}, tr("Run %d: %s", run.id, run.procedure)), el("div", timeText(run.start), ", ", outcomeNode(run)),
      el("div", durationText(run.durationMs)), el("div", {class: "aside"}, paramsText(run.params))];
    replace(root, el("section", {class: "card"},
      el("h2", tr("Runs %d and %d", both.a.id, both.b.id)),
      el("div", {class: "columns"}, el("div", head(both.a)), el("div", head(both.b))),
      table(tr("Steps"), [
        {title: tr("Step"), cell: stepName},
        {title: tr("Run %d", both.a.id), number: true, cell: ({aMs}) => durationText(aMs)},
        {title: tr("Run %d", both.b.id), number: true, cell: ({bMs}) => durationText(bMs)},
        {title: tr("Difference"), number: true, cell: (step) => el(differs(step) ? "strong" : "span", {}, differenceText(step.differenceMs))},
        {title: "", cell: (step) => (step.aMs === null || step.bMs === null ? tr("only in one") : differs(step) && (step.differenceMs > 0 ? tr("slower") : tr("faster")))},
      ], both.steps, {rowClass: (step) => differs(step) && "chosen"})));
  }, (problem) => closed || replace(root, problemBox(problem)));
  return () => (closed = true);
}
