// One controller on a state folder, and where it is found. What decides is a lock on "controller.json" there; the file
// itself says where the controller is, and is believed only while the process that wrote it holds the lock.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "ixocamglue/support/FileLock.h"
#include "ixocamglue/support/Problem.h"

namespace ixocontroller {
using namespace ixocamglue;

// Nothing here fails.
struct TControllerPlace {
  std::int32_t Process = 0;
  std::string Url;      // "http://127.0.0.1:8620"; empty: it is starting, or has no port
  std::string Socket;   // path of its Unix socket; empty as Url
  std::string Started;  // UTC

  [[nodiscard]] bool HasAddress() const { return !Url.empty() || !Socket.empty(); }
};

// Held for a controller's life. One thread. Releasing does not fail.
class TControllerLock {
 public:
  TControllerLock() = default;
  ~TControllerLock() { Release(); }
  TControllerLock(const TControllerLock&) = delete;
  TControllerLock& operator=(const TControllerLock&) = delete;

  // Makes the folder, for its owner alone. Refused while another controller has it: its process number and address.
  // Before anything of the folder is read.
  TResult<> Take(const std::filesystem::path& stateFolder);
  // Says where it is reached, once its sockets listen. Not done: nobody finds it by the folder; everything else works.
  TResult<> Describe(const std::string& url, const std::string& socket);
  void Release();  // the file goes first
  [[nodiscard]] bool Held() const { return FLock.Held(); }

 private:
  std::filesystem::path FFile;
  TFileLock FLock;
};

// The controller that runs on this state folder; none: none does. Any thread and process; nothing is made or connected
// to.
[[nodiscard]] std::optional<TControllerPlace> FindController(const std::filesystem::path& stateFolder);
// The same; one that is starting has up to 5 s of real time to say where it is reached. None where it did not come up;
// without an address where it said none in that time.
[[nodiscard]] std::optional<TControllerPlace> AwaitController(const std::filesystem::path& stateFolder);

}  // namespace ixocontroller
