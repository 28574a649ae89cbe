#include "controller/gas/GasVerdict.h"

#include <algorithm>
#include <cmath>
#include <optional>

#include "controller/gas/GasTexts.h"

namespace ixocontroller {

namespace {

constexpr double kTailMs = 400.0;         // what noise and drift are read from
constexpr std::size_t kTailSamples = 20;  // at least
constexpr double kFootShare = 0.01;       // of the highest pressure: the valve is open
constexpr double kFullShare = 0.98;       // of the highest pressure: saturated
constexpr double kFullScaleV = 10.0;
constexpr double kRisingV = 9.9;  // saturation beyond is none
constexpr double kSameVolt = 0.01;

// Bad from here on; shares of the highest pressure where they are shares.
constexpr double kNoisy = 0.01;
constexpr double kDrifting = 0.03;  // per second
constexpr double kWideDeadBandV = 1.5;
constexpr double kNarrowV = 2.0;
constexpr double kSticky = 0.04;
constexpr double kLowSupply = 0.5;  // of what the branch bears

std::string Figure(double value) { return Format("%.3g", value); }
std::string Percent(double share) { return Format(share < 0.1 ? "%.2g %%" : "%.0f %%", 100.0 * share); }

// The straight line through a point's last samples.
struct TTail {
  double Rise = 0.0;       // bar per second
  double Deviation = 0.0;  // of a reading from the line
};

std::optional<TTail> TailOf(const TRecordedGasPoint& point) {
  std::vector<TDot> tail;
  for (const TDot& sample : point.Samples)
    if (std::isfinite(sample.Y) && sample.X >= point.Samples.back().X - kTailMs) tail.push_back(sample);
  if (tail.size() < kTailSamples) return std::nullopt;
  const double n = static_cast<double>(tail.size());
  double x = 0.0, y = 0.0, xx = 0.0, xy = 0.0;
  for (const TDot& sample : tail) {
    x += sample.X / n;
    y += sample.Y / n;
  }
  for (const TDot& sample : tail) {
    xx += (sample.X - x) * (sample.X - x);
    xy += (sample.X - x) * (sample.Y - y);
  }
  if (xx <= 0.0) return std::nullopt;
  const double slope = xy / xx;
  double squares = 0.0;
  for (const TDot& sample : tail) {
    const double off = sample.Y - y - slope * (sample.X - x);
    squares += off * off;
  }
  return TTail{1000.0 * slope, std::sqrt(squares / n)};
}

class TJudge {
 public:
  explicit TJudge(const TRecordedGas& gas) : FGas(gas) {
    for (const TRecordedGasPoint& point : gas.Points)
      if (point.Settled && !point.Descending && !FUp.CheckNearBy(kSameVolt, point.Volt))
        FUp.AddItem({point.Volt, *point.Settled});
    for (const TDot& dot : FUp.Dots()) FHighest = std::max(FHighest, dot.Y);
  }

  std::vector<TGasFinding> Run() {
    Readings();
    Unsettled();
    if (!Responds()) return std::move(FFindings);
    NoiseAndDrift();
    Curve();
    Hysteresis();
    Supply();
    return std::move(FFindings);
  }

 private:
  void Add(const char* kind, bool bad, double figure, const char* unit, std::string sentence) {
    FFindings.push_back({kind, bad, figure, unit, std::move(sentence)});
  }

  void Readings() {
    std::size_t all = 0, lost = 0, same = 0;
    std::optional<double> first;
    for (const TRecordedGasPoint& point : FGas.Points) {
      for (const TDot& sample : point.Samples) {
        ++all;
        if (!std::isfinite(sample.Y)) {
          ++lost;
          continue;
        }
        if (!first) first = sample.Y;
        if (sample.Y == *first) ++same;
      }
    }
    if (lost > 0) {
      const double share = static_cast<double>(lost) / static_cast<double>(all);
      Add("readings", true, 100.0 * share, "%", Show(SVerdictReadings, Percent(share).c_str()));
    }
    if (same > 1 && same == all - lost)
      Add("frozen", true, static_cast<double>(same), "", Show(SVerdictFrozen, std::to_string(same).c_str()));
  }

  void Unsettled() {
    const auto open = std::ranges::count_if(FGas.Points, [](const auto& point) { return !point.Settled; });
    if (open > 0)
      Add("settling", true, static_cast<double>(open), "", Show(SVerdictUnsettled, std::to_string(open).c_str()));
  }

  bool Responds() {
    double lowest = FHighest;
    for (const TDot& dot : FUp.Dots()) lowest = std::min(lowest, dot.Y);
    const double change = FHighest - lowest;
    if (change > kFlatBar && FUp.Count() > 1) return true;
    Add("response", true, change, "bar", Show(SVerdictFlat, Figure(change).c_str()));
    return false;
  }

