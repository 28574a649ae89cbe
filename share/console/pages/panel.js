// The panel: its keys as they lie at the machine, what they show, why one does nothing; the knob; and what each key would
// do otherwise.

import {el, replace, setText} from "../dom.js";
import {Holding} from "../hold.js";
import {kept} from "../kept.js";
import {mark, tr} from "../texts.js";
import {agree, attempt, durationText, field, numberText, problemBox, readAll, say, table, tabs, withControl} from "../widgets.js";
import {wire} from "../wire.js";
import {keyLabel, kStopKeys, reasonsList} from "./keys.js";
import {openTry} from "./trykeys.js";

const kLookMs = 2000;  // forms and other people's keys come without an event
const kBlinkMs = 1600;  // a lamp that has changed twice within this blinks
const kGap = null;  // no key in this place

// Groups as they lie side by side, their keys row by row.
const kGroups = [
  {title: mark("Beam and gas"), columns: 2,
    keys: ["CK_SHUTTER", "CK_LASER", "CK_AIMING", "CK_JOG_LASER", "CK_FOLLOW", "CK_GAS"]},
  {title: mark("Move by hand"), columns: 4,
    keys: ["CK_RETURN0", "CK_FORWARD", kGap, "CK_Z_UP", "CK_LEFT", "CK_WALKAROUND", "CK_RIGHT", "CK_KNOB",
      "CK_CALIBRATION", "CK_BACK", "CK_CUR_POS_AUTO_CALIBRATION", "CK_Z_DOWN"]},
  {title: mark("Program"), columns: 2,
    keys: ["CK_START", "CK_STOP", "CK_PAUSE", "CK_RESUME", "CK_DRY_CUT", "CK_BREAK_LOCATE"]},
  {title: mark("Further keys"), columns: 5, keys: ["CK_K1", "CK_K2", "CK_K3", "CK_K4", "CK_EGYSTOP"]},
];

// Why a key that was held is up.
const kUp = {
  released: mark("let go"),
  left: mark("let go: the pointer left the key"),
  cancelled: mark("released: the touch was broken off"),
  second: mark("released: a second touch"),
  menu: mark("released: a menu"),
  focus: mark("released: something else came to the front"),
  blur: mark("released: another window came to the front"),
  hidden: mark("released: the page was hidden"),
  closed: mark("released: another page"),
  stop: mark("released: stop"),
  connection: mark("released: no connection to the controller"),
  lease: mark("released: control went to somebody else"),
  asleep: mark("released: the page stood still"),
  gap: mark("released by the controller: it had no sign of life"),
  form: mark("released by the controller: another form"),
  end: mark("released by the controller: it ends"),
};

const kLevels = {low: mark("low"), normal: mark("normal"), high: mark("high")};

export function open(root) {
  const saved = kept("panel", {tab: "panel"});
  const content = el("div");
  const tools = el("div", {class: "row"});
  let close = null;
  const show = (tab) => {
    close?.();
    saved.set({tab});
    const view = el("div");
    replace(content, view);
    replace(tools);
    close = tab === "try" ? openTry(view) : openPanel(view, tools);
  };
  replace(root, el("div", {class: "row top"},
    tabs(tr("Views"), [{id: "panel", title: tr("Panel")}, {id: "try", title: tr("Try it")}], saved.get("tab"), show), tools), content);
  return () => close?.();
}

