// The page "Machine": where head and axes are, what is on, what the run is at, and the axes' steps by hand. It has more
// signals a second than the others while it is open; what they change is drawn with the next picture of the screen,
// texts less often.

import {el} from "../dom.js";
import {rarely} from "../widgets.js";
import {wire} from "../wire.js";
import {Axes} from "./machine/axes.js";
import {Bed} from "./machine/bed.js";
import {Places} from "./machine/places.js";
import {Run} from "./machine/run.js";
import {Side} from "./machine/side.js";
import {Signs} from "./machine/signs.js";
import {Steps} from "./machine/steps.js";

const kRate = 50;
const kUsualRate = 10;
const kDrawMs = 1000 / kRate;
const kTextMs = 100;

export async function open(root) {
  const [machine, config] = await Promise.all([wire.get("machine"), wire.get("config").catch(() => ({properties: {}}))]);
  const run = new Run();
  const bed = new Bed(machine, config.properties, run);
  const side = new Side(machine, config.properties);
  const axes = new Axes(machine, config.properties);
  const signs = new Signs(machine);
  const steps = new Steps(run);
  const places = new Places(machine, config.properties);
  root.append(
    el("div", {class: "first"}, bed.node, steps.node),
    el("div", {class: "second"}, axes.node, signs.node),
    el("div", {class: "third"}, side.node, places.node));

  let frame = 0;
  let due = false;  // texts are to be shown with the next picture
  const show = () => {
    frame = 0;
    bed.move(wire.status.signals);
    side.move(wire.status.signals);
    if (!due) return;
    due = false;
    root.classList.toggle("stale-values", wire.stale);
    for (const part of [bed, side, axes, signs, places]) part.show(wire.status);
  };
  const picture = rarely(kDrawMs, () => (frame ||= requestAnimationFrame(show)));
  const texts = rarely(kTextMs, () => {
    due = true;
    picture();
  });
  const moved = () => {
    if (!wire.status) return;
    texts();
    picture();
  };
  const ends = [
    wire.on("signals", (signals) => {
      bed.travelled(signals);
      moved();
    }),
    wire.on("connection", (connected) => connected || bed.lost()),
    wire.on(["status", "stale", "session", "alarms", "lease"], moved),
  ];
  wire.setRate(kRate);
  moved();
  run.open();
  return () => {
    wire.setRate(kUsualRate);
    picture.end();
    cancelAnimationFrame(frame);
    texts.end();
    for (const end of ends) end();
    for (const part of [bed, side, steps, run]) part.close();
  };
}
