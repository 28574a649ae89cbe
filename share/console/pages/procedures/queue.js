// Jobs that run one after the other: why none starts, what they ask, and the way in for what a form holds.

import {el, replace} from "../../dom.js";
import {answerJob, answerText} from "../../questions.js";
import {mark, tr} from "../../texts.js";
import {agree, durationText, field, looker, problemBox, readAll, say, showProblem, table, timeText, withControl} from "../../widgets.js";
import {wire} from "../../wire.js";
import {openPage, outcomeNode, paramsText} from "../runs/words.js";

const kStates = {
  waits: mark("Waits"),
  asks: mark("Asks"),
  runs: mark("Running"),
  failed: mark("Failed"),
  done: mark("Done"),
  skipped: mark("Skipped"),
  removed: mark("Removed"),
};

// read: () => {procedure, params} or {sequence}, null where a value is wrong.
export function queueButton(read) {
  return el("button", {onclick: async () => {
    const job = read();
    if (!job) return;
    const parts = [
      field({name: "note", title: tr("Note")}),
      field({name: "question", title: tr("Question before it starts"), summary: tr("whoever attends the machine answers it: run, skip or hold")}),
    ];
    if (!(await agree(tr("Add to the queue: %s", job.procedure ?? job.sequence), parts.map(({node}) => node), tr("Add")))) return;
    try {
      const {id} = await wire.post("queue", {...job, ...readAll(parts)});
      say(tr("Job %d is in the queue", id));
    } catch (problem) {
      showProblem(problem);
    }
  }}, tr("Add to the queue"));
}

function jobName(job) {
  return [job.sequence ? tr("%s (sequence)", job.name) : job.name, job.params && el("div", {class: "aside params"}, paramsText(job.params))];
}

function jobState(job) {
  return [el("span", {class: job.state === "failed" ? "bad" : job.state === "asks" ? "warn" : ""}, tr(kStates[job.state] ?? job.state)),
    job.state === "asks" && el("div", job.question), job.problem && el("div", {class: "aside"}, job.problem.what)];
}

export function openQueue(root) {
  const state = el("div");
  const jobs = el("div");
  const ended = el("div");
  const columns = [
    {title: tr("Job"), number: true, cell: "id"},
    {title: tr("What"), cell: jobName},
    {title: tr("Note"), cell: "note"},
    {title: tr("Added by"), cell: ({addedBy, added}) => [addedBy, el("div", {class: "aside"}, timeText(added))]},
    {title: tr("State"), cell: jobState},
  ];
  const remove = async (job) => {
    if (await agree(tr("Remove job %d from the queue?", job.id), el("p", job.name), tr("Remove"), {kind: "danger", no: tr("Keep")})) wire.delete("queue/" + job.id).catch(showProblem);
  };
  const actions = (job) => el("div", {class: "row"},
    job.choices.map(({answer, then}) => el("button", {class: then === "run" ? "main" : "", onclick: () => answerJob(job, answer)}, answerText(answer))),
    job.state !== "runs" && el("button", {"aria-label": tr("Remove job %d", job.id), onclick: () => remove(job)}, tr("Remove")));

  const show = (queue) => {
    const total = [queue.estimateMs > 0 && tr("Together about %s", durationText(queue.estimateMs)),
      queue.withoutEstimate > 0 && tr("Jobs without an estimate: %d", queue.withoutEstimate)].filter(Boolean).join("; ");
    replace(state,
      el("p", el("strong", {class: queue.held ? "warn" : "good"}, queue.held ? tr("Held: no job begins") : tr("The jobs run one after the other"))),
      queue.why && el("div", {lang: queue.lang}, queue.why.why || queue.why.remedy || queue.why.where ? problemBox(queue.why) : el("p", queue.why.what)),
      el("div", {class: "buttons"},
        queue.held ? el("button", {class: "main", onclick: () => withControl(() => wire.post("queue/start"))}, tr("Start the queue"))
          : el("button", {onclick: () => wire.post("queue/hold").catch(showProblem)}, tr("Hold the queue")),
        el("button", {onclick: () => openPage("procedures/start")}, tr("Add a procedure")),
        el("button", {onclick: () => openPage("procedures/sequences")}, tr("Add a sequence")),
        el("span", {class: "aside"}, total)));
    replace(jobs, queue.jobs.length === 0 ? el("p", {class: "aside"}, tr("There is no job.")) : table(tr("Jobs"), [
      ...columns,
      {title: tr("Estimate"), number: true, cell: ({estimateMs}) => durationText(estimateMs)},
      {title: tr("Action"), cell: actions},
    ], queue.jobs, {rowClass: ({state}) => state === "runs" && "chosen"}));
    replace(ended, queue.ended.length > 0 && [el("h2", tr("Came to their end")), table(tr("Came to their end"), [
      ...columns.slice(0, 4),
      {title: tr("Result"), cell: (job) => (job.outcome ? outcomeNode(job) : tr(kStates[job.state]))},
      {title: tr("Report"), cell: ({run}) => (run ? el("a", {href: "#runs/" + run}, tr("Run %d", run)) : "-")},
    ], [...queue.ended].reverse())]);
  };
  const look = looker(() => wire.get("queue"), show, (problem) => problem.status !== 0 && replace(state, problemBox(problem)));
  root.append(el("section", {class: "card queue"}, el("h2", tr("Queue")), state, jobs, ended));
  look();
  const end = wire.on(["queue", "connection"], look);
  return () => {
    look.end();
    end();
  };
}
