// The machine file: its sections, searched and changed; what is wrong in it; who has changed what.

import {el, replace} from "../dom.js";
import {kept} from "../kept.js";
import {mark, tr} from "../texts.js";
import {agree, ask, attempt, field, loadPage, problemBox, say, showProblem, table, tabs, tell, timeText} from "../widgets.js";
import {wire} from "../wire.js";

const kMostFound = 60;
const kHistory = 50;
const kViews = [
  {id: "values", title: mark("Values")},
  {id: "check", title: mark("Check")},
  {id: "history", title: mark("History")},
];
const kWhat = {set: mark("set"), forced: mark("set although wrong"), restored: mark("previous version put back")};
// edits: what was typed and is not saved, by the property's path.
const saved = kept("config", {view: "values", section: "", search: "", edits: {}});

const sectionOf = (path) => path.split("/")[0];

function textOf(value) {
  if (typeof value === "boolean") return value ? tr("yes") : tr("no");
  return value === null || value === "" ? "-" : String(value);
}

class ConfigPage {
  constructor(root) {
    this.root = root;
    this.content = el("div");
    this.pending = el("div", {class: "pending card", role: "status"});
    this.ends = [wire.on("status", () => this.showPending())];
  }

  close() {
    for (const end of this.ends) end();
    clearTimeout(this.typing);
  }

  async load() {
    this.schema = new Map((await wire.get("config/schema")).properties.map((property) => [property.path, property]));
    await this.read();
    const wanted = decodeURIComponent(location.hash).split("/").slice(1).join("/");
    if (!wanted) return this.frame();
    history.replaceState(null, "", "#config");
    return this.goTo(wanted);
  }

  frame() {
    const bar = tabs(tr("Machine file"), kViews.map(({id, title}) => ({id, title: tr(title)})), saved.get("view"), (view) => {
      saved.set({view});
      this.show();
    });
    replace(this.root, bar, this.content, this.pending);
  }

  async read() {
    const {properties, version, wrong} = await wire.get("config");
    this.values = properties;
    this.version = version;
    this.wrong = wrong;
    const edits = saved.get("edits");
    const differs = ([path, value]) => path in properties && properties[path] !== value;
    saved.set({edits: Object.fromEntries(Object.entries(edits).filter(differs))});
    if (!this.sections().includes(saved.get("section"))) saved.set({section: this.sections()[0]});
  }

  sections() {
    return [...new Set(Object.keys(this.values).map(sectionOf))];
  }
  about(path) {
    return this.schema.get(path.replace(/\[\d+\]/g, "[]"));
  }

  show() {
    const view = saved.get("view");
    if (view === "check") this.showCheck();
    else if (view === "history") this.showHistory();
    else this.showValues();
    this.showPending();
  }

  // --- values ---

  showValues() {
    this.list = el("ul", {class: "sections"});
    this.open = el("section", {class: "card open", "aria-live": "off"});
    const search = (this.search = el("input", {type: "search", id: "config-search", value: saved.get("search"), autocomplete: "off",
      oninput: () => {
        saved.set({search: search.value});
        clearTimeout(this.typing);
        this.typing = setTimeout(() => this.showOpen(), 200);
      }}));
    replace(this.content, el("div", {class: "search"}, el("label", {for: "config-search"}, tr("Search names and sentences")), search),
      el("div", {class: "split"}, el("nav", {"aria-label": tr("Sections")}, this.list), this.open));
    this.showOpen();
  }

  showOpen() {
    const search = saved.get("search").trim().toLowerCase();
    this.parts = new Map();
    this.showSections();
    if (search) return this.showFound(search);
    const section = saved.get("section");
    this.showProperties(section, Object.keys(this.values).filter((path) => sectionOf(path) === section));
  }

  showSections() {
    const edits = Object.keys(saved.get("edits"));
    const chosen = saved.get("search").trim() ? "" : saved.get("section");
    replace(this.list, this.sections().map((section) => {
      const count = edits.filter((path) => sectionOf(path) === section).length;
      const wrong = this.wrong.some(({path}) => sectionOf(path) === section);
      const current = section === chosen ? "true" : null;
      return el("li", el("button", {"aria-current": current, onclick: () => this.choose(section)}, section,
        wrong && el("span", {class: "bad"}, " \u2717 ", tr("wrong")),
        count > 0 && el("span", {class: "warn"}, " ", tr("edited: %d", count))));
    }));
  }

  choose(section) {
    saved.set({section, search: ""});
    this.search.value = "";
    this.showOpen();
    if (this.open.getBoundingClientRect().top < 0) this.open.scrollIntoView();
  }

  showFound(search) {
    const found = Object.keys(this.values).filter((path) => {
      const about = this.about(path);
      return path.toLowerCase().includes(search) || about?.text.toLowerCase().includes(search);
    });
    const title = found.length > kMostFound ? tr("%d found, the first %d of them", found.length, kMostFound) : tr("%d found", found.length);
    this.showProperties(title, found.slice(0, kMostFound), true);
  }

