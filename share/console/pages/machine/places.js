// What lies where: the nozzles in the rack and in the head, and the pallets.

import {el, replace} from "../../dom.js";
import {tr} from "../../texts.js";

// The rack's slots as the machine file has them, with the nozzle that belongs there; rows and columns from 0.
export function placesOf(properties) {
  const items = (list, item) => {
    const all = [];
    const value = (i, name) => properties[`NozzleChange/${list}/${item}[${i}]/${name}`];
    for (let i = 1; value(i, item === "PosItem" ? "Row" : "ID") !== undefined; ++i) all.push((name) => value(i, name));
    return all;
  };
  const nozzles = nozzlesOf(items);
  return items("NozzlePosItems", "PosItem").map((of) => ({
    row: of("Row"), column: of("Col"), x: of("X"), y: of("Y"),
    nozzle: nozzles.find((nozzle) => nozzle.row === of("Row") && nozzle.column === of("Col")) ?? null,
  }));
}

function nozzlesOf(items) {
  return items("NozzleItems", "NozzleItem").map((of) => ({id: of("ID"), name: of("Name"), row: of("PosRow"), column: of("PosCol")}));
}

export class Places {
  constructor(machine, properties) {
    this.slots = placesOf(properties);
    this.on = properties["NozzleChange/ChangeNozzleEnabled"] === true;
    this.pallets = machine.fitted.pallets;
    this.node = el("section", {class: "card places", hidden: this.slots.length === 0 && !this.pallets});
    this.shown = "";
  }

  show({signals}) {
    const key = signals.nozzle + " " + signals.dockedTable;
    if (key === this.shown) return;
    this.shown = key;
    replace(this.node, this.slots.length > 0 && this.#rack(signals.nozzle), this.pallets && this.#tables(signals.dockedTable));
  }

  #rack(inHead) {
    const mounted = this.slots.find(({nozzle}) => nozzle && nozzle.id === inHead)?.nozzle;
    const head = typeof inHead !== "number" ? tr("not known") : inHead === 0 ? tr("none") : nameOf(mounted ?? {id: inHead});
    const columns = 1 + Math.max(...this.slots.map(({column}) => column));
    const grid = el("ul", {class: "slots"}, this.slots.map(({row, column, nozzle}) => {
      const there = nozzle && nozzle.id !== inHead;
      return el("li", {class: there ? "there" : null},
        el("small", tr("Slot %d,%d", row + 1, column + 1)), el("b", nozzle ? nameOf(nozzle) : "-"),
        el("small", !nozzle ? tr("no nozzle belongs here") : there ? tr("in the rack") : tr("in the head")));
    }));
    grid.style.setProperty("--columns", String(columns));
    return [el("h2", tr("Nozzle rack")), el("p", tr("In the head"), ": ", el("strong", head)),
      !this.on && el("p", {class: "warn"}, tr("The nozzle change is switched off in the machine file.")), grid];
  }

  #tables(docked) {
    return [el("h2", tr("Pallets")), el("ul", {class: "slots pallets"}, [1, 2].map((number) =>
      el("li", {class: number === docked ? "there" : null}, el("b", tr("Pallet %d", number)),
        el("small", number === docked ? tr("in the machine") : tr("outside")))))];
  }
}

function nameOf({id, name}) {
  return name ? id + " · " + name : String(id);
}
