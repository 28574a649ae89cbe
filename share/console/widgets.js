// What several pages are made of: problems, dialogs, tables, fields, numbers and times as people read them.

import {el, replace, setText} from "./dom.js";
import {currentLanguage, tr} from "./texts.js";
import {wire} from "./wire.js";

// --- numbers and times ---

export function numberText(value, digits = 2) {
  return value === null || value === undefined ? "-" : Number(value).toFixed(digits);
}

// Of an axis: no minus sign before what is shown as zero.
export function millimetres(value, digits = 2) {
  return numberText(value === null || value === undefined || Number(value.toFixed(digits)) !== 0 ? value : 0, digits);
}

// "1.24 s", "3:05 min"
export function durationText(ms) {
  if (ms === null || ms === undefined) return "-";
  if (ms < 1000) return Math.round(ms) + " ms";
  if (ms < 60000) return (ms / 1000).toFixed(2) + " s";
  const s = Math.round(ms / 1000);
  return Math.floor(s / 60) + ":" + String(s % 60).padStart(2, "0") + " min";
}

// Local time of what the controller says in UTC.
export function timeText(utc, withDate = true) {
  if (!utc) return "-";
  const options = {hour: "2-digit", minute: "2-digit", second: "2-digit", hour12: false};
  if (withDate) Object.assign(options, {year: "numeric", month: "2-digit", day: "2-digit"});
  return new Intl.DateTimeFormat(currentLanguage() === "zh" ? "zh-CN" : "en-GB", options).format(new Date(utc));
}

// `action` at once and then at most once in `ms`, the last call included; end() forgets what is due.
export function rarely(ms, action) {
  let timer = null;
  let due = false;
  const next = () => {
    timer = null;
    if (due) call();
  };
  const call = () => {
    due = timer !== null;
    if (due) return;
    timer = setTimeout(next, ms);
    action();
  };
  call.end = () => {
    clearTimeout(timer);
    due = false;
  };
  return call;
}

// --- what is said ---

const told = document.getElementById("told");

// Said once, aloud as well, and gone after a while.
export function say(text) {
  setText(told, text);
  told.classList.add("shown");
  clearTimeout(say.timer);
  say.timer = setTimeout(() => told.classList.remove("shown"), 4000);
}

// It is not in the way of whoever goes on.
addEventListener("keydown", ({key}) => key === "Tab" && told.classList.remove("shown"));

// What went wrong, why, and what to do; as a node.
export function problemBox(problem) {
  const what = problem.status === 0 ? tr("The controller does not answer") : problem.what;
  return el("div", {class: "problem", role: "alert"},
    el("strong", what),
    problem.where && el("div", {class: "where"}, problem.where),
    problem.why && el("div", problem.why),
    problem.remedy && el("div", {class: "remedy"}, problem.remedy));
}

// Of an alarm.
export function levelSign(level) {
  return level === 1 ? el("span", {class: "sign bad"}, "⚠ " + tr("Alarm")) : el("span", {class: "sign warn"}, "▲ " + tr("Warning"));
}

// --- dialogs ---

// What is below rests while a dialog is open; the bar does not: no dialog stands between an operator and Stop.
const dialogs = [];
function restBelow() {
  for (const id of ["pages", "page"]) document.getElementById(id).inert = dialogs.length > 0;
  dialogs.forEach((dialog, i) => (dialog.inert = i < dialogs.length - 1));
}

// Answers the button's value. buttons: [{text, value, kind: "main" | "danger", when: () => boolean}]. `until` (an
// AbortSignal) is of a dialog that opens by itself and may end so, with null: no button of it has the focus, nor takes a
// press that was meant for what was there before.
const kOwnPressMs = 500;
let dialogCount = 0;
export function ask(title, content, buttons, {until} = {}) {
  return new Promise((answer) => {
    const id = "dialog-title-" + ++dialogCount;
    const since = performance.now();
    const close = (value) => {
      if (!dialogs.includes(dialog)) return;
      dialogs.splice(dialogs.indexOf(dialog), 1);
      restBelow();
      dialog.close();  // where the focus was before has it again
      dialog.remove();
      answer(value);
    };
    const press = (button) => {
      if (until && performance.now() - since < kOwnPressMs) return;
      if (!button.when || button.when()) close(button.value);
    };
    const dialog = el("dialog", {"aria-labelledby": id},
      el("h2", {id, tabindex: until && "-1", autofocus: Boolean(until)}, title), el("div", {class: "content"}, content),
      el("div", {class: "buttons"}, buttons.map((button) =>
        el("button", {class: button.kind, onclick: () => press(button)}, button.text))));
    until?.addEventListener("abort", () => close(null));
    const top = Math.max(...["bar", "notices"].map((above) => document.getElementById(above).getBoundingClientRect().bottom));
    dialog.style.setProperty("--top", Math.round(scrollY + top) + "px");
    document.body.append(dialog);
    dialogs.push(dialog);
    dialog.show();
    restBelow();
  });
}

