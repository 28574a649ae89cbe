// Keys of the panel that somebody holds, by pointer, finger or keyboard: pressed at the controller, kept down by
// heartbeats, and released as soon as nobody is sure to hold them. One at a time; a stop key gets through beside another.
// What cannot be sent does no harm: the controller releases a key after 200 ms without a heartbeat.

import {wire} from "./wire.js";

const kHeartbeatMs = 50;
const kGapMs = 200;  // without a heartbeat: the controller has released it by then
const kAnswerMs = 400;  // without an answer to one: nobody knows whether it is down

// Through the browser's own process: where that hangs and tells nobody that a finger was lifted, nothing is sent.
const kAtOnce = {priority: "high", keepalive: true};

function newId() {
  return [...crypto.getRandomValues(new Uint8Array(12))].map((byte) => byte.toString(16).padStart(2, "0")).join("");
}

export class Holding {
  // What is held: {key, source, id, phase: "asked" | "down" | "up", why, problem, startedMs, lastedMs}, or null.
  hold = null;
  #timer = null;
  #secondTouch = null;  // the event that has just released another key
  #ends = [];

  // told(hold) behind each change of its phase. `why` it is up: "released", "left", "cancelled", "second", "menu",
  // "focus", "blur", "hidden", "closed", "stop", "connection", "lease", "asleep", "refused"; the controller's own: "gap", "form",
  // "end"; `problem` says what the controller answered.
  constructor(told) {
    this.told = told;
    const on = (target, kind, listener) => {
      target.addEventListener(kind, listener, {capture: true});
      this.#ends.push(() => target.removeEventListener(kind, listener, {capture: true}));
    };
    on(window, "pointerdown", (event) => {
      if (!this.hold) return;
      this.#secondTouch = event;
      this.release("second");
    });
    on(window, "pointerup", (event) => this.#let("pointer" + event.pointerId, "released"));
    on(window, "pointercancel", (event) => this.#let("pointer" + event.pointerId, "cancelled"));
    on(window, "keyup", (event) => this.#let("key" + event.code, "released"));
    on(window, "contextmenu", () => this.release("menu"));
    on(window, "blur", (event) => event.target === window && this.release("blur"));
    on(window, "pagehide", () => this.release("hidden"));
    on(document, "freeze", () => this.release("hidden"));
    on(document, "visibilitychange", () => document.hidden && this.release("hidden"));
    this.#ends.push(
      wire.on("connection", (connected) => !connected && this.release("connection")),
      wire.on("stale", (stale) => stale && this.release("connection")),
      wire.on("lease", () => !wire.lease.mine && this.hold?.phase === "down" && !this.hold.key.stopKey && this.release("lease")),
      wire.on("stopping", () => this.release("stop")),
      wire.on("key", (event) => this.hold?.id === event.press && this.#up(this.hold, event.up)));
  }

  close() {
    this.release("closed");
    for (const end of this.#ends) end();
  }

  // Makes a button one that is held; key: {key: "CK_LEFT", stopKey: false}.
  attach(node, key) {
    node.addEventListener("pointerdown", (event) => {
      if (event.button !== 0) return;
      const second = event === this.#secondTouch;
      if (second && !key.stopKey) return;
      // A finger that leaves the key no longer holds it; and what takes the focus away covers it.
      if (event.target.hasPointerCapture(event.pointerId)) event.target.releasePointerCapture(event.pointerId);
      node.focus({preventScroll: true});
      this.#press(key, "pointer" + event.pointerId);
    });
    node.addEventListener("pointerleave", (event) => this.#let("pointer" + event.pointerId, "left"));
    // A long touch is no question for a menu.
    node.addEventListener("touchstart", (event) => event.preventDefault(), {passive: false});
    node.addEventListener("contextmenu", (event) => event.preventDefault());
    node.addEventListener("keydown", (event) => {
      if ((event.code !== "Space" && event.code !== "Enter") || event.ctrlKey || event.altKey || event.metaKey) return;
      event.preventDefault();
      if (!event.repeat && (!this.hold || key.stopKey)) this.#press(key, "key" + event.code);
    });
    node.addEventListener("keyup", (event) => event.code === "Space" && event.preventDefault());
    node.addEventListener("focusout", () => this.hold?.key === key && this.release("focus"));
    // Neither pointer nor keyboard: what reads the page aloud presses and lets go.
    node.addEventListener("click", async (event) => {
      if (event.detail !== 0) return;
      await this.#press(key, "click");
      if (this.hold?.source === "click") this.release("released");
    });
  }

  #let(source, why) {
    if (this.hold?.source === source) this.release(why);
  }

  async #press(key, source) {
    this.release("second");
    const hold = {key, source, id: newId(), phase: "asked", why: "", problem: null, startedMs: performance.now(), lastedMs: 0};
    this.hold = hold;
    this.told(hold);
    try {
      if (!key.stopKey && !wire.lease.holder) {
        await wire.takeControl();
        if (this.hold !== hold) return;
      }
      const pressed = wire.post("panel/press", {key: key.key, press: hold.id, atMs: wire.serverMs()}, kAtOnce);
      hold.beatMs = hold.answeredMs = performance.now();
      // Who may only stop holds nothing.
      if (wire.session.role !== "viewer") this.#timer = setInterval(() => this.#beat(hold), kHeartbeatMs);
      await pressed;
    } catch (problem) {
      this.#up(hold, "refused", problem);
      return;
    }
    if (this.hold !== hold) return;
    hold.phase = "down";
    this.told(hold);
  }

  // At most one is under way; what could not be sent in its time is left out.
  async #beat(hold) {
    const now = performance.now();
    if (this.hold !== hold) return;
    if (now - hold.beatMs > kGapMs) return this.release("asleep");
    if (now - hold.answeredMs > kAnswerMs) return this.release("connection");
    hold.beatMs = now;
    if (hold.beating) return;
    hold.beating = true;
    const early = hold.phase === "asked";  // it may be there before the press is
    try {
      await wire.post("panel/heartbeat", {presses: [hold.id], atMs: wire.serverMs()}, kAtOnce);
      hold.answeredMs = performance.now();
    } catch (problem) {
      if (this.hold === hold && !early) this.release(problem.status === 0 ? "connection" : "gap", problem);
    } finally {
      hold.beating = false;
    }
  }

  release(why, problem = null) {
    const hold = this.hold;
    if (!hold) return;
    this.#up(hold, why, problem);
    wire.post("panel/release", {press: hold.id}, kAtOnce).catch(() => {});
  }

  #up(hold, why, problem = null) {
    if (this.hold === hold) {
      clearInterval(this.#timer);
      this.hold = null;
    } else if (why !== "refused" || hold.why !== "released") {
      return;  // it is up already
    }
    Object.assign(hold, {phase: "up", why, problem, lastedMs: performance.now() - hold.startedMs});
    this.told(hold);
  }
}
