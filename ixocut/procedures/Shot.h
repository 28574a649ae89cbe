// `ixocut shot`: the row "shot" of the table, with a report of its own and beams up to the latch.
#pragma once

#include <cstdint>

#include "ixocut/procedures/Asked.h"

namespace ixocut {

struct TShotOptions : TRunSettings {
  std::uint64_t Ms = 500;                  // how long the beam is on; up to kShotLongestMs
  std::uint64_t LongestMs = kShotLimitMs;  // what the command line accepts; up to kShotLongestMs
};

// Returns the exit code; throws EProblem for a duration out of range and for files that cannot be used. Main thread;
// with Realtime, SIGINT, SIGTERM and SIGHUP stop the procedure meanwhile.
[[nodiscard]] int RunShot(TShotOptions options, TConsole& console);

}  // namespace ixocut
