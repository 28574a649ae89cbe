#include "ixocamglue/platform/SensorJudgement.h"

#include <algorithm>

#include "ixocamglue/support/Texts.h"

namespace ixocamglue {
namespace {

std::int32_t Level(double spread, const TSensorJudgement::TLimits& limits) {
  return 1 + static_cast<std::int32_t>(std::ranges::count_if(limits, [&](double limit) { return spread > limit; }));
}

}  // namespace

void TSensorJudgement::See(double value) {
  FLeast = FSeen == 0 ? value : std::min(FLeast, value);
  FMost = FSeen == 0 ? value : std::max(FMost, value);
  ++FSeen;
}

void TSensorJudgement::Approaching(double value) {
  See(value);
  FWorstDrop = std::max(FWorstDrop, FMost - value);
}

void TSensorJudgement::Resting(double value) {
  See(value);
  FRestLeast = FRested == 0 ? value : std::min(FRestLeast, value);
  FRestMost = FRested == 0 ? value : std::max(FRestMost, value);
  FRestSum += value;
  ++FRested;
}

TNcCaliResult TSensorJudgement::Result(bool plateFound, const TLimits& limits) const {
  constexpr auto kFailed = static_cast<std::int32_t>(std::tuple_size_v<TLimits> + 1);
  TNcCaliResult result;
  result.CaliCapRange = Range();
  if (!plateFound || FRested == 0) {
    result.Cap = FMost;
    result.ErrorType = jeNoPlate;
    return result;
  }
  const double spread = FRestMost - FRestLeast;
  result.Cap = FRestSum / FRested;
  result.SteadyLv = Level(spread, limits);
  result.SmoothLv = Level(FWorstDrop - spread, limits);  // noise alone makes no curve uneven
  if (result.SteadyLv >= kFailed)
    result.ErrorType = jeNoisy;
  else if (result.SmoothLv >= kFailed)
    result.ErrorType = jeNotSmooth;
  return result;
}

const char* TSensorJudgement::ErrorText(std::int32_t error) {
  switch (error) {
    case jeGood: return "good";
    case jeNoPlate: return TrMark("no plate found");
    case jeNoisy: return TrMark("the signal is noisy");
    case jeNotSmooth: return TrMark("the curve is not smooth");
    case jeInterrupted: return TrMark("interrupted");
    default: return "unknown";
  }
}

}  // namespace ixocamglue
