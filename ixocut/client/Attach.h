// How a command says which controller it is for, what it is told of it, and how it follows a run there. Main thread.
#pragma once

#include "controller/client/Attachment.h"
#include "controller/client/WireRun.h"
#include "ixocut/Command.h"

namespace ixocut {
using namespace ixocontroller;

// --url, --ca, --token-file and, where the command can work by itself, --local.
void AddAttachOptions(TCommand command, TAttachOptions& attach, bool byItself);

// What a command for a controller takes: --json, the above, --machine, --state and --lang.
void AddClientOptions(TCommand command, TControllerSettings& settings, bool byItself);

// Whom the command talks to, by its settings. That it works on a copy is said on the error output.
class TAttached : public TAttachment {
 public:
  explicit TAttached(TControllerSettings& settings);
};

// Adds a command that runs `run(options, client, console)` with the controller that it is for, and no other; its exit
// codes are those of one, unless `help` says some.
template <class TOptions, class TRun>
std::pair<TCommand, TOptions&> AddAsking(TCommand above, const std::string& name, const std::string& about, TRun run,
                                         THelp help) {
  const auto made = AddOwn<TOptions>(above, name, about, [run](TOptions& own, TConsole& console) {
    const TAttached attachment(own);
    return run(own, attachment.Controller(), console);
  });
  AddClientOptions(made.first, made.second, false);
  if (help.ExitCodes.empty())
    help.ExitCodes =
        Tr("0 done, 1 refused, ended otherwise or no controller runs, 2 wrong command line, 3 it does not answer");
  made.first.Help(help);
  return made;
}

// Of a command that is not for the controller that runs: where one has the state folder, that is said on the error
// output.
void TellByItself(const std::optional<std::filesystem::path>& state);

// As RunOnController, its progress on the console, stopped by Ctrl-C; what is only started is left to itself by it.
[[nodiscard]] TWireRun RunOnConsole(TWireClient& client, const TWireOrder& order, TConsole& console,
                                    decltype(TWireFollower::Look) look = {}, decltype(TWireFollower::Event) event = {});

}  // namespace ixocut
