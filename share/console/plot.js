// Plots by dygraphs, with title, legend and labels of our own as nodes. At most ten redraws a second.

import {el, replace} from "./dom.js";
import {tr} from "./texts.js";
import {numberText} from "./widgets.js";

const kRedrawMs = 100;
const kLabelled = 40;  // px of a band from which on its text is drawn
const kSeries = 8;  // colours in console.css: --series-1 ...

// The library is no module: it comes with the first page that plots.
await new Promise((done, failed) => document.head.append(el("script", {src: "/console/dygraph.min.js", onload: done, onerror: failed})));
// Its legend sets styles by attributes, which the page's policy forbids, even where nobody wants it.
Dygraph.PLUGINS = Dygraph.PLUGINS.filter((plugin) => plugin !== Dygraph.Plugins.Legend);

function colour(i) {
  return getComputedStyle(document.documentElement).getPropertyValue("--series-" + (i + 1)).trim();
}

// Several series of [[x, y], ...] as rows over one x; a series has null where it has no value.
export function overlay(series) {
  const rows = new Map();
  series.forEach((points, i) => {
    for (const [x, y] of points) {
      if (!rows.has(x)) rows.set(x, [x, ...series.map(() => null)]);
      rows.get(x)[i + 1] = y;
    }
  });
  return [...rows.values()].sort((a, b) => a[0] - b[0]);
}

// The numbers of those that are meant.
export function indices(list, meant) {
  return list.flatMap((of, i) => (meant(of) ? [i] : []));
}

// options: {title, x: "Time in s", labels: ["P in bar", ...], kept: kept(...), bands: [{from, to, text, alarm}], digits, dashed: [i],
// dots: [i] (without a line), colours: [number of each series' colour], points: true, stepped: true, whole: true (x counts), group: plots that are
// zoomed as one (an array that they share), onzoom: (window or null)}; rows: [[x, y1, y2, ...]].
export class Plot {
  constructor(options, rows = []) {
    this.options = options;
    this.rows = rows;
    this.legend = el("div", {class: "legend"});
    this.canvas = el("div", {class: "plot", role: "img", "aria-label": options.title});
    this.node = el("figure", {class: "plotted"},
      el("figcaption", options.title), this.legend, this.canvas, el("div", {class: "aside axis"}, options.x));
    this.graph = null;
    this.at = null;  // where the mouse is
    this.timer = null;
    options.group?.push(this);
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
      if (this.drawn !== this.rows) {
        this.graph.updateOptions({file: this.rows});
        this.#showAt(this.at);
      } else this.graph.resize();
      this.drawn = this.rows;
      return;
    }
    this.drawn = this.rows;
    const {labels, kept, bands, dashed = [], dots = [], points = false, stepped = false, whole = false} = this.options;
    const style = getComputedStyle(document.documentElement);
    const ink = style.getPropertyValue("--muted").trim();
    const series = {};
    labels.forEach((label, i) => {
      series[label] = {};
      if (dashed.includes(i)) series[label] = {strokePattern: [6, 4]};
      if (dots.includes(i)) series[label] = {strokeWidth: 0, drawPoints: true, pointSize: 4};
    });
    this.graph = new Dygraph(this.canvas, this.rows, {
      labels: ["x", ...labels],
      colors: labels.map((_, i) => colour(this.#colour(i))),
      series,
      dateWindow: kept?.get("zoom") ?? null,
      drawPoints: points,
      xRangePad: points ? 6 : 0,
      stepPlot: stepped,
      connectSeparatedPoints: true,
      axisLineColor: ink,
      gridLineColor: style.getPropertyValue("--line").trim(),
      axes: {x: {axisLabelWidth: 60, ...(whole && {axisLabelFormatter: (x) => (Number.isInteger(x) ? String(x) : "")})}, y: {axisLabelWidth: 50}},
      legend: "never",
      showLabelsOnHighlight: false,
      highlightCallback: (event, x) => this.#showAt(x),
      unhighlightCallback: () => this.#showAt(null),
      zoomCallback: (from, to) => this.#zoomed(this.graph?.isZoomed("x") ? [from, to] : null),
      underlayCallback: (context, area, graph) => {
        const alarms = (bands ?? []).filter(({alarm}) => alarm).map(({from}) => graph.toDomXCoord(from));
        for (const band of bands ?? []) {
          const left = Math.round(Math.max(area.x, graph.toDomXCoord(band.from)));
          const right = Math.round(Math.min(area.x + area.w, graph.toDomXCoord(band.to)));
          if (right < left || (right === left && !band.alarm)) continue;
          context.save();
          context.fillStyle = style.getPropertyValue(band.alarm ? "--bad" : "--band").trim();
          if (band.alarm) {
            context.fillRect(left, area.y, 2, area.h);
            context.globalAlpha = 0.15;
          }
          context.fillRect(left, area.y, Math.max(1, right - left - 1), area.h);
          context.globalAlpha = 1;
          // The text of an alarm stands behind it, or before it where there is more room.
          const before = Math.max(area.x, ...alarms.filter((x) => x < left - 1));
          const behind = band.alarm ? Math.min(area.x + area.w, ...alarms.filter((x) => x > left + 1)) : right;
          context.font = "12px sans-serif";
          const turned = band.alarm && context.measureText(band.text).width > behind - left - 8 && left - before > behind - left;
          const [from, to] = turned ? [before, left] : [left, behind];
          if (to - from >= kLabelled) {
            context.beginPath();
            context.rect(from, area.y, to - from - 4, area.h);
            context.clip();
            if (!band.alarm) context.fillStyle = ink;
            if (turned) context.textAlign = "right";
            context.fillText(band.text, turned ? left - 4 : left + 4, area.y + (band.alarm ? 29 : 13));
          }
          context.restore();
        }
      },
    });
    this.#showAt(null);
  }

  // The values at x, else the last ones; of a series that has none there, the one before.
  #showAt(x) {
    this.at = x;
    const {labels, dashed = [], digits = 2} = this.options;
    const at = x === null ? -1 : this.rows.findIndex((candidate) => candidate[0] >= x);
    const last = at < 0 ? this.rows.length - 1 : at;
    const value = (i) => {
      for (let k = last; k >= 0; --k) if (this.rows[k][i + 1] !== null) return this.rows[k][i + 1];
      return null;
    };
    replace(this.legend, labels.map((label, i) => {
      const kind = "swatch series-" + (this.#colour(i) + 1) + (dashed.includes(i) ? " dashed" : "");
      return el("span", {class: "entry"}, el("span", {class: kind, "aria-hidden": "true"}), label, " ", el("b", numberText(value(i), digits)));
    }));
  }
  #colour(i) {
    return (this.options.colours?.[i] ?? i) % kSeries;
  }

