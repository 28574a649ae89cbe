// Registers of a link that the controller reads again and again while this is looked at.

import {el, replace, setText} from "../dom.js";
import {kept} from "../kept.js";
import {mark, tr} from "../texts.js";
import {attempt, durationText, field, problemBox, readAll, table} from "../widgets.js";
import {wire} from "../wire.js";

const kLookMs = 1000;
const kRates = [100, 200, 500, 1000, 2000, 5000, 10000, 60000];  // ms
const kTables = {holding: mark("holding registers"), input: mark("input registers"), coils: mark("coils"), discrete: mark("discrete inputs")};
const saved = kept("registers", {link: "", unit: 1, table: "holding", addr: 0, count: 8, everyMs: 1000});

export class Registers {
  constructor() {
    this.form = el("div");
    this.readings = el("div");
    this.said = el("p", {class: "aside", role: "status"});
    this.node = el("section", {class: "card registers", hidden: true}, el("h2", tr("Registers")),
      el("p", {class: "aside"}, tr("The controller only reads, over a connection of its own, for as long as this page is open.")),
      this.form, this.said, this.readings);
    this.timer = setInterval(() => this.path && this.look().catch(() => {}), kLookMs);
  }

  close() {
    clearInterval(this.timer);
    if (this.path) wire.delete(this.path).catch(() => {});
  }

  // The links that there are.
  show(links) {
    this.node.hidden = links.length === 0;
    const whole = (name, title, lowest, highest) => field({name, title, type: "integer", lowest, highest, required: true}, saved.get(name));
    const choice = (name, title, choices) => field({name, title, type: name === "everyMs" ? "integer" : "text", required: true, choices}, saved.get(name) || choices[0].value);
    const fields = [
      choice("link", tr("Link"), links.map(({name}) => ({value: name, text: name}))),
      whole("unit", tr("Unit"), 1, 255),
      choice("table", tr("Table"), Object.entries(kTables).map(([value, text]) => ({value, text: tr(text)}))),
      whole("addr", tr("First"), 0, 65535),
      whole("count", tr("How many"), 1, 64),
      choice("everyMs", tr("Every"), kRates.map((ms) => ({value: ms, text: durationText(ms)}))),
    ];
    const begin = () => {
      const values = readAll(fields);
      if (!values) return;
      saved.set(values);
      const {link, ...asked} = values;
      attempt(async () => {
        const path = "links/" + encodeURIComponent(link) + "/watch";
        await wire.post(path, asked);
        this.path = path;
        await this.look();
      });
    };
    replace(this.form, el("div", {class: "row choices"}, fields.map(({node}) => node)),
      el("div", {class: "row"}, el("button", {class: "main", onclick: begin}, tr("Watch")),
        el("button", {onclick: () => this.end()}, tr("End"))));
  }

  async end() {
    const {path} = this;
    this.path = null;
    if (path) await attempt(() => wire.delete(path));
    setText(this.said, "");
  }

  async look() {
    const {watched} = await wire.get(this.path);
    if (!this.path) return;
    if (!watched) this.path = null;  // the controller was not asked for a while
    const {addr, reads, failures, ageMs, problem, values} = watched ?? {values: []};
    setText(this.said, !watched ? tr("Nothing is watched any more.") : tr("%d readings, %d of them failed; the last good one is %s old",
      reads, failures, durationText(ageMs)));
    const shown = JSON.stringify([addr, problem, values]);
    if (!watched || shown === this.shown) return;
    this.shown = shown;
    const of = values.map((value, i) => ({...value, at: addr + i}));
    replace(this.readings, problem && problemBox(problem), of.length > 0 && table(tr("As they were read last"), [
      {title: tr("Address"), number: true, cell: "at"},
      {title: tr("Value"), number: true, cell: "value"},
      {title: tr("Hex"), number: true, cell: ({value}) => value.toString(16).toUpperCase().padStart(4, "0")},
      {title: tr("Least"), number: true, cell: "least"},
      {title: tr("Most"), number: true, cell: "most"},
      {title: tr("Changes"), number: true, cell: "changes"},
    ], of));
  }
}
