#include "ixocamglue/gascal/Ugasdaadjust.h"

#include <algorithm>
#include <cmath>

#include "ixocamglue/platform/ports/MotionDriver.h"
#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/platform/xml/MachineConfig.h"

namespace ixocamglue {
namespace {

struct TBranchPresets {
  std::int32_t Branch;
  std::int32_t WindowMs;
  double ErrorPercent;
  std::vector<double> Volts;
};

// The full scale is always among them, so that the branch's highest pressure is measured early.
const TBranchPresets& PresetsOf(std::int32_t branch) {
  static const TBranchPresets kPresets[] = {
      {1, 150, 3.0, {1.0, 2.4, 3.6, kFullScaleVolt}},
      {2, 100, 1.5, {0.4, 0.6, 0.8, 1.0, 1.4, 2.1, kFullScaleVolt}},
      {3, 250, 3.0, {1.0, 3.0, 4.5, kFullScaleVolt}},
  };
  static const TBranchPresets kOther{0, 150, 3.0, {2.4, 3.6, kFullScaleVolt}};
  const auto* const it = std::ranges::find(kPresets, branch, &TBranchPresets::Branch);
  return it == std::end(kPresets) ? kOther : *it;
}

int Sign(double value) { return TVolCom::Compare(value, 0.0); }

constexpr double kLowestBar = 0.1;     // below, pressures do not agree
constexpr double kLineReachBar = 0.5;  // the lines of the rebuilt curve span at least this, where they can

}  // namespace

void TQuickGasDAAdjust::Reset() {
  FSettleMs = 200;
  TMachineConfig* const config = MachineConfig();
  if (config && config->GetGasBranch(FBranch)) {
    const TBranchPresets& presets = PresetsOf(FBranch);
    FWindowMs = presets.WindowMs;
    FErrorPercent = presets.ErrorPercent;
    FPresets = presets.Volts;
  }
  std::ranges::sort(FPresets, [](double a, double b) { return TVolCom::Compare(a, b) < 0; });
  FCaliList.Clear();
  FSamples.Clear();
  FRebuilt.Clear();
}

// --- the next voltage ---

bool TQuickGasDAAdjust::Enter(double& da, double volt) {
  da = volt;
  FCaliList.AddItem({volt, 0.0});
  return true;
}

bool TQuickGasDAAdjust::RecordPress(double da, double press) {
  const std::int32_t index = FCaliList.FindNearBy(Epsilon_Voltage, da);
  if (index < 0) return false;
  FCaliList.SetY(index, press);
  return true;
}

bool TQuickGasDAAdjust::GetNextAdjDA(double& da) {
  const TIncList& points = FCaliList;
  const std::int32_t n = points.Count();
  if (static_cast<std::size_t>(n) < FPresets.size()) return Enter(da, FPresets[static_cast<std::size_t>(n)]);
  if (n >= kMaxAdjPoints || n < 2) return false;

  const std::int32_t last = n - 1;
  const double highest = points[last].Y;
  const double middle = highest / 2;
  const double low = 0.1 * highest;
  const double high = 0.9 * highest;
  std::int32_t upper = -1;  // the first point of the upper band
  std::int32_t lower = -1;  // the last point of the lower band
  for (std::int32_t i = 0; i < last; ++i) {
    const double press = points[i].Y;
    if (upper < 0 && press >= middle + kValueEpsilon && press <= high) upper = i;
    if (press >= low && press <= middle - kValueEpsilon) lower = i;
  }
  const auto between = [&](std::int32_t i) { return (points[i].X + points[i + 1].X) / 2; };

  if (upper >= 0 && lower >= 0) return false;
  if (points[0].Y > high) return Enter(da, points[0].X / 2);
  if (points[last - 1].Y < low) {  // everything below full scale is far too low
    double volt = points[last - 1].X;
    do volt += 1.5 * kVoltStep;
    while (points.CheckNearBy(Epsilon_Voltage, volt));
    return volt <= kFullScaleVolt - kValueEpsilon && Enter(da, volt);
  }
  if (upper < 0 && lower < 0) {
    const std::int32_t i = points.FindIndex(points.GetX(middle));
    if (i >= last) return false;
    if (i < 0) return Enter(da, points[0].X / 2);
    // Kept: beyond 10 V when the last point below full scale stands there; who puts it out limits it.
    return Enter(da, i == last - 1 ? points[i].X + 1.5 * kVoltStep : between(i));
  }
  if (lower < 0) return Enter(da, upper < 1 ? points[0].X / 2 : between(upper - 1));

  if (lower < last - 1) return Enter(da, between(lower));
  const double volt = points[lower].X + (highest / points[lower].Y > 3 ? 1.5 : 1.0) * kVoltStep;
  return Enter(da, volt >= points[last].X - kValueEpsilon ? between(lower) : volt);
}

bool TQuickGasDAAdjust::GetNextAdjDA3P(double& da) {
  const std::int32_t n = FCaliList.Count();
  if (static_cast<std::size_t>(n) < FPresets.size()) {
    da = FPresets[static_cast<std::size_t>(n)];
    return true;
  }
  if (n >= kMaxAdjPoints || n < 2) return false;
  FCaliList.SortByX();
  const double highest = FCaliList[n - 1].Y;
  return ProposeInBand(0.15 * highest, 0.4 * highest, da) || ProposeInBand(0.4 * highest, 0.6 * highest, da) ||
         ProposeInBand(0.6 * highest, 0.9 * highest, da);
}

bool TQuickGasDAAdjust::ProposeInBand(double low, double high, double& da) const {
  const TIncList& points = FCaliList;
  const std::int32_t last = points.Count() - 1;
  std::int32_t i = -1;  // the last point in front of the first one above the band
  while (i < last && points[i + 1].Y <= high) ++i;
  if (i == last) return false;
  if (i < 0) {
    da = points[0].X / 2;
    return true;
  }
  if (points[i].Y >= low) return false;  // covered
  if (i + 1 == last) {
    da = points[i].X + (points[last].X - points[i].X) / 3;
    return true;
  }
  const double volt = (points[i].X + points[i + 1].X) / 2;
  if (std::abs(points[i].X - volt) < kMinSpacingVolt) return false;
  da = volt;
  return true;
}

// --- whether the pressure has settled ---

void TQuickGasDAAdjust::SampleGasPress() {
  TNcDeviceManager* const devices = DeviceManager();
  if (!devices) return;
  const double press = devices->GetRtGasPressure();
  AddSample(static_cast<std::int64_t>(Clock().MonotonicMs()), press);
}

void TQuickGasDAAdjust::AddSample(std::int64_t timeMs, double press) {
  FSamples.AddItem({static_cast<double>(timeMs), press});
}

bool TQuickGasDAAdjust::CheckError(double fraction, double a, double b) {
  if (std::abs(a - b) <= kValueEpsilon) return true;
  if (a < kLowestBar || b < kLowestBar) return false;
  return std::abs(b - a) / std::min(a, b) < std::abs(fraction);
}

// The means of the last four windows, the oldest first; `first`: the index in front of them. A sample on a border
// belongs to the older window.
bool TQuickGasDAAdjust::WindowMeans(double (&means)[4], std::int32_t& first) const {
  const std::int32_t last = FSamples.Count() - 1;
  const double end = FSamples[last].X;
  std::int32_t borders[5];
  for (int i = 0; i < 4; ++i) borders[i] = FSamples.FindIndex(end - (4.0 - i) * FWindowMs);
  borders[4] = last;
  for (int i = 0; i < 4; ++i)
    if (borders[i + 1] - kWindowSamples <= borders[i]) return false;
  for (int i = 0; i < 4; ++i)
    if (!FSamples.Average(borders[i] + 1, borders[i + 1], means[i])) return false;
  first = borders[0];
  return true;
}

double TQuickGasDAAdjust::RiseTime(double press) const {
  const auto& samples = FSamples.Dots();
  const auto risen = std::ranges::find_if(samples, [&](const TDot& sample) { return sample.Y > 0.8 * press; });
  return risen == samples.end() ? -1.0 : risen->X - samples.front().X;
}

bool TQuickGasDAAdjust::CheckGasPressStable(double& press, std::int32_t& stableMs, std::int32_t& riseMs,
                                            bool checkTrend) const {
  const std::int32_t m = FSamples.Count();
  if (m < kMinStableSamples) return false;
  const double start = FSamples[0].X;
  const double span = FSamples[m - 1].X - start;
  if (span < 4.0 * FWindowMs + FSettleMs) return false;
  double a[4];
  std::int32_t first = 0;
  // Kept: comes before the time limit, so that too few samples never settle, however long it takes.
  if (!WindowMeans(a, first)) return false;

  double stable = span;
  if (span <= static_cast<double>(kStableLimitMs)) {
    const double e = FErrorPercent / 100;
    for (int later = 1; later < 4; ++later)
      for (int earlier = 0; earlier < later; ++earlier)
        if (!CheckError(e, a[later], a[earlier])) return false;
    const int drift = Sign(a[3] - a[2]);
    const bool steady = drift == Sign(a[2] - a[1]) && drift == Sign(a[1] - a[0]);
    if (checkTrend && steady && !(CheckError(0.5 * e, a[0], a[3]) && CheckError(0.5 * e, a[1], a[2]))) return false;
    stable = FSamples[first + 1].X - start;
  }
  press = (a[0] + a[1] + a[2] + a[3]) / 4;
  stableMs = static_cast<std::int32_t>(stable);
  const double rise = RiseTime(press);
  riseMs = static_cast<std::int32_t>(rise < 0 ? stable : rise);
  return true;
}

bool TQuickGasDAAdjust::StatGasInfo(double target, double& rms, double& mean, double& low, double& high) const {
  const std::int32_t m = FSamples.Count();
  if (m < kMinStableSamples) return false;
  const double end = FSamples[m - 1].X;
  if (end - FSamples[0].X < 4.0 * FWindowMs + FSettleMs) return false;
  const std::int32_t first = FSamples.FindIndex(end - 4.0 * FWindowMs) + 1;
  const std::int32_t n = m - first;
  if (n <= kWindowSamples) return false;

  std::vector<double> sorted;
  sorted.reserve(static_cast<std::size_t>(n));
  double squares = 0.0;
  double sum = 0.0;
  for (std::int32_t i = first; i < m; ++i) {
    const double press = FSamples[i].Y;
    sorted.push_back(press);
    squares += (press - target) * (press - target);
    sum += press;
  }
  std::ranges::sort(sorted);
  rms = std::sqrt(squares / n);
  mean = sum / n;
  const auto k = static_cast<std::size_t>(n / 10);
  low = sorted[k];
  high = sorted[sorted.size() - k - 1];
  return true;
}

// --- the final curve ---

std::int32_t TQuickGasDAAdjust::KneeIndex(const TIncList& list) const {
  if (list.Count() < 2) return 0;
  const double highest = list[list.Count() - 1].Y;
  const double tolerance = 3 * FErrorPercent / 100 * highest;
  std::int32_t knee = list.Count() - 2;
  while (knee > 0 && std::abs(list[knee].Y - highest) <= tolerance) --knee;
  return std::max(knee, 0);
}

void TQuickGasDAAdjust::ReplaceNearBy(TDot dot) {
  FRebuilt.DelNearBy(kNearByVolt, dot.X);
  FRebuilt.AddItem(dot);
}

void TQuickGasDAAdjust::AddLowEnd(const TIncList& input, std::int32_t knee) {
  std::int32_t reach = 1;
  while (reach < knee && !(input[reach].Y > input[0].Y + kLineReachBar)) ++reach;
  const TLine foot(input[0], input[reach]);
  const double lowest = std::max(0.05 * input[input.Count() - 1].Y, kLowestBar);
  double volt = 0.0;
  if (lowest < input[0].Y && foot.GetX(lowest, volt) && volt >= -kValueEpsilon && volt <= input[0].X + kValueEpsilon)
    ReplaceNearBy({volt, lowest});
}

void TQuickGasDAAdjust::AddKnee(const TIncList& input, std::int32_t knee) {
  const std::int32_t last = input.Count() - 1;
  const double highest = input[last].Y;
  std::int32_t reach = knee - 1;
  while (reach >= 0 && !(input[reach].Y < input[knee].Y - kLineReachBar)) --reach;
  const TLine rising(input[reach < 0 ? knee - 1 : reach], input[knee]);

  const TDot& below = input[knee];
  const TDot& above = input[knee + 1];
  if (knee == last - 1) {
    double volt = 0.0;
    if (rising.GetX(highest, volt) && volt >= below.X + kValueEpsilon && volt <= above.X - kValueEpsilon)
      ReplaceNearBy({volt, highest});
    return;
  }
  const auto inside = [](double value, double from, double to) {
    return value > from + kValueEpsilon && value < to - kValueEpsilon;
  };
  TDot cross;
  if (rising.CrossPoint(TLine(above, input[last]), cross) && inside(cross.X, below.X, above.X) &&
      inside(cross.Y, below.Y, above.Y))
    ReplaceNearBy(cross);
}

void TQuickGasDAAdjust::ReBuildGasAdjList(TIncList& list) {
  if (list.Count() <= 2) return;
  FRebuilt.Clear();
  list.SortByX();
  list.DelDupItem(kValueEpsilon);
  list.MonoInc(kValueEpsilon);

  const std::int32_t knee = KneeIndex(list);
  for (const TDot& dot : list.Dots()) FRebuilt.Append(dot);
  if (knee > 0) {
    AddLowEnd(list, knee);
    AddKnee(list, knee);
  }
  while (FRebuilt.Count() > 0 && FRebuilt[0].X <= kValueEpsilon) FRebuilt.Delete(0);
  FRebuilt.AddItem({0.0, 0.0});
  FRebuilt.MonoInc(kValueEpsilon);

  list.Clear();
  for (const TDot& dot : FRebuilt.Dots()) list.Append(dot);
}

}  // namespace ixocamglue
