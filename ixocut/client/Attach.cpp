#include "ixocut/client/Attach.h"

#include "controller/process/ControllerFile.h"
#include "controller/process/SignalStop.h"
#include "controller/process/StateFolder.h"

namespace ixocut {

void AddAttachOptions(TCommand command, TAttachOptions& attach, bool byItself) {
  const TOption url =
      command.Text("--url", attach.Url, Tr("The controller at this address, http://127.0.0.1:8620 for example"), "URL");
  command.Text("--ca", attach.Trusted,
               Tr("Who is trusted behind https://, a PEM file (default: IXOCUT_CA, else the system's)"), "FILE");
  command.Text("--token-file", attach.TokenFile, Tr("The file that holds the token (default: IXOCUT_TOKEN)"), "FILE");
  if (byItself)
    command
        .Flag("--local", attach.Local,
              Tr("Without a controller that runs; where one holds the files, on a copy that is not kept"))
        .Excludes(url);
}

void AddClientOptions(TCommand command, TControllerSettings& settings, bool byItself) {
  AddJsonOption(command, settings.Json);
  AddAttachOptions(command, settings.Attach, byItself);
  AddMachineSettings(command, settings);
}

TAttached::TAttached(TControllerSettings& settings)
    : TAttachment(settings.Attach, settings.Language, settings.Machine, settings.State) {
  if (!Notice().empty()) std::cerr << Notice() << std::endl;
}

void TellByItself(const std::optional<std::filesystem::path>& state) {
  const auto place = FindController(StateFolder(state));
  if (place)
    std::cerr << Format(Tr("A controller (process %d) has the state folder: this command works beside it, on a machine "
                           "of its own in virtual time."),
                        static_cast<int>(place->Process))
              << std::endl;
}

TWireRun RunOnConsole(TWireClient& client, const TWireOrder& order, TConsole& console,
                      decltype(TWireFollower::Look) look, decltype(TWireFollower::Event) event) {
  std::optional<TSignalStop> signals;
  if (!order.Detach) signals.emplace();
  TWireFollower follower{.Stops = {}, .Log = &console, .Look = std::move(look), .Event = std::move(event)};
  if (signals) follower.Stops = &TSignalStop::Asked;
  return RunOnController(client, order, follower);
}

}  // namespace ixocut
