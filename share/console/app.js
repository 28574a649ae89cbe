// The frame round the pages: what is always visible, which page is shown, stop by the keyboard.

import {bar} from "./bar.js";
import {el, replace} from "./dom.js";
import {kept} from "./kept.js";
import {notices} from "./notices.js";
import {questions} from "./questions.js";
import "./sound.js";
import {mark, preferredLanguage, tr, useLanguage} from "./texts.js";
import {problemBox} from "./widgets.js";
import {wire} from "./wire.js";

// In the order in which they stand in the menu; each is pages/<id>.js with `open(root)`, which answers what closes it.
const kPages = [
  {id: "machine", title: mark("Machine")},
  {id: "procedures", title: mark("Procedures")},
  {id: "runs", title: mark("Runs")},
  {id: "panel", title: mark("Panel")},
  {id: "alarms", title: mark("Alarms")},
  {id: "gas", title: mark("Gas")},
  {id: "recordings", title: mark("Recordings")},
  {id: "config", title: mark("Configuration")},
  {id: "links", title: mark("Links")},
  {id: "log", title: mark("Log")},
];

const root = document.getElementById("page");
const menu = document.getElementById("pages");
// What is wider than its place is scrolled sideways, and the browser leaves there what is half in view as it is.
document.addEventListener("focusin", ({target}) => target.matches(":is(.scroll, #pages) :focus-visible") &&
  target.scrollIntoView({block: "nearest", inline: "nearest"}));
const saved = kept("app", {page: kPages[0].id});
let close = null;
let opening = 0;
let failed = false;  // the page could not be opened; it is tried again when the controller answers

function showMenu(page) {
  menu.setAttribute("aria-label", tr("Pages"));
  replace(menu, el("ul", kPages.map(({id, title}) =>
    el("li", el("a", {href: "#" + id, "aria-current": id === page.id ? "page" : null}, tr(title))))));
  menu.querySelector("[aria-current]").scrollIntoView({block: "nearest", inline: "center"});
}

// The hash is "#page" or "#page/what": the page reads the rest itself.
async function showPage() {
  const id = location.hash.slice(1).split("/")[0] || saved.get("page");
  const page = kPages.find((candidate) => candidate.id === id) ?? kPages[0];
  const mine = ++opening;
  saved.set({page: page.id});
  showMenu(page);
  close?.();
  close = null;
  failed = false;
  document.title = tr(page.title) + " - IxoCAMGlue";
  const heading = el("h1", tr(page.title));
  const content = el("div", {class: "page " + page.id});
  replace(root, heading, content);
  try {
    const module = await import("./pages/" + page.id + ".js");
    if (mine !== opening) return;
    const closes = await module.open(content);
    if (mine === opening) close = closes ?? null;
    else closes?.();
  } catch (error) {
    console.error(error);
    failed = mine === opening;
    if (failed) replace(content, problemBox({what: error.what ?? error.message, ...error}));
  }
}

export async function changeLanguage(language) {
  await useLanguage(language);
  wire.languageChanged();
  bar.show();
  notices.show();
  questions.show();
  showPage();
}

// Stop comes first, whatever has focus; a key that is held is one press. Of one that closes an open list, or is of an
// input method, the browser tells the page its repeats, or only that it is let go: Shift may have been let go before.
const kTogetherMs = 2000;
let pressed = false;
let shiftUpMs = -Infinity;
for (const kind of ["keydown", "keyup"])
  window.addEventListener(kind, (event) => {
    if (event.key === "Shift" && kind === "keyup") shiftUpMs = event.timeStamp;
    if (event.key !== "Escape") return;
    event.preventDefault();
    event.stopImmediatePropagation();
    const known = pressed;
    pressed = kind === "keydown";
    if (known && (event.repeat || !pressed)) return;
    if (event.shiftKey || (!pressed && event.timeStamp - shiftUpMs < kTogetherMs)) wire.allOff();
    else wire.stop();
  }, {capture: true});
window.addEventListener("blur", () => (pressed = false));

// The code of the link that opened the page is good once and is nobody's to read afterwards.
async function logIn() {
  const code = /^#code=([^&]+)$/.exec(location.hash)?.[1];
  if (!code) return;
  history.replaceState(null, "", "#" + saved.get("page"));
  try {
    await wire.logIn(decodeURIComponent(code));
  } catch (problem) {
    notices.linkRefused(problem);
  }
}

await useLanguage(preferredLanguage());
const [above, below] = ["bar", "notices"].map((id) => document.getElementById(id));
bar.open(above, changeLanguage);
notices.open(below);
questions.open();
const measure = new ResizeObserver(() => {
  const {style} = document.documentElement;
  style.setProperty("--bar", above.offsetHeight + "px");
  style.setProperty("--above", above.offsetHeight + below.offsetHeight + "px");
});
measure.observe(above);
measure.observe(below);
await logIn();
window.addEventListener("hashchange", async () => {
  await logIn();
  showPage();
});
wire.on("connection", (connected) => connected && failed && showPage());
// Runs are counted anew, and it may have another machine: what a page knows is of the one before.
wire.on("restarted", showPage);
wire.start();
showPage();
