// Samples the machine into monitor frames, one value per ms and 32 values a frame. One thread.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ixocamglue/monitor/Ucollections.h"
#include "ixocamglue/monitor/Umonitorsignals.h"
#include "ixocamglue/monitor/Umonitorwriter.h"
#include "ixocamglue/platform/Machine.h"
#include "ixocamglue/support/Problem.h"

namespace ixocontroller {
using namespace ixocamglue;

inline constexpr std::uint16_t kRecordedAxes = 4;  // X, Y, Z, Focus

// Every signal that can be recorded. Does not fail.
[[nodiscard]] std::vector<TMonitorSignalKey> AllSignals();
// "position,laser,speed.2": a name alone means all axes, nothing every signal. A problem for a name that no signal has.
[[nodiscard]] TResult<std::vector<TMonitorSignalKey>> ParseSignals(const std::string& list);

class TRecorder {
 public:
  // `writer` is not owned.
  TRecorder(TMonitorWriter& writer, const std::vector<TMonitorSignalKey>& signals);

  // Once per ms; the first sample's time is 0. Throws what the writer throws.
  void Sample(const TMachineSnapshot& now);
  // Writes the frames that are not full. Throws what the writer throws.
  void Finish();
  // Does not fail.
  [[nodiscard]] std::uint64_t Samples() const { return FSamples; }

 private:
  struct TChannel {
    const TMonitorSignal* Signal;
    TMonitorDataFrame Frame;
  };
  // Speed from positions, acceleration from speeds.
  struct TAxis {
    TAxis();
    TSteadyFilter Speed;
    TSteadyFilter Acceleration;
    double Mm = 0.0;
    double MmPerS = 0.0;
    double MmPerS2 = 0.0;
    double Error = 0.0;
  };

  void Put(TChannel& channel, const TMachineSnapshot& now);

  TMonitorWriter& FWriter;
  std::vector<TChannel> FChannels;
  TAxis FAxes[kRecordedAxes];
  std::uint64_t FSamples = 0;
};

}  // namespace ixocontroller
