// The steps of the run as a tree that is open where the run is at; each with its time.

import {el, replace, setText} from "../../dom.js";
import {tr} from "../../texts.js";
import {durationText, problemBox, rarely} from "../../widgets.js";
import {wire} from "../../wire.js";

const kShowMs = 250;
const kMostShown = 200;  // of one list

export class Steps {
  #first = null;  // of run.steps
  #told = "";
  #rows = [];  // of run.steps, as far as they are shown: {item, sign, time, list}
  #parents = [];  // by level, the row that stands

  constructor(run) {
    this.run = run;
    this.what = el("span", {class: "aside"});
    this.earlier = el("p", {class: "aside"});
    this.list = el("ol");
    this.box = el("div", {class: "tree", tabindex: "0", role: "region", "aria-label": tr("Steps of the run")}, this.earlier, this.list);
    this.end = el("div");
    this.node = el("section", {class: "card"}, 
      el("div", {class: "row heading"}, el("h2", tr("Steps of the run")), this.what), this.box, this.end);
    this.rarely = rarely(kShowMs, () => this.#show());
    this.ends = [run.on(this.rarely), wire.on("status", () => run.over || this.rarely())];
    this.#show();
  }

  #show() {
    const {run} = this;
    const key = [run.id, run.over, run.problem?.what].join(" ");
    const atEnd = this.box.scrollTop + this.box.clientHeight >= this.box.scrollHeight - 8;
    if (run.steps[0] !== this.#first) this.#clear();
    const now = run.over ? run.head?.durationMs : wire.status?.run?.runMs;
    if (run.id === 0) setText(this.what, tr("Nothing has run yet"));
    else setText(this.what, [run.head.procedure, tr("run %d", run.id), durationText(now)].join(" \u00b7 "));
    for (let i = this.#rows.length; i < run.steps.length; ++i) this.#append(run.steps[i]);
    run.steps.forEach((step, i) => this.#update(this.#rows[i], step, now));
    const gone = (this.list.firstElementChild?.value ?? 1) - 1;
    setText(this.earlier, gone > 0 ? tr("%d earlier steps are not shown", gone) : "");
    this.box.hidden = run.steps.length === 0;
    if (atEnd) this.box.scrollTop = this.box.scrollHeight;
    if (key === this.#told) return;
    this.#told = key;
    const {problem} = run.head ?? {};
    replace(this.end, run.problem ? problemBox(run.problem) : problem ? problemBox(problem)
      : run.over && run.head ? el("p", {class: "ended"}, el("b", {class: run.head.success ? "good" : "bad"}, run.head.words ?? run.head.outcome))
      : null);
  }

  #clear() {
    this.#first = this.run.steps[0];
    this.#rows = [];
    this.#parents = [];
    replace(this.list);
  }

  #append(step) {
    const sign = el("span", {class: "aloud"});
    const time = el("span", {class: "number"});
    const line = el("div", {class: "line-of"}, el("span", {class: "sign-of"}, sign), el("span", {class: "aside number"}, step.number + "/" + step.count),
      el("span", {class: "text"}, step.description), time);
    const row = {item: el("li", {value: step.number}, line), line, sign, time, list: null, state: ""};
    const parent = this.#parents[step.level - 1];
    append(parent ? listOf(parent) : this.list, row.item);
    this.#parents.length = step.level;
    this.#parents[step.level] = row;
    this.#rows.push(row);
  }

  #update(row, step, now) {
    if (row.state === "over" && step.over) return;
    const failed = this.run.over && this.run.head?.success === false && step === this.run.steps.at(-1);
    const ms = step.over ? step.durationMs : now === undefined ? null : Math.max(0, now - step.startMs);
    setText(row.time, durationText(ms));
    const state = failed ? "failed" : step.over ? "over" : "stands";
    if (row.state === state) return;
    row.state = state;
    row.item.className = state;
    setText(row.sign, state === "failed" ? tr("failed") : state === "over" ? tr("over") : tr("now"));
    if (row.details) row.details.open = state !== "over";
  }

  close() {
    this.rarely.end();
    for (const end of this.ends) end();
  }
}

// A step gets a list when its first own step begins.
function listOf(row) {
  if (row.list) return row.list;
  row.list = el("ol");
  row.details = el("details", {open: true}, el("summary", row.line), row.list);
  replace(row.item, row.details);
  return row.list;
}

function append(list, item) {
  list.append(item);
  if (list.children.length > kMostShown) list.firstElementChild.remove();
}
