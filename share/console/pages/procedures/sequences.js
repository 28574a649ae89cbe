// The stored sequences: shown, edited as JSON, judged by the controller while they are written, run.

import {el, replace, setText} from "../../dom.js";
import {tr} from "../../texts.js";
import {agree, field, postButton, problemBox, say, showProblem, table} from "../../widgets.js";
import {wire} from "../../wire.js";
import {openCheck, started} from "./check.js";
import {queueButton} from "./queue.js";

const kNew = '{\n  "commands": [\n    {\n      "command": "delay",\n      "ms": 500\n    }\n  ]\n}';

export function openSequences(root, saved) {
  const list = el("div", {class: "list"});
  const name = field({name: "name", title: tr("Name"), required: true, summary: tr("letters, digits, - _ .")}, "");
  const text = el("textarea", {id: "sequence-text", rows: 16, spellcheck: "false", autocomplete: "off"});
  const wrong = el("div", {class: "wrong", role: "status"});
  const calls = el("ol", {class: "calls"});
  const changed = el("span", {class: "warn"});
  let stored = {name: "", text: ""};  // what the controller has of what is shown
  let closed = false;

  const same = () => stored.name !== "" && name.input.value === stored.name && text.value === stored.text;
  // The commands as they are written now; null while the text is no JSON.
  const parsed = () => {
    try {
      const value = JSON.parse(text.value);
      setText(wrong, "");
      return value;
    } catch (error) {
      setText(wrong, tr("This is no JSON: %s", error.message));
      return null;
    }
  };
  const check = openCheck(() => {
    const value = text.value.trim() && parsed();
    return value ? {calls: value.commands ?? [], name: name.input.value || "calls"} : null;
  });
  const askStored = () => {
    if (same()) return {sequence: stored.name};
    showProblem({what: tr("It is not stored as it is shown"), remedy: tr("store it first")});
    return null;
  };
  const touched = () => {
    setText(changed, same() ? "" : tr("not stored"));
    saved.set({draft: same() ? null : {name: name.input.value, text: text.value}});
    check.soon();
  };
  const show = (of) => {
    stored = of;
    name.input.value = of.name;
    text.value = of.text;
    replace(calls);
    touched();
  };
  const look = async () => {
    try {
      const {sequences} = await wire.get("sequences");
      if (closed) return;
      replace(list, sequences.length === 0 ? el("p", {class: "aside"}, tr("No sequence is stored.")) : table(tr("Sequences"), [
        {title: tr("Name"), cell: "name"},
        {title: tr("Size"), number: true, cell: ({bytes}) => bytes + " B"},
      ], sequences, {onrow: (row) => choose(row.name), rowClass: (row) => row.name === saved.get("sequence") && "chosen"}));
    } catch (problem) {
      if (!closed) replace(list, problemBox(problem));
    }
  };
  const mayLeave = async () => same() || text.value === kNew || text.value === "" || agree(tr("Leave what is not stored?"), el("p", name.input.value), tr("Leave it"), {kind: "danger", no: tr("Go on writing")});
  const read = async (which) => ({name: which, text: JSON.stringify(await wire.get("sequences/" + encodeURIComponent(which)), null, 2)});
  const choose = async (which) => {
    if (!(await mayLeave())) return;
    try {
      const of = await read(which);
      if (closed) return;
      saved.set({sequence: which});
      show(of);
      look();
    } catch (problem) {
      showProblem(problem);
    }
  };
  const store = async () => {
    const value = parsed();
    let called;
    try {
      called = name.read();
    } catch {
      name.input.focus();
      return;
    }
    if (!value) return;
    try {
      const answer = await wire.put("sequences/" + encodeURIComponent(called), value);
      if (closed) return;
      saved.set({sequence: called});
      show({name: called, text: text.value});
      replace(calls, answer.calls.map((call) => el("li", call)));
      say(tr("%s is stored", called));
      look();
    } catch (problem) {
      showProblem(problem, tr("It was not stored"));
    }
  };
  const remove = async () => {
    if (!stored.name || !(await agree(tr("Delete the sequence %s?", stored.name), el("p", tr("Jobs that have it already keep it.")), tr("Delete"), {kind: "danger", no: tr("Keep")}))) return;
    try {
      await wire.delete("sequences/" + encodeURIComponent(stored.name));
      say(tr("%s is deleted", stored.name));
      saved.set({sequence: ""});
      show({name: "", text: ""});
      look();
    } catch (problem) {
      showProblem(problem);
    }
  };

  text.addEventListener("input", touched);
  name.input.addEventListener("input", touched);
  root.append(el("div", {class: "columns"},
    el("section", {class: "card"}, el("h2", tr("Sequences")), list,
      el("div", {class: "buttons"}, el("button", {onclick: async () => {
        if (!(await mayLeave())) return;
        show({name: "", text: ""});
        text.value = kNew;
        touched();
        name.input.focus();
      }}, tr("New")))),
    el("section", {class: "card sequence"}, el("h2", tr("Sequence"), " ", changed), name.node,
      el("label", {for: text.id}, tr("Commands, as JSON")), text, wrong, check.node, calls,
      el("div", {class: "buttons"},
        el("button", {onclick: store}, tr("Store")),
        postButton(tr("Start"), {kind: "main", path: "runs", body: askStored, done: started}),
        queueButton(askStored),
        el("button", {onclick: remove}, tr("Delete"))))));
  look();
  const draft = saved.get("draft");
  const which = saved.get("sequence");
  if (which) read(which).then((of) => !closed && show(of), () => saved.set({sequence: ""})).then(restore);
  else restore();
  function restore() {
    if (!draft || closed) return;
    name.input.value = draft.name;
    text.value = draft.text;
    touched();
  }
  return () => {
    closed = true;
    check.close();
  };
}
