// Whom a program talks to: the one place where that is chosen. A controller that runs for the state folder or the
// machine file, the one that a URL names, or nobody: the program then works by itself. One thread.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "controller/client/WireClient.h"
#include "ixocamglue/support/Files.h"

namespace ixocontroller {

struct TAttachOptions {
  std::string Url;        // empty: the one of the state folder
  std::string TokenFile;  // empty: IXOCUT_TOKEN
  std::string Trusted;    // of https, a PEM file; empty: IXOCUT_CA, else the system's
  bool Local = false;     // none: the program works by itself
};

class TAttachment {
 public:
  // `machine`, `state`: the files that the program would work with (StateFolder.h). With Local, where a controller
  // holds the state folder, they name a temporary copy of it afterwards, for the life of this object. Waits for a
  // controller that starts. Throws EProblem for an address or a token file that is none, and for a controller that
  // cannot be reached.
  TAttachment(const TAttachOptions& attach, const std::string& language, std::optional<std::filesystem::path>& machine,
              std::optional<std::filesystem::path>& state);
  TAttachment(const TAttachment&) = delete;
  TAttachment& operator=(const TAttachment&) = delete;

  // Does not fail. Null: the program works by itself.
  [[nodiscard]] TWireClient* Client() const { return FClient.get(); }
  // Throws EProblem where no controller runs.
  [[nodiscard]] TWireClient& Controller() const;
  // What a person is told of a copy that is worked on; empty: there is none. Does not fail.
  [[nodiscard]] const std::string& Notice() const { return FNotice; }

 private:
  void MakeCopy(const std::filesystem::path& folder, std::int64_t process);

  std::string FPlace;  // where a controller was looked for
  std::string FNotice;
  std::unique_ptr<TWireClient> FClient;
  std::optional<TTempFolder> FCopy;
};

}  // namespace ixocontroller
