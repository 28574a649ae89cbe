#include "controller/runs/RunReport.h"

#include <algorithm>
#include <iterator>

#include "controller/runs/Timeline.h"
#include "controller/texts/HostTexts.h"
#include "ixocamglue/config/Libmachinecfg.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/JsonText.h"
#include "ixocamglue/support/Lists.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

constexpr std::size_t kIndent = 2;

// "Output 5 (Extraction)"
std::string OutputText(std::int32_t port) {
  const std::string name = PortName("Outport", port);
  return Format("%s %d", SRowOutput.Get(), port) + (name.empty() ? "" : " (" + name + ")");
}

std::string Mm(double value) { return Format("%.2f", value); }

}  // namespace

std::string WhatIsOn(const TMachineSnapshot& now) {
  std::string on;
  const auto add = [&](const std::string& what) { AddToList(on, what); };
  if (now.Emission) add(SRowEmission.Get());
  if (now.Laser) add(SRowLaser.Get());
  if (now.Gas) add(Format("%s %s %.2f bar", SRowGas.Get(), GasTypeName(now.GasBranch), now.GasBar));
  if (now.Following) add(SRowFollow.Get());
  for (const std::int32_t port : now.OutputsOn) add(OutputText(port));
  return on;
}

std::string StatusText(const TMachineSnapshot& now) {
  const std::string on = WhatIsOn(now);
  return Format("X %.2f Y %.2f Z %.2f F %.2f", now.Pos.X, now.Pos.Y, now.Z, now.Focus) + (on.empty() ? "" : "  ") + on;
}

std::vector<std::string> ReportLines(const TRunReport& report, const TMotionTrace& trace, const TMachineSnapshot& last,
                                     bool withJournal) {
  std::vector<std::string> lines = report.Notes;
  std::ranges::move(AlarmLines(report.Alarms, report.StartMs), std::back_inserter(lines));
  if (withJournal) {
    lines.emplace_back();
    lines.insert(lines.end(), report.Journal.begin(), report.Journal.end());
  }
  lines.emplace_back();
  if (!report.Steps.empty()) {
    lines.emplace_back(SRunSteps.Get());
    for (const TStepSpan& step : report.Steps)
      lines.push_back(Format("%8llu %8llu  %s%d/%d: %s (%d)",
                             static_cast<unsigned long long>(step.From - report.StartMs),
                             static_cast<unsigned long long>(step.To - step.From),
                             std::string(kIndent * static_cast<std::size_t>(step.Level), ' ').c_str(), step.Number,
                             step.Count, step.Desc.c_str(), step.Command));
    lines.emplace_back();
  }
  lines.insert(lines.end(), report.Timeline.begin(), report.Timeline.end());
  lines.emplace_back();
  lines.push_back(StatusText(last));
  lines.push_back(Show(SRunPath, Mm(trace.PathXY()).c_str(), Mm(trace.PathZ()).c_str()));
  if (const std::string on = WhatIsOn(last); !on.empty()) lines.push_back(Show(SRunStillOn, on.c_str()));
  lines.push_back(ClosingLine(report));
  return lines;
}

std::string ClosingLine(const TRunReport& report) {
  std::string line = Show(SShotEnded, report.End.Words.c_str(), ShownMs(report.DurationMs));
  if (!report.Problem) return line;
  const TProblem& problem = *report.Problem;
  if (!problem.Where.empty()) line += Format(Tr("; at: %s"), problem.Where.c_str());
  if (!problem.Why.empty()) line += Format(Tr("; why: %s"), problem.Why.c_str());
  if (!problem.Remedy.empty()) line += Format(Tr("; what to do: %s"), problem.Remedy.c_str());
  return line;
}

nlohmann::ordered_json StepsJson(const std::vector<TStepSpan>& steps, std::uint64_t startMs) {
  auto json = nlohmann::ordered_json::array();
  for (const TStepSpan& step : steps)
    json.push_back({{"level", step.Level},
                    {"number", step.Number},
                    {"count", step.Count},
                    {"command", step.Command},
                    {"description", step.Desc},
                    {"startMs", step.From - std::min(startMs, step.From)},
                    {"durationMs", step.To - step.From}});
  return json;
}

