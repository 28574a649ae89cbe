// `ixocut machine try`: one device after the other, each only after somebody has said yes, with a protocol of it.
#include <algorithm>
#include <fstream>
#include <iostream>
#include <memory>
#include <optional>
#include <poll.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "controller/SignalStop.h"
#include "controller/StateFolder.h"
#include "controller/commissioning/PortTries.h"
#include "ixocamglue/platform/services/UtcTime.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"
#include "ixocamglue/support/UserName.h"
#include "ixocamglue/support/ValueText.h"
#include "ixocut/ControllerSettings.h"
#include "ixocut/Document.h"
#include "ixocut/machine/MachineCommand.h"

namespace ixocut {
using namespace ixocontroller;
namespace {

struct TTryOptions : TControllerSettings {
  std::vector<std::string> Ports;
  std::string Protocol;
  std::uint64_t PulseMs = 500;
  bool Yes = false;
  bool Json = false;
};

struct TTried : TTriedPort {
  std::string Time, Port;
};

enum class TAnswer : std::uint8_t { Yes, No, End };

// Waits for a line; Ctrl-C and the end of the input are the end.
TAnswer Ask(const std::string& question) {
  std::cerr << question << std::flush;
  std::string line;
  for (;;) {
    pollfd in{STDIN_FILENO, POLLIN, 0};
    if (poll(&in, 1, 100) > 0) {
      if (!std::getline(std::cin, line)) return TAnswer::End;
      const std::string_view word = TrimXml(line);
      if (word == "q" || word == "Q") return TAnswer::End;
      return word == "y" || word == "Y" ? TAnswer::Yes : TAnswer::No;
    }
    if (TSignalStop::Asked()) return TAnswer::End;
  }
}

// A line a try, written as soon as it is known; columns are parted by tabs.
class TProtocol {
 public:
  TProtocol(std::filesystem::path file, const std::string& machine)
      : FFile(std::move(file)), FWho(UserName(::geteuid())) {
    std::error_code error;
    if (std::filesystem::exists(FFile, error))
      throw EProblem(pbRequest, TProblem{.What = Format(Tr("%s is there already"), FFile.string().c_str()),
                                         .Where = "--protocol",
                                         .Why = {},
                                         .Remedy = Tr("name another one; nothing was tried")});
    if (FFile.has_parent_path()) std::filesystem::create_directories(FFile.parent_path(), error);
    FOut.open(FFile);
    FOut << "machine\t" << machine << "\ntime\twho\tport\tdone\tread\tgood\n" << std::flush;
    Check();
  }
  void Add(const TTried& tried) {
    FOut << tried.Time << '\t' << FWho << '\t' << tried.Port << '\t' << tried.Done << '\t' << tried.Read << '\t'
         << (tried.Good ? "yes" : "no") << '\n'
         << std::flush;
    Check();
  }
  [[nodiscard]] const std::filesystem::path& File() const { return FFile; }

 private:
  void Check() {
    if (!FOut) throw EProblem(pbUnusable, TProblem{.What = Tr("cannot be written"), .Where = FFile.string()});
  }
  const std::filesystem::path FFile;
  const std::string FWho;
  std::ofstream FOut;
};

std::filesystem::path ProtocolFile(const TTryOptions& options) {
  if (!options.Protocol.empty()) return options.Protocol;
  std::string name = "machine-try-" + FormatUtc(UtcNow()) + ".tsv";
  std::ranges::replace(name, ':', '-');
  return StateFolder(options.State) / name;
}

int RunTry(const TTryOptions& options, std::ostream& out) {
  if (!options.Yes && isatty(STDIN_FILENO) != 1)
    throw EProblem(pbRefused, TProblem{.What = Tr("each try is confirmed by hand, and there is no terminal"),
                                       .Where = {},
                                       .Why = {},
                                       .Remedy = Tr("run it in a terminal, or give --yes and watch the machine")});
  const TSignalStop signals;
  TControllerOptions controllerOptions = options.Options();
  const std::string machine = controllerOptions.MachineFile.string();
  const TPortTries ports(std::move(controllerOptions), options.PulseMs, &TSignalStop::Asked);
  const auto tries = ports.Chosen(options.Ports);
  TProtocol protocol(ProtocolFile(options), machine);

  std::vector<TTried> tried;
  bool whole = true;
  for (const TPortTry* const each : tries) {
    const std::string what = each->Port + " (" + each->Device + "): " + each->Does;
    const TAnswer answer = TSignalStop::Asked() ? TAnswer::End
                           : options.Yes        ? TAnswer::Yes
                                                : Ask(what + Tr("? y: yes, q: end, else no: "));
    if (answer == TAnswer::End) {
      whole = false;
      break;
    }
    if (answer == TAnswer::No) continue;
    tried.push_back({TPortTries::Perform(*each), FormatUtc(UtcNow()), each->Port});
    protocol.Add(tried.back());
    const TTried& last = tried.back();
    if (!options.Json)
      out << Format("%s  %s: %s; %s", last.Good ? Tr("good") : Tr("BAD"), last.Port.c_str(), last.Done.c_str(),
                    last.Read.c_str())
          << std::endl;
  }
  std::optional<TProblem> problem;
  const auto bad = std::ranges::count(tried, false, &TTried::Good);
  if (!whole)
    problem = TProblem{.What = Tr("stopped by hand")};
  else if (bad > 0)
    problem = TProblem{
        .What = Format(Tr("%zu of %zu tries were not as they should be"), static_cast<std::size_t>(bad), tried.size())};
  if (options.Json) {
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const TTried& each : tried)
      list.push_back(
          {{"time", each.Time}, {"port", each.Port}, {"done", each.Done}, {"read", each.Read}, {"good", each.Good}});
    PrintDocument(out, "machine try", {{"protocol", protocol.File().string()}, {"tries", list}}, problem);
  } else {
    out << Format(Tr("The protocol is in %s"), protocol.File().string().c_str()) << std::endl;
    if (problem) std::cerr << "ixocut machine try: " << problem->Text() << '\n';
  }
  return problem ? kExitOtherwise : kExitSuccess;
}

}  // namespace

void AddMachineTryCommand(TCommand machine) {
  const auto options = std::make_shared<TTryOptions>();
  const TCommand command =
      machine.Add("try", Tr("Try one port after the other, each after a confirmation, and write a protocol"),
                  [options] { return RunTry(*options, std::cout); });
  command.Texts("PORT", options->Ports,
                Tr("x, y, z, focus, input:4, output:5, gas:2 or pilot; none: one after the other, all"), "TEXT");
  command.Number("--pulse", options->PulseMs, 20, 10'000, "ms", Tr("How long outputs and the pilot light are on"))
      .ShowDefault();
  command.Text("--protocol", options->Protocol, Tr("The protocol to write (default: in the state folder)"), "FILE");
  command.Flag("--yes", options->Yes, Tr("Ask nobody; for who watches the machine"));
  AddJsonOption(command, options->Json);
  AddMachineSettings(command, *options);
  command.Help(
      {.Notes = Tr("Axes move 1 mm and back at 10 mm/s, through the same steps as any procedure. The laser is never "
                   "lit: only its\npilot light is. Ctrl-C stops what moves and ends dark."),
       .ExitCodes = Tr("0 all were as they should be, 1 one was not, or it was stopped or refused, 2 wrong command "
                       "line,\n3 a file or the machine cannot be used"),
       .Examples = {"ixocut machine try", "ixocut machine try x output:5", "ixocut machine try gas:2 --yes"}});
}

}  // namespace ixocut