// Whether the operator says yes; with `when` only where that holds.
export function agree(title, content, yes, {no = tr("Cancel"), kind = "main", when} = {}) {
  return ask(title, content, [{text: yes, value: true, kind, when}, {text: no, value: false}]);
}

// Says something that has to be read.
export function tell(title, content) {
  return ask(title, content, [{text: tr("Close"), value: null, kind: "main"}]);
}

export function showProblem(problem, title = tr("This was refused")) {
  return tell(title, problemBox(problem));
}

// Shows what an action is refused for; answers what it answers, or undefined.
export async function attempt(action) {
  try {
    return await action();
  } catch (problem) {
    if (!("what" in problem)) throw problem;
    await showProblem(problem);
    return undefined;
  }
}

// Runs what needs control: takes it where nobody has it, asks where somebody else has it. As attempt.
export function withControl(action) {
  return attempt(async () => {
    if (wire.session.role === "viewer")
      throw {what: tr("You can look, stop and switch all off"), remedy: tr("To command the machine, open the link that \"ixocut console\" prints.")};
    if (!(await wire.takeControl())) {
      const holder = wire.lease.holder;
      const text = tr("%s has control. Whoever takes it over attends what runs; keys that are held are released.", holder);
      if (!(await agree(tr("Take over control?"), el("p", text), tr("Take over")))) return undefined;
      await wire.takeControl(true);
    }
    return action();
  });
}

// A button that posts `body()` to `path` where that is an object, and hands the answer to `done`. Pressed again within a
// second, or after an answer that was lost, it does nothing a second time.
const kOnePressMs = 1000;
export function postButton(text, {kind, path, body = () => ({}), done}) {
  let busy = false;
  let meant = null;  // {once, text}: what was posted last, without an answer as yet
  const button = el("button", {class: kind, onclick: async () => {
    const asked = busy ? null : body();
    if (!asked) return;
    busy = true;
    const rested = new Promise((over) => setTimeout(over, kOnePressMs));
    const asText = JSON.stringify([path, asked]);
    if (meant?.text !== asText) meant = {once: newKey(), text: asText};
    await withControl(async () => {
      try {
        const answer = await wire.post(path, asked, {once: meant.once});
        meant = null;
        await done?.(answer);
      } catch (problem) {
        if (problem.status !== 0) meant = null;
        throw problem;
      }
    });
    await rested;
    busy = false;
  }}, text);
  return button;
}

function newKey() {
  return [...crypto.getRandomValues(new Uint32Array(4))].map((part) => part.toString(16)).join("-");
}

// --- tables ---

// columns: [{title, cell: the member that it shows, or (row) => node or text, number: true}]; rows may be chosen by `onrow`.
export function table(caption, columns, rows, {onrow, rowClass} = {}) {
  const line = (row) => {
    const cells = columns.map((column, i) => {
      const content = typeof column.cell === "string" ? row[column.cell] : column.cell(row);
      const shown = onrow && i === 0 ? el("button", {class: "link", onclick: () => onrow(row)}, content) : content;
      return el("td", {class: column.number && "number"}, shown);
    });
    return el("tr", {class: rowClass?.(row)}, cells);
  };
  return el("div", {class: "scroll", tabindex: "0", role: "region", "aria-label": caption},
    el("table", {},
      el("caption", {class: "aside"}, caption),
      el("thead", el("tr", columns.map((column) => el("th", {scope: "col", class: column.number && "number"}, column.title)))),
      el("tbody", rows.map(line))));
}

// --- fields ---

