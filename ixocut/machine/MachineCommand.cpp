#include "ixocut/machine/MachineCommand.h"

#include <algorithm>

#include "controller/Controller.h"
#include "controller/links/LinkDesk.h"
#include "ixocamglue/platform/services/Clock.h"
#include "ixocut/Command.h"

namespace ixocut {
namespace {

constexpr std::uint64_t kFirstValueMs = 3000;  // so long each port may take for its first value
constexpr std::uint32_t kLookMs = 50;

bool AllReadable(const std::vector<TMachinePort>& ports) {
  return std::ranges::all_of(ports, [](const TMachinePort& port) { return port.Facts.Readable; });
}

std::vector<std::string> PortRow(const TMachinePort& port) {
  const TPortFacts& facts = port.Facts;
  return {port.Device.empty() ? "-" : port.Device,
          port.Driver,
          facts.Port,
          facts.Readable ? facts.Value : Tr("not readable"),
          facts.AgeMs ? Format("%llu", static_cast<unsigned long long>(*facts.AgeMs)) : "-",
          facts.Limits.empty() ? "-" : facts.Limits,
          facts.Warning};
}

// Connects and looks; the state thread does not run, and nothing is commanded.
int RunCheck(const TControllerSettings& options, TConsole& console) {
  TControllerOptions controllerOptions = options.Options();
  controllerOptions.Realtime = true;
  TController controller(std::move(controllerOptions));
  IMachine& machine = controller.Machine();
  const std::uint64_t end = Clock().MonotonicMs() + kFirstValueMs;
  std::vector<TMachinePort> ports = machine.PortFacts();
  for (; !AllReadable(ports) && Clock().MonotonicMs() < end; ports = machine.PortFacts()) Clock().Sleep(kLookMs);

  std::optional<TProblem> problem;
  const auto silent = std::ranges::count_if(ports, [](const TMachinePort& port) { return !port.Facts.Readable; });
  if (silent > 0)
    problem = {.What = Format(Tr("%zu of %zu ports cannot be read"), static_cast<std::size_t>(silent), ports.size()),
               .Why = Tr("their devices do not answer, or their values are too old"),
               .Remedy = Tr("look at power, cable and address of each")};
  TRows rows{{Tr("device"), Tr("driver"), Tr("address"), Tr("value"), Tr("age ms"), Tr("limits"), Tr("warning")}};
  for (const TMachinePort& port : ports) rows.push_back(PortRow(port));
  if (ports.empty())
    console.Say(Format(Tr("The machine \"%s\" tells nothing of its ports."), controller.Driver().c_str()));
  else
    console.SayTable(rows);
  if (problem && !options.Json) console.Note(problem->Text());
  console.Print({{"driver", controller.Driver()}, {"ports", PortsJson(ports)}}, problem);
  return problem ? kExitUnusable : kExitSuccess;
}

}  // namespace

void AddMachineCheckCommand(TCommand machine) {
  auto [command, options] = AddOwn<TControllerSettings>(
      machine, "check", Tr("Connect to the machine and list every port; nothing moves"), RunCheck);
  AddJsonOption(command, options.Json);
  AddMachineSettings(command, options);
  command.Help({.Notes = Tr("It is refused while a controller has the machine file."),
                .ExitCodes = Tr("0 every port can be read, 1 another controller has the machine, 2 wrong command "
                                "line, 3 a port or the machine cannot be used"),
                .Examples = {"ixocut machine check", "ixocut machine check --machine machine.xml --json"}});
}

void AddMachineCommand(TCommand program) {
  const TCommand machine =
      program.AddGroup("machine", Tr("Commission a machine: look at its ports, try them, arm and home it"));
  machine.Help({.Examples = {"ixocut machine check", "ixocut machine try x y", "ixocut machine try output:5"}});
  AddMachineCheckCommand(machine);
  AddMachineTryCommand(machine);
  AddMachineOrderCommands(machine);
}

}  // namespace ixocut
