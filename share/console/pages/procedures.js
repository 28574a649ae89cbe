// What can be run: procedures with their forms, stored sequences, the queue, and going on with what was ended.

import {el} from "../dom.js";
import {kept} from "../kept.js";
import {tr} from "../texts.js";
import {tabs} from "../widgets.js";
import {openGoOn} from "./procedures/goon.js";
import {openQueue} from "./procedures/queue.js";
import {openRunning} from "./procedures/running.js";
import {openSequences} from "./procedures/sequences.js";
import {openStart} from "./procedures/start.js";

const kOpens = {start: openStart, sequences: openSequences, queue: openQueue, continue: openGoOn};

export function open(root) {
  const saved = kept("procedures", {tab: "start", procedure: "", values: {}, search: ""});
  const asked = location.hash.split("/")[1];
  if (asked in kOpens) saved.set({tab: asked});
  const running = el("div");
  const content = el("div");
  let close = null;
  const bar = tabs(tr("Procedures"), [
    {id: "start", title: tr("Start")},
    {id: "sequences", title: tr("Sequences")},
    {id: "queue", title: tr("Queue")},
    {id: "continue", title: tr("Continue")},
  ], saved.get("tab"), (id) => {
    saved.set({tab: id});
    history.replaceState(null, "", "#procedures/" + id);
    close?.();
    content.replaceChildren();
    close = kOpens[id](content, saved);
  });
  root.append(running, bar, content);
  const closeRunning = openRunning(running);
  return () => {
    closeRunning();
    close?.();
  };
}