  showProperties(title, paths, whole = false) {
    const nodes = [];
    let group = "";
    for (const path of paths) {
      const at = path.lastIndexOf("/");
      const place = whole ? path.slice(0, Math.max(at, 0)) : path.slice(path.indexOf("/") + 1, Math.max(at, 0));
      if (place !== group) nodes.push(el("h3", place));
      group = place;
      nodes.push(this.property(path, path.slice(at + 1)));
    }
    replace(this.open, el("h2", title), nodes.length ? nodes : el("p", tr("Nothing has such a name or sentence.")));
  }

  property(path, name) {
    const about = this.about(path) ?? {type: "string", text: ""};
    const edits = saved.get("edits");
    const type = {Boolean: "boolean", string: "text", Integer: "integer", Cardinal: "integer"}[about.type] ?? "number";
    const part = field({name: path, title: name, type, unit: about.unit, range: about.range,
      summary: [about.text, "default" in about && about.default !== "" && tr("default: %s", textOf(about.default))].filter(Boolean).join("; ")},
      path in edits ? edits[path] : this.values[path]);
    const signs = el("span", {class: "signs"});
    const mark = () => {
      const edited = path in saved.get("edits");
      part.node.classList.toggle("edited", edited);
      replace(signs, edited
        ? [el("span", {class: "warn"}, tr("was %s", textOf(this.values[path]))), el("button", {class: "link", onclick: undo,
          "aria-label": tr("Undo the change of %s", name)}, tr("Undo"))]
        : "default" in about && this.values[path] !== about.default && el("span", {class: "aside"}, tr("not the default")));
    };
    const undo = () => {
      this.edit(path, this.values[path]);
      if (type === "boolean") part.input.checked = this.values[path];
      else part.input.value = this.values[path];
      part.refuse("");
      part.input.removeAttribute("aria-invalid");
      mark();
      part.input.focus();
    };
    part.input.addEventListener(type === "boolean" ? "change" : "input", () => {
      try {
        const value = part.read() ?? (type === "text" ? "" : part.refuse(tr("a value is needed")));
        if (value === undefined) return;
        this.edit(path, value);
      } catch (wrong) {
        if (typeof wrong !== "string") throw wrong;
        this.edit(path, this.values[path]);
      }
      mark();
    });
    part.node.querySelector(".input").append(signs);
    const wrong = this.wrong.find((finding) => finding.path === path);
    if (wrong) part.refuse(wrong.text);
    this.parts.set(path, part);
    mark();
    return part.node;
  }

  edit(path, value) {
    const edits = {...saved.get("edits")};
    if (value === this.values[path]) delete edits[path];
    else edits[path] = value;
    saved.set({edits});
    this.showSections();
    this.showPending();
  }

  // To a section, or to a property of it.
  goTo(path) {
    saved.set({view: "values", search: ""});
    if (this.sections().includes(sectionOf(path))) saved.set({section: sectionOf(path)});
    this.frame();
    const part = this.parts.get(path);
    part?.node.scrollIntoView({block: "center"});
    part?.input.focus({preventScroll: true});
  }

  // --- saving ---

  showPending() {
    const count = Object.keys(saved.get("edits")).length;
    const {running, run, state} = wire.status ?? {};
    const busy = running ? (run?.procedure ?? state) : "";
    const shown = count + busy;
    if (shown === this.shownPending) return;
    this.shownPending = shown;
    this.pending.hidden = count === 0;
    replace(this.pending,
      el("div", el("b", tr("Not saved: %d", count)),
        busy && el("div", tr("%s is running: nothing can be saved until it has ended.", busy))),
      el("div", {class: "buttons"},
        el("button", {class: "main", onclick: () => this.review()}, tr("Look at the difference and save")),
        el("button", {onclick: () => this.discard()}, tr("Undo all"))));
  }

  async discard() {
    if (!(await agree(tr("Undo all changes that are not saved?"), differences(this.changes()), tr("Undo all"), {kind: "danger", no: tr("Keep them")}))) return;
    saved.set({edits: {}});
    this.show();
  }

  changes() {
    return Object.entries(saved.get("edits")).map(([path, to]) => ({path, from: this.values[path], to}));
  }

  async review() {
    const text = tr("Each value is saved for itself; the version before is kept.");
    if (await agree(tr("Save these changes?"), [differences(this.changes()), el("p", {class: "aside"}, text)], tr("Save"))) await this.save();
  }

  // One value after the other, each with the version that the one before has left. A value may be right only with
  // another one: those that were refused are tried again as long as others go through.
  async save() {
    let open = this.changes();
    const later = [];
    let done = 0;
    let refused = [];
    let stopped = null;
    for (let progress = true; progress && open.length && !stopped; open = refused.map(({change}) => change)) {
      progress = false;
      refused = [];
      for (const change of open) {
        try {
          const answer = await wire.put("config/" + change.path, {value: change.to, version: this.version});
          this.version = answer.version;
          if (answer.inForce !== "now") later.push(change.path);
          progress = true;
          ++done;
        } catch (problem) {
          if (problem.status !== 400) {
            stopped = problem;
            break;
          }
          refused.push({change, problem});
        }
      }
    }
    await this.read().catch(() => {});  // what was saved is no edit any more
    this.show();
    if (done) say(tr("Saved: %d", done));
    if (stopped?.status === 412)
      await tell(tr("Somebody else has changed the machine file"), [problemBox({...stopped, remedy: ""}),
        el("p", tr("It was read again. What you have typed is kept: look at the difference once more."))]);
    else if (stopped) await showProblem(stopped, tr("Not saved"));
    for (const {change, problem} of stopped ? [] : refused) await this.force(change, problem);
    if (later.length) await tell(tr("In force from the next start of the controller on"), el("p", later.join(", ")));
  }

