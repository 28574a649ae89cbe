// Alarms: those that stand, what stood, how often, and what they mean.

import {el, replace} from "../dom.js";
import {kept} from "../kept.js";
import {setSound, soundOn} from "../sound.js";
import {mark, tr} from "../texts.js";
import {agree, attempt, field, levelSign, problemBox, readAll, table, tabs, timeText, withControl} from "../widgets.js";
import {wire} from "../wire.js";
import {openHistory} from "./alarmhistory.js";

const kReads = 300;  // ms between an event and the look that follows: a burst is looked at once
const kDay = 1440;  // minutes
const kSpans = [[10, mark("10 minutes")], [60, mark("1 hour")], [480, mark("8 hours")], [kDay, mark("1 day")], [7 * kDay, mark("1 week")]];

export function open(root) {
  const saved = kept("alarms", {tab: "standing"});
  const content = el("div");
  let close = null;
  const show = (tab) => {
    close?.();
    saved.set({tab});
    const view = el("div");
    replace(content, view);
    close = {standing: openStanding, history: openHistory, statistics: (node) => openHistory(node, true), definitions: openDefinitions}[tab](view);
  };
  const sound = el("input", {type: "checkbox", checked: soundOn(), onchange: () => setSound(sound.checked)});
  replace(root, el("div", {class: "row top"}, tabs(tr("Views"), [
    {id: "standing", title: tr("Standing")},
    {id: "history", title: tr("History")},
    {id: "statistics", title: tr("Statistics")},
    {id: "definitions", title: tr("Definitions")},
  ], saved.get("tab"), show), el("label", {class: "sound"}, sound, tr("Sound for new alarms"))), content);
  return () => close?.();
}

// --- those that stand ---

