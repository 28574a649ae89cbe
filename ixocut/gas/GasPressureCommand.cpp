// `ixocut gas pressure`.
#include "controller/gas/GasPressure.h"
#include "controller/texts/GasTexts.h"
#include "controller/texts/HostTexts.h"
#include "ixocamglue/support/ValueText.h"
#include "ixocut/Command.h"
#include "ixocut/gas/GasCommand.h"

namespace ixocut {
namespace {

struct TPressureOptions : TControllerSettings {
  std::string Gas;
  std::string Bar;
};

int RunPressure(const TPressureOptions& options, TConsole& console) {
  const std::vector<std::int32_t> gases = AskedGases(options.Gas);
  if (gases.size() != 1) throw EProblem(pbRequest, TProblem{.What = Tr("one gas at a time"), .Where = "--gas"});
  const std::int32_t gas = gases.front();
  const auto bar = ParseNumber<double>(options.Bar);
  if (!bar || !(*bar >= 0.0))
    throw EProblem(pbRequest,
                   TProblem{.What = Format(Tr("\"%s\" is no pressure in bar"), options.Bar.c_str()), .Where = "--bar"});

  TController machine(options.Options(&console));
  console.SetStart(Clock().MonotonicMs());

  const std::string name = ShownGas(gas);  // the controller has brought the language
  if (!TableVolt(gas, *bar, "--bar")) {
    const TProblem problem{.What = Show(SGasNoTable, name.c_str())};
    console.Say(problem.What);
    return console.Print({{"gas", GasName(gas)}, {"bar", *bar}, {"volt", nullptr}}, problem);
  }
  const TReachedPressure reached = ReachPressure(machine, gas, *bar);
  const double error = reached.Bar - *bar;
  const std::string share = *bar > 0.0 ? Format("%+.2f %%", 100.0 * error / *bar) : std::string("-");
  console.Say(Show(SGasPressure, name.c_str(), ValueText(*bar).c_str(), Format("%.3f", reached.Volt).c_str(),
                   Format("%.3f", reached.Bar).c_str(), Format("%+.3f", error).c_str(), share.c_str(),
                   Format("%.3f", reached.SensorBar).c_str()));
  return console.Print({{"gas", GasName(gas)},
                        {"bar", *bar},
                        {"volt", reached.Volt},
                        {"reachedBar", reached.Bar},
                        {"errorBar", error},
                        {"sensorBar", reached.SensorBar},
                        {"log", console.Log()}});
}

}  // namespace

void AddGasPressureCommand(TCommand gas) {
  auto [command, options] = AddOwn<TPressureOptions>(
      gas, "pressure", Tr("Set a pressure by the stored table and see what the machine reaches"), RunPressure);
  command.Text("--gas", options.Gas, std::string(Tr("The gas: ")) + Tr(kGasHelp), "GAS").Required();
  command.Text("--bar", options.Bar, Tr("The pressure"), "BAR").Required();
  AddJsonOption(command, options.Json);
  AddControllerSettings(command, options);
  command.Help(
      {.Notes = Tr("The pressure reached is the simulated machine's own, at rest; the error is its difference from "
                   "--bar."),
       .ExitCodes =
           Tr("0 done, 1 no table is in use or its curve does not reach so far, 2 wrong command line, 3 a file "
              "or device problem"),
       .Examples = {"ixocut gas pressure --gas O2 --bar 3.5"}});
}

}  // namespace ixocut
