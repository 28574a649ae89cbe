#include "controller/gasvalve/GasVerdict.h"

#include <algorithm>
#include <cmath>
#include <optional>

#include "controller/texts/GasTexts.h"
#include "ixocamglue/gascal/Refine.h"
#include "ixocamglue/support/DisplayWidth.h"
#include "ixocamglue/support/Texts.h"

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
constexpr double kLowSupply = 0.5;   // of what the branch bears
constexpr double kLost = 0.01;       // of the readings
constexpr double kOffZero = 5.0;     // times the scatter of the readings
constexpr double kOffZeroBar = 0.1;  // at least
constexpr double kSlowS = 0.5;       // time constant

constexpr double kMoves = 0.05;          // of the highest pressure: enough to see a time constant in
constexpr std::size_t kSmoothed = 9;     // readings
constexpr double kRareReadingMs = 25.0;  // between two readings: too rare for a settling check
constexpr std::size_t kKindWidth = 10;   // on the screen
constexpr double kDoubtful = 0.05;       // the curve may be so wrong between its points

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

// How long the pressure takes for all but 1/e of its way from the first readings to the last ones, in s; none where it
// hardly moves. Too short for a line that is slower than it was watched.
std::optional<double> TimeConstantOf(const TRecordedGasPoint& point, double leastBar) {
  std::vector<TDot> samples;
  for (const TDot& sample : point.Samples)
    if (std::isfinite(sample.Y)) samples.push_back(sample);
  if (samples.size() < 3 * kSmoothed) return std::nullopt;
  const auto mean = [&](std::size_t from) {
    double sum = 0.0;
    for (std::size_t i = from; i < from + kSmoothed; ++i) sum += samples[i].Y;
    return sum / static_cast<double>(kSmoothed);
  };
  const double last = mean(samples.size() - kSmoothed);
  const double way = mean(0) - last;
  if (std::abs(way) < leastBar) return std::nullopt;
  for (std::size_t i = 0; i + kSmoothed <= samples.size(); ++i)
    if ((mean(i) - last) / way <= std::exp(-1.0)) return (samples[i].X - samples.front().X) / 1000.0;
  return std::nullopt;
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
    if (FGas.Stopped) {
      AddDoubt(TrMark("stopped"), static_cast<double>(FGas.Points.size()), "",
               Tr("the calibration was stopped before its end: no verdict"));
      return std::move(FFindings);
    }
    Readings();
    Unsettled();
    if (!Responds()) return std::move(FFindings);
    Zero();
    Noise();
    const bool slow = Slow();
    if (!slow) Drift();
    Curve();
    if (!slow) Hysteresis();
    Supply();
    Doubt();
    return std::move(FFindings);
  }

 private:
  void Add(const char* kind, bool bad, double figure, const char* unit, std::string sentence) {
    FFindings.push_back({kind, bad, false, figure, unit, std::move(sentence)});
  }
  void AddDoubt(const char* kind, double figure, const char* unit, std::string sentence) {
    FFindings.push_back({kind, false, true, figure, unit, std::move(sentence)});
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
    if (const double share = static_cast<double>(lost) / static_cast<double>(std::max<std::size_t>(all, 1));
        share > kLost) {
      Add(TrMark("readings"), true, 100.0 * share, "%", Show(SVerdictReadings, Percent(share).c_str()));
    }
    if (same > 1 && same == all - lost)
      Add(TrMark("frozen"), true, static_cast<double>(same), "", Show(SVerdictFrozen, std::to_string(same).c_str()));
  }

  void Unsettled() {
    const auto open = std::ranges::count_if(FGas.Points, [](const auto& point) { return !point.Settled; });
    if (open == 0) return;
    const auto last = std::ranges::find_if(FGas.Points, [](const auto& point) { return !point.Settled; });
    const auto count = static_cast<double>(last->Samples.size());
    const double ms = last->Samples.empty() ? 0.0 : last->Samples.back().X - last->Samples.front().X;
    const std::string points = std::to_string(open);
    const std::string volt = Figure(last->Volt);
    if (count > 1.0 && ms / (count - 1.0) > kRareReadingMs)
      return Add(TrMark("settling"), true, static_cast<double>(open), "",
                 Show(SVerdictRare, points.c_str(), volt.c_str(), Figure(1000.0 * (count - 1.0) / ms).c_str()));
    const auto tail = TailOf(*last);
    Add(TrMark("settling"), true, static_cast<double>(open), "",
        tail ? Show(SVerdictUnsettled, points.c_str(), volt.c_str(), Figure(ms / 1000.0).c_str(),
                    Format("%+.2g", tail->Rise).c_str(), Figure(tail->Deviation).c_str())
             : Show(SVerdictCutOff, points.c_str(), volt.c_str(), Figure(ms / 1000.0).c_str()));
  }

  bool Responds() {
    if (FUp.Count() < 2) {
      const bool said = std::ranges::any_of(FGas.Points, [](const auto& point) { return !point.Settled; });
      if (!said)
        Add(TrMark("points"), true, FUp.Count(), "", Show(SVerdictFewPoints, std::to_string(FUp.Count()).c_str()));
      return false;
    }
    double lowest = FHighest;
    for (const TDot& dot : FUp.Dots()) lowest = std::min(lowest, dot.Y);
    const double change = FHighest - lowest;
    if (change > kFlatBar) return true;
    Add(TrMark("response"), true, change, "bar", Show(SVerdictFlat, Figure(change).c_str()));
    return false;
  }

  // No pressure is below that of the air around: what is read there is the sensor's own. A reading above 0 may be gas
  // that was left in the line.
  void Zero() {
    double lowest = FGas.Zero.value_or(0.0);
    for (const TDot& dot : FUp.Dots()) lowest = std::min(lowest, dot.Y);
    if (lowest < -std::max(kOffZeroBar, kOffZero * Scatter().value_or(0.0)))
      Add(TrMark("zero"), true, lowest, "bar", Show(SVerdictZeroBad, Figure(lowest).c_str()));
    else if (FGas.Zero)
      Add(TrMark("zero"), false, *FGas.Zero, "bar", Show(SVerdictZero, Figure(*FGas.Zero).c_str()));
  }

  // The middle one of the points' deviations.
  [[nodiscard]] std::optional<double> Scatter() const {
    std::vector<double> deviations;
    for (const TRecordedGasPoint& point : FGas.Points)
      if (const auto tail = point.Settled ? TailOf(point) : std::nullopt) deviations.push_back(tail->Deviation);
    if (deviations.empty()) return std::nullopt;
    const auto middle = deviations.begin() + static_cast<std::ptrdiff_t>(deviations.size() / 2);
    std::ranges::nth_element(deviations, middle);
    return *middle;
  }

  void Noise() {
    const std::optional<double> scatter = Scatter();
    if (!scatter) return;
    const bool noisy = *scatter > kNoisy * FHighest;
    Add(TrMark("noise"), noisy, *scatter, "bar",
        Show(noisy ? SVerdictNoiseBad : SVerdictNoise, Figure(*scatter).c_str(), Percent(*scatter / FHighest).c_str()));
  }

  bool Slow() {
    double longest = 0.0;
    double atVolt = 0.0;
    for (const TRecordedGasPoint& point : FGas.Points) {
      const double constant = TimeConstantOf(point, kMoves * FHighest).value_or(0.0);
      if (constant <= longest) continue;
      longest = constant;
      atVolt = point.Volt;
    }
    if (longest <= kSlowS) return false;
    Add(TrMark("slow"), true, longest, "s", Show(SVerdictSlow, Figure(atVolt).c_str(), Figure(longest).c_str()));
    return true;
  }

  void Drift() {
    double drift = 0.0;
    double atVolt = 0.0;
    bool any = false;
    for (const TRecordedGasPoint& point : FGas.Points) {
      const std::optional<TTail> tail = point.Settled ? TailOf(point) : std::nullopt;
      any = any || tail;
      // What was foreseen was not waited for.
      if (!tail || point.Foreseen || std::abs(tail->Rise) <= std::abs(drift)) continue;
      drift = tail->Rise;
      atVolt = point.Volt;
    }
    if (!any) return;
    const double share = std::abs(drift) / FHighest;
    if (share > kDrifting)
      Add(TrMark("drift"), true, 100.0 * share, "%/s",
          Show(SVerdictDriftBad, Figure(atVolt).c_str(), Percent(share).c_str()));
    else
      Add(TrMark("drift"), false, 100.0 * share, "%/s", Show(SVerdictDrift, Percent(share).c_str()));
  }

  void Curve() {
    const double foot = FootVolt();
    const bool wide = foot > kWideDeadBandV;
    Add(TrMark("dead-band"), wide, foot, "V",
        Show(wide ? SVerdictDeadBandBad : SVerdictDeadBand, Figure(foot).c_str()));
    const double full = FullVolt();
    const double usable = full - foot;
    const bool narrow = usable < kNarrowV;
    if (full > kRisingV)
      Add(TrMark("saturation"), false, kFullScaleV, "V", Show(SVerdictRising, Figure(usable).c_str()));
    else
      Add(TrMark("saturation"), narrow, full, "V",
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
      Add(TrMark("hysteresis"), true, most, "bar",
          Show(SVerdictHysteresisBad, Figure(atVolt).c_str(), Figure(most).c_str(), Percent(share).c_str()));
    else
      Add(TrMark("hysteresis"), false, most, "bar",
          Show(SVerdictHysteresis, Figure(most).c_str(), Percent(share).c_str()));
  }

  void Supply() {
    if (FGas.MaxPressure <= 0.0) return;
    const double share = FHighest / FGas.MaxPressure;
    const bool low = share < kLowSupply;
    Add(TrMark("supply"), low, FHighest, "bar",
        Show(low ? SVerdictSupplyBad : SVerdictSupply, Figure(FHighest).c_str(), Percent(share).c_str()));
  }

  void Doubt() {
    const TCurveDoubt doubt = LargestDoubt(FGas.Table);
    const double share = doubt.Bar / FHighest;
    if (share >= kDoubtful)
      AddDoubt(
          TrMark("method"), 100.0 * share, "%",
          Show(SVerdictDoubt, Figure(doubt.FromVolt).c_str(), Figure(doubt.ToVolt).c_str(), Percent(share).c_str()));
  }

  const TRecordedGas& FGas;
  TIncList FUp;  // the points but those of the pass downwards
  double FHighest = 0.0;
  std::vector<TGasFinding> FFindings;
};

}  // namespace

std::vector<TGasFinding> JudgeGas(const TRecordedGas& gas) { return TJudge(gas).Run(); }

const TGasFinding* FirstBad(const std::vector<TGasFinding>& findings) {
  const auto bad = std::ranges::find_if(findings, &TGasFinding::Bad);
  return bad == findings.end() ? nullptr : &*bad;
}

std::vector<std::string> FindingLines(const std::vector<TGasFinding>& findings) {
  std::vector<std::string> lines;
  lines.reserve(findings.size());
  for (const TGasFinding& finding : findings) {
    lines.push_back(Format("  %s %s %s",
                           finding.Bad     ? "!!"
                           : finding.Doubt ? " ?"
                                           : "ok",
                           Padded(Tr(finding.Kind), kKindWidth).c_str(), finding.Sentence.c_str()));
  }
  return lines;
}

}  // namespace ixocontroller
