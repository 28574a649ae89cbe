// The runs: their history, a run's report, two of them beside each other, how a procedure has done lately.
// The hash says which: #runs, #runs/12, #runs/compare/12/13, #runs/trend/shot.

import {el} from "../dom.js";
import {kept} from "../kept.js";
import {tr} from "../texts.js";
import {openCompare} from "./runs/compare.js";
import {openHistory} from "./runs/history.js";
import {openReport} from "./runs/report.js";
import {openTrend} from "./runs/trend.js";

export function open(root) {
  const saved = kept("runs", {name: "", outcome: "", since: "", chosen: []});
  const [what, ...more] = location.hash.split("/").slice(1).map(decodeURIComponent);
  if (!what) return openHistory(root, saved);
  const content = el("div");
  root.append(el("p", {class: "back"}, el("a", {href: "#runs"}, "\u2190 ", tr("All runs"))), content);
  if (what === "compare") return openCompare(content, ...more);
  if (what === "trend") return openTrend(content, more[0]);
  return openReport(content, what);
}
