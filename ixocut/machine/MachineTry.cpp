// `ixocut machine try`: one device after the other, each only after somebody has said yes, with a protocol of it.
#include <unistd.h>

#include "commandline/InputLines.h"
#include "controller/commissioning/TryProtocol.h"
#include "controller/process/SignalStop.h"
#include "controller/process/StateFolder.h"
#include "ixocamglue/support/ValueText.h"
#include "ixocut/Command.h"
#include "ixocut/machine/MachineCommand.h"

namespace ixocut {
namespace {

struct TTryOptions : TControllerSettings {
  std::vector<std::string> Ports;
  std::string Protocol;
  std::uint64_t PulseMs = 500;
  bool Yes = false;
};

enum class TAnswer : std::uint8_t { Yes, No, End };

// Ctrl-C and the end of the input are the end.
TAnswer Ask(TInputLines& input, const std::string& question) {
  std::cerr << question << std::flush;
  std::string line;
  if (!input.Next(line)) return TAnswer::End;
  const std::string_view word = TrimXml(line);
  if (word == "q" || word == "Q") return TAnswer::End;
  return word == "y" || word == "Y" ? TAnswer::Yes : TAnswer::No;
}

int RunTry(const TTryOptions& options, TConsole& console) {
  if (!options.Yes && isatty(STDIN_FILENO) != 1)
    throw EProblem(pbRefused, TProblem{.What = Tr("each try is confirmed by hand, and there is no terminal"),
                                       .Remedy = Tr("run it in a terminal, or give --yes and watch the machine")});
  const TSignalStop signals;
  TControllerOptions controllerOptions = options.Options();
  const std::string machine = controllerOptions.MachineFile.string();
  const TPortTries ports(std::move(controllerOptions), options.PulseMs, &TSignalStop::Asked);
  const auto tries = ports.Chosen(options.Ports);
  TTryProtocol protocol(options.Protocol.empty() ? StateFolder(options.State) / TTryProtocol::NewName()
                                                 : std::filesystem::path(options.Protocol),
                        machine, "--protocol");

  TInputLines input(&TSignalStop::Asked);
  bool whole = true;
  for (const TPortTry* const each : tries) {
    const std::string what = each->Port + " (" + each->Device + "): " + each->Does;
    const TAnswer answer = TSignalStop::Asked() ? TAnswer::End
                           : options.Yes        ? TAnswer::Yes
                                                : Ask(input, what + Tr("? y: yes, q: end, else no: "));
    if (answer == TAnswer::End) {
      whole = false;
      break;
    }
    if (answer == TAnswer::No) continue;
    const TTried& last = protocol.Try(*each);
    console.Say(Format("%s  %s: %s; %s", last.Good ? Tr("good") : Tr("BAD"), last.Port.c_str(), last.Done.c_str(),
                       last.Read.c_str()));
  }
  std::optional<TProblem> problem;
  if (!whole)
    problem = {.What = Tr("stopped by hand")};
  else if (protocol.Bad() > 0)
    problem = {.What =
                   Format(Tr("%zu of %zu tries were not as they should be"), protocol.Bad(), protocol.All().size())};
  console.Say(Format(Tr("The protocol is in %s"), protocol.File().c_str()));
  if (problem && !options.Json) console.Note(problem->Text());
  return console.Print({{"protocol", protocol.File().string()}, {"tries", protocol.Json()}}, problem);
}

}  // namespace

void AddMachineTryCommand(TCommand machine) {
  auto [command, options] = AddOwn<TTryOptions>(
      machine, "try", Tr("Try one port after the other, each after a confirmation, and write a protocol"), RunTry);
  command.Texts("PORT", options.Ports,
                Tr("x, y, z, focus, input:4, output:5, gas:2 or pilot; none: one after the other, all"), "TEXT");
  command.Number("--pulse", options.PulseMs, 20, 10'000, "ms", Tr("How long outputs and the pilot light are on"))
      .ShowDefault();
  command.Text("--protocol", options.Protocol, Tr("The protocol to write (default: in the state folder)"), "FILE");
  command.Flag("--yes", options.Yes, Tr("Ask nobody; for who watches the machine"));
  AddJsonOption(command, options.Json);
  AddMachineSettings(command, options);
  command.Help(
      {.Notes = Tr("Axes move 1 mm and back at 10 mm/s, through the same steps as any procedure. The laser is never "
                   "lit: only its\npilot light is. Ctrl-C stops what moves and ends dark."),
       .ExitCodes = Tr("0 all were as they should be, 1 one was not, or it was stopped or refused, 2 wrong command "
                       "line,\n3 a file or the machine cannot be used"),
       .Examples = {"ixocut machine try", "ixocut machine try x output:5", "ixocut machine try gas:2 --yes"}});
}

}  // namespace ixocut
