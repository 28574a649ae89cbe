#include "ixocut/procedures/Asked.h"

#include <algorithm>

#include "ixocamglue/support/Nearest.h"
#include "ixocut/Command.h"
#include "ixocut/Machines.h"
#include "ixocut/client/Attach.h"

namespace ixocut {
namespace {

constexpr std::uint64_t kTriggerLimitMs = 600'000;

std::string CheckFault(const std::string& name) {
  TNearestName nearest(name);
  const std::vector<TMachineFault> faults = MachineFaults();
  for (const TMachineFault& fault : faults) {
    if (name == fault.Name) return {};
    nearest.Consider(fault.Name);
  }
  return Format(Tr("the machine has no fault \"%s\""), name.c_str()) + "; " +
         nearest.DidYouMean(Tr("`ixocut procedures --faults` lists them"));
}

}  // namespace

void AddRunSettings(TCommand command, TRunSettings& settings) {
  command.Number("--stop-at", settings.StopAt, 0, kTriggerLimitMs, "ms",
                 Tr("Stop this long after the procedure was entered, 0 to 600000"));
  command.Number("--alarm-at", settings.AlarmAt, 0, kTriggerLimitMs, "ms",
                 Tr("Raise an alarm that forbids all motion this long after the procedure was entered, 0 to 600000"));
  command
      .Texts("--fault", settings.Faults,
             Tr("Something of the machine that fails; `ixocut procedures --faults` lists it"), "NAME")
      .Check(CheckFault)
      .Several();
  const TOption realtime =
      command.Flag("--realtime", settings.Realtime, Tr("Run on the real clock; Ctrl-C stops what runs"));
  command.Text("--db", settings.Db, Tr("With --realtime: write the alarms into this alarm store"), "FILE")
      .Needs(realtime);
  AddJsonOption(command, settings.Json);
  command.Flag("--trace", settings.Trace, Tr("Show the whole diagnostic channel, in the words of the log"));
  AddControllerSettings(command, settings);
  AddAttachOptions(command, settings.Attach, true);
}

std::unique_ptr<TProcedureRun> MakeRun(const TControllerSettings& settings, const TRunTriggers& triggers,
                                       TConsole& console) {
  auto run = std::make_unique<TProcedureRun>(settings.Options(&console), triggers, console.Mask());
  console.SetStart(Clock().MonotonicMs());
  return run;
}

TParamTexts ReadParams(const TProcedure& row, const std::vector<std::string>& words) {
  TParamTexts texts;
  for (std::size_t i = 0; i < words.size(); ++i) {
    const std::string& word = words[i];
    const std::size_t equals = word.find('=');
    const bool alone = equals == std::string::npos;
    const std::string name = word.substr(0, equals);
    if (!word.starts_with("--") ||
        std::ranges::none_of(row.Params, [&](const TMotionParam& p) { return name.substr(2) == p.Name; }))
      RefuseExtra(row, word);
    if (alone && i + 1 == words.size()) throw EProblem(pbRequest, Format(Tr("%s: a value is missing"), name.c_str()));
    texts[name.substr(2)] = alone ? words[++i] : word.substr(equals + 1);
  }
  return texts;
}

void RefuseExtra(const TProcedure& row, const std::string& extra) {
  TNearestName nearest(extra);
  std::vector<std::string> candidates;
  for (const TMotionParam& param : row.Params) candidates.push_back(std::string("--") + param.Name);
  for (const std::string& candidate : candidates) nearest.Consider(candidate);
  throw EProblem(pbRequest, TProblem{.What = Format(Tr("%s was not expected"), extra.c_str()),
                                     .Where = row.Name,
                                     .Remedy = nearest.DidYouMean()});
}

}  // namespace ixocut
