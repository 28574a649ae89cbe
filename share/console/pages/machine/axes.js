// Positions of the axes and their steps by hand: each a run of the procedure that moves the axis, refused beforehand
// where it would leave the axis' limits.

import {el, setText} from "../../dom.js";
import {kept} from "../../kept.js";
import {mark, tr} from "../../texts.js";
import {millimetres, say, tabs, withControl} from "../../widgets.js";
import {wire} from "../../wire.js";
import {stateText} from "../../bar.js";
import {plateOf} from "./side.js";

const kSteps = [0.1, 1, 10, 100];
const kEndMs = 1000;
const kSlackMm = 1e-3;

const saved = kept("machine.axes", {step: 10});

// The axes as the controller names them; arrows as the page draws them: Y upwards on the bed, Z downwards to the plate.
const kAxes = [
  {id: "x", title: "X", letter: "X", needs: "axes", at: "xMm", arrows: ["\u2190", "\u2192"], moves: "axes",
    run: (to, at) => ({procedure: "move-xy", params: {x: to, y: at.yMm}}), speed: "JogXY/NormalJogSpeed"},
  {id: "y", title: "Y", letter: "Y", needs: "axes", at: "yMm", arrows: ["\u2193", "\u2191"], moves: "axes",
    run: (to, at) => ({procedure: "move-xy", params: {x: at.xMm, y: to}}), speed: "JogXY/NormalJogSpeed"},
  {id: "z", title: "Z", letter: "Z", needs: "followers", at: "zMm", arrows: ["\u2191", "\u2193"], moves: "z",
    run: (to) => ({procedure: "move-z", params: {z: to}}), speed: "JogZ[1]/NormalJogSpeed"},
  {id: "focus", title: mark("Focus"), letter: "F", needs: "head", at: "focusMm", arrows: ["", ""], moves: "focus",
    run: (to) => ({procedure: "focus", params: {focus: to}})},
];

export class Axes {
  #sent = false;  // a step is under way

  constructor(machine, properties) {
    this.plateAt = plateOf(machine, properties);
    this.rows = kAxes.filter(({needs}) => machine.fitted[needs]).map((axis) => this.#row(axis, machine.axes[axis.id], properties[axis.speed]));
    this.reason = el("p", {class: "reason", id: "axes-reason", role: "status"});
    this.node = el("section", {class: "card axes"},
      el("div", {class: "row heading"}, el("h2", tr("Axes")),
        el("div", {class: "row"}, el("span", {class: "aside", "aria-hidden": "true"}, tr("Step, mm")), tabs(tr("Step, mm"), kSteps.map((step) => ({id: step, title: String(step)})), saved.get("step"), (step) => {
          saved.set({step});
          if (wire.status && this.rows) this.show(wire.status);
        }))),
      this.rows.map(({node}) => node), this.reason);
  }

  #row(axis, limits, speed) {
    const row = {axis, limits, speed, value: el("b", {class: "number"}), moving: el("small", {class: "moving"})};
    row.buttons = [-1, 1].map((sign, i) => {
      const left = el("small");
      const name = axis.letter + (sign < 0 ? "\u2212" : "+");
      const button = el("button", {class: "jog", "aria-describedby": "axes-reason", onclick: () => this.#step(row, sign)},
        el("b", name, " ", el("span", {"aria-hidden": "true"}, axis.arrows[i])), left);
      return {button, left, sign};
    });
    row.node = el("div", {class: "axis-row"},
      el("span", {class: "name"}, el("b", tr(axis.title)), row.moving),
      el("span", {class: "place"}, row.value, el("span", {class: "unit"}, " mm")),
      row.buttons.map(({button}) => button));
    return row;
  }

  // Why no axis may be moved by hand now; empty: it may.
  #refusal({state, run, allOff, allowMove, signals}) {
    if (wire.stale) return tr("No connection to the controller");
    if (wire.session.role === "viewer") return tr("This page may only look");
    if (allOff) return tr("All off");
    if (run) return tr("Running: %s", run.procedure);
    if (state !== "standby") return stateText(state);
    if (!allowMove) return tr("Motion is forbidden");
    if (this.#sent || Object.values(signals.moving).some(Boolean)) return tr("An axis moves");
    return "";
  }

  // From where the axis stands to where it must not go any further, mm: its limit, or the plate.
  #left({axis, limits}, sign, position) {
    if (sign < 0) return Math.max(0, position[axis.at] - limits.leastMm);
    const most = axis.id === "z" ? Math.min(limits.mostMm, this.plateAt(position) ?? limits.mostMm) : limits.mostMm;
    return Math.max(0, most - position[axis.at]);
  }

  show(status) {
    const refusal = this.#refusal(status);
    const step = saved.get("step");
    setText(this.reason, refusal);
    for (const row of this.rows) {
      const {position, moving} = status.signals;
      setText(row.value, millimetres(position[row.axis.at]));
      setText(row.moving, moving[row.axis.moves] ? tr("moves") : "");
      for (const {button, left, sign} of row.buttons) {
        const mm = this.#left(row, sign, position);
        const short = mm < step - kSlackMm;
        const shown = millimetres(mm, mm < 100 ? 2 : 1);
        setText(left, mm < kSlackMm ? tr("at the end") : short ? tr("just %s", shown) : tr("%s left", shown));
        const off = Boolean(refusal) || short ? "true" : "false";
        if (button.getAttribute("aria-disabled") !== off) button.setAttribute("aria-disabled", off);
      }
    }
  }

  async #step(row, sign) {
    if (!wire.status) return;
    const refusal = this.#refusal(wire.status);
    if (refusal) return say(refusal);
    this.#sent = true;
    this.show(wire.status);
    await runThrough(async () => {
      const {position} = (await wire.get("status")).signals;  // not as it was seen last
      const step = saved.get("step");
      if (this.#left(row, sign, position) < step - kSlackMm) {
        say(tr("The step leads beyond the axis' limit or into the plate"));
        return undefined;
      }
      const to = Math.min(row.limits.mostMm, Math.max(row.limits.leastMm, round(position[row.axis.at] + sign * step)));
      const {procedure, params} = row.axis.run(to, position);
      if (row.speed) params.speed = row.speed;
      return wire.post("runs", {procedure, params});
    });
    this.#sent = false;
    this.show(wire.status);
  }
}

// Until the run that `start` answers has ended no other one is asked for; one that lasts is seen in the status.
async function runThrough(start) {
  let ended = 0;
  let wake = () => {};
  const off = wire.on("run", (event) => {
    if (event.event === "ended") ended = event.id;
    wake();
  });
  const run = await withControl(start);
  if (run && run.id !== ended)
    await new Promise((done) => {
      wake = () => run.id === ended && done();
      setTimeout(done, kEndMs);
    });
  off();
}

function round(mm) {
  return Math.round(mm * 1000) / 1000;
}
