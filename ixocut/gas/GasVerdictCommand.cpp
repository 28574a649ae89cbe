// `ixocut gas verdict`.
#include <algorithm>

#include "controller/gasvalve/GasVerdict.h"
#include "controller/texts/GasTexts.h"
#include "ixocamglue/support/ValueText.h"
#include "ixocut/Command.h"
#include "ixocut/OperatorTexts.h"
#include "ixocut/gas/GasCommand.h"

namespace ixocut {
namespace {

struct TVerdictOptions : TOutputSettings {
  std::string File;
};

std::string HighestOf(const TRecordedGas& gas) {
  double highest = 0.0;
  for (const TRecordedGasPoint& point : gas.Points) highest = std::max(highest, point.Settled.value_or(0.0));
  return Format("%.3f", highest);
}

int RunVerdict(const TVerdictOptions& options, TConsole& console) {
  const TOperatorTexts texts(console);
  const TGasRecording recording = ReadGasRecording(options.File);
  bool stopped = false;
  bool good = !recording.Gases.empty();
  auto gases = nlohmann::ordered_json::array();
  for (const TRecordedGas& gas : recording.Gases) {
    console.Say(Show(SVerdictTitle, ShownGas(gas.GasType).c_str(), recording.NozzType.c_str(),
                     ValueText(recording.NozzSize).c_str(), std::to_string(gas.Points.size()).c_str(),
                     HighestOf(gas).c_str()));
    const std::vector<TGasFinding> findings = JudgeGas(gas);
    stopped = stopped || gas.Stopped;
    good = good && !FirstBad(findings);
    console.SayLines(FindingLines(findings));
    gases.push_back({{"gas", gas.Name}, {"findings", FindingsJson(findings)}});
  }
  if (recording.Gases.empty()) console.Say(SVerdictNoGas.Get());
  std::optional<TProblem> problem;
  if (!good)
    problem = {.What = Tr("something is wrong with a valve or its table"), .Where = options.File};
  else if (stopped)
    problem = {.What = Tr("the calibration was stopped before its end: no verdict"), .Where = options.File};
  return console.Print({{"file", options.File}, {"good", !problem}, {"gases", std::move(gases)}}, problem);
}

}  // namespace

void AddGasVerdictCommand(TCommand gas) {
  auto [command, options] =
      AddOwn<TVerdictOptions>(gas, "verdict", Tr("Say what a recorded calibration tells of the valve"), RunVerdict);
  command.Text("FILE", options.File, Tr("What gas calibrate --record wrote"), "").Required();
  AddJsonOption(command, options.Json);
  AddLanguageOption(command, options.Language);
  command.Help(
      {.Notes = Tr("Hysteresis is judged when the recording has a pass downwards (gas calibrate --record FILE "
                   "--descend)."),
       .ExitCodes =
           Tr("0 nothing is wrong, 1 something is or no verdict, 2 wrong command line, 3 the file cannot be used"),
       .Examples = {"ixocut gas verdict gas.json"}});
}

}  // namespace ixocut
