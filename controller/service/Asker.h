// Who asks something of the controller: for its log, the lease and attendance. Values; any thread.
#pragma once

#include <cstdint>
#include <string>

namespace ixocontroller {

// In rising order: each may what those before it may.
enum class TRole : std::uint8_t { roNone, roViewer, roOperator, roService };
using enum TRole;

struct TAsker {
  std::string Name;  // "token kitchen", "console 3", "user root (local)"
  TRole Role = roNone;
  std::uint64_t Connection = 0;  // the wire's number of the connection; 0: none (the queue, the program itself)
  bool Local = false;            // from this machine
  bool Owner = false;            // the controller's own user, by its Unix socket
};

}  // namespace ixocontroller
