// What the first job of the queue asks the operator, wherever he is: before it starts, or because it has not succeeded.

import {el} from "./dom.js";
import {mark, tr} from "./texts.js";
import {ask, problemBox, withControl} from "./widgets.js";
import {wire} from "./wire.js";

const kAnswers = {run: mark("Run"), skip: mark("Skip"), hold: mark("Hold"), again: mark("Again")};

// The controller's own answers have words here; those that somebody wrote stand as they are.
export function answerText(answer) {
  return tr(kAnswers[answer] ?? answer);
}

export function answerJob(job, answer) {
  return withControl(() => wire.post("queue/" + job.id + "/answer", {answer}));
}

class Questions {
  #job = null;  // that asks
  #putOff = "";  // which one the operator has seen
  #dialog = null;

  open() {
    wire.on("queue", ({job}) => this.#take(job));
    wire.on("session", () => this.show());
    wire.on("connection", async (connected) => {
      if (!connected) return;
      const {jobs} = await wire.get("queue").catch(() => ({jobs: []}));
      this.#take(jobs.find((job) => job.choices.length > 0) ?? null);
    });
  }

  #take(job) {
    const key = job ? job.id + job.state : "";
    if (key === (this.#job ? this.#job.id + this.#job.state : "")) return;
    this.#job = job;
    if (key !== this.#putOff) this.#putOff = "";
    this.show();
  }

  async show() {
    this.#dialog?.abort();
    this.#dialog = null;
    const job = this.#job;
    if (!job || this.#putOff || wire.session.role === "viewer") return;
    const dialog = (this.#dialog = new AbortController());
    const title = job.state === "failed" ? tr("Job %d has not succeeded: %s", job.id, job.name) : tr("Before job %d: %s", job.id, job.name);
    const buttons = job.choices.map(({answer, then}) => ({text: answerText(answer), value: answer, kind: then === "run" ? "main" : ""}));
    const content = job.state === "failed" ? [job.problem && problemBox(job.problem), el("p", tr("The queue is held until it is started again."))]
      : el("p", {class: "question"}, job.question);
    const answer = await ask(title, [content, job.note && el("p", {class: "aside"}, job.note)],
      [...buttons, {text: tr("Later"), value: null}], {until: dialog.signal});
    if (dialog.signal.aborted) return;
    this.#putOff = job.id + job.state;
    if (answer !== null) await answerJob(job, answer);
  }
}

export const questions = new Questions();
