// Gas valves: a calibration as it goes on, the verdict, old against new curves, stored tables, pressure to voltage.

import {el, goOnFrom, replace, setText} from "../dom.js";
import {kept} from "../kept.js";
import {indices, overlay, Plot} from "../plot.js";
import {mark, tr} from "../texts.js";
import {agree, field, loadPage, numberText, postButton, problemBox, readAll, say, table, tabs, withControl} from "../widgets.js";
import {wire} from "../wire.js";
import {barAt, formerTables, largestDifference, voltAt} from "./gascurves.js";
import {outcomeText} from "./runs/words.js";

const kRun = "gas-calibrate";
const kMethods = [
  {value: "exact", text: mark("exact: the usual points")},
  {value: "refined", text: mark("refined: more points where the curve bends")},
];
const kSameBar = 1e-3;  // less is one and the same curve, written with fewer digits
const saved = kept("gas", {gases: [], nozzle: "", method: "exact", gas: "", live: {}, from: ""});

const nozzleText = ({nozzle, size}) => nozzle + " " + size;
const highest = (points) => points.reduce((most, {bar}) => Math.max(most, bar), 0);
const ofGas = (list, gas) => list.find((row) => row.gas === gas);

class GasPage {
  constructor(root) {
    this.start = el("section", {class: "card"});
    this.now = el("section", {class: "card"});
    this.calculator = el("section", {class: "card"});
    this.curves = el("section", {class: "card"});
    this.verdict = el("section", {class: "card"});
    this.stored = el("section", {class: "card"});
    this.root = root;
    this.plot = null;
    this.loads = 0;
    this.ends = [
      wire.on("run", (event) => this.told(event)),
      wire.on("connection", (connected) => connected && this.learnMissed()),
      wire.on(["status", "signals", "stale"], () => this.showNow()),
    ];
  }

  close() {
    this.closed = true;
    for (const end of this.ends) end();
    this.plot?.close();
  }

  async load() {
    const mine = ++this.loads;
    const config = (section) => wire.get("config?section=" + section).catch(() => ({properties: {}}));
    const [gas, {tables}, branches, rack, {differences}] = await Promise.all([wire.get("gas"), wire.get("gas/tables"),
      config("GasBranches"), config("NozzleChange"), wire.get("config/diff").catch(() => ({differences: []}))]);
    const last = gas.lastRun === null ? null : await wire.get("runs/" + gas.lastRun).catch(() => null);
    if (mine !== this.loads || this.closed) return;
    this.gas = gas;
    this.tables = tables;
    this.last = last;
    this.nozzles = nozzlesOf(rack.properties, tables);
    // What the machine file had before it was last saved.
    this.former = formerTables(gas.branches, branches.properties, differences);
    this.onlyTables = differences.every(({path}) => path.startsWith("GasBranches/") && path.includes("/DAAdjust"));
    this.layOut();
    this.showStart();
    this.showNow();
    this.showCalculator();
    this.showCurves();
    this.showStored();
    await this.showVerdict();
  }

  // While a calibration runs its curves come first.
  layOut() {
    const {start, now, calculator, stored, curves, verdict} = this;
    const columns = (...cards) => el("div", {class: "columns"}, cards);
    if (this.running) replace(this.root, columns(start, now), curves, columns(calculator, stored), verdict);
    else replace(this.root, columns(start, el("div", now, verdict, calculator, stored)), curves);
  }

  // --- start ---

  get running() {
    return this.gas.calibrating;
  }

