// Plots by dygraphs, with title, legend and labels of our own as nodes. At most ten redraws a second.

import {el, replace} from "./dom.js";
import {numberText} from "./widgets.js";

const kRedrawMs = 100;
const kSeries = 8;  // colours in console.css: --series-1 ...

// The library is no module: it comes with the first page that plots.
await new Promise((done, failed) => document.head.append(el("script", {src: "/console/dygraph.min.js", onload: done, onerror: failed})));

function colour(i) {
  return getComputedStyle(document.documentElement).getPropertyValue("--series-" + ((i % kSeries) + 1)).trim();
}

// options: {title, x: "Time in s", labels: ["P in bar", ...], kept: kept(...), bands: [{from, to, text}], digits, dashed: [i],
// points: true, syncWith: [plots]}; rows: [[x, y1, y2, ...]].
export class Plot {
  constructor(options, rows = []) {
    this.options = options;
    this.rows = rows;
    this.legend = el("div", {class: "legend"});
    this.canvas = el("div", {class: "plot", role: "img", "aria-label": options.title});
    this.node = el("figure", {class: "plotted"},
      el("figcaption", {}, options.title), this.legend, this.canvas, el("div", {class: "aside axis"}, options.x));
    this.graph = null;
    this.timer = null;
    this.observer = new ResizeObserver(() => this.draw());
    this.observer.observe(this.canvas);
    this.scheme = matchMedia("(prefers-color-scheme: dark)");
    this.recolour = () => {
      this.graph?.destroy();
      this.graph = null;
      this.draw();
    };
    this.scheme.addEventListener("change", this.recolour);
  }

  set(rows) {
    this.rows = rows;
    this.timer ??= setTimeout(() => {
      this.timer = null;
      this.draw();
    }, kRedrawMs);
  }

  draw() {
    if (!this.canvas.isConnected || this.canvas.clientWidth === 0 || this.rows.length === 0) return;
    if (this.graph) {
      if (this.drawn !== this.rows) this.graph.updateOptions({file: this.rows});
      else this.graph.resize();
      this.drawn = this.rows;
      return;
    }
    this.drawn = this.rows;
    const {labels, kept, bands, dashed = [], points = false} = this.options;
    const style = getComputedStyle(document.documentElement);
    const ink = style.getPropertyValue("--muted").trim();
    const series = {};
    labels.forEach((label, i) => (series[label] = dashed.includes(i) ? {strokePattern: [6, 4]} : {}));
    this.graph = new Dygraph(this.canvas, this.rows, {
      labels: ["x", ...labels],
      colors: labels.map((_, i) => colour(i)),
      series,
      dateWindow: kept?.get("zoom") ?? null,
      drawPoints: points,
      connectSeparatedPoints: true,
      axisLineColor: ink,
      gridLineColor: style.getPropertyValue("--line").trim(),
      axes: {x: {axisLabelWidth: 60}, y: {axisLabelWidth: 50}},
      legend: "never",
      showLabelsOnHighlight: false,
      highlightCallback: (event, x) => this.#showAt(x),
      unhighlightCallback: () => this.#showAt(null),
      zoomCallback: (from, to) => kept?.set({zoom: this.graph?.isZoomed("x") ? [from, to] : null}),
      underlayCallback: (context, area, graph) => {
        context.fillStyle = style.getPropertyValue("--band").trim();
        for (const band of bands ?? []) {
          const left = Math.max(area.x, graph.toDomXCoord(band.from));
          const right = Math.min(area.x + area.w, graph.toDomXCoord(band.to));
          if (right > left) context.fillRect(left, area.y, Math.max(1, right - left), area.h);
        }
      },
    });
    this.#showAt(null);
  }

  // The values of the row nearest to x, else the last ones.
  #showAt(x) {
    let row = this.rows[this.rows.length - 1];
    if (x !== null) row = this.rows.find((candidate) => candidate[0] >= x) ?? row;
    replace(this.legend, this.options.labels.map((label, i) => {
      const swatch = el("span", {class: "swatch series-" + ((i % kSeries) + 1), "aria-hidden": "true"});
      return el("span", {class: "entry"}, swatch, label, " ", el("b", {}, numberText(row?.[i + 1], this.options.digits ?? 2)));
    }));
  }

  resetZoom() {
    this.options.kept?.set({zoom: null});
    this.graph?.resetZoom();
  }

  close() {
    clearTimeout(this.timer);
    this.observer.disconnect();
    this.scheme.removeEventListener("change", this.recolour);
    this.graph?.destroy();
  }
}
