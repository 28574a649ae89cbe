// The form of one procedure: its parameters, what would refuse it as they are, Start, and the way into the queue.

import {el, replace} from "../../dom.js";
import {tr} from "../../texts.js";
import {durationText, field, postButton, readAll, say} from "../../widgets.js";
import {wire} from "../../wire.js";
import {openCheck, started} from "./check.js";
import {queueButton} from "./queue.js";

// The machine's names of what a parameter numbers.
function namesOf(name) {
  const {gases = [], inputs = [], outputs = []} = wire.machine ?? {};
  if (name === "branch") return new Map(gases.map((gas) => [gas.branch, gas.name]));
  if (name === "input") return new Map(inputs.map((port) => [port.number, port.name]));
  if (name === "output" || name === "port") return new Map(outputs.map((port) => [port.number, port.name]));
  return new Map();
}

function choicesOf({name, numbers}) {
  const names = namesOf(name);
  return numbers?.map((value) => ({value, text: value < 0 ? tr("none (%s)", value) : [value, names.get(value)].filter(Boolean).join(" ")}));
}

// What was kept is as it was typed, or as a run has it; null stands for what was emptied.
function initial(param, values) {
  if (!values || !(param.name in values)) return param.default;
  const value = values[param.name];
  if (value === "") return null;
  return param.numbers ? Number(value) : value;
}

export function openForm(root, procedure, saved) {
  const kept = saved.get("values")[procedure.name];
  const fields = procedure.parameters.map((param) => {
    const choices = choicesOf(param);
    return field({...param, choices}, initial(param, kept));
  });
  const detach = field({name: "detach", title: tr("Runs on when nobody attends it"), type: "boolean"}, false);
  const limit = field({name: "limit", title: tr("Time limit"), type: "number", unit: "s", lowest: 1, highest: 86400, default: 600});

  const typed = () => Object.fromEntries(fields.map(({name, input}) => [name, input.type === "checkbox" ? input.checked : input.value]));
  // As it stands, for the controller to judge.
  const asItStands = () => {
    const params = {};
    for (const [name, value] of Object.entries(typed())) {
      if (value === "") continue;
      const number = Number(String(value).replace(",", "."));
      params[name] = typeof value === "boolean" || !Number.isFinite(number) ? value : number;
    }
    return {procedure: procedure.name, params};
  };
  const read = () => {
    const params = readAll(fields);
    return params && {procedure: procedure.name, params};
  };
  const readRun = () => {
    const job = read();
    const more = job && readAll([detach, limit]);
    return more && {...job, detach: more.detach, ...(more.limit !== undefined && {limitMs: Math.round(more.limit * 1000)})};
  };

  const check = openCheck(asItStands);
  const lately = el("p", {class: "aside"});
  const form = el("form", {onsubmit: (event) => event.preventDefault(), oninput: () => {
    saved.set({values: {...saved.get("values"), [procedure.name]: typed()}});
    check.soon();
  }},
  fields.length === 0 && el("p", {class: "aside"}, tr("It has no parameters.")), el("div", {class: "fields"}, fields.map(({node}) => node)));
  replace(root,
    el("h2", {tabindex: "-1"}, procedure.name), el("p", procedure.summary), lately, form,
    el("details", el("summary", tr("More")), el("div", {class: "fields"}, detach.node, limit.node),
      el("a", {href: "#runs/trend/" + encodeURIComponent(procedure.name)}, tr("How long it has taken lately"))),
    check.node,
    el("div", {class: "buttons"},
      postButton(tr("Start"), {kind: "main", path: "runs", body: readRun, done: started}),
      queueButton(read)));
  wire.get("runs/trend?last=10&name=" + encodeURIComponent(procedure.name)).then(({medianMs, runs}) => {
    if (medianMs !== null) replace(lately, tr("Median of the last successes (%d): %s", runs.length, durationText(medianMs)));
  }, () => {});
  return check.close;
}
