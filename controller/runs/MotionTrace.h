// Where head and axes were during a run: the points at which they changed, and the length of the path. One thread.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "ixocamglue/platform/Machine.h"

namespace ixocontroller {
using namespace ixocamglue;

// mm; ms from the first sample's clock (monotonic).
struct TTracePoint {
  std::uint64_t Ms = 0;
  double X = 0.0;
  double Y = 0.0;
  double Z = 0.0;
  double Focus = 0.0;
};

// Nothing here fails.
class TMotionTrace {
 public:
  static constexpr std::size_t kMostPoints = 200'000;

  // Beyond so many points every second one is left out, and so on: hours fit as well.
  explicit TMotionTrace(std::size_t most = kMostPoints) : FMost(most) {}

  // In the order of time; the samples' distance bounds what the path's length misses of a curve.
  void Sample(const TMachineSnapshot& now);
  [[nodiscard]] std::size_t Size() const { return FPoints.size(); }
  // With the last sample.
  [[nodiscard]] std::vector<TTracePoint> Points() const;
  [[nodiscard]] double PathXY() const { return FPathXY; }  // mm
  [[nodiscard]] double PathZ() const { return FPathZ; }    // mm

 private:
  void Keep(const TTracePoint& point);

  std::size_t FMost;
  std::vector<TTracePoint> FPoints;
  std::optional<TTracePoint> FLast;
  bool FAtRest = false;  // FLast is not kept: nothing has changed since the last one that is
  std::uint64_t FEveryMs = 1;
  double FPathXY = 0.0;
  double FPathZ = 0.0;
};

}  // namespace ixocontroller
