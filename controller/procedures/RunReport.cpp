#include "controller/procedures/RunReport.h"

#include <algorithm>
#include <iterator>

#include "controller/HostTexts.h"
#include "ixocamglue/config/Libmachinecfg.h"
#include "ixocamglue/platform/services/LocaleManager.h"
#include "ixocamglue/support/Format.h"
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
  const auto add = [&](const std::string& what) { on += (on.empty() ? "" : ", ") + what; };
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

nlohmann::ordered_json ReportJson(const TRunReport& report, const TMotionTrace& trace, const TMachineSnapshot& last) {
  auto steps = nlohmann::ordered_json::array();
  for (const TStepSpan& step : report.Steps)
    steps.push_back({{"level", step.Level},
                     {"number", step.Number},
                     {"count", step.Count},
                     {"command", step.Command},
                     {"description", Retold(step.Desc)},
                     {"startMs", step.From - report.StartMs},
                     {"durationMs", step.To - step.From}});
  return {{"outcome", report.End.Name},
          {"words", Retold(report.End.Words)},
          {"durationMs", report.DurationMs},
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
          {"steps", std::move(steps)},
          {"notes", report.Notes},
          {"alarms", AlarmsJson(report.Alarms, report.StartMs)},
          {"timeline", report.TimelineJson},
          {"journal", report.Journal}};
}

}  // namespace ixocontroller