function openStanding(root) {
  let first = new Set();  // identifiers whose alarm came while nothing else stood
  let timer = null;
  let asked = 0;
  let closed = false;
  const saved = kept("alarms.standing", {name: ""});
  const name = field({name: "name", title: tr("Your name"), summary: tr("it is kept with what you acknowledge")}, saved.get("name"));
  name.input.addEventListener("input", () => saved.set({name: name.input.value}));
  const list = el("div");
  replace(root, name.node, list);

  async function readFirst() {
    const mine = ++asked;
    // A controller without a store knows no firsts.
    const {alarms} = await wire.get("alarms/history?active=true&limit=1000").catch(() => ({alarms: []}));
    if (mine !== asked || closed) return;
    first = new Set(alarms.filter((row) => row.first).map((row) => row.identifier));
    show();
  }

  function card(alarm) {
    const line = (title, text) => text && el("div", {class: "line"}, el("dt", title), el("dd", text));
    return el("li", {class: "card alarm level-" + alarm.level},
      el("div", {class: "row"}, levelSign(alarm.level), first.has(alarm.identifier) && el("span", {class: "sign"}, tr("First of its burst")),
        el("strong", {class: "code"}, alarm.code), el("time", {class: "aside"}, timeText(alarm.raised))),
      el("h3", alarm.text),
      el("dl", line(tr("Message"), alarm.description !== alarm.text && alarm.description),
        line(tr("Reason"), alarm.reason), line(tr("What to do"), alarm.solution),
        line(tr("Identifier"), alarm.identifier)),
      el("div", {class: "row"},
        alarm.acknowledged ? el("span", {class: "good"}, "✓ " + tr("Seen by %s, %s", alarm.byWhom, timeText(alarm.acknowledged)))
          : el("button", {class: "main", "aria-label": tr("Acknowledge %s", alarm.code), onclick: () => acknowledge(alarm)}, tr("Acknowledge")),
        alarm.level === 0 && (alarm.suppressedUntil
          ? el("button", {onclick: () => suppress(alarm.identifier, 0, "")}, tr("Show again"))
          : el("button", {onclick: () => askSuppress(alarm)}, tr("Suppress...")))));
  }

  function show() {
    const shown = wire.alarms.filter((alarm) => !alarm.suppressedUntil).toReversed();
    // What began a burst first, then the newest.
    shown.sort((a, b) => b.level - a.level || first.has(b.identifier) - first.has(a.identifier));
    const hidden = wire.alarms.filter((alarm) => alarm.suppressedUntil);
    name.node.hidden = wire.alarms.every(({acknowledged}) => acknowledged);
    replace(list,
      el("h2", tr("Alarms that stand: %d", shown.length)),
      shown.length === 0 && el("p", {class: "card good"}, "✓ " + tr("No alarm stands.")),
      el("ul", {class: "alarm-list"}, shown.map(card)),
      wire.alarms.some(({level}) => level === 1) && el("div", {class: "row"},
        el("button", {onclick: () => withControl(() => wire.post("reset"))}, tr("Reset")),
        el("span", {class: "aside"}, tr("Ends the alarms whose cause is gone."))),
      hidden.length > 0 && el("details", el("summary", tr("Suppressed for a while: %d", hidden.length)),
        el("ul", {class: "alarm-list"}, hidden.map((alarm) => [
          el("li", {class: "aside"}, tr("until %s", timeText(alarm.suppressedUntil))), card(alarm)]))));
    list.classList.toggle("stale-values", wire.stale);
  }

  function acknowledge(alarm) {
    const by = name.input.value.trim();
    return attempt(() => wire.post("alarms/" + alarm.serial + "/acknowledge", by ? {name: by} : {}));
  }
  function suppress(identifier, minutes, reason) {
    return attempt(() => wire.post("alarms/suppress", {identifier, minutes, reason}));
  }
  async function askSuppress(alarm) {
    const fields = [
      field({name: "minutes", title: tr("For how long"), type: "integer", required: true,
        choices: kSpans.map(([value, text]) => ({value, text: tr(text)}))}, kSpans[1][0]),
      field({name: "reason", title: tr("Why"), required: true}),
    ];
    let values = null;
    const content = el("div", el("p", el("strong", alarm.text)), el("p", tr("It is not listed for so long; what it forbids stays forbidden. Who did it and why is kept.")),
      fields.map(({node}) => node));
    if (await agree(tr("Suppress %s", alarm.code), content, tr("Suppress"), {when: () => (values = readAll(fields)) !== null})) await suppress(alarm.identifier, values.minutes, values.reason);
  }

  const soon = () => {
    timer ??= setTimeout(() => {
      timer = null;
      readFirst();
    }, kReads);
  };
  show();
  readFirst();
  const ends = [wire.on("alarms", () => {
    show();
    soon();
  }), wire.on("stale", show)];
  return () => {
    closed = true;
    clearTimeout(timer);
    for (const end of ends) end();
  };
}

// --- what they mean ---

function openDefinitions(root) {
  const saved = kept("alarms.definitions", {search: ""});
  let all = [];
  const list = el("div");
  const search = field({name: "search", title: tr("Search")}, saved.get("search"));
  search.input.addEventListener("input", () => {
    saved.set({search: search.input.value});
    show();
  });
  function show() {
    const wanted = search.input.value.trim().toLowerCase();
    const fits = all.filter((of) => Object.values(of).join(" ").toLowerCase().includes(wanted));
    replace(list, table(tr("%d of %d definitions", fits.length, all.length), [
      {title: tr("Code"), cell: (of) => [el("strong", of.code), el("div", {class: "aside"}, of.identifier)]},
      {title: tr("Text"), cell: (of) => [el("div", of.text), el("div", {class: "aside"}, of.category + " · " + of.type)]},
      {title: tr("Reason"), cell: "reason"},
      {title: tr("What to do"), cell: "solution"},
    ], fits));
  }
  replace(root, el("section", {class: "card"}, el("h2", tr("What alarms mean")),
    search.node, list));
  wire.get("alarms/definitions").then(
    (answer) => {
      all = answer.definitions;
      show();
    },
    (problem) => replace(list, problemBox(problem)));
  return () => {};
}
