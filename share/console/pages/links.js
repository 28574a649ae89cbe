// The links to devices: how they are set, when each device was last heard, what the doctor finds on one, and its
// registers.

import {el, replace} from "../dom.js";
import {kept} from "../kept.js";
import {mark, tr} from "../texts.js";
import {durationText, field, loadPage, readAll, table, withControl} from "../widgets.js";
import {wire} from "../wire.js";
import {Registers} from "./registers.js";

const kLookMs = 2000;
const kMarks = {
  ok: {sign: "\u2713", text: mark("in order"), kind: "good"},
  note: {sign: "?", text: mark("to be noted"), kind: "warn"},
  fault: {sign: "\u2717", text: mark("fault"), kind: "bad"},
};
const kDeviceStates = {runs: mark("runs"), parked: mark("parked: its thread waits"), failed: mark("failed")};
const kTransports = {tcp: "TCP", serial: mark("serial line")};
const saved = kept("links", {link: "", unit: 1, addr: ""});

class LinksPage {
  constructor(root) {
    this.links = el("section", {class: "card"});
    this.doctor = el("section", {class: "card"});
    this.found = el("section", {class: "card", role: "status"});
    this.devices = el("section", {class: "card"});
    this.ports = el("section", {class: "card"});
    this.registers = new Registers();
    replace(root, this.links, el("div", {class: "columns"}, this.doctor, this.found), this.registers.node, this.devices, this.ports);
    this.shown = {};
    this.timer = setInterval(() => this.load().catch(() => {}), kLookMs);  // its age is said by the frame
  }

  close() {
    clearInterval(this.timer);
    this.registers.close();
  }

  async load() {
    const {links, devices, ports, examination} = await wire.get("links");
    this.draw("links", links, () => {
      this.registers.show(links);
      return this.showLinks(links);
    });
    this.draw("doctor", links, () => this.showDoctor(links));
    this.draw("found", examination, () => this.showFound(examination));
    const shown = devices.map(({silentMs, ...device}) => ({...device, silentS: Math.floor(silentMs / 1000)}));
    this.draw("devices", shown, () => this.showDevices(shown));
    const aged = ports.map(({ageMs, ...port}) => ({...port, ageS: ageMs === null ? null : Math.floor(ageMs / 1000)}));
    this.draw("ports", aged, () => this.showPorts(aged));
  }

  // What has not changed keeps its nodes, and with them the focus.
  draw(part, of, show) {
    const text = JSON.stringify(of);
    if (this.shown[part] === text) return;
    this.shown[part] = text;
    replace(this[part], show());
  }

  showLinks(links) {
    const heading = el("h2", tr("Links"));
    if (links.length === 0) return [heading, el("p", tr("The machine file names no link to a device."))];
    return [heading, table(tr("As the machine file has them"), [
      {title: tr("Name"), cell: "name"},
      {title: tr("Over"), cell: ({transport}) => tr(kTransports[transport] ?? transport)},
      {title: tr("Framing"), cell: ({framing}) => "Modbus " + framing.toUpperCase()},
      {title: tr("Address"), cell: "address"},
      {title: tr("Probe register"), cell: ({probeRegister}) => probeRegister ?? tr("none")},
      {title: tr("In use"), cell: ({inUse}) => (inUse ? tr("yes") : tr("no"))},
      {title: tr("Machine file"), cell: ({section}) => el("a", {href: "#config/" + section}, section)},
    ], links)];
  }

  showDoctor(links) {
    const heading = el("h2", tr("Examine a link"));
    if (links.length === 0) return [heading, el("p", tr("There is nothing to examine."))];
    const choices = links.map(({name}) => ({value: name, text: name}));
    const fields = {
      link: field({name: "link", title: tr("Link"), required: true, choices}, saved.get("link")),
      unit: field({name: "unit", title: tr("Unit"), type: "integer", lowest: 1, highest: 255, required: true,
        summary: tr("the device's Modbus address")}, saved.get("unit")),
      addr: field({name: "addr", title: tr("Register"), type: "integer", lowest: 0, highest: 65534,
        summary: tr("which is read, and only read; empty: the link's probe register, or 0")}, saved.get("addr")),
    };
    const examine = () => {
      const values = readAll(Object.values(fields));
      if (!values) return;
      const {link, unit, addr} = values;
      saved.set({link, unit, addr: addr ?? ""});
      withControl(async () => {
        await wire.post("links/" + encodeURIComponent(link) + "/doctor", {unit, addr});
        await this.load();
      });
    };
    return [heading, el("p", {class: "aside"}, tr("From the name to the reply, step by step; it takes up to 15 s.")),
      Object.values(fields).map(({node}) => node), el("button", {class: "main", onclick: examine}, tr("Examine"))];
  }

  showFound(examination) {
    const heading = el("h2", tr("Findings"));
    if (!examination) return [heading, el("p", tr("No link was examined since the controller started."))];
    const {link, unit, addr, ended, good, steps} = examination;
    return [heading, el("p", tr("%s, unit %s, register %s", link, unit, addr)),
      el("ol", {class: "steps"}, steps.map(({mark: word, finding, next}) => {
        const {sign, text, kind} = kMarks[word];
        return el("li", {class: kind}, el("span", {class: "mark", "aria-hidden": "true"}, sign),
          el("div", el("span", {class: "aloud"}, tr(text) + ": "), finding, next && el("div", {class: "next"}, next)));
      })),
      el("p", {class: ended ? (good ? "good" : "bad") : "aside"},
        el("b", !ended ? tr("The examination goes on.") : good ? tr("The link is in order.") : tr("The link is not in order.")))];
  }

  showDevices(devices) {
    const heading = el("h2", tr("Devices"));
    if (devices.length === 0) return [heading, el("p", tr("No device runs at the moment."))];
    return [heading, table(tr("Each with its last sign of life"), [
      {title: tr("Name"), cell: "name"},
      {title: tr("State"), cell: ({state}) => el("span", {class: state === "failed" && "bad"}, tr(kDeviceStates[state] ?? state))},
      {title: tr("Silent for"), number: true, cell: ({silentS}) => silentS + " s"},
      {title: tr("Longest silence"), number: true, cell: ({longestMs}) => durationText(longestMs)},
      {title: tr("Rounds"), number: true, cell: "rounds"},
    ], devices)];
  }

  showPorts(ports) {
    const heading = el("h2", tr("What the machine is made of"));
    if (ports.length === 0) return [heading, el("p", tr("The machine tells nothing of its ports."))];
    return [heading, table(tr("As each driver sees it"), [
      {title: tr("Device"), cell: ({device, warning}) => [device || "-", warning && el("div", {class: "warn"}, "! ", warning)]},
      {title: tr("Driver"), cell: "driver"},
      {title: tr("Address"), cell: "address"},
      {title: tr("Value"), number: true, cell: ({readable, value}) => (readable ? value || "-" : [el("span", {class: "bad"}, "\u2717 ", tr("not readable")), el("div", {class: "aside"}, value)])},
      {title: tr("Age"), number: true, cell: ({ageS}) => (ageS === null ? "-" : ageS + " s")},
      {title: tr("Limits"), number: true, cell: ({limits}) => limits || "-"},
    ], ports)];
  }
}

export function open(root) {
  return loadPage(new LinksPage(root));
}
