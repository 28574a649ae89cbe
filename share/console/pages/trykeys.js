// What each key would do with another form, in another state and under other alarms; the machine is not touched.

import {el, replace} from "../dom.js";
import {kept} from "../kept.js";
import {tr} from "../texts.js";
import {field, looker, problemBox, table} from "../widgets.js";
import {wire} from "../wire.js";
import {keyLabel, maskText, verdict} from "./keys.js";

const kAsItIs = "as-it-is";
const kMostFound = 8;  // alarms that are offered at a time

export function openTry(root) {
  // Each is what is supposed, or kAsItIs; alarms: a list, or null.
  const saved = kept("trykeys", {form: kAsItIs, state: kAsItIs, warning: kAsItIs, alarms: null, search: ""});
  const result = el("div", {"aria-live": "polite"});
  const chosen = el("div", {class: "row chosen"});
  const found = el("div", {class: "row"});
  const search = field({name: "search", title: tr("Add an alarm: search")}, saved.get("search"));
  search.input.addEventListener("input", () => {
    saved.set({search: search.input.value});
    showAlarms();
  });
  let known = {forms: [], states: [], alarms: []};
  let labels = new Map();
  let closed = false;

  const choice = (name, title, options) => {
    const choices = [{value: kAsItIs, text: tr("as it is now")}, ...options];
    const {node, input} = field({name, title, chosen: true, choices}, saved.get(name));
    input.addEventListener("change", () => change({[name]: input.value}));
    return node;
  };

  function change(what) {
    saved.set(what);
    showAlarms();
    ask();
  }

  function add(identifier) {
    search.input.value = "";
    change({alarms: [...(saved.get("alarms") ?? []), identifier], search: ""});
    search.input.focus();
  }

  function query() {
    const parts = [];
    for (const name of ["form", "state", "warning"])
      if (saved.get(name) !== kAsItIs) parts.push(name + "=" + encodeURIComponent(saved.get(name)));
    if (saved.get("alarms")) parts.push("alarms=" + encodeURIComponent(saved.get("alarms").join(",")));
    return parts.join("&");
  }

  const ask = looker(() => wire.get("panel/keys?" + query()), show, (problem) => replace(result, problemBox(problem)));

  function show({keys, form, state, alarms}) {
    const acting = keys.filter((key) => key.acts).length;
    const blocking = (key) => key.masks.filter((mask) => mask.blocks);
    const lines = (key, what) => blocking(key).map((mask) => el("div", what(mask)));
    const stateName = known.states.find((of) => of.state === state)?.text ?? state;
    replace(result,
      el("p", el("strong", tr("%d of %d keys would have an effect", acting, keys.length)), " ",
        el("span", {class: "aside"}, tr("form %s, state %s, alarms %s", form ?? tr("none"), stateName, alarms.join(", ") || tr("none")))),
      table(tr("What each key would do"), [
        {title: tr("Key"), cell: (key) => keyLabel(key.key, labels.get(key.key) ?? key.key)},
        {title: tr("What it would do"), cell: (key) => verdict(key.acts, key.conclusion)},
        {title: tr("Why"), cell: (key) => lines(key, (mask) => maskText(mask.mask) + ": " + mask.because)},
        {title: tr("What would help"), cell: (key) => lines(key, (mask) => mask.change)},
      ], keys));
  }

  function showAlarms() {
    const list = saved.get("alarms");
    const text = (identifier) => known.alarms.find((alarm) => alarm.identifier === identifier)?.text ?? "";
    replace(chosen, list === null ? el("span", {class: "aside"}, tr("as they are now")) : [
      list.length === 0 && el("span", {class: "aside"}, tr("none")),
      list.map((identifier) => el("button", {"aria-label": tr("Without %s", identifier),
        onclick: () => change({alarms: list.filter((other) => other !== identifier)})}, "✕ " + identifier + " " + text(identifier)))],
      list !== null && el("button", {onclick: () => change({alarms: null})}, tr("As they are now")),
      list?.length !== 0 && el("button", {onclick: () => change({alarms: []})}, tr("None")));
    const wanted = search.input.value.trim().toLowerCase();
    const fits = known.alarms.filter((alarm) => !list?.includes(alarm.identifier) &&
      (alarm.identifier + " " + alarm.text).toLowerCase().includes(wanted));
    replace(found, wanted === "" ? null : [fits.slice(0, kMostFound).map((alarm) =>
      el("button", {onclick: () => add(alarm.identifier)},
        "+ " + alarm.identifier + " " + alarm.text + (alarm.level === 1 ? " " + tr("(level 1)") : ""))),
      fits.length === 0 && el("span", {class: "aside"}, tr("No alarm fits")),
      fits.length > kMostFound && el("span", {class: "aside"}, tr("and %d more", fits.length - kMostFound))]);
  }

  async function start() {
    try {
      const [forms, panel] = await Promise.all([wire.get("panel/forms"), wire.get("panel")]);
      if (closed) return;
      known = forms;
      labels = new Map(panel.keys.map((key) => [key.key, key.label]));
    } catch (problem) {
      if (!closed) replace(root, problemBox(problem));
      return;
    }
    const names = known.forms.map((of) => of.form).sort();
    replace(root,
      el("section", {class: "card"}, el("h2", tr("Suppose")),
        el("p", {class: "aside"}, tr("Nothing happens at the machine: this only asks what the keys would do.")),
        el("div", {class: "row suppose"},
          choice("form", tr("Form on screen"), [{value: "", text: tr("none")}, ...names.map((name) => ({value: name, text: name}))]),
          choice("state", tr("State of the machine"), known.states.map((of) => ({value: of.state, text: of.number + " " + of.text}))),
          choice("warning", tr("Maintenance warning"), [{value: "true", text: tr("pending")}, {value: "false", text: tr("none")}])),
        el("h3", tr("Alarms that stand")), chosen,
        search.node, found),
      el("section", {class: "card"}, el("h2", tr("What each key would do")), result));
    showAlarms();
    ask();
  }

  start();
  const end = wire.on(["state", "alarms", "connection"], ask);
  return () => {
    closed = true;
    ask.end();
    end();
  };
}