  showStart() {
    if (this.running) {
      this.bar = el("progress", {max: "100", value: 0, "aria-label": tr("Progress of the calibration")});
      this.doing = el("p", {class: "number-line"});
      return replace(this.start, el("h2", tr("A calibration runs")), this.bar, this.doing,
        el("p", {class: "aside"}, tr("Stop ends it; all gases then keep their old curves.")));
    }
    const gases = this.gas.branches.filter((branch) => branch.calibratable).map((branch) => {
      const about = tr("up to %s bar", branch.maxPressureBar) + "; " +
        (branch.table.inUse ? tr("has a curve up to %s bar", numberText(branch.table.maxBar)) : tr("no curve in use"));
      const box = el("input", {type: "checkbox", value: branch.gas, checked: saved.get("gases").includes(branch.gas)});
      return {box, node: el("label", {class: "choice"}, box, el("span", branch.text, el("span", {class: "aside"}, about)))};
    });
    const wrong = el("div", {class: "wrong", role: "alert"});
    const fields = {
      nozzle: field({name: "nozzle", title: tr("Nozzle type"), required: true}, saved.get("nozzle")),
      size: field({name: "size", title: tr("Nozzle diameter"), type: "number", unit: "mm", lowest: 0.1, highest: 100, required: true},
        saved.get("size")),
      method: field({name: "method", title: tr("Method"), required: true,
        choices: kMethods.map(({value, text}) => ({value, text: tr(text)}))}, saved.get("method")),
      descend: field({name: "descend", title: tr("Measure downwards as well, for the verdict"), type: "boolean"}),
      keep: field({name: "keep", title: tr("Keep the curve even where the verdict is bad"), type: "boolean"}),
    };
    const nozzle = field({name: "known", title: tr("Nozzle of the rack"), empty: tr("none"),
      choices: this.nozzles.map((known) => ({value: nozzleText(known), text: nozzleText(known)}))},
      nozzleText({nozzle: saved.get("nozzle"), size: saved.get("size")}));
    nozzle.input.addEventListener("change", () => {
      const known = this.nozzles.find((candidate) => nozzleText(candidate) === nozzle.input.value);
      fields.nozzle.input.value = known?.nozzle ?? "";
      fields.size.input.value = known?.size ?? "";
    });
    const order = () => {
      const chosen = gases.filter(({box}) => box.checked).map(({box}) => box.value);
      setText(wrong, chosen.length ? "" : tr("choose at least one gas"));
      const values = readAll(Object.values(fields));
      if (chosen.length === 0) gases[0]?.box.focus();
      if (!values || chosen.length === 0) return null;
      saved.set({gases: chosen, nozzle: values.nozzle, size: values.size, method: values.method});
      return {gases: chosen, ...values};
    };
    replace(this.start, el("h2", tr("Calibrate")),
      el("fieldset", el("legend", tr("Gases")), gases.map(({node}) => node), wrong),
      this.nozzles.length > 0 && nozzle.node, el("div", {class: "pair"}, fields.nozzle.node, fields.size.node),
      fields.method.node, fields.descend.node, fields.keep.node,
      el("p", {class: "aside"}, tr("Gas flows while it is measured: the head must stand free, with the nozzle that is named here.")),
      postButton(tr("Start calibration"), {kind: "main", path: "gas/calibrate", body: order}));
  }

  async told(event) {
    if (!this.gas) return;  // what is being loaded knows it
    if (event.event === "begun" && event.procedure === kRun) {
      saved.set({live: {}, gas: event.params.gases[0]});
      await this.load();
    } else if (event.event === "progress" && event.volt !== undefined) {
      this.progress(event);
    } else if (event.event === "ended" && event.procedure === kRun) {
      await this.load();
      say(tr("The calibration has ended: %s", outcomeText(event)));
    }
  }

  // A calibration may have begun or ended while nothing was heard.
  async learnMissed() {
    if (!this.gas) return;
    const {calibrating, lastRun} = await wire.get("gas").catch(() => this.gas);
    if (calibrating !== this.gas.calibrating || lastRun !== this.gas.lastRun) await this.load();
  }

  // The reading at a voltage is the last one before the next voltage is put out.
  progress({gas, volt, bar, percent, descending}) {
    if (this.bar) {
      this.bar.value = percent;
      setText(this.doing, tr("%s: %s V, %s bar, %s %%", ofGas(this.gas.branches, gas).text, numberText(volt), numberText(bar),
        Math.round(percent)) + (descending ? " · " + tr("downwards") : ""));
    }
    if (descending) return;
    const live = {...saved.get("live")};
    live[gas] = {...live[gas], [volt]: bar};
    const change = saved.get("gas") !== gas;
    saved.set({live, gas});
    const list = this.series(gas);
    if (change || this.plot?.options.labels.length !== list.length) this.showCurves();
    else this.plot.set(overlay(list.map(({points}) => points)));
  }

  // --- pressure now ---

  showNow() {
    if (!this.gas) return;
    if (!this.pressure) {
      this.pressure = el("b", {class: "large"});
      this.what = el("span", {class: "aside"});
      replace(this.now, el("h2", tr("Pressure now")), el("p", this.pressure, " ", this.what));
    }
    const now = wire.status?.signals.gas;
    const name = this.gas.branches.find((branch) => branch.type === now?.branch)?.text ?? "-";
    setText(this.pressure, now ? numberText(now.bar) + " bar" : "-");
    setText(this.what, !now ? "" : !now.on ? tr("%s is off", name)
      : this.running ? tr("%s is on", name) : tr("%s is on, set to %s bar", name, numberText(now.setBar)));
    this.now.classList.toggle("stale-values", wire.stale);
  }

  // --- curves ---

