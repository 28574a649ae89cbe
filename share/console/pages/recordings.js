// Recordings of signals: made, followed while they are made, listed, looked at, taken away and deleted.

import {el, goOnFrom, replace, setText} from "../dom.js";
import {kept} from "../kept.js";
import {Plot} from "../plot.js";
import {mark, tr} from "../texts.js";
import {agree, attempt, durationText, field, loadPage, numberText, readAll, say, table, timeText} from "../widgets.js";
import {wire} from "../wire.js";
import {RecordingPlot} from "./recordingplot.js";

const kLookMs = 1000;
const kLiveRows = 600;
const kMostValues = 4000;  // signals times seconds of one recording
const kAxes = ["X", "Y", "Z", mark("Focus")];  // 1 to 4
const kAxisSignals = [
  {name: "position", title: mark("Position")},
  {name: "speed", title: mark("Speed")},
  {name: "acceleration", title: mark("Acceleration")},
  {name: "following-error", title: mark("Following error")},
];
const kSignals = [
  {name: "laser", title: mark("Laser")},
  {name: "emission", title: mark("Emission")},
  {name: "gas-pressure", title: mark("Gas pressure")},
  {name: "gas-branch", title: mark("Gas branch")},
  {name: "state", title: mark("State of the machine: it shows the steps of runs")},
];
const saved = kept("recordings", {signals: ["position", "laser", "emission", "gas-pressure", "state"],
  axes: ["1", "2", "3", "4"], seconds: 60, open: "", over: "", align: "", zoom: null});

// What the plots of the one that is being made show: it outlives the page, and what comes meanwhile belongs to it.
const live = {name: "", mm: [], bar: []};
function take({position: {xMm, yMm, zMm, focusMm}, gas, laser, emission, machineMs}) {
  const s = machineMs / 1000;
  if (!live.name || !(s > (live.mm.at(-1)?.[0] ?? 0))) return;
  live.mm = [...live.mm.slice(1 - kLiveRows), [s, xMm, yMm, zMm, focusMm]];
  live.bar = [...live.bar.slice(1 - kLiveRows), [s, gas.bar, Number(laser), Number(emission)]];
}
// What changes comes as events; what stays as it is, with the status.
wire.on("signals", take);
wire.on("status", ({signals, machineMs}) => take({...signals, machineMs}));
wire.on("restarted", () => (live.name = ""));

const sizeText = (bytes) => (bytes < 1e6 ? numberText(bytes / 1e3, 0) + " kB" : numberText(bytes / 1e6, 1) + " MB");

// "rec-20261122-143005", of the local time.
function newName() {
  const local = new Date(Date.now() - new Date().getTimezoneOffset() * 60000);
  return "rec-" + local.toISOString().slice(0, 19).replace(/[-:]/g, "").replace("T", "-");
}

function chosenSignals() {
  const chosen = saved.get("signals");
  const axes = saved.get("axes");
  return [
    ...kAxisSignals.filter(({name}) => chosen.includes(name)).flatMap(({name}) => axes.map((axis) => name + "." + axis)),
    ...kSignals.filter(({name}) => chosen.includes(name)).map(({name}) => name),
  ];
}

class RecordingsPage {
  constructor(root) {
    this.loads = 0;
    this.make = el("section", {class: "card"});
    this.files = el("section", {class: "card"});
    this.shown = el("section", {class: "card shown"});
    replace(root, el("div", {class: "columns"}, this.make, this.files), this.shown);
    this.end = wire.on(["signals", "status"], () => this.showLive());
    this.timer = setInterval(() => this.look(), kLookMs);
  }

  close() {
    this.closed = true;
    this.end();
    clearInterval(this.timer);
    this.plot?.close();
    this.closeLive();
  }

  async load() {
    const mine = ++this.loads;
    const {recordings, running} = await wire.get("recordings");
    if (mine !== this.loads || this.closed) return;
    const before = this.running?.name;
    this.list = recordings;
    this.running = running;
    this.showMake();
    this.showList();
    const name = saved.get("open");
    if (recordings.some((file) => file.name === name)) {
      if (!this.plot) await this.open(name);
    } else this.shown.hidden = true;
    if (!running) live.name = "";
    if (before && !running) say(tr("%s is recorded", before));
  }

  // While one is being made, how far it is; its end is seen by this, too.
  async look() {
    if (!this.running || this.looking) return;
    this.looking = true;
    try {
      const {running} = await wire.get("recordings");
      if (running?.name !== this.running?.name) await this.load();
      else this.showProgress(running);
    } catch {
      // Said by the age of what is shown.
    } finally {
      this.looking = false;
    }
  }

  // --- making one ---

