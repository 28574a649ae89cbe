// What runs, where it is and how long it will take; then how it ended.

import {el, replace, setText} from "../../dom.js";
import {tr} from "../../texts.js";
import {durationText, withControl} from "../../widgets.js";
import {wire} from "../../wire.js";
import {again, canAgain, openPage, outcomeNode, whyNode} from "../runs/words.js";

// The middle of the successes with the same values; null where there is none.
async function estimateMs(id, name) {
  const [{params}, {runs}] = await Promise.all([wire.get("runs/" + id), wire.get("runs/trend?last=50&name=" + encodeURIComponent(name))]);
  const same = JSON.stringify(params);
  const times = runs.filter((run) => JSON.stringify(run.params) === same).map((run) => run.durationMs).sort((a, b) => a - b);
  return times.length ? times[Math.floor(times.length / 2)] : null;
}

export function openRunning(root) {
  let shown = null;  // the id of the run whose progress is shown
  let ended = 0;  // of the one whose end is known: a status may be older
  let usual = null;
  let closed = false;
  const path = el("div", {class: "path"});
  const elapsed = el("b", {class: "number"});
  const left = el("b", {class: "number"});
  const bar = el("progress", {max: 1, "aria-label": tr("Progress")});

  const begin = (run) => {
    shown = run.id;
    usual = null;
    replace(root, el("section", {class: "card running"},
      el("div", {class: "row"}, el("h2", tr("Running: %s", run.procedure)),
        el("button", {onclick: () => withControl(() => wire.post("pause"))}, tr("Pause"))),
      bar, path, el("div", {class: "row"}, el("span", tr("Elapsed"), " ", elapsed), el("span", tr("Left"), " ", left),
        el("span", {class: "aside"}, run.startedBy))));
    estimateMs(run.id, run.procedure).then((ms) => {
      if (shown !== run.id || closed) return;
      usual = ms;
      update();
    }, () => {});
  };
  const update = () => {
    const run = wire.status?.run;
    if (!run && shown !== null) return learnEnd(shown);
    if (!run || run.id <= ended) return;
    if (run.id !== shown) begin(run);
    setText(path, run.path.map(({number, count, description}) => number + "/" + count + " " + description).join(" \u203a ") || "-");
    setText(elapsed, durationText(run.runMs));
    setText(left, usual === null ? "-" : usual < run.runMs ? tr("longer than usual (%s)", durationText(usual)) : durationText(usual - run.runMs));
    if (usual) bar.value = Math.min(1, run.runMs / usual);
    else bar.removeAttribute("value");
    root.classList.toggle("stale-values", wire.stale);
  };
  const end = (run) => {
    if (closed || !run.outcome || run.id < ended) return;
    shown = null;
    ended = run.id;
    replace(root, el("section", {class: "card running"},
      el("div", {class: "row"}, el("h2", run.procedure), el("strong", outcomeNode(run)), el("span", {class: "number"}, durationText(run.durationMs)),
        el("a", {href: "#runs/" + run.id}, tr("Report of run %d", run.id)),
        run.outcome !== "success" && el("button", {onclick: () => openPage("procedures/continue")}, tr("Continue")),
        canAgain(run) && el("button", {onclick: () => again(run)}, tr("Again"))),
      whyNode(run)));
  };

  // Its event was missed; asked again with the next status as long as the end is not known.
  let learning = false;
  const learnEnd = async (id) => {
    if (learning) return;
    learning = true;
    await wire.get("runs/" + id).then(end, () => {});
    learning = false;
  };

  const ends = [
    wire.on("status", update),
    wire.on("stale", update),
    wire.on("run", (run) => run.event === "ended" && end(run)),
  ];
  // The last one has ended while another page was open.
  wire.get("runs?limit=1").then(({runs}) => {
    if (shown === null && runs[0]?.outcome && !wire.status?.run) end(runs[0]);
  }, () => {});
  update();
  return () => {
    closed = true;
    for (const stop of ends) stop();
  };
}
