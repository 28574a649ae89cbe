// What is always visible: state and procedure, who has control, Stop and All off.

import {el, replace, setText} from "./dom.js";
import {currentLanguage, languages, mark, tr} from "./texts.js";
import {agree, durationText, withControl} from "./widgets.js";
import {wire} from "./wire.js";

const kStates = {
  standby: mark("Standby"),
  working: mark("Working"),
  paused: mark("Paused"),
  "return-to-origin": mark("Return to origin"),
  jogging: mark("Jogging"),
  "dry-run": mark("Dry run"),
  "follower-calibration": mark("Follower calibration"),
  "walk-around": mark("Walk around"),
  procedure: mark("Procedure"),
  "gas-calibration": mark("Gas calibration"),
  "gas-descent": mark("Gas descent"),
  other: mark("Another state"),
};

export function stateText(state) {
  return tr(kStates[state] ?? state);
}

class Bar {
  open(root, changeLanguage) {
    this.root = root;
    this.changeLanguage = changeLanguage;
    // A short shot is over before the status is looked at.
    wire.on("signals", () => this.showBeam());
    wire.on(["status", "stale", "lease", "session", "connection", "alarms"], () => this.update());
    this.show();
  }

  show() {
    this.state = el("strong", {id: "state"});
    this.what = el("span", {id: "running"});
    this.alarms = el("a", {href: "#alarms", id: "alarm-count"});
    this.control = el("button", {id: "control", onclick: () => this.changeControl()});
    this.beam = el("span", {id: "beam", class: "sign", role: "status"});
    const language = el("select", {id: "language", "aria-label": tr("Language"), onchange: (event) => this.changeLanguage(event.target.value)},
      languages().map(({id, name}) => el("option", {value: id, lang: id, selected: id === currentLanguage()}, name)));
    const stop = el("button", {id: "stop", "aria-keyshortcuts": "Escape", onclick: () => wire.stop()},
      el("b", tr("Stop")), el("kbd", tr("Esc")));
    const off = el("button", {id: "all-off", "aria-keyshortcuts": "Shift+Escape", onclick: () => wire.allOff()},
      el("b", tr("All off")), el("kbd", tr("Shift+Esc")));
    replace(this.root,
      el("div", {class: "now"}, el("div", this.state, this.alarms), el("div", this.beam, this.what)),
      el("div", {class: "who"}, this.control, language),
      el("div", {class: "stops"}, stop, off,
        el("small", tr("The emergency stop is the button at the machine, not here."))));
    this.update();
  }

  update() {
    const {status, lease, stale} = wire;
    this.root.classList.toggle("stale", stale);
    setText(this.state, status ? stateText(status.state) : "-");
    const run = status?.run;
    setText(this.what, run ? [run.procedure, durationText(run.runMs), run.startedBy].join(" · ") : tr("Nothing runs"));
    this.showBeam();
    const alarms = wire.alarms.length;
    setText(this.alarms, alarms === 0 ? tr("No alarms") : tr("Alarms: %d", alarms));
    this.alarms.classList.toggle("standing", alarms > 0);
    const holder = lease.mine ? tr("You have control") : lease.holder ? tr("%s has control", lease.holder) : tr("Nobody has control");
    setText(this.control, holder);
    this.control.title = holder;
    this.control.classList.toggle("mine", lease.mine);
    this.control.setAttribute("aria-pressed", lease.mine ? "true" : "false");
  }

  showBeam() {
    const {laser, emission} = wire.status?.signals ?? {};
    setText(this.beam, laser || emission ? tr("Beam on") : "");
  }

  async changeControl() {
    if (!wire.lease.mine) return withControl(() => {});
    const give = await agree(tr("Give control back?"), el("p", tr("What runs goes on; without somebody who attends it, it is stopped after 10 s.")), tr("Give back"), {no: tr("Keep")});
    if (give) await wire.giveControl().catch(() => {});
  }
}

export const bar = new Bar();
