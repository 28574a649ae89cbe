// What stood, searched, and what it amounts to.

import {el, replace, svg} from "../dom.js";
import {kept} from "../kept.js";
import {mark, tr} from "../texts.js";
import {durationText, field, levelSign, looker, problemBox, table, timeText} from "../widgets.js";
import {wire} from "../wire.js";
import {kFloodRaises, statisticsOf} from "./alarmstats.js";

const kHourMs = 3600000;
const kSpans = [["1", mark("last hour")], ["8", mark("last 8 hours")], ["24", mark("last day")], ["168", mark("last week")], ["", mark("everything")]];
const kMostRows = 1000;
const kShownRows = 200;
const kLookMs = 3000;  // behind a change: a burst is read once

export function openHistory(root, statistics = false) {
  const saved = kept("alarms.history", {hours: "24", level: "", search: "", shown: kShownRows});
  const body = el("div");
  let rows = [];
  let leftOut = 0;
  let timer = null;

  const choice = (name, title, options) => {
    const {node, input} = field({name, title, chosen: true, choices: options.map(([value, text]) => ({value, text: tr(text)}))}, saved.get(name));
    input.addEventListener("change", () => {
      saved.set({[name]: input.value, shown: kShownRows});
      if (name === "level") read();
      else show();
    });
    return node;
  };
  const search = field({name: "search", title: tr("Search")}, saved.get("search"));
  search.input.addEventListener("input", () => {
    saved.set({search: search.input.value, shown: kShownRows});
    show();
  });

  const read = looker(() => {
    const level = saved.get("level");
    return wire.get("alarms/history?limit=" + kMostRows + (level ? "&level=" + level : ""));
  }, (answer) => {
    rows = answer.alarms;
    leftOut = answer.leftOut;
    show();
  }, (problem) => replace(body, problemBox(problem)));

  function show() {
    const nowMs = nowOf(rows);
    const hours = saved.get("hours");
    const since = hours ? nowMs - hours * kHourMs : -Infinity;
    const wanted = search.input.value.trim().toLowerCase();
    const text = (row) => [row.identifier, row.code, row.description, row.reason, row.byWhom].join(" ").toLowerCase();
    const fits = rows.filter((row) => Date.parse(row.raised) >= since && text(row).includes(wanted));
    replace(body, leftOut > 0 && el("p", {class: "warn"}, tr("%d older ones are left out.", leftOut)),
      statistics ? statisticsNodes(fits, nowMs) : historyNodes(fits));
  }

  function historyNodes(fits) {
    const shown = fits.toReversed().slice(0, saved.get("shown"));
    const state = (row) => row.active ? tr("stands") : durationText(Date.parse(row.cleared) - Date.parse(row.raised));
    return [
      table(tr("%d alarms, the newest first", fits.length), [
        {title: tr("Raised"), cell: (row) => timeText(row.raised)},
        {title: tr("Level"), cell: (row) => [levelSign(row.level), row.first && el("div", {class: "aside"}, tr("first"))]},
        {title: tr("Alarm"), cell: (row) => [el("strong", row.code), " ", row.description, el("div", {class: "aside"}, row.identifier)]},
        {title: tr("Stood for"), number: true, cell: state},
        {title: tr("Seen by"), cell: (row) => row.byWhom || "-"},
        {title: tr("Reason and what to do"), cell: (row) => [row.reason, el("div", {class: "aside"}, row.solution)]},
      ], shown, {rowClass: (row) => row.suppressed && "aside"}),
      fits.length > shown.length && el("button", {onclick: () => {
        saved.set({shown: saved.get("shown") + kShownRows});
        show();
      }}, tr("Show %d more", Math.min(kShownRows, fits.length - shown.length)))];
  }

  const ends = [wire.on("alarms", () => {
    timer ??= setTimeout(() => {
      timer = null;
      read();
    }, kLookMs);
  })];
  replace(root, el("section", {class: "card"}, el("h2", statistics ? tr("What they amount to") : tr("What stood")),
    el("div", {class: "row filters"}, choice("hours", tr("From"), kSpans),
      choice("level", tr("Level"), [["", mark("both")], ["1", mark("Alarm")], ["0", mark("Warning")]]),
      search.node),
    body));
  read();
  return () => {
    read.end();
    clearTimeout(timer);
    for (const end of ends) end();
  };
}

// The controller's clock; a machine in virtual time has one of its own, of which the newest row tells.
function nowOf(rows) {
  if (wire.machine?.realtime !== false) return Date.parse(wire.status?.time ?? new Date().toISOString());
  return Math.max(0, ...rows.flatMap((row) => [row.raised, row.cleared].filter(Boolean).map(Date.parse)));
}

function statisticsNodes(rows, nowMs) {
  if (rows.length === 0) return el("p", {class: "aside"}, tr("No alarms in this time."));
  const of = statisticsOf(rows, nowMs);
  const alarm = {title: tr("Alarm"), cell: (one) => [el("strong", one.code), " ", one.text]};
  const count = {title: tr("Raises"), number: true, cell: (one) => one.raises.length};
  const lasted = [{title: tr("At most"), number: true, cell: (one) => durationText(one.longestMs)},
    {title: tr("Altogether"), number: true, cell: (one) => durationText(one.standingMs)}];
  return [
    el("p", tr("%d raises; at most %d within ten minutes", of.count, of.busiest), " ",
      of.busiest > kFloodRaises && el("span", {class: "sign bad"}, "⚠ " + tr("more than somebody can follow"))),
    barsNode(of.bars),
    el("div", {class: "columns"},
      el("section", el("h3", tr("Most frequent")), table(tr("The ten most frequent"), [alarm, count], of.frequent)),
      el("section", el("h3", tr("Standing longest")), table(tr("The ten that stood longest"), [alarm, ...lasted], of.longest)),
      el("section", el("h3", tr("Chattering")), of.chattering.length === 0 ? el("p", {class: "good"}, "✓ " + tr("None: no alarm came three times within a minute."))
        : table(tr("Three times or more within a minute"), [alarm,
          {title: tr("Within a minute"), number: true, cell: "chatter"}, count], of.chattering)))];
}

function barsNode(bars) {
  const [width, height, foot] = [720, 140, 18];
  const most = Math.max(1, ...bars.map((bar) => bar.count));
  const step = width / bars.length;
  const y = (n) => height - (height * n) / most;
  const clock = (ms) => timeText(new Date(ms).toISOString(), false).slice(0, 5);
  const labelled = Math.max(1, Math.ceil(bars.length / 8));
  return el("figure", {class: "plotted"}, el("figcaption", tr("Raises per ten minutes, at most %d", most)),
    svg("svg", {viewBox: "0 0 " + width + " " + (height + foot), class: "bars", role: "img", "aria-label": tr("Raises per ten minutes, at most %d", most)},
      svg("line", {x1: 0, x2: width, y1: height, y2: height, class: "ground"}),
      most > kFloodRaises && svg("line", {x1: 0, x2: width, y1: y(kFloodRaises), y2: y(kFloodRaises), class: "flood"}),
      bars.map((bar, i) => [
        bar.count > 0 && svg("rect", {x: i * step + 0.5, y: y(bar.count), width: Math.max(1, Math.min(40, step - 1)), height: height - y(bar.count)},
          svg("title", clock(bar.fromMs) + ": " + bar.count)),
        i % labelled === 0 && svg("text", {x: i * step, y: height + foot - 4}, clock(bar.fromMs))])));
}
