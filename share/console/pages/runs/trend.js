// How long a procedure has taken lately, and which of its steps take the time.

import {el, replace} from "../../dom.js";
import {kept} from "../../kept.js";
import {Plot} from "../../plot.js";
import {tr} from "../../texts.js";
import {durationText, problemBox, table} from "../../widgets.js";
import {wire} from "../../wire.js";

const kLast = 100;

export function openTrend(root, name) {
  let plot = null;
  let closed = false;
  wire.get("runs/trend?last=" + kLast + "&name=" + encodeURIComponent(name ?? "")).then(({runs, medianMs, steps}) => {
    if (closed) return;
    if (runs.length === 0) return replace(root, el("section", {class: "card"}, el("h2", name), el("p", tr("It has not succeeded yet."))));
    plot = new Plot({title: tr("How long it took"), x: tr("Number of the run"), labels: [tr("Time in s"), tr("Median in s")], dashed: [1], points: true, whole: true, kept: kept("runs.trend." + name)},
      [...runs].reverse().map(({id, durationMs}) => [id, durationMs / 1000, medianMs / 1000]));
    replace(root,
      el("section", {class: "card"}, el("h2", name),
        el("p", tr("Median of the last successes (%d): %s", runs.length, durationText(medianMs))), plot.node),
      el("section", {class: "card"}, el("h2", tr("Steps, the slowest first")), table(tr("Steps"), [
        {title: tr("Step"), cell: ({number, description}) => number + " " + description},
        {title: tr("Times"), number: true, cell: "times"},
        {title: tr("Median"), number: true, cell: (step) => durationText(step.medianMs)},
        {title: tr("Worst"), number: true, cell: ({worstMs}) => durationText(worstMs)},
        {title: tr("Worst in"), cell: ({worstRun}) => el("a", {href: "#runs/" + worstRun}, tr("Run %d", worstRun))},
      ], steps)));
    plot.draw();
  }, (problem) => closed || replace(root, problemBox(problem)));
  return () => {
    closed = true;
    plot?.close();
  };
}