  // What of x is shown, null for all of it; of the whole group.
  #zoomed(window) {
    const {kept, group, onzoom} = this.options;
    kept?.set({zoom: window});
    for (const plot of group ?? []) if (plot !== this) plot.graph?.updateOptions({dateWindow: window});
    onzoom?.(window);
  }

  setZoom(window) {
    this.graph?.updateOptions({dateWindow: window});
    this.#zoomed(window);
  }

  resetZoom() {
    this.setZoom(null);
  }

  // Without a mouse: closer by 2, away by 0.5, and on by a part of what is shown.
  zoomBy(factor, on = 0) {
    if (!this.graph) return;
    const [least, most] = this.graph.xAxisExtremes();
    const [from, to] = this.graph.xAxisRange();
    const width = Math.min((to - from) / factor, most - least);
    const start = Math.min(Math.max((from + to - width) / 2 + on * width, least), most - width);
    this.setZoom(width >= most - least ? null : [start, start + width]);
  }

  zoomButtons() {
    const button = (text, label, go) => el("button", {"aria-label": label, title: label, onclick: go}, text);
    return el("div", {class: "row", role: "group", "aria-label": tr("Zoom of the plot")},
      button("+", tr("Zoom in"), () => this.zoomBy(2)), button("\u2212", tr("Zoom out"), () => this.zoomBy(0.5)),
      button("\u25c0", tr("To the left"), () => this.zoomBy(1, -0.5)), button("\u25b6", tr("To the right"), () => this.zoomBy(1, 0.5)),
      el("button", {onclick: () => this.resetZoom()}, tr("Show all")));
  }

  close() {
    this.options.group?.splice(this.options.group.indexOf(this), 1);
    clearTimeout(this.timer);
    this.observer.disconnect();
    this.scheme.removeEventListener("change", this.recolour);
    this.graph?.destroy();
  }
}
