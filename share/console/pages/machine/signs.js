// What is on and what is permitted, with the reason where it is not.

import {el, setText} from "../../dom.js";
import {mark, tr} from "../../texts.js";
import {numberText} from "../../widgets.js";
import {wire} from "../../wire.js";
import {outputName} from "../runs/words.js";

const kRows = [
  {id: "beam", title: mark("Beam"), needs: "laser"},
  {id: "gas", title: mark("Gas"), needs: "gas"},
  {id: "move", title: mark("Motion")},
  {id: "laser", title: mark("Laser"), needs: "laser"},
  {id: "latch", title: mark("Latch"), needs: "laser"},
  {id: "outputs", title: mark("Outputs")},
];

export class Signs {
  constructor(machine) {
    this.machine = machine;
    this.rows = Object.fromEntries(kRows.map(({id}) => [id, {sign: el("b"), more: el("span")}]));
    this.node = el("section", {class: "card"}, el("h2", tr("State and permission")),
      el("dl", {class: "facts signs"}, kRows.filter(({needs}) => !needs || machine.fitted[needs]).map(({id, title}) =>
        [el("dt", tr(title)), el("dd", this.rows[id].sign, " ", this.rows[id].more)])));
  }

  // state: "on", "good", "bad" or "" for what is off.
  #say(id, state, text, more = "") {
    const {sign, more: rest} = this.rows[id];
    setText(sign, text);
    if (sign.className !== state) sign.className = state;
    setText(rest, more);
  }

  show({signals, allowMove, allowLaser, latched, latchReason}) {
    const {gas} = signals;
    const pilot = signals.aiming ? tr("pilot light on") : "";
    if (signals.laser && signals.emission) this.#say("beam", "lit", tr("on"), pilot);
    else if (signals.laser) this.#say("beam", "lit", tr("asked for, no emission"), pilot);
    else if (signals.emission) this.#say("beam", "lit", tr("shutter open, laser off"), pilot);
    else this.#say("beam", "", tr("off"), pilot);
    const branch = this.machine.gases.find((candidate) => candidate.branch === gas.branch)?.text ?? String(gas.branch);
    this.#say("gas", gas.on ? "on" : "", gas.on ? tr("%s on", branch) : tr("%s off", branch),
      tr("set %s bar, measured %s bar", numberText(gas.setBar), numberText(gas.bar)));
    this.#allowed("move", allowMove, (alarm) => alarm.forbidsMove);
    this.#allowed("laser", allowLaser && !latched, (alarm) => alarm.forbidsLaser);
    this.#say("latch", latched ? "bad" : "good", latched ? tr("tripped") : tr("not tripped"), latchReason);
    const outputs = signals.outputsOn.map(outputName);
    this.#say("outputs", outputs.length > 0 ? "on" : "", outputs.length > 0 ? tr("on") : tr("none on"), outputs.join(", "));
  }

  #allowed(id, allowed, forbids) {
    const reasons = wire.alarms.filter(forbids).map((alarm) => alarm.code + " " + alarm.text);
    this.#say(id, allowed ? "good" : "bad", allowed ? tr("allowed") : tr("forbidden"), allowed ? "" : reasons.join("; "));
  }
}
