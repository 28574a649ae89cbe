// One recording as plots, one for each unit; another one laid over it from an event on.

import {el, replace} from "../dom.js";
import {indices, overlay, Plot} from "../plot.js";
import {mark, tr} from "../texts.js";
import {field, numberText, problemBox} from "../widgets.js";
import {wire} from "../wire.js";
import {Recording} from "./recordingdata.js";
import {alarmText, bandsOf} from "./runs/bands.js";

const kRefineMs = 300;  // behind the last change of the zoom
// Which signals stand in one plot, by the beginning of their names; "state" is shown as bands.
const kPlots = [
  {signals: ["position."], title: mark("Position in mm")},
  {signals: ["speed."], title: mark("Speed in mm/s")},
  {signals: ["acceleration."], title: mark("Acceleration in mm/s2")},
  {signals: ["following-error."], title: mark("Following error in mm")},
  {signals: ["gas-pressure"], title: mark("Gas pressure in bar")},
  {signals: ["laser", "emission"], title: mark("Laser and emission"), stepped: true},
  {signals: ["gas-branch"], title: mark("Gas branch"), stepped: true},
];

export class RecordingPlot {
  // saved: kept(...) with over, align, zoom, hidden; list: the recordings that there are.
  constructor(root, saved, list) {
    Object.assign(this, {root, saved, list, plots: [], timer: null, asked: 0});
  }

  close() {
    this.closed = true;  // what is still being read is shown to nobody
    clearTimeout(this.timer);
    for (const plot of [...this.plots]) plot.close();
  }

  async open(name) {
    const mine = ++this.asked;
    // What is shown stays until there is something else: the page does not jump.
    if (this.plots.length === 0) replace(this.root, el("p", {class: "aside"}, tr("The recording is being read.")));
    this.root.classList.add("stale-values");
    try {
      const known = this.first?.name === name;
      const first = known ? this.first : await Recording.read(name);
      const over = this.saved.get("over");
      const second = over && over !== name && this.list.some((file) => file.name === over) ? await Recording.read(over) : null;
      const {changed} = this.list.find((file) => file.name === name);
      const runs = known ? this.runs : await first.runs(changed, wire.machine?.speed || 1).catch(() => []);
      if (mine !== this.asked) return;
      Object.assign(this, {first, second, runs});
      await this.align(mine);
    } catch (problem) {
      if (!("what" in problem)) throw problem;
      if (mine === this.asked) replace(this.root, problemBox(problem));
    } finally {
      if (mine === this.asked) this.root.classList.remove("stale-values");
    }
  }

  // Shows both, the second one moved so that the first rising edge of the chosen signal is where the first one has it.
  async align(mine = ++this.asked) {
    const signal = this.second && this.saved.get("align");
    const [a, b] = signal ? await Promise.all([this.first, this.second].map((recording) => recording.risingEdges(signal))) : [];
    if (mine !== this.asked) return;
    this.move(a, b);
    this.show();
  }

  // By the edges of the two; undefined where nothing is to be moved.
  move(a, b) {
    this.aligned = "";
    if (this.second) this.second.shiftMs = 0;
    if (!a) return;
    if (a.length === 0 || b.length === 0) {
      this.aligned = tr("One of the two has no such edge: both are shown from their beginnings.");
      return;
    }
    this.second.shiftMs = a[0] - b[0];
    this.aligned = tr("The second one is moved by %s s.", numberText(this.second.shiftMs / 1000, 3));
  }

  show() {
    if (this.closed) return;
    for (const plot of [...this.plots]) plot.close();
    this.plots = [];
    const {first, second} = this;
    const others = this.list.filter((file) => file.name !== first.name).map((file) => ({value: file.name, text: file.name}));
    const over = field({name: "over", title: tr("Lay another one over it"), empty: tr("none"), choices: others}, second?.name);
    over.input.addEventListener("change", () => {
      this.saved.set({over: over.input.value});
      this.open(first.name);
    });
    const common = first.signals.filter(({name}) => second?.has(name));
    const align = second && field({name: "align", title: tr("Both begin where this signal first rises"), empty: tr("none"),
      choices: common.map(({name, caption}) => ({value: name, text: caption}))}, this.saved.get("align"));
    align?.input.addEventListener("change", () => {
      this.saved.set({align: align.input.value});
      this.align().catch((problem) => replace(this.root, problemBox(problem)));
    });
    const nodes = kPlots.map((of) => this.plot(of)).filter(Boolean);
    replace(this.root,
      el("h2", second ? tr("%s, dashed: %s", first.name, second.name) : first.name),
      el("div", {class: "row choices"}, over.node, align?.node), this.aligned && el("p", this.aligned),
      this.runs.length > 0 && el("p", {class: "aside"}, tr("The bands are the steps of: %s.",
        this.runs.map((run) => [tr("run %s, %s", run.id, run.procedure), ...run.alarms.map(alarmText)].join(" ")).join("; "))),
      this.plots[0]?.zoomButtons(), nodes.length ? nodes : el("p", tr("The recording has no values.")));
    for (const plot of this.plots) plot.draw();
    const zoom = this.saved.get("zoom");
    if (zoom) this.refine(zoom);
  }

  plot({signals, title, stepped}) {
    const wanted = (name) => signals.some((start) => name.startsWith(start));
    const series = this.first.signals.filter(({name}) => wanted(name)).map((signal) => ({...signal, of: this.first}));
    if (series.length === 0) return null;
    for (const signal of this.second?.signals ?? [])
      if (wanted(signal.name)) series.push({...signal, of: this.second, caption: tr("%s, the second", signal.caption)});
    const names = [...new Set(series.map(({name}) => name))];
    const plot = new Plot({title: tr(title), x: tr("Time in s"), labels: series.map(({caption}) => caption), stepped,
      colours: series.map(({name}) => names.indexOf(name)), dashed: indices(series, ({of}) => of === this.second),
      group: this.plots, kept: this.saved, bands: this.runs.flatMap((run) => bandsOf(run, run.atMs)),
      onzoom: (window) => this.refine(window)});
    plot.rowsNow = () => overlay(series.map(({name, of}) => of.points(name)));
    plot.rows = plot.rowsNow();
    return plot.node;
  }

  // What is looked at closely is read again.
  refine(window) {
    clearTimeout(this.timer);
    this.timer = setTimeout(async () => {
      try {
        const changed = await Promise.all([this.first, this.second].filter(Boolean).map((recording) => recording.refine(window)));
        if (changed.includes(true)) for (const plot of this.plots) plot.set(plot.rowsNow());
      } catch (problem) {
        if (!("what" in problem)) throw problem;  // the coarse points stay
      }
    }, kRefineMs);
  }
}
