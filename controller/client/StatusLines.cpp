#include "controller/client/StatusLines.h"

#include "controller/runs/RunReport.h"
#include "controller/service/Status.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Lists.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

using TJson = nlohmann::ordered_json;

constexpr const char* kWords[][2] = {{"standby", TrMark("standby")},
                                     {"procedure", TrMark("procedure")},
                                     {"gas-calibration", TrMark("gas calibration")},
                                     {"gas-descent", TrMark("measuring the gas downwards")},
                                     {"working", TrMark("cutting")},
                                     {"paused", TrMark("paused")},
                                     {"return-to-origin", TrMark("return to origin")},
                                     {"jogging", TrMark("jogging")},
                                     {"dry-run", TrMark("dry run")},
                                     {"follower-calibration", TrMark("calibration of the follower")},
                                     {"walk-around", TrMark("walk around")},
                                     {"other", TrMark("other")},
                                     // How a run has ended.
                                     {"success", TrMark("success")},
                                     {"no-light", TrMark("no light")},
                                     {"gas-open", TrMark("gas left open")},
                                     {"collision", TrMark("collision")},
                                     {"stopped", TrMark("stopped")},
                                     {"alarm", TrMark("alarm")},
                                     {"error", TrMark("error")},
                                     {"refused", TrMark("refused")},
                                     {"unfinished", TrMark("not finished")},
                                     {"lost", TrMark("lost")},
                                     // What a job is at.
                                     {"waits", TrMark("waits")},
                                     {"asks", TrMark("asks")},
                                     {"runs", TrMark("runs")},
                                     {"failed", TrMark("failed")},
                                     {"done", TrMark("done")},
                                     {"skipped", TrMark("skipped")},
                                     {"removed", TrMark("removed")},
                                     // What became of an alarm.
                                     {"raised", TrMark("raised")},
                                     {"cleared", TrMark("cleared")},
                                     {"acknowledged", TrMark("acknowledged")},
                                     {"suppressed", TrMark("suppressed")},
                                     // What became of a property of the machine file.
                                     {"set", TrMark("set")},
                                     {"forced", TrMark("set by force")},
                                     {"restored", TrMark("put back")}};

std::string Seconds(const TJson& ms) { return Format("%.1f s", ms.is_number() ? ms.get<double>() / 1000 : 0.0); }

// What keeps the machine from working, each as people read it.
std::vector<std::string> Hindrances(const TJson& status) {
  std::vector<std::string> all;
  if (status.value("allOff", false)) all.emplace_back(Tr("everything was switched off; \"ixocut reset\" ends that"));
  if (status.value("latched", false))
    all.push_back(Format(Tr("the laser is latched: %s"), status.value("latchReason", "").c_str()));
  if (status.value("safePending", false)) all.emplace_back(Tr("a device has not acknowledged switching off"));
  if (!status.value("allowMove", true)) all.emplace_back(Tr("an alarm forbids motion"));
  if (!status.value("allowLaser", true)) all.emplace_back(Tr("an alarm forbids the laser"));
  return all;
}

const TJson& Member(const TJson& json, const char* name) {
  static const TJson none;
  const auto it = json.is_object() ? json.find(name) : json.end();
  return json.is_object() && it != json.end() ? *it : none;
}

// "3/7 Go to the slot, 1/2 Raise Z"; empty: no step stands.
std::string PathText(const TJson& path) {
  std::string text;
  if (path.is_array())
    for (const TJson& step : path)
      AddToList(text, Format("%d/%d %s", step.value("number", 0), step.value("count", 0),
                             step.value("description", "").c_str()));
  return text;
}

// "procedure change-nozzle", "standby".
std::string StateText(const TJson& status) {
  std::string text = ShownWord(status.value("state", ""));
  if (const TJson& run = Member(status, "run"); run.is_object()) text += " " + run.value("procedure", "");
  return text;
}

}  // namespace

std::string ShownWord(const std::string& word) {
  for (const auto& [known, shown] : kWords)
    if (word == known) return Tr(shown);
  return word;
}

std::vector<std::vector<std::string>> StatusRows(const TJson& status) {
  std::vector<std::vector<std::string>> rows;
  const auto add = [&](const char* name, std::string value) { rows.push_back({name, std::move(value)}); };
  add(Tr("state"), StateText(status));
  if (const TJson& run = Member(status, "run"); run.is_object()) {
    add(Tr("run"), Format(Tr("%s, for %s, started by %s"), run.at("id").dump().c_str(),
                          Seconds(Member(run, "runMs")).c_str(), run.value("startedBy", "").c_str()));
    add(Tr("step"), PathText(Member(run, "path")));
    if (const TJson& left = Member(run, "nobodyAttendsMs"); left.is_number())
      add(Tr("attended"), Format(Tr("by nobody; it is stopped in %s"), Seconds(left).c_str()));
  }
  add(Tr("position"), StatusText(SnapshotFromJson(Member(status, "signals"))));
  add(Tr("alarms"), Member(status, "alarms").dump());
  for (const std::string& text : Hindrances(status)) add(Tr("attention"), text);
  return rows;
}

std::string StatusLine(const TJson& status) {
  std::string text = StateText(status);
  if (const std::string path = PathText(Member(Member(status, "run"), "path")); !path.empty()) text += "  " + path;
  text += "  " + StatusText(SnapshotFromJson(Member(status, "signals")));
  if (const TJson& alarms = Member(status, "alarms"); alarms.is_number() && alarms != 0)
    text += "  " + Format(Tr("alarms: %s"), alarms.dump().c_str());
  for (const std::string& hindrance : Hindrances(status)) text += "  ! " + hindrance;
  return text;
}

}  // namespace ixocontroller
