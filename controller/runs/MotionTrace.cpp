#include "controller/runs/MotionTrace.h"

#include <cmath>

namespace ixocontroller {
namespace {

constexpr double kStillMm = 1e-6;

bool Near(double a, double b) { return std::abs(a - b) < kStillMm; }

bool SamePlace(const TTracePoint& a, const TTracePoint& b) {
  return Near(a.X, b.X) && Near(a.Y, b.Y) && Near(a.Z, b.Z) && Near(a.Focus, b.Focus);
}

}  // namespace

void TMotionTrace::Sample(const TMachineSnapshot& now) {
  const TTracePoint point{now.Ms, now.Pos.X, now.Pos.Y, now.Z, now.Focus};
  if (FLast) {
    FPathXY += std::hypot(point.X - FLast->X, point.Y - FLast->Y);
    FPathZ += std::abs(point.Z - FLast->Z);
    if (SamePlace(point, *FLast)) {
      FLast->Ms = point.Ms;
      FAtRest = true;
      return;
    }
    if (FAtRest) FPoints.push_back(*FLast);  // the corner: it stood here until now
  }
  FAtRest = false;
  FLast = point;
  Keep(point);
}

void TMotionTrace::Keep(const TTracePoint& point) {
  if (!FPoints.empty() && point.Ms < FPoints.back().Ms + FEveryMs) return;
  FPoints.push_back(point);
  if (FPoints.size() < FMost) return;
  for (std::size_t i = 0; i < FPoints.size() / 2; ++i) FPoints[i] = FPoints[2 * i];
  FPoints.resize(FPoints.size() / 2);
  FEveryMs *= 2;
}

std::vector<TTracePoint> TMotionTrace::Points() const {
  std::vector<TTracePoint> points = FPoints;
  if (FLast && (points.empty() || points.back().Ms < FLast->Ms)) points.push_back(*FLast);
  return points;
}

}  // namespace ixocontroller
