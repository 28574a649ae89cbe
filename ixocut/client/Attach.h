// How a command says which controller it is for, what it is told of it, and how it follows a run there. Main thread.
#pragma once

#include "controller/client/Attachment.h"
#include "controller/client/WireRun.h"
#include "ixocut/Console.h"
#include "ixocut/ControllerSettings.h"

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

// Of a command that is not for the controller that runs: where one has the state folder, that is said on the error
// output.
void TellByItself(const std::optional<std::filesystem::path>& state);

// As RunOnController, its progress on the console, stopped by Ctrl-C; what is only started is left to itself by it.
[[nodiscard]] TWireRun RunOnConsole(TWireClient& client, const TWireOrder& order, TConsole& console,
                                    decltype(TWireFollower::Look) look = {}, decltype(TWireFollower::Event) event = {});

}  // namespace ixocut
