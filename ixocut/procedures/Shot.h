// `ixocut shot`: one timed laser shot on the simulated machine, in virtual or in real time.
#pragma once

#include <cstdint>
#include <iosfwd>

#include "controller/procedures/ProcedureRun.h"

namespace ixocut {
using namespace ixocontroller;

inline constexpr std::uint64_t kShotLimitMs = 60'000;
// The laser's latch ends a beam at 65 s; a shot stays below it.
inline constexpr std::uint64_t kShotLongestMs = 64'000;

struct TShotOptions : TRunSettings {
  std::uint64_t Ms = 500;                // how long the beam is on; up to kShotLongestMs
  std::uint64_t LimitMs = kShotLimitMs;  // what the command line accepts; up to kShotLongestMs
};

// Returns the exit code; throws EProblem for a duration out of range and for files that cannot be used. Main thread;
// with Realtime, SIGINT and SIGTERM stop the procedure meanwhile.
[[nodiscard]] int RunShot(const TShotOptions& options, std::ostream& out);

}  // namespace ixocut
