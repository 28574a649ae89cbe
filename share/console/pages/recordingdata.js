// A recording as its plots need it: read coarsely, read again finely where it is looked at, its edges, and what ran.

import {wire} from "../wire.js";

const kPoints = 1500;  // of each signal, of what is shown
const kMostPoints = 20000;  // that one answer holds
const kSameRunMs = 2000;  // real time between a run's start and the edge that it made
const kFitted = 20;  // so many edges are enough to tell which runs they are of
const kDoubt = 10;  // how much less the file's own time is worth than what lies between edges
const kSlackMs = 200;  // that a beginning is not known better than

export class Recording {
  constructor(name, all) {
    this.name = name;
    this.all = all;  // as it was answered for the whole time
    this.fine = null;  // and for a part of it
    this.asked = 0;  // for how many parts
    this.shiftMs = 0;  // to where it is shown
  }

  static async read(name) {
    return new Recording(name, await wire.get("recordings/" + name + "?points=" + kPoints));
  }

  get signals() {
    return this.all.signals;
  }
  has(signal) {
    return this.signals.some(({name}) => name === signal);
  }
  get lengthMs() {
    return Math.max(0, ...this.signals.map(({ms}) => ms.at(-1) ?? 0)) + this.all.everyMs;
  }

  // Reads what is between two times of the plot more finely; false where the points at hand are as fine.
  async refine(window) {
    const mine = ++this.asked;
    const had = this.fine !== null;
    this.fine = null;
    if (!window || this.all.everyMs === 1) return had;
    const fromMs = Math.max(0, Math.floor(window[0] * 1000 - this.shiftMs));
    const toMs = Math.ceil(window[1] * 1000 - this.shiftMs);
    if (toMs <= fromMs) return had;
    const part = await wire.get("recordings/" + this.name + "?points=" + kPoints + "&fromMs=" + fromMs + "&toMs=" + toMs);
    if (mine !== this.asked) return false;
    this.fine = {...part, fromMs, toMs};
    return true;
  }

  // [[s, value], ...]: of the samples that a point stands for the lowest and the highest.
  points(signal) {
    const list = [];
    const add = ({signals, everyMs}, wanted) => {
      const values = signals.find(({name}) => name === signal);
      values?.ms.forEach((ms, i) => {
        if (!wanted(ms)) return;
        list.push([(ms + this.shiftMs) / 1000, values.low[i]]);
        if (values.high[i] !== values.low[i]) list.push([(ms + everyMs / 2 + this.shiftMs) / 1000, values.high[i]]);
      });
    };
    const {fine} = this;
    add(this.all, (ms) => !fine || ms < fine.fromMs || ms > fine.toMs);
    if (fine) add(fine, () => true);
    return list.sort((a, b) => a[0] - b[0]);
  }

  // The times in ms, exactly, where a signal rises above a value, else above half of its range.
  async risingEdges(signal, above) {
    const path = "recordings/" + this.name + "?signals=" + signal + "&points=" + kMostPoints;
    const ask = async (part) => (await wire.get(path + part)).signals[0];
    const coarse = await ask("");
    if (!coarse) return [];
    const half = above ?? (Math.max(...coarse.high) + Math.min(...coarse.low)) / 2;
    const edges = [];
    const {ms, high} = coarse;
    for (let i = 1; i < ms.length; ++i) {
      if (!(high[i - 1] <= half && high[i] > half)) continue;
      const width = ms[i] - ms[i - 1];
      const fine = width === 1 ? coarse : await ask("&fromMs=" + ms[i - 1] + "&toMs=" + (ms[i] + width));
      edges.push(width === 1 ? ms[i] : fine.ms.find((at, k) => fine.high[k] > half));
    }
    return edges;
  }

  // The runs that it shows, each with its steps and where it began: an edge of the signal "state" at about the run's
  // start. `changed`: when the file was finished; `speed`: of the machine's clock.
  async runs(changed, speed) {
    if (!this.has("state")) return [];
    const edges = await this.risingEdges("state", 0);
    const heads = (await wire.get("runs?limit=100")).runs;
    const startOf = (run) => new Date(run.start).getTime();
    const startMs = beginOf(new Date(changed).getTime() - this.lengthMs / speed, edges.slice(0, kFitted).map((ms) => ms / speed), heads.map(startOf));
    const found = [];
    const add = async (head, atMs) => {
      const run = await wire.get("runs/" + head.id);
      found.push({...run, alarms: run.alarms ?? [], atMs});
    };
    for (const edge of edges) {
      const away = (run) => Math.abs(startOf(run) - startMs - edge / speed);
      const head = heads.reduce((best, run) => (best && away(best) <= away(run) ? best : run), null);
      if (head && away(head) < kSameRunMs && !found.some(({id}) => id === head.id)) await add(head, edge);
    }
    // It begins within a run.
    const within = this.signals.find(({name}) => name === "state").low[0] > 0;
    const beginMs = found.length > 0 ? startOf(found[0]) - found[0].atMs / speed : startMs;
    const first = within && heads.find((run) => startOf(run) < Math.min(beginMs + kSlackMs, ...found.map(startOf)) && !(new Date(run.end ?? Infinity).getTime() < beginMs));
    if (first && !found.some(({id}) => id === first.id)) await add(first, Math.min(0, startOf(first) - beginMs) * speed);
    return found.sort((a, b) => a.atMs - b.atMs);
  }
}

// When a recording began, ms of real time: at about a time, so that its edges lie where runs have started.
function beginOf(aboutMs, edges, starts) {
  const off = (beginMs) => edges.reduce((sum, edge) => sum + Math.min(...starts.map((start) => Math.abs(start - beginMs - edge))),
    Math.abs(beginMs - aboutMs) / kDoubt);
  return edges.flatMap((edge) => starts.map((start) => start - edge)).filter((begin) => Math.abs(begin - aboutMs) < kSameRunMs)
    .reduce((best, begin) => (off(begin) < off(best) ? begin : best), aboutMs);
}
