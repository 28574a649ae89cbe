// The last lines of the controller's log as they come, filtered. An event says that there are new ones; they are fetched
// together, at most once a second.

import {el, replace, setText} from "../dom.js";
import {kept} from "../kept.js";
import {mark, tr} from "../texts.js";
import {field, problemBox, timeText} from "../widgets.js";
import {wire} from "../wire.js";

const kLines = 500;  // that are kept, and shown
const kEveryMs = 1000;
const kLevels = {
  error: mark("Error"),
  warning: mark("Warning"),
  device: mark("Device"),
  info: mark("Information"),
  trace: mark("Trace"),
};
const kSigns = {error: "\u2717", warning: "!", device: "!", info: "", trace: ""};

export function open(root) {
  const saved = kept("log", {levels: ["error", "warning", "device", "info"], text: "", scrolls: true});
  const list = el("ol", {class: "lines", tabindex: "0", "aria-label": tr("Lines of the log")});
  const count = el("span", {class: "aside"});
  const trouble = el("div");
  const words = field({name: "text", title: tr("Text")}, saved.get("text"));
  const follow = field({name: "scrolls", title: tr("Follow the newest line"), type: "boolean"}, saved.get("scrolls"));
  const levels = Object.entries(kLevels).map(([level, title]) => field({name: level, title: tr(title), type: "boolean"}, saved.get("levels").includes(level)));
  let lines = [];
  let last = 0;
  let timer = null;
  let asked = 0;
  let closed = false;

  const fits = ({level, text, source}) => saved.get("levels").includes(level) && (text + " " + source).toLowerCase().includes(saved.get("text").toLowerCase());
  const node = ({time, level, text, source}) => el("li", {class: level},
    el("time", {class: "aside"}, timeText(time, false)), el("span", {class: "level"}, kSigns[level], " ", tr(kLevels[level])), el("span", {class: "text"}, text), el("span", {class: "aside"}, source));
  const settle = () => {
    setText(count, tr("%d of %d lines", list.childElementCount, lines.length));
    if (saved.get("scrolls")) list.scrollTop = list.scrollHeight;
  };
  const showAll = () => {
    replace(list, lines.filter(fits).map(node));
    settle();
  };
  const add = (more) => {
    for (const line of lines.splice(0, Math.max(0, lines.length + more.length - kLines)))
      if (fits(line)) list.firstElementChild?.remove();
    lines.push(...more);
    list.append(...more.filter(fits).map(node));
    settle();
  };
  const look = async () => {
    timer = null;
    const mine = ++asked;
    try {
      const answer = await wire.get("log?limit=" + kLines + "&since=" + last);
      if (mine !== asked || closed) return;
      list.lang = answer.lang;
      replace(trouble);
      last = answer.last;
      if (answer.lines.length) add(answer.lines);
      else settle();
    } catch (problem) {
      if (mine === asked && !closed && problem.status !== 0) replace(trouble, problemBox(problem));
    }
  };
  const soon = () => (timer ??= setTimeout(look, kEveryMs));
  // Another start of the controller counts its lines anew.
  const anew = (connected) => {
    if (!connected) return;
    lines = [];
    last = 0;
    replace(list);
    look();
  };

  words.input.addEventListener("input", () => {
    saved.set({text: words.input.value.trim()});
    showAll();
  });
  follow.input.addEventListener("change", () => {
    saved.set({scrolls: follow.input.checked});
    settle();
  });
  for (const {input} of levels)
    input.addEventListener("change", () => {
      saved.set({levels: levels.filter(({input}) => input.checked).map(({name}) => name)});
      showAll();
    });
  // Who scrolls up wants to read.
  list.addEventListener("scroll", () => {
    const atEnd = list.scrollHeight - list.scrollTop - list.clientHeight < 30;
    if (atEnd === follow.input.checked) return;
    follow.input.checked = atEnd;
    saved.set({scrolls: atEnd});
  });
  root.append(el("section", {class: "card log"},
    el("h2", {class: "aside"}, tr("The last lines, in the controller's language"), " \u00b7 ", count),
    el("div", {class: "row filters"}, words.node, el("div", {class: "row", role: "group", "aria-label": tr("Kinds")}, levels.map(({node}) => node)), follow.node),
    trouble, list));
  look();
  const ends = [wire.on("log", soon), wire.on("connection", anew)];
  return () => {
    closed = true;
    clearTimeout(timer);
    for (const end of ends) end();
  };
}
