// Whom a command talks to: the one place where that is chosen. A controller that runs for the state folder or the
// machine file, the one that --url names, or nobody: the command then works by itself, as it does with --local.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "controller/client/WireClient.h"
#include "ixocamglue/support/Files.h"
#include "ixocut/ControllerSettings.h"

namespace ixocut {
using namespace ixocontroller;

// --url, --ca, --token-file and, where the command can work by itself, --local.
void AddAttachOptions(TCommand command, TAttachOptions& attach, bool byItself);

// What a command for a controller takes: --json, the above, --machine, --state and --lang.
void AddClientOptions(TCommand command, TControllerSettings& settings, bool& json, bool byItself);

class TAttachment {
 public:
  // With --local, where a controller holds the state folder: `settings` then names a temporary copy of it, which is
  // said on the error output. Waits for a controller that starts. Throws EProblem for an address or a token file that
  // is none, and for a controller that cannot be reached.
  explicit TAttachment(TControllerSettings& settings);
  TAttachment(const TAttachment&) = delete;
  TAttachment& operator=(const TAttachment&) = delete;

  [[nodiscard]] TWireClient* Client() const { return FClient.get(); }  // null: the command works by itself
  // Throws EProblem where no controller runs.
  [[nodiscard]] TWireClient& Controller() const;

 private:
  void MakeCopy(TControllerSettings& settings, const std::filesystem::path& folder, std::int64_t process);

  std::string FPlace;  // where a controller was looked for
  std::unique_ptr<TWireClient> FClient;
  std::optional<TTempFolder> FCopy;
};

// Of a command that is not for the controller that runs: where one has the state folder, that is said on the error
// output.
void TellByItself(const std::optional<std::filesystem::path>& state);

}  // namespace ixocut
