#include "controller/recordings/RecordingFacts.h"

#include <algorithm>
#include <cmath>

namespace ixocontroller {
namespace {

double Distance(double a, double b) {
  if (a == b || (std::isnan(a) && std::isnan(b))) return 0.0;
  const double distance = std::abs(a - b);
  return std::isnan(distance) ? std::numeric_limits<double>::infinity() : distance;
}

}  // namespace

std::map<TMonitorSignalKey, TSignalFacts> SignalFacts(TMonitorReader& reader) {
  std::map<TMonitorSignalKey, TSignalFacts> facts;
  TSampleClock clock;
  for (TMonitorDataFrame frame; reader.Next(frame);) {
    TSignalFacts& signal = facts[KeyOf(frame)];
    const std::int64_t start = clock.At(frame.SampleTime);
    const auto count = static_cast<std::int64_t>(frame.Count());
    const std::int64_t end = start + std::max<std::int64_t>(count - 1, 0) * frame.TimeInterval;
    if (signal.Frames++ == 0) {
      CheckSignalCount(facts.size(), reader.Report().FileName);
      signal.FirstMs = start;
    }
    signal.FirstMs = std::min(signal.FirstMs, start);
    signal.LastMs = std::max(signal.LastMs, end);
    for (std::size_t i = 0; i < frame.Count(); ++i) {
      const double value = frame.GetValue(i);
      ++signal.Samples;
      signal.Min = std::fmin(signal.Min, value);
      signal.Max = std::fmax(signal.Max, value);
    }
  }
  return facts;
}

TSeriesDifference Compare(const TSeries& a, const TSeries& b) {
  TSeriesDifference out;
  std::size_t j = 0;
  for (std::size_t i = 0; i < a.Ms.size(); ++i) {
    const std::int64_t ms = a.Ms[i];
    if (b.Ms.empty() || ms < b.Ms.front()) continue;
    if (ms > b.Ms.back()) break;
    while (j + 1 < b.Ms.size() && b.Ms[j + 1] <= ms) ++j;
    ++out.Samples;
    const double distance = Distance(a.Values[i], b.Values[j]);
    if (distance <= out.Largest) continue;
    out.Largest = distance;
    out.AtMs = ms;
    out.A = a.Values[i];
    out.B = b.Values[j];
  }
  return out;
}

}  // namespace ixocontroller
