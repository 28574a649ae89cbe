// The bed from above, to scale, Y upwards. What stands still is a drawing; the path is painted where it grows; head and
// portal are layers that are only shifted, as that costs least.

import {el, svg} from "../../dom.js";
import {tr} from "../../texts.js";
import {millimetres} from "../../widgets.js";
import {Path} from "./path.js";
import {placesOf} from "./places.js";

const kMargins = {left: 0.085, right: 0.02, top: 0.02, bottom: 0.045};  // of the longer side, with the numbers at the grid
const kGridMm = 500;
const kLabelPx = 12;
const kLitPx = 3;
const kDarkPx = 1.25;

const path = new Path();  // of this tab: it outlives the page

export class Bed {
  constructor(machine, properties, run) {
    const {x, y} = machine.axes;
    this.left = Math.min(x.leastMm, machine.table.leastXMm);
    this.top = Math.max(y.mostMm, machine.table.mostYMm);
    this.width = Math.max(x.mostMm, machine.table.mostXMm) - this.left;
    this.height = this.top - Math.min(y.leastMm, machine.table.leastYMm);
    const side = Math.max(this.width, this.height);
    this.left -= kMargins.left * side;
    this.top += kMargins.top * side;
    this.width += (kMargins.left + kMargins.right) * side;
    this.height += (kMargins.top + kMargins.bottom) * side;

    this.plan = svg("polyline", {class: "plan"});
    this.drawing = svg("svg", {viewBox: [0, 0, this.width, this.height].join(" "), "aria-hidden": "true"},
      this.#rect("table", machine.table.leastXMm, machine.table.leastYMm, machine.table.mostXMm, machine.table.mostYMm),
      this.#grid(machine.axes),
      this.#rect("limits", x.leastMm, y.leastMm, x.mostMm, y.mostMm),
      this.#brush(properties), this.#rack(properties), this.plan);
    this.canvas = el("canvas", {"aria-hidden": "true"});
    this.portal = el("div", {class: "portal"});
    this.head = el("div", {class: "head"}, svg("svg", {viewBox: "-12 -12 24 24"},
      svg("path", {class: "rays", d: "M0-11V-7M0 11V7M-11 0H-7M11 0H7M-8-8-5-5M8 8 5 5M-8 8-5 5M8-8 5-5"}),
      svg("circle", {r: 5}), svg("circle", {class: "beam", r: 2.5})));
    this.view = el("div", {class: "bed", role: "img"}, this.drawing, this.canvas, this.portal, this.head);
    this.view.style.setProperty("--ratio", String(this.width / this.height));
    this.view.style.setProperty("--foot", (100 * kMargins.bottom * side) / this.height + "%");
    this.planned = el("span", {hidden: true}, el("span", {class: "line plan"}), tr("planned"));
    this.node = el("section", {class: "card"},
      el("div", {class: "row heading"}, el("h2", tr("Bed")),
        el("span", {class: "legend aside"},
          el("span", el("span", {class: "line dark"}), tr("travelled")),
          el("span", el("span", {class: "line lit"}), tr("with the beam")), this.planned),
        el("button", {onclick: () => this.#forget()}, tr("Clear path"))),
      this.view);

    this.unpainted = [];  // stretches that have come since, bounded by the page's texts
    this.offRun = run.on(() => this.#showPlan(run));
    this.observer = new ResizeObserver(() => this.#resize());
    this.observer.observe(this.view);
    this.scheme = matchMedia("(prefers-color-scheme: dark)");
    this.recolour = () => this.#resize();
    this.scheme.addEventListener("change", this.recolour);
    path.gap();
  }

  // mm of the machine to units of the drawing.
  #x(mm) {
    return mm - this.left;
  }
  #y(mm) {
    return this.top - mm;
  }
  #rect(kind, leastX, leastY, mostX, mostY) {
    return svg("rect", {class: kind, x: this.#x(leastX), y: this.#y(mostY), width: mostX - leastX, height: mostY - leastY});
  }

  #grid({x, y}) {
    const lines = [];
    for (let at = Math.ceil(x.leastMm / kGridMm) * kGridMm; at <= x.mostMm; at += kGridMm)
      lines.push(svg("line", {class: "grid", x1: this.#x(at), x2: this.#x(at), y1: this.#y(y.leastMm), y2: this.#y(y.mostMm)}),
        svg("text", {x: this.#x(at), y: this.height, dy: "-0.3em", "text-anchor": "middle"}, at));
    for (let at = Math.ceil(y.leastMm / kGridMm) * kGridMm; at <= y.mostMm; at += kGridMm)
      lines.push(svg("line", {class: "grid", x1: this.#x(x.leastMm), x2: this.#x(x.mostMm), y1: this.#y(at), y2: this.#y(at)}),
        svg("text", {x: this.#x(x.leastMm), y: this.#y(at), dx: "-0.3em", dy: "0.35em", "text-anchor": "end"}, at));
    return lines;
  }

  #brush(properties) {
    const value = (name) => properties["AutoCleanHead/" + name];
    if (!value("CleanHeadEnabled")) return null;
    const along = value("CleanCurveDir") === 0;
    const [w, h] = along ? [value("CleanCurveLength"), value("CleanCurveWidth")] : [value("CleanCurveWidth"), value("CleanCurveLength")];
    const [x, y] = [value("CleanRefPtX"), value("CleanRefPtY")];
    return [this.#rect("brush", x - w / 2, y - h / 2, x + w / 2, y + h / 2),
      svg("text", {x: this.#x(x - w / 2), y: this.#y(y), dx: "-0.4em", dy: "0.35em", "text-anchor": "end"}, tr("brush"))];
  }

  #rack(properties) {
    const places = placesOf(properties);
    if (places.length === 0) return null;
    const x = Math.min(...places.map((place) => place.x));
    const y = places.reduce((sum, place) => sum + place.y, 0) / places.length;
    return [places.map((place) => svg("circle", {class: "slot", cx: this.#x(place.x), cy: this.#y(place.y), r: 10})),
      svg("text", {x: this.#x(x), y: this.#y(y), dx: "-1em", dy: "0.35em", "text-anchor": "end"}, tr("nozzle rack"))];
  }

  #showPlan(run) {
    const points = run.over ? [] : run.plan;
    this.planned.hidden = points.length === 0;
    this.plan.setAttribute("points", points.map(([x, y]) => this.#x(x) + "," + this.#y(y)).join(" "));
  }

  // --- the path ---

  travelled({position, laser, emission}) {
    if (document.hidden) return path.gap();  // too few signals come to tell the way
    const step = path.add(position.xMm, position.yMm, laser && emission);
    if (step) this.unpainted.push(step);
  }
  lost() {
    path.gap();
  }
  #forget() {
    path.clear();
    this.#resize();
  }

  #resize() {
    const {clientWidth, clientHeight} = this.view;
    if (clientWidth === 0) return;
    this.scale = clientWidth / this.width;
    this.drawing.style.setProperty("font-size", kLabelPx / this.scale + "px");
    const dots = devicePixelRatio;
    this.canvas.width = Math.round(clientWidth * dots);
    this.canvas.height = Math.round(clientHeight * dots);
    this.context = this.canvas.getContext("2d");
    this.context.scale(dots, dots);
    this.context.lineCap = "round";
    const style = getComputedStyle(document.documentElement);
    this.colours = {dark: style.getPropertyValue("--muted"), lit: style.getPropertyValue("--beam")};
    this.unpainted = [];
    this.#paint(path.steps());
    if (this.last) this.move(this.last);
  }

  #paint(steps) {
    const {context, scale} = this;
    for (const {from, to, lit} of steps) {
      context.strokeStyle = lit ? this.colours.lit : this.colours.dark;
      context.lineWidth = lit ? kLitPx : kDarkPx;
      context.beginPath();
      context.moveTo(this.#x(from.x) * scale, this.#y(from.y) * scale);
      context.lineTo(this.#x(to.x) * scale, this.#y(to.y) * scale);
      context.stroke();
    }
  }

  // --- the head ---

  move(signals) {
    this.last = signals;
    if (!this.scale) return;
    const x = (this.#x(signals.position.xMm) * this.scale).toFixed(1);
    const y = (this.#y(signals.position.yMm) * this.scale).toFixed(1);
    const lit = signals.laser && signals.emission;
    const key = x + " " + y + " " + lit;
    if (key === this.shown) return;
    this.shown = key;
    this.portal.style.setProperty("transform", `translateX(${x}px)`);
    this.head.style.setProperty("transform", `translate(${x}px, ${y}px)`);
    this.head.classList.toggle("lit", lit);
  }

  show({signals}) {
    if (this.context) this.#paint(this.unpainted.splice(0));
    const {xMm, yMm} = signals.position;
    const text = tr("The bed from above: the head stands at X %s, Y %s mm", millimetres(xMm, 0), millimetres(yMm, 0));
    if (this.view.getAttribute("aria-label") !== text) this.view.setAttribute("aria-label", text);
  }

  close() {
    this.offRun();
    this.observer.disconnect();
    this.scheme.removeEventListener("change", this.recolour);
  }
}
