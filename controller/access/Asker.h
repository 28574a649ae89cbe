// Who asks something of the controller: for its log, the lease and attendance. Values; any thread.
#pragma once

#include <cstdint>
#include <string>

namespace ixocontroller {

// In rising order: each may what those before it may.
enum class TRole : std::uint8_t { roNone, roViewer, roOperator, roService };
using enum TRole;

// What the asker is known by.
enum class TKnownBy : std::uint8_t { kbNothing, kbUser, kbToken, kbSession };
using enum TKnownBy;

struct TAsker {
  std::string Name;  // "token kitchen", "console 3", "user root (local)"
  TRole Role = roNone;
  std::uint64_t Connection = 0;  // the wire's number of the connection; 0: none (the queue, the program itself)
  bool Local = false;            // from this machine
  TKnownBy By = kbNothing;       // kbUser: the controller's own user, by its Unix socket
  std::uint64_t Session = 0;     // the console session's number; 0: it asks by none
};

}  // namespace ixocontroller
