// The head from the side, Z to scale: 0 is the top, downwards to the plate.

import {el, setText, svg} from "../../dom.js";
import {tr} from "../../texts.js";
import {millimetres} from "../../widgets.js";

const kTickMm = 20;
const kHeadPx = 64;  // from the nozzle's tip upwards, as in the style
const kFootPx = 12;  // below the lowest level

// Answers at which Z the plate lies below a position; null: there is none, or nobody knows. Only of a machine of
// software it stands in the machine file.
export function plateOf({table}, properties) {
  const z = properties["Simulator/PlateZ"] ?? null;
  return ({xMm, yMm}) =>
    xMm >= table.leastXMm && xMm <= table.mostXMm && yMm >= table.leastYMm && yMm <= table.mostYMm ? z : null;
}

export class Side {
  constructor(machine, properties) {
    const {leastMm, mostMm} = machine.axes.z;
    this.least = leastMm;
    this.range = mostMm - leastMm;
    this.plateAt = plateOf(machine, properties);
    const plateMm = properties["Simulator/PlateZ"];
    const marks = [];
    for (let z = Math.ceil(leastMm / kTickMm) * kTickMm; z <= mostMm; z += kTickMm)
      marks.push(this.#at(z, "tick", String(z)));
    const nozzle = (...more) => el("div", {class: "nozzle"}, svg("svg", {viewBox: "-20 -64 40 64", "aria-hidden": "true"},
      svg("path", {class: "body", d: "M-18-64H18V-30L10-18H-10L-18-30Z"}),
      svg("path", {class: "tip", d: "M-8-18H8L2 0H-2Z"})), more);
    this.beam = el("div", {class: "ray"});
    this.head = nozzle(this.beam);
    this.second = machine.fitted.followers > 1 ? nozzle(el("small", "2")) : null;
    this.second?.classList.add("second");
    this.plate = plateMm === undefined ? null : this.#at(plateMm, "plate", tr("plate"));
    this.view = el("div", {class: "side", role: "img", "aria-label": tr("The head from the side")}, marks,
      this.#at(machine.safeZMm, "safe", tr("safe height")), this.plate, this.second, this.head);
    this.z = el("b", {class: "number"});
    this.z2 = el("b", {class: "number"});
    this.gap = el("b", {class: "number"});
    this.follows = el("b");
    this.node = el("section", {class: "card", hidden: machine.fitted.followers === 0},
      el("h2", tr("Head from the side")), this.view,
      el("dl", {class: "facts"}, el("dt", tr("Nozzle, from the top")), el("dd", this.z, " mm"),
        this.second && [el("dt", tr("Second nozzle")), el("dd", this.z2, " mm")],
        this.plate && [el("dt", tr("To the plate")), el("dd", this.gap, " mm")],
        machine.fitted.followers > 0 && [el("dt", tr("Follower")), el("dd", this.follows)]));
    this.observer = new ResizeObserver(() => this.#resize());
    this.observer.observe(this.view);
  }

  #at(mm, kind, text) {
    const mark = el("div", {class: "level " + kind}, el("small", text));
    mark.style.setProperty("--at", String((mm - this.least) / this.range));
    return mark;
  }

  #resize() {
    this.scale = (this.view.clientHeight - kHeadPx - kFootPx) / this.range;
    this.shown = "";
    if (this.last) this.move(this.last);
  }

  move(signals) {
    this.last = signals;
    if (!this.scale) return;
    const lit = signals.laser && signals.emission;
    const plate = this.plateAt(signals.position);
    const [y, y2] = [signals.position.zMm, signals.position.z2Mm].map((mm) => ((mm - this.least) * this.scale).toFixed(1));
    const ray = lit ? Math.max(0, ((plate ?? this.least + this.range) - signals.position.zMm) * this.scale).toFixed(1) : "0";
    const key = [y, y2, ray, plate].join(" ");
    if (key === this.shown) return;
    this.shown = key;
    this.head.style.setProperty("transform", `translateY(${y}px)`);
    this.second?.style.setProperty("transform", `translateY(${y2}px)`);
    this.beam.style.setProperty("height", ray + "px");
    if (this.plate) this.plate.hidden = plate === null;
  }

  show({signals}) {
    setText(this.z, millimetres(signals.position.zMm));
    setText(this.z2, millimetres(signals.position.z2Mm));
    const plate = this.plateAt(signals.position);
    if (this.plate) setText(this.gap, plate === null ? "-" : millimetres(plate - signals.position.zMm));
    setText(this.follows, signals.calibrating ? tr("calibrates") : signals.following ? tr("follows the plate") : tr("off"));
  }

  close() {
    this.observer.disconnect();
  }
}
