#include "machines/simulated/Capacitance.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace ixocamglue {
namespace {

constexpr double kFar = 61.10;  // without a plate
constexpr double kNear = 0.40;  // what the plate adds on contact
constexpr double kHalf = 1.0;   // height at which half of that is left
constexpr double kWave = 2.0;   // mm from crest to crest of the ripple

}  // namespace

double TCapacitance::Curve(double height) { return kFar + kNear / (1.0 + std::max(height, 0.0) / kHalf); }

double TCapacitance::HeightOf(double capacitance) {
  if (capacitance <= kFar) return std::numeric_limits<double>::infinity();
  return std::max(kHalf * (kNear / (capacitance - kFar) - 1.0), 0.0);
}

double TCapacitance::Measure(double height) {
  constexpr std::uint64_t kSteps = 2001;
  const double noise = (static_cast<double>(FRandom.Below(kSteps)) / 1000.0 - 1.0) * FNoise;
  const double wave = FRipple == 0.0 ? 0.0 : FRipple * std::sin(2.0 * M_PI * height / kWave);
  return Curve(height) + noise + wave;
}

double TCapacitance::Uncertainty(double height) {
  const double root = 1.0 + std::max(height, 0.0) / kHalf;
  return kNoise * kHalf * root * root / kNear;
}

}  // namespace ixocamglue