  showMake() {
    this.closeLive();
    if (this.running) return this.showRunning();
    const about = el("p", {class: "aside", role: "status"});
    const summary = tr("letters, digits, and . _ -");
    const name = field({name: "name", title: tr("Name"), required: true, summary}, newName());
    const seconds = field({name: "seconds", title: tr("At most"), type: "number", unit: "s", lowest: 0.001, highest: 600, required: true},
      saved.get("seconds"));
    const tell = () => {
      const count = chosenSignals().length;
      setText(about, count === 0 ? tr("Choose at least one signal.")
        : tr("%d signals, one sample a millisecond each, for %d s at most", count, Math.min(600, Math.floor(kMostValues / count))));
    };
    const boxes = (legend, member, choices) => el("fieldset", el("legend", legend), choices.map(({value, text}) => {
      const box = el("input", {type: "checkbox", checked: saved.get(member).includes(value), onchange: () => {
        const others = saved.get(member).filter((other) => other !== value);
        saved.set({[member]: box.checked ? [...others, value].sort() : others});
        tell();
      }});
      return el("label", {class: "choice"}, box, text);
    }));
    const of = (rows) => rows.map((row) => ({value: row.name, text: tr(row.title)}));
    const start = async () => {
      const values = readAll([name, seconds]);
      const signals = chosenSignals();
      if (!values || signals.length === 0) return;
      saved.set({seconds: values.seconds});
      await attempt(async () => {
        await wire.post("recordings", {name: values.name, signals, limitMs: Math.round(values.seconds * 1000)});
        await this.load();
      });
    };
    replace(this.make, el("h2", tr("Record")),
      boxes(tr("Of the axes"), "signals", of(kAxisSignals)),
      boxes(tr("Axes"), "axes", kAxes.map((axis, i) => ({value: String(i + 1), text: tr(axis)}))),
      boxes(tr("Of the machine"), "signals", of(kSignals)), about, el("div", {class: "row"}, name.node, seconds.node),
      el("button", {class: "main", onclick: start}, tr("Start recording")));
    tell();
  }

  showRunning() {
    this.bar = el("progress", {max: this.running.limitMs, "aria-label": tr("How much is recorded")});
    this.done = el("p");
    if (live.name !== this.running.name) Object.assign(live, {name: this.running.name, mm: [], bar: []});
    this.plots = {
      mm: new Plot({title: tr("Position in mm"), x: tr("Time of the machine in s"), labels: kAxes.map((axis) => tr(axis))}),
      bar: new Plot({title: tr("Pressure, laser and emission"), x: tr("Time of the machine in s"), stepped: true,
        labels: [tr("Gas pressure in bar"), tr("Laser"), tr("Emission")]}),
    };
    const end = () => attempt(async () => {
      await wire.delete("recordings/" + this.running.name + "/running");
      await this.load();
    });
    replace(this.make, el("h2", tr("%s is being recorded", this.running.name)), this.bar, this.done,
      el("button", {class: "main", onclick: end}, tr("End recording")),
      el("p", {class: "aside"}, tr("The plots show how it is now; the file has every sample.")), this.plots.mm.node, this.plots.bar.node);
    this.showProgress(this.running);
    this.showLive();
  }

  showProgress({recordedMs, limitMs, signals}) {
    this.bar.value = recordedMs;
    setText(this.done, tr("%s of %s, %d signals", durationText(recordedMs), durationText(limitMs), signals));
  }

  showLive() {
    for (const [id, plot] of Object.entries(this.plots ?? {})) if (plot.rows !== live[id]) plot.set(live[id]);
  }

  closeLive() {
    for (const plot of Object.values(this.plots ?? {})) plot.close();
    this.plots = null;
  }

  // --- those that there are ---

  showList() {
    const heading = el("h2", tr("Recordings"));
    if (this.list.length === 0) return replace(this.files, heading, el("p", tr("Nothing was recorded yet.")));
    const newest = this.list.toSorted((a, b) => b.changed.localeCompare(a.changed));
    replace(this.files, heading, table(tr("The newest first; the name shows it"), [
      {title: tr("Name"), cell: "name"},
      {title: tr("Ended"), cell: ({changed}) => timeText(changed)},
      {title: tr("Size"), number: true, cell: ({bytes}) => sizeText(bytes)},
      {title: "", cell: ({name}) => el("div", {class: "actions"},
        el("a", {class: "button", href: "/api/v1/recordings/" + name + "/file", download: name + ".csv",
          "aria-label": tr("Download %s", name)}, tr("Download")),
        el("button", {"aria-label": tr("Delete %s", name), onclick: () => this.remove(name)}, tr("Delete")))},
    ], newest, {onrow: ({name}) => this.choose(name), rowClass: ({name}) => name === saved.get("open") && "chosen"}));
  }

  async choose(name) {
    saved.set({open: name, over: "", zoom: null});
    this.showList();
    const opened = this.open(name);
    this.shown.scrollIntoView({block: "nearest"});
    await opened;
    this.shown.scrollIntoView({block: "start"});
    goOnFrom(this.shown);
  }

  async open(name) {
    this.plot?.close();
    this.shown.hidden = false;
    const content = el("div");
    replace(this.shown, content);
    this.plot = new RecordingPlot(content, saved, this.list);
    await this.plot.open(name);
  }

  async remove(name) {
    if (!(await agree(tr("Delete %s?", name), el("p", tr("The recording is gone then.")), tr("Delete"), {kind: "danger", no: tr("Keep")}))) return;
    await attempt(async () => {
      const shown = saved.get("open") === name;
      if (shown) {
        this.plot?.close();  // it reads finely what is zoomed
        this.plot = null;
      }
      try {
        await wire.delete("recordings/" + name);
        if (shown) saved.set({open: "", over: "", zoom: null});
      } finally {
        await this.load();
      }
      goOnFrom(this.files);
      say(tr("%s is deleted", name));
    });
  }
}

export function open(root) {
  return loadPage(new RecordingsPage(root));
}
