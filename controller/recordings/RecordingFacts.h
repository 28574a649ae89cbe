// What can be said of a recording without a picture: what each signal holds, and how far two runs are apart. Any
// thread, each with a reader and recordings of its own.
#pragma once

#include <cstdint>
#include <limits>
#include <map>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "controller/recordings/Recording.h"

namespace ixocontroller {

struct TSignalFacts {
  std::uint64_t Frames = 0;
  std::uint64_t Samples = 0;
  std::int64_t FirstMs = 0;
  std::int64_t LastMs = 0;
  double Min = std::numeric_limits<double>::quiet_NaN();  // of the values that are numbers
  double Max = std::numeric_limits<double>::quiet_NaN();
};
using TRecordingFacts = std::map<TMonitorSignalKey, TSignalFacts>;
// Of a reader that was opened, in one pass. Throws EProblem for a file with too many signals.
[[nodiscard]] TRecordingFacts SignalFacts(TMonitorReader& reader);
// {"file", "version", "motors", ..., "signals", ..., "partial", "notes"}. Nothing fails.
[[nodiscard]] nlohmann::ordered_json FactsJson(const TMonitorLoadReport& report, const TRecordingFacts& facts,
                                               bool partial);

struct TSeriesDifference {
  std::uint64_t Samples = 0;  // compared
  double Largest = 0.0;       // infinite where only one of the two is a number
  std::int64_t AtMs = 0;
  double A = 0.0;
  double B = 0.0;
};
// At each sample of A within the time that both have, B holds its latest value. No samples compared where they have no
// time in common; nothing fails.
[[nodiscard]] TSeriesDifference Compare(const TSeries& a, const TSeries& b);

struct TSignalDifference {
  TMonitorSignalKey Key;
  const char* OnlyIn = "";  // "A", "B"; empty: both have it
  TSeriesDifference Of = {};
  std::size_t SamplesA = 0, SamplesB = 0;
};
struct TRecordingDifference {
  std::vector<TSignalDifference> Signals;
  std::uint64_t Compared = 0;  // samples
  bool Differ = false;
};
// Of runs that are laid over each other (Align); nothing fails.
[[nodiscard]] TRecordingDifference Compare(const TRecording& a, const TRecording& b);
// Does not fail.
[[nodiscard]] nlohmann::ordered_json SignalsJson(const TRecordingDifference& difference);

}  // namespace ixocontroller