  // The curves of a gas: [{label, points: [[V, bar], ...], dashed, dots}].
  series(gas) {
    const pairs = (points) => points.map(({volt, bar}) => [volt, bar]);
    const list = [];
    const {points} = ofGas(this.gas.branches, gas).table;
    const result = ofGas(this.last?.result?.gases ?? [], gas);
    if (this.running) {
      if (points.length) list.push({label: tr("In use"), points: pairs(points), dashed: true});
      const live = Object.entries(saved.get("live")[gas] ?? {}).map(([volt, bar]) => [Number(volt), bar]);
      if (live.length) list.push({label: tr("Measured now"), points: live, dots: true});
      return list;
    }
    if (this.former[gas]?.length) list.push({label: tr("Before"), points: pairs(this.former[gas]), dashed: true});
    if (points.length) list.push({label: tr("In use"), points: pairs(points)});
    if (result?.points.length) list.push({label: tr("Measured"), points: pairs(result.points), dots: true});
    return list;
  }

  showCurves() {
    const gases = this.gas.branches.filter((branch) => branch.calibratable);
    const chosen = (ofGas(gases, saved.get("gas")) ?? gases.find(({table: {points}}) => points.length) ?? gases[0])?.gas;
    const below = el("div");
    const show = (gas) => {
      saved.set({gas});
      this.plot?.close();
      this.plot = null;
      const list = gas ? this.series(gas) : [];
      if (list.length === 0) return replace(below, el("p", tr("This gas has no curve yet.")));
      this.plot = new Plot({title: tr("Pressure in bar over voltage"), x: tr("Voltage in V"), labels: list.map(({label}) => label),
        dashed: indices(list, ({dashed}) => dashed), dots: indices(list, ({dots}) => dots), points: true},
      overlay(list.map(({points}) => points)));
      replace(below, this.plot.node);
      this.plot.draw();
    };
    const bar = tabs(tr("Gas"), gases.map((branch) => ({id: branch.gas, title: branch.text})), chosen, show);
    replace(this.curves, el("h2", tr("Curves")), bar, below, this.putBack());
    this.plot?.draw();
  }

  // What the last save of the machine file changed in the tables, and the way back.
  putBack() {
    if (Object.keys(this.former).length === 0 || this.running) return null;
    const rows = Object.entries(this.former).map(([gas, before]) => {
      const {text, table: {points}} = ofGas(this.gas.branches, gas);
      return {text, before, now: points};
    });
    const top = (points) => (points.length ? numberText(highest(points)) + " bar" : "-");
    return [
      table(tr("The curves before the machine file was last saved, and now"), [
        {title: tr("Gas"), cell: "text"},
        {title: tr("Highest before"), number: true, cell: ({before}) => top(before)},
        {title: tr("Highest now"), number: true, cell: ({now}) => top(now)},
        {title: tr("Largest difference"), number: true, cell: ({before, now}) => differenceText(before, now)},
      ], rows),
      el("p", tr("What is there now is in use. The old curves can be put back until the machine file is changed again.")),
      this.onlyTables
        ? el("button", {onclick: () => this.askBack(rows)}, tr("Put the old curves back"))
        : el("p", {class: "aside"}, tr("The same change was about other values as well: the page Configuration puts it back.")),
    ];
  }

  async askBack(rows) {
    const text = tr("This puts the previous version of the machine file back, which differs in the curves of: %s. Stored tables stay as they are.",
      rows.map((row) => row.text).join(", "));
    if (!(await agree(tr("Put the old curves back?"), el("p", text), tr("Put back")))) return;
    if (!(await withControl(() => wire.post("config/restore")))) return;
    await this.load();
    goOnFrom(this.curves);
    say(tr("The old curves are in use again"));
  }

  // --- verdict ---

  async showVerdict() {
    const heading = el("h2", tr("Verdict"));
    if (this.gas.lastRun === null)
      return replace(this.verdict, heading, el("p", tr("No gas was calibrated since the controller started.")));
    const mine = this.loads;
    let verdict;
    try {
      verdict = await wire.get("gas/verdict");
    } catch (problem) {
      return replace(this.verdict, heading, problemBox(problem));
    }
    if (mine !== this.loads) return;
    replace(this.verdict, heading, el("p", tr("Run %s, nozzle %s", verdict.run, nozzleText(verdict))),
      verdict.gases.map(({gas, text, stopped, good, findings}) => {
        const result = ofGas(this.last?.result?.gases ?? [], gas);
        return [
          el("h3", {class: good ? "good" : "bad"}, text + ": " + (stopped ? tr("stopped") : good ? tr("in order") : tr("not in order"))),
          result?.why && el("p", {lang: this.last.lang}, result.why),
          el("ul", {class: "findings"}, findings.map((finding) =>
            el("li", {class: finding.bad ? "bad" : finding.doubt ? "warn" : "fine"}, finding.text))),
        ];
      }));
  }

