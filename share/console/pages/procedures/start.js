// The procedures, searched, and the form of the one that is chosen.

import {el, replace} from "../../dom.js";
import {tr} from "../../texts.js";
import {problemBox, table} from "../../widgets.js";
import {wire} from "../../wire.js";
import {openForm} from "./form.js";

export function openStart(root, saved) {
  const list = el("div", {class: "list"});
  const form = el("div");
  const search = el("input", {type: "search", id: "procedure-search", value: saved.get("search"), autocomplete: "off"});
  let procedures = [];
  let closeForm = null;

  const show = () => {
    const words = search.value.toLowerCase().split(/\s+/);
    const found = procedures.filter(({name, summary, command}) =>
      words.every((word) => (name + " " + summary + " " + (command ?? "")).toLowerCase().includes(word)));
    replace(list, found.length === 0 ? el("p", {class: "aside"}, tr("No procedure has these words.")) : table(tr("Procedures"), [
      {title: tr("Procedure"), cell: "name"},
      {title: tr("What it does"), cell: "summary"},
    ], found, {onrow: (procedure) => choose(procedure, true), rowClass: ({name}) => name === saved.get("procedure") && "chosen"}));
  };
  const choose = (procedure, byHand = false) => {
    closeForm?.();
    closeForm = null;
    saved.set({procedure: procedure?.name ?? ""});
    if (byHand) show();
    if (procedure) closeForm = openForm(form, procedure, saved);
    else replace(form, el("p", {class: "aside"}, tr("Choose a procedure from the list.")));
    if (byHand) form.querySelector("h2").focus();
  };

  search.addEventListener("input", () => {
    saved.set({search: search.value});
    show();
  });
  root.append(el("div", {class: "columns"},
    el("section", {class: "card"}, el("h2", tr("Procedures")),
      el("div", {class: "field"}, el("label", {for: search.id}, tr("Search")), search), list),
    el("section", {class: "card"}, form)));

  let closed = false;
  wire.get("procedures").then((answer) => {
    if (closed) return;
    procedures = answer.procedures;
    show();
    choose(procedures.find(({name}) => name === saved.get("procedure")));
  }, (problem) => replace(list, problemBox(problem)));
  return () => {
    closed = true;
    closeForm?.();
  };
}