nlohmann::ordered_json ReportJson(const TRunReport& report, const TMotionTrace& trace, const TMachineSnapshot& last) {
  return {{"outcome", report.End.Name},
          {"words", report.End.Words},
          {"durationMs", report.DurationMs},
          {"lengthMs", report.EndMs - report.StartMs},
          {"dark", report.Dark},
          {"collisions", report.Collisions},
          {"path", report.Path},
          {"fault", report.Fault},
          {"cause", report.Cause},
          {"nextState", report.NextState},
          {"pathMm", {{"xy", trace.PathXY()}, {"z", trace.PathZ()}}},
          {"position", {{"x", last.Pos.X}, {"y", last.Pos.Y}, {"z", last.Z}, {"focus", last.Focus}}},
          {"gas", last.Gas},
          {"following", last.Following},
          {"outputsOn", last.OutputsOn},
          {"steps", StepsJson(report.Steps, report.StartMs)},
          {"notes", report.Notes},
          {"alarms", AlarmsJson(report.Alarms, report.StartMs)},
          {"timeline", report.TimelineJson},
          {"journal", report.Journal}};
}

namespace {

constexpr const char* kEnds[] = {"success", "no-light", "gas-open", "collision", "stopped",
                                 "paused",  "alarm",    "error",    "refused",   "unfinished"};

// The spans of a timeline as the changes that they were drawn from.
std::vector<TSignal> SignalsOf(const nlohmann::ordered_json& rows) {
  constexpr std::pair<const char*, TSignalKind> kinds[] = {
      {"state", sgState}, {"emission", sgEmission}, {"laser", sgLaser}, {"gas", sgGas}};
  std::vector<TSignal> signals;
  for (const auto& row : rows)
    for (const auto& [name, kind] : kinds)
      if (row.at("signal") == name)
        for (const auto& span : row.at("on")) {
          signals.push_back({.Ms = span.at(0), .Kind = kind, .On = true});
          signals.push_back({.Ms = span.at(1), .Kind = kind, .On = false});
        }
  std::ranges::stable_sort(signals, {}, &TSignal::Ms);
  return signals;
}

}  // namespace

TRunReport ReportFromJson(const nlohmann::ordered_json& json, const nlohmann::ordered_json& problem) try {
  TRunReport report;
  const std::string outcome = json.at("outcome");
  for (const char* const end : kEnds)
    if (outcome == end) report.End.Name = end;
  json.at("words").get_to(report.End.Words);
  json.at("durationMs").get_to(report.DurationMs);
  json.at("lengthMs").get_to(report.EndMs);
  json.at("dark").get_to(report.Dark);
  json.at("collisions").get_to(report.Collisions);
  json.at("path").get_to(report.Path);
  json.at("fault").get_to(report.Fault);
  json.at("cause").get_to(report.Cause);
  json.at("nextState").get_to(report.NextState);
  for (const auto& step : json.at("steps")) {
    const std::uint64_t from = step.at("startMs");
    report.Steps.push_back({.Level = step.at("level"),
                            .Number = step.at("number"),
                            .Count = step.at("count"),
                            .Command = step.at("command"),
                            .Desc = step.at("description"),
                            .From = from,
                            .To = from + step.at("durationMs").get<std::uint64_t>()});
  }
  json.at("notes").get_to(report.Notes);
  for (const auto& alarm : json.at("alarms"))
    report.Alarms.push_back({.RaisedMs = alarm.at("atMs"),
                             .Level = alarm.at("level"),
                             .Identifier = alarm.at("identifier"),
                             .Description = alarm.at("description"),
                             .Code = alarm.at("code"),
                             .Text = alarm.at("text"),
                             .Reason = alarm.at("reason"),
                             .Solution = alarm.at("solution")});
  report.TimelineJson = json.at("timeline");
  report.Signals = SignalsOf(report.TimelineJson);
  report.Timeline = TTimeline(report.Signals, 0, report.EndMs).Draw();
  json.at("journal").get_to(report.Journal);
  if (problem.is_object()) report.Problem = ProblemFromJson(problem);
  return report;
} catch (const nlohmann::json::exception&) {
  throw EProblem(pbUnusable, Tr("the controller's report of the run cannot be read"));
}

}  // namespace ixocontroller
