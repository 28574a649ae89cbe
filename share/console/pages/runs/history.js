// The list of runs, filtered; two of them may be marked for a comparison.

import {el, replace} from "../../dom.js";
import {tr} from "../../texts.js";
import {durationText, field, looker, problemBox, table, timeText} from "../../widgets.js";
import {wire} from "../../wire.js";
import {again, canAgain, kOutcomes, openPage, outcomeNode, paramsText} from "./words.js";

const kPageRuns = 50;
const kMostRuns = 1000;

export function openHistory(root, saved) {
  const list = el("div");
  const trouble = el("div");
  const compare = el("button", {onclick: () => openPage("runs/compare/" + [...saved.get("chosen")].sort((a, b) => a - b).join("/"))}, tr("Compare the two"));
  const more = el("button", {onclick: () => look(runs.length + kPageRuns)}, tr("Older ones"));
  const trend = el("a", tr("How long it has taken lately"));
  const name = field({name: "name", title: tr("Procedure")}, saved.get("name"));
  const outcome = field({name: "outcome", title: tr("Outcome"), empty: tr("any"),
    choices: Object.entries(kOutcomes).map(([value, text]) => ({value, text: tr(text)}))}, saved.get("outcome"));
  const since = el("input", {type: "date", id: "runs-since", value: saved.get("since")});
  const known = el("datalist", {id: "run-names"});
  name.input.setAttribute("list", known.id);
  let runs = [];
  let limit = kPageRuns;

  const showChosen = () => (compare.disabled = saved.get("chosen").length !== 2);
  const mark = (run) => el("input", {type: "checkbox", "aria-label": tr("Compare run %d", run.id), checked: saved.get("chosen").includes(run.id), onchange: ({target}) => {
    const others = saved.get("chosen").filter((id) => id !== run.id);
    saved.set({chosen: target.checked ? [...others, run.id].slice(-2) : others});
    show();
  }});
  const columns = [
    {title: tr("Run"), cell: ({id}) => String(id)},
    {title: tr("Start"), cell: ({start}) => timeText(start)},
    {title: tr("Procedure"), cell: (run) => [run.procedure, el("div", {class: "aside params"}, paramsText(run.params))]},
    {title: tr("Outcome"), cell: outcomeNode},
    {title: tr("Time"), number: true, cell: ({durationMs}) => durationText(durationMs)},
    {title: tr("Started by"), cell: "startedBy"},
    {title: tr("Compare"), cell: mark},
    {title: "", cell: (run) => (canAgain(run) ? el("button", {"aria-label": tr("Again: %s", run.procedure), onclick: () => again(run)}, tr("Again")) : "-")},
  ];
  const show = () => {
    showChosen();
    replace(list, runs.length === 0 ? el("p", {class: "aside"}, tr("There is no such run.")) : table(tr("Runs"), columns, runs, {onrow: ({id}) => openPage("runs/" + id)}));
    more.hidden = runs.length < limit || limit >= kMostRuns;
  };
  const look = looker((most = limit) => {
    limit = Math.min(most, kMostRuns);
    const query = new URLSearchParams({limit});
    for (const key of ["name", "outcome"]) if (saved.get(key)) query.set(key, saved.get(key));
    if (saved.get("since")) query.set("since", new Date(saved.get("since") + "T00:00:00").toISOString());
    trend.hidden = !saved.get("name");
    trend.setAttribute("href", "#runs/trend/" + encodeURIComponent(saved.get("name")));
    return wire.get("runs?" + query);
  }, (answer) => {
    runs = answer.runs;
    replace(trouble, answer.trouble && problemBox(answer.trouble));
    show();
  }, (problem) => replace(trouble, problemBox(problem)));
  const filter = () => {
    saved.set({name: name.input.value.trim(), outcome: outcome.input.value, since: since.value});
    look(kPageRuns);
  };
  for (const input of [name.input, outcome.input, since]) input.addEventListener("change", filter);
  root.append(el("section", {class: "card"},
    el("div", {class: "row filters"}, name.node, known, outcome.node,
      el("div", {class: "field"}, el("label", {for: since.id}, tr("Since")), since), compare, trend),
    trouble, list, more));
  showChosen();
  look();
  wire.get("procedures").then(({procedures}) => replace(known, procedures.map((one) => el("option", {value: one.name}))), () => {});
  const ends = [wire.on("run", ({event}) => (event === "begun" || event === "ended") && look()), wire.on("connection", (connected) => connected && look())];
  return () => {
    look.end();
    for (const end of ends) end();
  };
}