function openPanel(root, tools) {
  const keys = new Map();  // by name: its node and what it shows
  const told = el("div", {class: "told-key", "aria-live": "polite"});
  let panel = null;
  let lastHold = null;

  const holding = new Holding((hold) => {
    lastHold = hold;
    paint();
    tellHold(hold);
  });

  const keyNode = (name) => {
    if (name === kGap) return el("span", {"aria-hidden": "true"});
    const label = el("span", {class: "label"});
    const sign = el("small");
    const node = el("button", {class: "key", "data-key": name},
      el("span", {class: "state"}, el("span", {class: "lamp", "aria-hidden": "true"}), sign), label);
    const stopKey = kStopKeys.includes(name);
    node.classList.toggle("stop-key", stopKey);
    holding.attach(node, {key: name, stopKey});
    keys.set(name, {node, label, sign, lit: false, changes: [0, 0], shown: ""});
    return node;
  };

  const form = el("select", {id: "panel-form", onchange: () => setForm(form.value)});
  const knob = knobCard(() => panel?.knob, (answer) => {
    panel.knob = answer;
    paint();
  });
  const formless = el("p", {class: "warn", hidden: true}, "▲ " + tr("No form is on screen: only the stop keys act. Choose one to use the others."));
  const alt = el("button", {id: "panel-alt", title: tr("Three keys then send another command; where they are lit, they blink."),
    onclick: () => withControl(() => wire.post("panel/alt", {alt: !panel?.alt})).then(look)}, tr("Alt mode"));
  replace(tools, el("label", {for: "panel-form"}, tr("Form on screen")), form, alt);
  replace(root, formless,
    el("div", {class: "panel-keys"}, kGroups.map((group) =>
      el("section", {class: "card key-group columns-" + group.columns},
        el("h2", tr(group.title)), el("div", {class: "keys"}, group.keys.map(keyNode))))),
    el("div", {class: "columns"},
      el("section", {class: "card"}, el("h2", tr("The last key")), told), knob.node));
  replace(told, el("p", {class: "aside"}, tr("A key is down as long as it is held. One that is refused says here why, and what would help.")));

  // --- what is shown ---

  function takeLeds(leds) {
    const now = performance.now();
    for (const [name, key] of keys) {
      const lit = leds.includes(name);
      if (lit !== key.lit) key.changes = [key.changes[1], now];
      key.lit = lit;
    }
  }

  function paint() {
    if (!panel) return;
    const now = performance.now();
    const still = matchMedia("(prefers-reduced-motion: reduce)").matches;
    const hold = holding.hold;
    root.classList.toggle("stale-values", wire.stale);
    for (const of of panel.keys) {
      const key = keys.get(of.key);
      if (!key) continue;
      const blinks = now - key.changes[0] < kBlinkMs && key.changes[0] > 0;
      const mine = hold?.key.key === of.key;
      const lit = key.lit || (blinks && still);
      const signs = [mine ? (hold.phase === "down" ? tr("held") : tr("asked")) : of.down && tr("down"),
        blinks ? tr("blinks") : lit && tr("lit"), !of.permitted && tr("refused")].filter(Boolean).join(" · ");
      const shown = JSON.stringify([of.label, signs, lit]);
      if (shown === key.shown) continue;
      key.shown = shown;
      setText(key.label, keyLabel(of.key, of.label));
      setText(key.sign, signs);
      key.node.classList.toggle("lit", lit);
      key.node.classList.toggle("refused", !of.permitted);
      key.node.classList.toggle("down", mine || of.down);
    }
    alt.setAttribute("aria-pressed", String(panel.alt));
    knob.show(panel.knob);
  }

  // At most one look under way, and one that follows.
  let looking = false;
  let again = false;
  async function look() {
    if (holding.hold) return;  // heartbeats come first; its end looks again
    if (looking) return void (again = true);
    looking = true;
    try {
      panel = await wire.get("panel");
      takeLeds(panel.leds);
      showForm();
      paint();
    } catch (problem) {
      if (!panel) replace(told, problemBox(problem));
    } finally {
      looking = false;
      if (again) {
        again = false;
        look();
      }
    }
  }

  // --- the form ---

  let forms = [];
  function showForm() {
    const shown = panel.form ?? "";
    formless.hidden = shown !== "";
    const choices = shown && !forms.includes(shown) ? [shown, ...forms] : forms;
    if (form.options.length !== choices.length + 1)
      replace(form, el("option", {value: ""}, tr("none")), choices.map((name) => el("option", {value: name}, name)));
    if (document.activeElement !== form) form.value = shown;
  }
  async function setForm(wanted) {
    form.blur();
    await withControl(async () => {
      for (const old of panel.forms.toReversed()) await wire.post("panel/form", {form: old, open: false});
      if (wanted) await wire.post("panel/form", {form: wanted});
    });
    look();
  }

  // --- what the last key did ---

  const name = (hold) => keyLabel(hold.key.key, panel?.keys.find((of) => of.key === hold.key.key)?.label ?? hold.key.key);

  function tellHold(hold) {
    if (hold.phase === "asked") return;
    if (hold.phase === "down") return replace(told, el("p", el("strong", tr("%s is held", name(hold)))));
    if (hold.why === "refused") return tellRefused(hold);
    const words = kUp[hold.why] ? tr(kUp[hold.why]) : hold.why;
    replace(told, el("p", el("strong", name(hold)), " ", words, " ", el("span", {class: "aside"}, tr("after %s", durationText(hold.lastedMs)))),
      hold.problem && problemBox(hold.problem));
    look();
  }

  async function tellRefused(hold) {
    const other = wire.lease.holder && !wire.lease.mine && !hold.key.stopKey;
    const reasons = el("div");
    say(tr("%s was refused", name(hold)) + ": " + (hold.problem.why || hold.problem.what));
    replace(told, el("p", el("strong", tr("%s was refused", name(hold)))), problemBox(hold.problem),
      other && el("p", el("button", {onclick: () => withControl(() => {})}, tr("Take over control"))), reasons);
    try {
      const why = await wire.get("panel/why?key=" + hold.key.key);
      if (lastHold === hold) replace(reasons, reasonsList(why.masks));
    } catch {
      // What it was refused for stands there already.
    }
  }

  attempt(async () => {
    forms = (await wire.get("panel/forms")).forms.map((of) => of.form).sort();
    if (panel) showForm();
  });
  const ends = [
    wire.on(["state", "alarm", "connection", "alarms", "session"], look),
    wire.on(["stale", "lease"], paint),
    wire.on("key", look),
    wire.on("led", (event) => {
      takeLeds(event.leds);
      if (panel && panel.knob.state !== event.knob) look();
      paint();
    }),
  ];
  const timer = setInterval(() => !document.hidden && look(), kLookMs);
  look();
  return () => {
    clearInterval(timer);
    holding.close();
    for (const end of ends) end();
  };
}

