// A run's report: what it did, where its time went, where the axes were. Printed without the frame.

import {el, replace} from "../../dom.js";
import {kept} from "../../kept.js";
import {Plot} from "../../plot.js";
import {tr} from "../../texts.js";
import {durationText, numberText, problemBox, table, timeText} from "../../widgets.js";
import {wire} from "../../wire.js";
import {bandsOf} from "./bands.js";
import {again, canAgain, openPage, outcomeNode, outputName, paramsText, whyNode} from "./words.js";

// A step that holds others takes as long as they do together: it is not the slowest.
function slowest(steps) {
  const leaves = steps.filter((step, i) => !(steps[i + 1]?.level > step.level));
  return leaves.length < 2 ? null : leaves.reduce((worst, step) => (step.durationMs > worst.durationMs ? step : worst));
}

export function stepName(step) {
  return el("span", {class: "level-" + Math.min(step.level, 4)}, step.number + (step.count ? "/" + step.count : "") + " " + step.description);
}

function facts(run) {
  const entry = (title, value) => value !== null && value !== undefined && value !== "" && el("div", el("dt", title), el("dd", value));
  const place = run.position;
  return el("dl", {},
    entry(tr("Outcome"), outcomeNode(run)),
    entry(tr("Time"), durationText(run.durationMs)),
    entry(tr("Start"), timeText(run.start)),
    entry(tr("End"), run.end && timeText(run.end)),
    entry(tr("Started by"), run.startedBy),
    entry(tr("With"), paramsText(run.params)),
    place && entry(tr("Position at the end"), ["x", "y", "z", "focus"].map((axis) => axis[0].toUpperCase() + "\u00a0" + numberText(place[axis])).join(", ") + "\u00a0mm"),
    run.pathMm && entry(tr("Path"), "XY " + numberText(run.pathMm.xy) + " mm, Z " + numberText(run.pathMm.z) + " mm"),
    run.dark !== undefined && entry(tr("Laser at the end"), run.dark ? tr("dark") : el("span", {class: "bad"}, tr("not dark"))),
    run.outputsOn?.length > 0 && entry(tr("Outputs on at the end"), run.outputsOn.map(outputName).join(", ")),
    run.collisions > 0 && entry(tr("Collisions"), String(run.collisions)));
}

function alarmLine(alarm) {
  return el("li", el("strong", durationText(alarm.atMs), " ", alarm.text || alarm.description || alarm.identifier),
    alarm.reason && el("div", alarm.reason), alarm.solution && el("div", {class: "remedy"}, alarm.solution));
}

export function openReport(root, id) {
  const plots = [];  // zoomed as one
  const closePlots = () => [...plots].forEach((one) => one.close());
  let closed = false;
  const plotted = el("div");
  const showTrace = async (run) => {
    try {
      const {points} = await wire.get("runs/" + id + "/trace");
      if (closed || points.length < 2) return;
      closePlots();
      const bands = bandsOf(run);
      const zoom = kept("runs.trace." + id);
      const plot = (title, labels, rows) => new Plot({title, labels, bands, x: tr("Time in s"), kept: zoom, group: plots}, rows);
      plot(tr("X and Y"), [tr("X in mm"), tr("Y in mm")], points.map(([ms, x, y]) => [ms / 1000, x, y]));
      plot(tr("Z and focus"), [tr("Z in mm"), tr("Focus in mm")], points.map(([ms, , , z, focus]) => [ms / 1000, z, focus]));
      replace(plotted, plots.map(({node}) => node));
      for (const one of plots) one.draw();
    } catch (problem) {
      if (!closed) replace(plotted, problemBox(problem));
    }
  };
  const show = (run) => {
    const worst = slowest(run.steps ?? []);
    replace(root,
      el("section", {class: "card"},
        el("div", {class: "row"}, el("h2", tr("Run %d: %s", run.id, run.procedure)),
          canAgain(run) && el("button", {class: "main", onclick: () => again(run)}, tr("Again")),
          el("button", {onclick: () => openPage("runs/trend/" + encodeURIComponent(run.procedure))}, tr("Trend")),
          el("button", {onclick: () => print()}, tr("Print"))),
        facts(run), whyNode(run),
        run.notes?.length > 0 && [el("h3", tr("Notes")), el("ul", {lang: run.lang}, run.notes.map((note) => el("li", note)))],
        run.alarms?.length > 0 && [el("h3", tr("Alarms")), el("ul", run.alarms.map(alarmLine))]),
      el("section", {class: "card"}, el("h2", tr("Where the axes were")), plotted),
      run.steps?.length > 0 && el("section", {class: "card"}, el("h2", tr("Steps")), table(tr("Steps"), [
        {title: tr("Step"), cell: stepName},
        {title: tr("Start"), number: true, cell: ({startMs}) => durationText(startMs)},
        {title: tr("Time"), number: true, cell: ({durationMs}) => durationText(durationMs)},
        {title: tr("Share"), number: true, cell: ({durationMs}) => (run.durationMs ? Math.round((100 * durationMs) / run.durationMs) + " %" : "-")},
        {title: "", cell: (step) => step === worst && el("strong", {class: "warn"}, tr("slowest"))},
      ], run.steps, {rowClass: (step) => step === worst && "chosen"})));
    if (!run.outcome) replace(plotted, el("p", {class: "aside"}, tr("It runs; the report comes at its end.")));
    else if (run.timeline) showTrace(run);  // it is at hand
    else replace(plotted, el("p", {class: "aside"}, tr("Where the axes were is kept of the last runs alone.")));
  };
  const look = () => wire.get("runs/" + encodeURIComponent(id)).then((run) => closed || show(run), (problem) => closed || replace(root, problemBox(problem)));
  const end = wire.on("run", (run) => run.event === "ended" && run.id === Number(id) && look());
  look();
  return () => {
    closed = true;
    end();
    closePlots();
  };
}
