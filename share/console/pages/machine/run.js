// The run that is under way, else the last one, with its steps as they begin and end.

import {wire} from "../../wire.js";

const kMostSteps = 1000;

export class Run {
  id = 0;  // 0: nothing has run yet
  head = null;
  steps = [];  // {level, number, count, description, startMs, durationMs, over}, as they began; the last ones of many
  over = true;
  problem = null;  // why it could not be read
  #listeners = new Set();
  #ends = [];
  #closed = false;

  on(listener) {
    this.#listeners.add(listener);
    return () => this.#listeners.delete(listener);
  }
  #tell() {
    for (const listener of [...this.#listeners]) listener();
  }

  open() {
    this.#ends = [
      wire.on("run", (event) => this.#told(event)),
      wire.on("step", (event) => event.run === this.id && this.#step(event)),
      wire.on("connection", (connected) => connected && this.#find()),
    ];
    this.#find();
  }
  close() {
    this.#closed = true;
    for (const end of this.#ends) end();
  }

  // Where XY goes, [[x, y], ...], as far as its steps know by now; empty: not known.
  get plan() {
    return this.head?.plan ?? [];
  }

  async #find() {
    try {
      const id = wire.status?.run?.id ?? (await wire.get("runs?limit=1")).runs[0]?.id ?? 0;
      if (id !== 0) await this.#read(id);
    } catch (problem) {
      this.problem = problem;
    }
    if (!this.#closed) this.#tell();
  }

  async #read(id) {
    try {
      const head = await wire.get("runs/" + id);
      if (this.#closed || id < this.id) return;
      // What began while the answer was under way is not in it.
      const known = (head.steps ?? []).slice(-kMostSteps);
      const later = id === this.id ? this.steps.filter((step) => !known.some((other) => same(step, other))) : [];
      Object.assign(this, {id, head, problem: null, over: head.outcome !== null, steps: known.map((step) => ({...step, over: true}))});
      if (!this.over) {
        // The last one of each level stands until the next one begins.
        for (let level = 0, from = 0; ; ++level) {
          const at = this.steps.findLastIndex((step, i) => i >= from && step.level === level);
          if (at < 0) break;
          this.steps[at].over = false;
          from = at;
        }
        for (const step of later) this.#add(step);
      }
    } catch (problem) {
      this.problem = problem;
    }
    this.#tell();
  }

  #told(event) {
    if (event.event === "ended") return this.#read(event.id);
    if (event.event === "begun") Object.assign(this, {id: event.id, head: event, steps: [], over: false, problem: null});
    else if (event.event === "planned" && event.id === this.id) this.head = {...this.head, plan: event.plan};
    else return undefined;
    return this.#tell();
  }

  #step(event) {
    this.#add({...event, durationMs: null, over: false});
    this.#tell();
  }
  #add(step) {
    for (const open of this.steps)
      if (!open.over && open.level >= step.level) Object.assign(open, {over: true, durationMs: step.startMs - open.startMs});
    this.steps.push(step);
    if (this.steps.length > kMostSteps) this.steps = this.steps.slice(kMostSteps / 2);
  }
}

function same(a, b) {
  return a.level === b.level && a.number === b.number && a.startMs === b.startMs;
}
