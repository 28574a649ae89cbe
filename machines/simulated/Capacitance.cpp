#include "machines/simulated/Capacitance.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "ixocamglue/support/Texts.h"

namespace ixocamglue {
namespace {

constexpr double kFar = 61.10;  // without a plate
constexpr double kNear = 0.40;  // what the plate adds on contact
constexpr double kHalf = 1.0;   // height at which half of that is left
constexpr double kWave = 2.0;   // mm from crest to crest of the ripple
constexpr std::int32_t kWorstLevel = 4;

// 1 is best. A sound sensor's spread is twice its noise.
std::int32_t Level(double spread) {
  std::int32_t level = 1;
  for (const double limit : {3.0, 10.0, 30.0})
    if (spread > limit * TCapacitance::kNoise) ++level;
  return level;
}

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

void TCapJudgement::See(double capacitance) {
  FLeast = FSeen == 0 ? capacitance : std::min(FLeast, capacitance);
  FMost = FSeen == 0 ? capacitance : std::max(FMost, capacitance);
  ++FSeen;
}

void TCapJudgement::Approaching(double capacitance) {
  See(capacitance);
  FWorstDrop = std::max(FWorstDrop, FMost - capacitance);
}

void TCapJudgement::Resting(double capacitance) {
  See(capacitance);
  FRestLeast = FRested == 0 ? capacitance : std::min(FRestLeast, capacitance);
  FRestMost = FRested == 0 ? capacitance : std::max(FRestMost, capacitance);
  FRestSum += capacitance;
  ++FRested;
}

TNcCaliResult TCapJudgement::Result(bool plateFound) const {
  TNcCaliResult result;
  result.CaliCapRange = FMost - FLeast;
  if (!plateFound || FRested == 0) {
    result.Cap = FMost;
    result.ErrorType = ceNoPlate;
    return result;
  }
  const double spread = FRestMost - FRestLeast;
  result.Cap = FRestSum / FRested;
  result.SteadyLv = Level(spread);
  result.SmoothLv = Level(FWorstDrop - spread);  // noise alone makes no curve uneven
  if (result.SteadyLv >= kWorstLevel)
    result.ErrorType = ceNoisy;
  else if (result.SmoothLv >= kWorstLevel)
    result.ErrorType = ceNotSmooth;
  return result;
}

const char* TCapJudgement::ErrorText(std::int32_t error) {
  switch (error) {
    case ceGood: return "good";
    case ceNoPlate: return TrMark("no plate found");
    case ceNoisy: return TrMark("the signal is noisy");
    case ceNotSmooth: return TrMark("the curve is not smooth");
    case ceInterrupted: return TrMark("interrupted");
    default: return "unknown";
  }
}

}  // namespace ixocamglue
