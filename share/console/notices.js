// What the page cannot leave unsaid, large and above everything else: no connection, no right to command, another version
// of the controller, all off, a stop without an answer.

import {el, replace} from "./dom.js";
import {tr} from "./texts.js";
import {problemBox, say, withControl} from "./widgets.js";
import {wire} from "./wire.js";

class Notices {
  #refused = null;  // why the link that opened the page is not good
  #unanswered = false;
  #edition = "";  // of the files that this page was made of
  #old = false;

  open(root) {
    this.root = root;
    wire.on(["status", "stale", "session", "connection"], () => this.show());
    wire.on("connection", (connected) => connected && this.#compare());
    // Nothing runs in what has been answered since: the stop that was not answered is over.
    wire.on("status", ({state, run}) => {
      if (this.#unanswered && state === "standby" && !run) this.#stopAnswered(true);
    });
    wire.on("stopUnanswered", () => this.#stopAnswered(false));
    wire.on("stopAnswered", (path) => {
      this.#stopAnswered(true);
      say(path === "stop" ? tr("Stop was sent") : tr("All off was sent"));
    });
  }

  linkRefused(problem) {
    this.#refused = problem;
    this.show();
  }

  // A controller that comes back may have come with other files.
  async #compare() {
    const answer = await fetch("/console/edition", {cache: "no-store"}).catch(() => null);
    if (!answer?.ok) return;
    const edition = await answer.text();
    this.#edition ||= edition;
    this.#old = edition !== this.#edition;
    this.show();
  }

  #stopAnswered(answered) {
    this.#unanswered = !answered;
    this.show();
  }

  show() {
    const list = [];
    const reset = {name: tr("Reset"), press: () => withControl(() => wire.post("reset"))};
    if (this.#unanswered)
      list.push({id: "unanswered", kind: "worst", title: tr("No answer to Stop"), text: tr("Use the emergency stop at the machine.")});
    if (wire.stale && performance.now() > 3000)
      list.push({id: "lost", kind: "bad", title: tr("No connection to the controller"),
        text: tr("What is shown is old. The page goes on trying; what was started is stopped after 10 s without anybody who attends it.")});
    if (this.#old)
      list.push({id: "old", kind: "bad", title: tr("This page is of another version than the controller"),
        text: tr("What it shows and orders may not fit: load it anew. Stop works as ever."),
        button: {name: tr("Load anew"), press: () => location.reload()}});
    if (this.#refused && wire.session.role === "viewer") list.push({id: "refused", kind: "bad", node: problemBox(this.#refused)});
    if (!wire.stale && wire.session.role === "viewer")
      list.push({id: "viewer", kind: "note", title: tr("You can look, stop and switch all off"),
        text: tr("To command the machine, open the link that \"ixocut console\" prints.")});
    if (!wire.stale && !wire.listens)
      list.push({id: "many", kind: "note", title: tr("Many windows of this page are open"),
        text: tr("Until this one comes to the front, it is looked at every 2 s. Stop works as ever.")});
    if (wire.status?.allOff)
      list.push({id: "all-off", kind: "bad", title: tr("All off"), text: tr("Everything was stopped at once. Remove the cause, then reset."), button: reset});
    else if (wire.status?.latched)
      list.push({id: "latched", kind: "bad", title: tr("The laser's latch has tripped"), text: wire.status.latchReason, button: reset});
    const key = JSON.stringify([list.map(({id, text}) => [id, text]), document.documentElement.lang]);
    if (key === this.shown) return;
    this.shown = key;
    replace(this.root, list.map(({id, kind, title, text, node, button}) =>
      el("section", {class: "notice " + kind, id: "notice-" + id, role: kind === "note" ? "status" : "alert"},
        node ?? [el("strong", title), " ", el("span", text)],
        button && el("button", {onclick: button.press}, button.name))));
  }
}

export const notices = new Notices();
