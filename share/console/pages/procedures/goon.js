// Going on with the run that was paused, stopped or failed: first what would be done again, then, confirmed, doing it.

import {el, replace} from "../../dom.js";
import {tr} from "../../texts.js";
import {postButton, problemBox, say, withControl} from "../../widgets.js";
import {wire} from "../../wire.js";

const kOfferMs = 60000;  // as long as the controller remembers what it has offered

function callList(title, calls, start) {
  return calls.length > 0 && [el("h3", title), el("ol", {start}, calls.map((call) => el("li", call)))];
}

export function openGoOn(root) {
  const offer = el("div", {class: "offer", role: "status"});
  let timer = null;
  let closed = false;
  const withdraw = () => {
    clearTimeout(timer);
    replace(offer);
  };
  const showOffer = ({confirm, run, where, from, again, rest, lightsBeam, compared}) => {
    replace(offer,
      el("h2", tr("Run %d, %s", run, where)),
      lightsBeam && el("p", el("span", {class: "sign bad"}, tr("The beam will be lit"))),
      callList(tr("This will be done again"), again, from),
      callList(tr("Then this"), rest, from + again.length),
      el("h3", tr("The machine, as it was read back")), el("ul", compared.map((line) => el("li", line))),
      el("p", tr("Compare this with the machine. It holds for a minute, and only while nothing changes.")),
      el("div", {class: "buttons"}, postButton(tr("Do this and go on"), {kind: "main", path: "continue", body: () => ({confirm}), done: ({id}) => {
        withdraw();
        say(tr("Run %d has started", id));
      }})));
    timer = setTimeout(() => replace(offer, el("p", tr("The list is too old to be confirmed. Ask again."))), kOfferMs);
  };
  const look = () => withControl(async () => {
    withdraw();
    try {
      await wire.post("continue");
    } catch (problem) {
      if (closed) return;
      if (problem.body?.confirm) return showOffer(problem.body);
      if (problem.status === 0) throw problem;
      replace(offer, problemBox(problem));
    }
  });
  root.append(el("section", {class: "card"}, el("h2", tr("Continue")),
    el("p", tr("Goes on with the last run where it was paused, stopped or has failed. First it is shown what would be done again; nothing moves.")),
    el("div", {class: "buttons"}, el("button", {class: "main", onclick: look}, tr("Show what would be done again"))),
    offer));
  const end = wire.on("run", ({event}) => event === "begun" && withdraw());
  return () => {
    closed = true;
    clearTimeout(timer);
    end();
  };
}
