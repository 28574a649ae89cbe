// The console in a browser: a link's code becomes a session, once. Kept in memory only, as hashes: a restart ends them
// all. Not locked; ms of a steady clock.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "controller/access/Asker.h"
#include "controller/access/Sha256.h"

namespace ixocontroller {

struct TConsoleSession {
  std::uint64_t Number = 0;  // from 1 on; "console 3"
  TRole Role = roNone;
};

// What makes a code or a session throws EProblem where the system gives no random numbers.
class TConsoleCodes {
 public:
  static constexpr std::uint64_t kCodeMs = 60'000;
  static constexpr std::uint64_t kSessionMs = 24 * 3600'000ULL;
  static constexpr std::size_t kMostCodes = 16;     // beyond these the oldest goes
  static constexpr std::size_t kMostSessions = 64;  // beyond these the one that was used last longest ago goes

  [[nodiscard]] std::string MakeCode(TRole role, std::uint64_t nowMs);

  struct TOpened {
    std::string Secret;  // the cookie's value
    TConsoleSession Session;
  };
  // None: the code is unknown, used or too old.
  [[nodiscard]] std::optional<TOpened> Exchange(std::string_view code, std::uint64_t nowMs);
  // None: there is no such session, or it is over.
  [[nodiscard]] std::optional<TConsoleSession> Find(std::string_view secret, std::uint64_t nowMs);
  // False: there is no session of this number.
  bool End(std::uint64_t number);

 private:
  struct TCode {
    TRole Role;
    std::uint64_t UntilMs;
  };
  struct TOpen {
    TConsoleSession Session;
    std::uint64_t UntilMs;
    std::uint64_t UsedMs;
  };

  std::map<TSha256, TCode> FCodes;
  std::map<TSha256, TOpen> FSessions;
  std::uint64_t FLast = 0;
};

}  // namespace ixocontroller