// One field of a form: {name, title, type: "number" | "integer" | "boolean", else a text, unit, summary, lowest, highest,
// numbers, choices: [{value, text}], chosen: one of them always is, empty: the text of no choice, required, default}.
// `read()` answers the value, undefined where it is empty, or throws a text that is shown beside the field.
let fieldCount = 0;
export function field({type = "text", ...of}, value = of.default) {
  const id = "field-" + ++fieldCount;
  const wrong = el("div", {class: "wrong", id: id + "-wrong"});
  const about = [of.summary, rangeText(of), of.default !== undefined && type !== "boolean" && tr("without: %s", of.default)].filter(Boolean).join("; ");
  const attributes = {id, name: of.name, "aria-describedby": id + "-about " + id + "-wrong"};
  const choices = of.choices ?? of.numbers?.map((number) => ({value: number, text: String(number)}));
  let input;
  if (type === "boolean") input = el("input", {...attributes, type: "checkbox", checked: value === true});
  else if (choices)
    input = el("select", attributes, !of.chosen && (!of.required || value === undefined) && el("option", {value: ""}, of.empty ?? ""), choices.map((choice) =>
      el("option", {value: choice.value, selected: choice.value === value}, choice.text)));
  else input = el("input", {...attributes, type: "text", inputmode: type === "text" ? "text" : "decimal", autocomplete: "off", value: value ?? ""});
  const node = el("div", {class: "field " + type},
    el("label", {for: id}, of.title ?? of.name, of.required && el("span", {class: "aside"}, " ", tr("(needed)"))),
    el("div", {class: "input"}, input, of.unit && el("span", {class: "unit"}, of.unit)),
    el("div", {class: "aside about", id: id + "-about"}, about), wrong);
  const refuse = (text) => {
    setText(wrong, text);
    input.setAttribute("aria-invalid", "true");
  };
  const refused = (text) => {
    refuse(text);
    throw text;
  };
  return {
    name: of.name,
    node,
    input,
    read() {
      setText(wrong, "");
      input.removeAttribute("aria-invalid");
      if (type === "boolean") return input.checked;
      const text = input.value.trim();
      if (text === "") return of.required ? refused(tr("a value is needed")) : undefined;
      if (type === "text") return text;
      const number = Number(text.replace(",", "."));
      if (!Number.isFinite(number)) refused(tr("this is no number"));
      if (type === "integer" && !Number.isInteger(number)) refused(tr("this is no whole number"));
      if (of.lowest !== null && of.lowest !== undefined && number < of.lowest) refused(tr("at least %s", of.lowest));
      if (of.highest !== null && of.highest !== undefined && number > of.highest) refused(tr("at most %s", of.highest));
      return number;
    },
    refuse,
  };
}

function rangeText(of) {
  const some = (value) => value !== null && value !== undefined;
  if (some(of.lowest) && some(of.highest)) return tr("%s to %s", of.lowest, of.highest);
  if (some(of.lowest)) return tr("at least %s", of.lowest);
  if (some(of.highest)) return tr("at most %s", of.highest);
  return of.range ?? "";
}

// The values of several fields by their names, the first wrong one in focus; null where one is wrong.
export function readAll(fields) {
  const values = {};
  let first = null;
  for (const one of fields) {
    try {
      const value = one.read();
      if (value !== undefined) values[one.name] = value;
    } catch (wrong) {
      if (typeof wrong !== "string") throw wrong;
      first ??= one;
    }
  }
  first?.input.focus();
  return first ? null : values;
}

// A list of choices of which one is shown: [{id, title}]. `shown(id)` fills the node below.
export function tabs(label, choices, chosen, shown) {
  const buttons = choices.map(({id, title}) => el("button", {onclick: () => show(id)}, title));
  const show = (id) => {
    choices.forEach((choice, i) => buttons[i].setAttribute("aria-pressed", choice.id === id ? "true" : "false"));
    shown(id);
  };
  show(chosen);
  return el("div", {class: "tabs", role: "group", "aria-label": label}, buttons);
}

// --- pages ---

// Looks by `read()` as often as it is called: of answers that overtake each other the newest alone is shown, and none
// behind its end().
export function looker(read, show, failed) {
  let asked = 0;
  const look = async (...what) => {
    const mine = ++asked;
    try {
      const answer = await read(...what);
      if (mine === asked) show(answer);
    } catch (problem) {
      if (!("what" in problem)) throw problem;
      if (mine === asked) failed(problem);
    }
  };
  look.end = () => (asked = NaN);
  return look;
}

// Loads a page that is an object with load() and close(); answers what closes it.
export async function loadPage(page) {
  try {
    await page.load();
  } catch (problem) {
    page.close();
    throw problem;
  }
  return () => page.close();
}
