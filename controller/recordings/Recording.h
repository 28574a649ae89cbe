// A monitor file read into memory, one series per signal on one time axis, for the commands that look at whole runs.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "ixocamglue/monitor/Umonitorreader.h"
#include "ixocamglue/monitor/Umonitorsignals.h"

namespace ixocontroller {
using namespace ixocamglue;

struct TSeries {
  std::uint64_t Frames = 0;
  std::vector<std::int64_t> Ms;  // rising, from the recording's first sample
  std::vector<double> Values;
};

struct TRecording {
  TMonitorLoadReport Report;
  std::map<TMonitorSignalKey, TSeries> Series;
};

// Turns the wrapping 32-bit sample times of a file, in its order, into ms from its first one; earlier ones are
// negative.
class TSampleClock {
 public:
  std::int64_t At(std::uint32_t sampleTime);

 private:
  bool FStarted = false;
  std::uint32_t FLast = 0;
  std::int64_t FMs = 0;
};

// What two runs are laid over each other by.
enum class TAlignment : std::uint8_t {
  Auto,       // the first of these that both have, else the start
  Beam,       // the laser's first sample that is on
  Procedure,  // the first sample with a state other than standby
  Start,      // the first sample
};

// Throws EProblem for a file that cannot be read or whose head line does not name the version that this program
// writes. Of two samples of a signal at the same time the later in the file counts.
[[nodiscard]] TRecording LoadRecording(const std::string& file);
// The same for a reader that was opened.
TResult<void> CheckReadable(const TMonitorReader& reader);
// Moves the times of both so that the event is at 0 ms; answers which one it is. Throws EProblem when the one that is
// asked for is missing in one of them.
TAlignment Align(TRecording& a, TRecording& b, TAlignment by);

}  // namespace ixocontroller