// --- the knob ---

function knobCard(knobNow, took) {
  const level = el("strong", {class: "level"});
  const dial = el("div", {class: "dial", role: "slider", tabindex: "0", "aria-label": tr("Jog knob"), "aria-valuemin": "0", "aria-valuemax": "2"}, level);
  const said = el("p", {class: "aside", role: "status"});
  const speeds = el("div");
  const names = Object.keys(kLevels);
  let counts = 0;
  let turning = false;

  // What comes while one turn is under way is turned together.
  async function turn(by) {
    counts += by;
    if (turning) return;
    turning = true;
    await withControl(async () => {
      while (counts !== 0) {
        const asked = Math.max(-1000, Math.min(1000, counts));
        counts = 0;
        const answer = await wire.post("panel/knob", {counts: asked});
        setText(said, answer.dropped ? tr("The turn was dropped: the knob turns in standby and while jogging only.") : "");
        took(answer);
      }
    });
    counts = 0;
    turning = false;
  }

  dial.addEventListener("wheel", (event) => {
    if (document.activeElement !== dial || event.deltaY === 0) return;
    event.preventDefault();
    turn(event.deltaY < 0 ? 1 : -1);
  }, {passive: false});
  dial.addEventListener("keydown", (event) => {
    const by = {ArrowUp: 1, ArrowRight: 1, ArrowDown: -1, ArrowLeft: -1}[event.key];
    if (!by) return;
    event.preventDefault();
    turn(by);
  });

  async function changeSpeeds() {
    const knob = knobNow();
    if (!knob) return;
    const speed = (axis, title) => field({name: axis, title, type: "number", unit: "mm/s", required: true}, knob[axis][knob.state]);
    const fields = [speed("xy", tr("Speed in X and Y")), speed("z", tr("Speed in Z"))];
    let values = null;
    const content = el("div", el("p", tr("At level %s", tr(kLevels[knob.state]))), fields.map(({node}) => node));
    if (!(await agree(tr("Speeds of the knob"), content, tr("Save"), {when: () => (values = readAll(fields)) !== null}))) return;
    const answer = await withControl(() => wire.post("panel/knob", {level: knob.state, ...values}));
    if (answer) took(answer);
  }

  const node = el("section", {class: "card knob"}, el("h2", tr("Jog knob")),
    el("div", {class: "row"},
      el("button", {"aria-label": tr("Turn left, slower"), onclick: () => turn(-1)}, "↺ " + tr("slower")), dial,
      el("button", {"aria-label": tr("Turn right, faster"), onclick: () => turn(1)}, tr("faster") + " ↻"),
      el("button", {onclick: changeSpeeds}, tr("Speeds..."))),
    said, speeds);
  let shown = "";
  return {
    node,
    show(knob) {
      const now = JSON.stringify(knob);
      if (now === shown) return;
      shown = now;
      setText(level, tr(kLevels[knob.state]));
      dial.setAttribute("aria-valuenow", names.indexOf(knob.state));
      dial.setAttribute("aria-valuetext", level.textContent);
      dial.dataset.level = knob.state;
      replace(speeds, table(tr("Speeds in mm/s"), [
        {title: tr("Level"), cell: (of) => (of === knob.state ? "▸ " : "") + tr(kLevels[of])},
        {title: "X, Y", number: true, cell: (of) => numberText(knob.xy[of])},
        {title: "Z", number: true, cell: (of) => numberText(knob.z[of])},
      ], names, {rowClass: (of) => of === knob.state && "chosen"}));
    },
  };
}