  // --- stored tables ---

  showStored() {
    const heading = el("h2", tr("Stored tables"));
    if (this.tables.length === 0) return replace(this.stored, heading, el("p", tr("No nozzle has a stored table yet.")));
    const use = (row) => withControl(async () => {
      const {messages, problem} = await wire.post("gas/use", {gases: [row.gas], nozzle: row.nozzle, size: row.size});
      await this.load();
      goOnFrom(this.stored);
      say(problem ?? messages.at(-1) ?? tr("The table is in use"));
    });
    const inUse = (row) => {
      const difference = largestDifference(ofGas(this.gas.branches, row.gas)?.table.points ?? [], row.points);
      return difference !== null && difference < kSameBar;
    };
    replace(this.stored, heading, table(tr("One table for each gas and nozzle"), [
      {title: tr("Gas"), cell: (row) => this.nameOf(row.gas)},
      {title: tr("Nozzle"), cell: nozzleText},
      {title: tr("Highest"), number: true, cell: (row) => numberText(highest(row.points)) + " bar"},
      {title: "", cell: (row) => (inUse(row) ? tr("in use") : el("button", {onclick: () => use(row),
        "aria-label": tr("Use the table of %s, nozzle %s", this.nameOf(row.gas), nozzleText(row))}, tr("Use")))},
    ], this.tables));
  }

  nameOf(gas) {
    return ofGas(this.gas.branches, gas)?.text ?? gas;
  }

  // --- pressure calculator ---

  showCalculator() {
    const sources = [
      ...this.tables.map((row) => ({value: row.gas + " " + nozzleText(row),
        text: tr("%s, nozzle %s", this.nameOf(row.gas), nozzleText(row)), points: row.points})),
      ...this.gas.branches.filter((branch) => branch.table.points.length).map((branch) =>
        ({value: branch.gas, text: tr("%s, as it is in use", branch.text), points: branch.table.points})),
    ];
    const heading = el("h2", tr("Pressure calculator"));
    if (sources.length === 0)
      return replace(this.calculator, heading, el("p", tr("There is no table to calculate with: calibrate a gas first.")));
    const source = field({name: "source", title: tr("Gas and nozzle"), required: true, choices: sources}, saved.get("from"));
    const bar = field({name: "bar", title: tr("Pressure"), type: "number", unit: "bar"});
    const volt = field({name: "volt", title: tr("Voltage"), type: "number", unit: "V"});
    const beyond = el("p", {class: "aside", role: "status"});
    let again = () => {};
    const calculate = (from, to, of) => {
      again = () => calculate(from, to, of);
      const {points} = sources.find(({value}) => value === source.input.value);
      const given = readAll([from])?.[from.name];
      const result = given === undefined ? null : of(points, given);
      to.input.value = result === null ? "" : numberText(result, 3);
      setText(beyond, given !== undefined && result === null
        ? tr("The table goes from %s to %s V and to %s bar.", points[0].volt, points.at(-1).volt, numberText(highest(points))) : "");
    };
    bar.input.addEventListener("input", () => calculate(bar, volt, voltAt));
    volt.input.addEventListener("input", () => calculate(volt, bar, barAt));
    source.input.addEventListener("change", () => {
      saved.set({from: source.input.value});
      again();
    });
    replace(this.calculator, heading, source.node, el("div", {class: "pair"}, bar.node, volt.node), beyond);
  }
}

function differenceText(before, now) {
  const difference = largestDifference(before, now);
  return difference === null ? "-" : numberText(difference, 3) + " bar";
}

// Those of the rack, "S 1.5" by their names, and those that have tables; each once.
function nozzlesOf(rack, tables) {
  const known = new Map();
  const add = (nozzle, size) => known.set(nozzleText({nozzle, size}), {nozzle, size});
  for (const [path, name] of Object.entries(rack)) {
    const parts = path.endsWith("]/Name") && /^(.*\S)\s+(\d+(?:\.\d+)?)$/.exec(name);
    if (parts) add(parts[1], Number(parts[2]));
  }
  for (const {nozzle, size} of tables) add(nozzle, size);
  return [...known.values()].sort((a, b) => a.nozzle.localeCompare(b.nozzle) || a.size - b.size);
}

export function open(root) {
  return loadPage(new GasPage(root));
}