  void NoiseAndDrift() {
    std::vector<double> deviations;
    double drift = 0.0;
    double atVolt = 0.0;
    for (const TRecordedGasPoint& point : FGas.Points) {
      const std::optional<TTail> tail = point.Settled ? TailOf(point) : std::nullopt;
      if (!tail) continue;
      deviations.push_back(tail->Deviation);
      if (point.Foreseen) continue;  // it was not waited for
      if (std::abs(tail->Rise) <= std::abs(drift)) continue;
      drift = tail->Rise;
      atVolt = point.Volt;
    }
    if (deviations.empty()) return;
    const auto middle = deviations.begin() + static_cast<std::ptrdiff_t>(deviations.size() / 2);
    std::ranges::nth_element(deviations, middle);
    const bool noisy = *middle > kNoisy * FHighest;
    Add("noise", noisy, *middle, "bar",
        Show(noisy ? SVerdictNoiseBad : SVerdictNoise, Figure(*middle).c_str(), Percent(*middle / FHighest).c_str()));
    const double share = std::abs(drift) / FHighest;
    if (share > kDrifting)
      Add("drift", true, 100.0 * share, "%/s", Show(SVerdictDriftBad, Figure(atVolt).c_str(), Percent(share).c_str()));
    else
      Add("drift", false, 100.0 * share, "%/s", Show(SVerdictDrift, Percent(share).c_str()));
  }

  void Curve() {
    const double foot = FootVolt();
    const bool wide = foot > kWideDeadBandV;
    Add("dead-band", wide, foot, "V", Show(wide ? SVerdictDeadBandBad : SVerdictDeadBand, Figure(foot).c_str()));
    const double full = FullVolt();
    const double usable = full - foot;
    const bool narrow = usable < kNarrowV;
    if (full > kRisingV)
      Add("saturation", false, kFullScaleV, "V", Show(SVerdictRising, Figure(usable).c_str()));
    else
      Add("saturation", narrow, full, "V",
          Show(narrow ? SVerdictSaturationBad : SVerdictSaturation, Figure(full).c_str(), Figure(usable).c_str()));
  }

  // The final curve knows the knee between the points.
  [[nodiscard]] double FullVolt() const {
    TIncList curve;
    for (const TDot& dot : FGas.Table) curve.AddItem(dot);
    return (curve.Count() > 1 ? curve : FUp).GetX(kFullShare * FHighest);
  }

  // Where the line through the first two points with pressure comes from, but not below a point without.
  [[nodiscard]] double FootVolt() const {
    double shut = 0.0;
    for (std::int32_t i = 0; i < FUp.Count(); ++i) {
      if (FUp[i].Y <= kFootShare * FHighest) {
        shut = FUp[i].X;
        continue;
      }
      double foot = shut;
      if (i + 1 < FUp.Count() && FUp[i + 1].Y > FUp[i].Y) (void)TLine(FUp[i], FUp[i + 1]).GetX(0.0, foot);
      return std::clamp(foot, shut, FUp[i].X);
    }
    return shut;
  }

  void Hysteresis() {
    double most = -1.0;
    double atVolt = 0.0;
    for (const TRecordedGasPoint& point : FGas.Points) {
      const std::int32_t up = FUp.FindNearBy(kSameVolt, point.Volt);
      if (!point.Descending || !point.Settled || up < 0) continue;
      const double apart = std::abs(*point.Settled - FUp[up].Y);
      if (apart <= most) continue;
      most = apart;
      atVolt = point.Volt;
    }
    if (most < 0.0) return;
    const double share = most / FHighest;
    if (share > kSticky)
      Add("hysteresis", true, most, "bar",
          Show(SVerdictHysteresisBad, Figure(atVolt).c_str(), Figure(most).c_str(), Percent(share).c_str()));
    else
      Add("hysteresis", false, most, "bar", Show(SVerdictHysteresis, Figure(most).c_str(), Percent(share).c_str()));
  }

  void Supply() {
    if (FGas.MaxPressure <= 0.0) return;
    const double share = FHighest / FGas.MaxPressure;
    const bool low = share < kLowSupply;
    Add("supply", low, FHighest, "bar",
        Show(low ? SVerdictSupplyBad : SVerdictSupply, Figure(FHighest).c_str(), Percent(share).c_str()));
  }

  const TRecordedGas& FGas;
  TIncList FUp;  // the points but those of the pass downwards
  double FHighest = 0.0;
  std::vector<TGasFinding> FFindings;
};

}  // namespace

std::vector<TGasFinding> JudgeGas(const TRecordedGas& gas) { return TJudge(gas).Run(); }

}  // namespace ixocontroller
