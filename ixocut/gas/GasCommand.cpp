#include "ixocut/gas/GasCommand.h"

#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Lists.h"
#include "ixocamglue/support/Problem.h"
#include "ixocamglue/support/ProblemAt.h"
#include "ixocamglue/support/Texts.h"
#include "ixocamglue/support/ValueText.h"
#include "ixocut/Commands.h"

namespace ixocut {
namespace {

constexpr TAddCommand kGasCommands[] = {AddGasCalibrateCommand, AddGasTableCommands, AddGasPressureCommand,
                                        AddGasVerdictCommand, AddGasStudyCommand};

}  // namespace

std::vector<std::int32_t> AskedGases(const std::string& text) {
  std::vector<std::string> names = SplitAt(text, ',');
  for (std::string& name : names) name = TrimXml(name);
  return OrThrowAt(ParseGases(names), pbRequest, "--gas");
}

void AddNozzleOptions(TCommand command, std::string& nozzle, double& size, bool required) {
  command.Text("--nozzle", nozzle, Tr("The nozzle's type, S or D for example"), "TYPE")
      .NotEmpty(Tr("the type is empty"))
      .Required(required);
  command.Real("--size", size, Tr("The nozzle's diameter in mm, above 0 to 100"), "MM")
      .Check([](const std::string& text) {
        const auto value = ParseNumber<double>(text);
        const bool fits = value && *value > 0.0 && *value <= kLargestNozzleMm;
        return fits ? std::string() : Format(Tr("\"%s\" is no diameter above 0 to 100 mm"), text.c_str());
      })
      .Required(required);
}

void AddGasCommand(TCommand program) {
  const TCommand gas =
      program.AddGroup("gas", Tr("Calibrate gas valves; look at, load, compare, use and judge what came of it"));
  gas.Help(
      {.ExitCodes = Tr("0 success, 1 it ended otherwise or the tables differ, 2 wrong command line, 3 a file or device "
                       "problem"),
       .Examples = {"ixocut gas calibrate --gas Air,O2,N2 --nozzle S --size 1.5 --plot gas.svg", "ixocut gas show",
                    "ixocut gas diff --gas O2 --nozzle S --size 1.5", "ixocut gas load --gas O2 --nozzle S --size 1.5",
                    "ixocut gas pressure --gas O2 --bar 3.5", "ixocut gas verdict gas.json",
                    "ixocut gas study --valves 40 --seed 1"}});
  for (const TAddCommand add : kGasCommands) add(gas);
}

}  // namespace ixocut
