// A short sound for each new alarm, on whatever page; silent until somebody wants it.

import {kept} from "./kept.js";
import {wire} from "./wire.js";

const kLengthS = 0.18;
const kTones = {0: [660], 1: [880, 660, 880]};  // Hz by level, one behind the other
const kPauseMs = 1000;  // alarms that come at once sound once

const saved = kept("sound", {on: false});
let context = null;
let soundedAt = -kPauseMs;

function sound(level) {
  context ??= new AudioContext();
  context.resume();
  (kTones[level] ?? kTones[1]).forEach((hz, i) => {
    const tone = context.createOscillator();
    const volume = context.createGain();
    const from = context.currentTime + i * kLengthS * 1.2;
    tone.frequency.value = hz;
    volume.gain.setValueAtTime(0.2, from);
    volume.gain.exponentialRampToValueAtTime(0.001, from + kLengthS);
    tone.connect(volume).connect(context.destination);
    tone.start(from);
    tone.stop(from + kLengthS);
  });
}

export function soundOn() {
  return saved.get("on");
}

// Heard at once where it is switched on: browsers let a page sound only behind somebody's touch.
export function setSound(on) {
  saved.set({on});
  if (on) sound(0);
}

wire.on("alarm", (event) => {
  if (!saved.get("on") || event.event !== "raised" || performance.now() - soundedAt < kPauseMs) return;
  soundedAt = performance.now();
  sound(event.level);
});
