// A planar curve with its bounding rectangle. mm; no thread of its own. Nothing fails.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "ixocamglue/platform/ports/MotionDriver.h"

namespace ixocamglue {

// A rectangle; empty (Min above Max) until a point has widened it. mm.
struct TRange2 {
  TPoint2 Min{1e300, 1e300};
  TPoint2 Max{-1e300, -1e300};

  [[nodiscard]] bool Empty() const { return Min.X > Max.X; }
  void Widen(TPoint2 point) {
    Min = {std::min(Min.X, point.X), std::min(Min.Y, point.Y)};
    Max = {std::max(Max.X, point.X), std::max(Max.Y, point.Y)};
  }
};

class TMcCurveKeeper {
 public:
  // Keeps the first `count` points (all, when there are fewer) and their range; no points change nothing.
  void SetDynPoints(std::span<const TPoint2> points, std::int32_t count) {
    const auto kept = points.first(std::min(points.size(), static_cast<std::size_t>(std::max(count, 0))));
    if (kept.empty()) return;
    FXYCurve.assign(kept.begin(), kept.end());
    FRange = {};
    for (const TPoint2 point : kept) FRange.Widen(point);
  }
  [[nodiscard]] const std::vector<TPoint2>& XYCurve() const { return FXYCurve; }
  [[nodiscard]] const TRange2& Range() const { return FRange; }

 private:
  std::vector<TPoint2> FXYCurve;
  TRange2 FRange;
};

}  // namespace ixocamglue
