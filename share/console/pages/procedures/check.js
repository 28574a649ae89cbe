// What would refuse a start as it is asked for now, looked at again when the machine has changed; and what follows a start.

import {el, replace} from "../../dom.js";
import {tr} from "../../texts.js";
import {say} from "../../widgets.js";
import {wire} from "../../wire.js";

const kAfterMs = 300;  // behind the last change

// A list of commands is asked about in one line: where in it something is wrong is said by the command's number.
function problemItem({what, where, why, remedy}) {
  return el("li", el("strong", what.replace(/^[^:\n]*:1: /gm, "")), where && el("div", {class: "where"}, where), why && el("div", why), remedy && el("div", {class: "remedy"}, remedy));
}

// What runs is shown at the top of the page.
export function started({id}) {
  say(tr("Run %d has started", id));
  scrollTo(0, 0);
}

// body: () => what a start would post, or null while there is nothing to ask about.
export function openCheck(body) {
  const node = el("div", {class: "check", role: "status"});
  let timer = null;
  let asked = 0;
  let closed = false;
  const look = async () => {
    timer = null;
    const mine = ++asked;
    const what = body();
    if (!what) return replace(node);
    try {
      const {refused, unready} = await wire.post("runs/check", what);
      if (mine !== asked || closed) return;
      replace(node,
        refused.length > 0 && [el("h3", {class: "bad"}, "\u2717 ", tr("This would refuse the start")), el("ul", refused.map(problemItem))],
        unready.length > 0 && [el("h3", {class: "warn"}, "! ", tr("The machine is not ready for this")), el("ul", unready.map(problemItem))],
        refused.length + unready.length === 0 && el("p", {class: "good"}, "\u2713 ", tr("Nothing stands against the start")));
    } catch (problem) {
      if (mine === asked && !closed) replace(node, problem.status !== 0 && problem.status !== 401 && el("ul", problemItem(problem)));
    }
  };
  const soon = () => {
    clearTimeout(timer);
    timer = setTimeout(look, kAfterMs);
  };
  const end = wire.on(["state", "alarms", "run", "connection", "session"], soon);
  look();
  return {
    node,
    soon,
    close() {
      closed = true;
      clearTimeout(timer);
      end();
    },
  };
}