  async force(change, problem) {
    const text = tr("%s is not saved. A value that the check refuses can make the machine refuse to start.", change.path);
    if (!(await ask(tr("This value is refused"), [problemBox({...problem, remedy: ""}), el("p", text)], [
      {text: tr("Leave it unsaved"), value: false, kind: "main"},
      {text: tr("Save it all the same"), value: true, kind: "danger"},
    ]))) return this.parts?.get(change.path)?.refuse(problem.what);
    await attempt(() => wire.put("config/" + change.path, {value: change.to, version: this.version, force: true}));
    await this.read().catch(() => {});
    this.show();
  }

  // --- check ---

  async showCheck() {
    replace(this.content, el("p", {class: "aside"}, tr("The machine file is being checked.")));
    let check;
    try {
      check = await wire.get("config/check?all=true");
    } catch (problem) {
      return replace(this.content, problemBox(problem));
    }
    if (saved.get("view") !== "check") return;
    const known = check.findings.filter(({path}) => path in this.values);
    const others = check.findings.filter(({path}) => !(path in this.values));
    replace(this.content, el("section", {class: "card"},
      check.inOrder ? el("h2", {class: "good"}, "\u2713 ", tr("The machine file is in order"))
        : el("h2", {class: "bad"}, "\u2717 ", tr("Something is wrong in the machine file")),
      el("p", {class: "aside"}, check.file),
      known.length > 0 && table(tr("Findings; each name leads to the value"), [
        {title: tr("Property"), cell: "path"},
        {title: tr("Finding"), cell: "text"},
        {title: tr("Line and column"), cell: "place"},
      ], known, {onrow: ({path}) => this.goTo(path)}),
      others.length > 0 && table(tr("Findings that are no value's"), [
        {title: tr("Where"), cell: "path"},
        {title: tr("Finding"), cell: "text"},
        {title: tr("Line and column"), cell: "place"},
      ], others),
      Object.keys(check.defaults).length > 0 && table(tr("Limits that the file does not name"), [
        {title: tr("Property"), cell: ([path]) => path},
        {title: tr("In force"), number: true, cell: ([, value]) => value},
      ], Object.entries(check.defaults), {onrow: ([path]) => this.goTo(path)}),
      el("button", {onclick: () => this.showCheck()}, tr("Check again"))));
  }

  // --- history ---

  async showHistory() {
    let changes;
    let previous;
    try {
      ({changes} = await wire.get("config/history?limit=" + kHistory));
      previous = await wire.get("config/diff").catch((problem) => (problem.status === 404 ? null : Promise.reject(problem)));
    } catch (problem) {
      return replace(this.content, problemBox(problem));
    }
    if (saved.get("view") !== "history") return;
    const differs = previous?.differences ?? [];
    replace(this.content,
      el("section", {class: "card"}, el("h2", tr("Previous version")),
        differs.length === 0 ? el("p", previous ? tr("The previous version is the same.") : tr("There is no previous version."))
          : [differences(differs),
            el("button", {onclick: () => this.restore(differs)}, tr("Put the previous version back"))]),
      el("section", {class: "card"}, el("h2", tr("Changes, the newest first")),
        changes.length === 0 ? el("p", tr("Nobody has changed anything yet."))
          : table(tr("Who has changed what, and when"), [
            {title: tr("When"), cell: ({at}) => timeText(at)},
            {title: tr("Who"), cell: "who"},
            {title: tr("What"), cell: ({what}) => tr(kWhat[what] ?? what)},
            {title: tr("Property"), cell: ({path, what}) => (what === "restored" ? "-" : path)},
            {title: tr("Before"), cell: ({from, what}) => (what === "restored" ? "-" : from)},
            {title: tr("Then"), cell: ({to, what}) => (what === "restored" ? "-" : to)},
          ], changes.toReversed())));
  }

  async restore(differs) {
    const back = differs.map(({path, from, to}) => ({path, from: to, to: from}));
    if (!(await agree(tr("Put the previous version back?"), differences(back), tr("Put back")))) return;
    await attempt(async () => {
      const {restored} = await wire.post("config/restore");
      await this.read();
      this.show();
      say(restored ? tr("The previous version is in force again") : tr("There is no previous version."));
    });
  }
}

function differences(rows) {
  return table(tr("Values before and after"), [
    {title: tr("Property"), cell: "path"},
    {title: tr("Before"), number: true, cell: ({from}) => textOf(from)},
    {title: tr("Then"), number: true, cell: ({to}) => el("b", textOf(to))},
  ], rows);
}

export function open(root) {
  return loadPage(new ConfigPage(root));
}
