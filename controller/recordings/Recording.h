// A monitor file read into memory, one series per signal on one time axis, for the commands that look at whole runs.
// Any thread, each with a recording of its own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
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
// negative. Nothing of it fails.
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

// Each frame of a file in its order, with the ms of its first sample. Throws EProblem for a file that cannot be read or
// whose head line does not name the version that this program writes.
TMonitorLoadReport ReadFrames(const std::string& file,
                              const std::function<void(const TMonitorDataFrame&, std::int64_t ms)>& each);

enum class TDetail : std::uint8_t {
  Whole,   // every sample; a file with more than kMostSamples is refused
  Outline  // of a longer file the smallest and the largest value of each stretch, all stretches of about the same
           // length
};
inline constexpr std::size_t kMostSamples = std::size_t{1} << 25;         // of all signals: 512 MiB
inline constexpr std::size_t kMostOutlineSamples = std::size_t{1} << 22;  // far more than a picture has points
inline constexpr std::size_t kMostSignals = 1000;                         // more are no machine's

// Of two samples of a signal at the same time the later in the file counts. Throws EProblem as ReadFrames, and for a
// file that has too much.
[[nodiscard]] TRecording LoadRecording(const std::string& file, TDetail detail);
// A file with so many signals: EProblem when they are too many.
void CheckSignalCount(std::size_t count, const std::string& file);
// The smallest and the largest number of each `stretch` of samples, in their order; one sample that is no number where
// it has none.
[[nodiscard]] TSeries Outline(const TSeries& series, std::size_t stretch);
// The same for a reader that was opened.
TResult<void> CheckReadable(const TMonitorReader& reader);
// Moves the times of both so that the event is at 0 ms; answers which one it is. Throws EProblem when the one that is
// asked for is missing in one of them.
TAlignment Align(TRecording& a, TRecording& b, TAlignment by);

}  // namespace ixocontroller
