#include "ixocamglue/gascal/Refine.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>
#include <span>

#include "ixocamglue/gascal/Ugasdaadjust.h"

namespace ixocamglue {
namespace {

constexpr double kLeastBar = 0.1;  // a supply below is none

// settling
constexpr std::int32_t kLookEvery = 10;  // samples
constexpr double kTailMs = 1500.0;       // the fit looks back this far
constexpr double kLeastTailMs = 400.0;
constexpr double kShortestMs = 30.0;  // time constants that are tried
constexpr double kLongestMs = 500.0;
constexpr double kTimeConstantStep = 1.35;
constexpr double kAgreeShare = 0.0005;      // of the highest pressure: two looks in a row
constexpr double kRemainingShare = 0.005;   // of the highest pressure: still to come
constexpr double kMostExtrapolated = 0.02;  // of the highest pressure: what counted as settled is moved no further

// play
constexpr double kMostPlay = 0.1;   // V
constexpr double kSameVolt = 0.02;  // nearer points are one

// where the next point goes
constexpr double kGoodShare = 0.004;  // of the highest pressure: a gap that can be no more wrong is good enough
constexpr double kLeastGap = 0.08;    // V
constexpr double kMargin = 0.25;      // of a gap: a new point stays this far from its ends
constexpr double kFootRise = 1.3;     // the rise out of the dead band may be so much steeper than what follows
constexpr double kBendShare = 0.15;   // how wrong a gap with a change of curvature can be, of its change of slope
constexpr double kTouchShare = 0.5;   // of the way from the chord to where the neighbours' lines cross

struct TTail {
  double Final = 0.0;      // bar
  double Remaining = 0.0;  // still to come after the last sample
};

// The pressure that a first-order line approaches: the least squares of P + A·exp(-t/T) over the last samples.
TTail FitTail(std::span<const TDot> samples) {
  const double end = samples.back().X;
  const auto recent = std::ranges::find_if(samples, [&](const TDot& s) { return s.X >= end - kTailMs; });
  samples = samples.subspan(static_cast<std::size_t>(recent - samples.begin()));
  const double start = samples.front().X;
  const double n = static_cast<double>(samples.size());
  double y = 0.0;
  double yy = 0.0;
  for (const TDot& sample : samples) {
    y += sample.Y;
    yy += sample.Y * sample.Y;
  }

  TTail best{y / n, 0.0};
  double least = std::numeric_limits<double>::infinity();
  for (double time = kShortestMs; time <= kLongestMs; time *= kTimeConstantStep) {
    double e = 0.0;
    double ee = 0.0;
    double ey = 0.0;
    for (const TDot& sample : samples) {
      const double decay = std::exp((start - sample.X) / time);
      e += decay;
      ee += decay * decay;
      ey += decay * sample.Y;
    }
    const double determinant = n * ee - e * e;
    if (determinant <= 1e-9 * n * ee) continue;
    const double a = (n * ey - e * y) / determinant;
    const double p = (y - a * e) / n;
    const double squares = yy - p * y - a * ey;
    if (squares >= least) continue;
    least = squares;
    best = {p, a * std::exp((start - end) / time)};
  }
  return best;
}

double Slope(const TDot& from, const TDot& to) { return (to.Y - from.Y) / (to.X - from.X); }

// What the curve between two neighbouring knots may hide.
struct TGap {
  double Error = 0.0;  // bar: how wrong the straight line can be
  TDot Bend;           // where it would be
};

// The curve runs between the chord and the neighbours' lines drawn on into the gap, as long as it bends one way only;
// where these lines cross, the chord is most wrong. Beyond both ends the curve is level: dead band, full supply.
// `rise`: the first gap's right neighbour counts as so much steeper.
TGap GapAfter(const std::vector<TDot>& knots, std::size_t i, double rise) {
  const TDot& from = knots[i];
  const TDot& to = knots[i + 1];
  const double width = to.X - from.X;
  const double chord = Slope(from, to);
  const double before = i == 0 ? 0.0 : Slope(knots[i - 1], from);
  double after = i + 2 == knots.size() ? 0.0 : Slope(to, knots[i + 2]);
  if (i == 0) after = std::max(after, chord) * rise;
  const double left = chord - before;
  const double right = after - chord;
  if (left * right > 0.0) {
    const double x = width * right / (left + right);
    return {std::abs(left * right / (left + right)) * width, {from.X + x, from.Y + before * x}};
  }
  return {kBendShare * std::max(std::abs(left), std::abs(right)) * width,
          {from.X + width / 2, from.Y + chord * width / 2}};
}

}  // namespace

TCurveDoubt LargestDoubt(const std::vector<TDot>& knots) {
  TCurveDoubt doubt;
  for (std::size_t i = 0; knots.size() >= 3 && i + 1 < knots.size(); ++i) {
    if (knots[i + 1].X - knots[i].X < kLeastGap) continue;
    if (const TGap gap = GapAfter(knots, i, 1.0); gap.Error > doubt.Bar)
      doubt = {gap.Error, knots[i].X, knots[i + 1].X};
  }
  return doubt;
}

void TGasRefine::Record(double volt, const TIncList& samples, double settled) {
  double bar = settled;
  if (samples.Count() >= kMinStableSamples) {
    const double most = kMostExtrapolated * std::max(HighestBar(), settled);
    bar = std::clamp(FitTail(samples.Dots()).Final, settled - most, settled + most);
  }
  FPoints.push_back({volt, std::max(bar, 0.0), !FPoints.empty() && volt < FPoints.back().Volt});
  LearnPlay();
}

bool TGasRefine::GetNextDA(double& volt) const {
  const double highest = HighestBar();
  if (FPoints.size() < 2 || FPoints.size() >= static_cast<std::size_t>(kMaxAdjPoints) || highest < kLeastBar)
    return false;
  if (PlayVolt(volt)) return true;

  const std::vector<TDot> knots = Knots();
  TGap worst;
  std::size_t at = 0;
  for (std::size_t i = 0; i + 1 < knots.size(); ++i) {
    const TGap gap = GapAfter(knots, i, kFootRise);
    if (knots[i + 1].X - knots[i].X < kLeastGap || gap.Error <= worst.Error) continue;
    worst = gap;
    at = i;
  }
  if (worst.Error <= kGoodShare * highest) return false;
  const double margin = kMargin * (knots[at + 1].X - knots[at].X);
  volt = std::clamp(worst.Bend.X, knots[at].X + margin, knots[at + 1].X - margin);
  return true;
}

bool TGasRefine::CheckSettled(const TIncList& samples, double& press) const {
  const std::int32_t n = samples.Count();
  if (n < 2 * kMinStableSamples || n % kLookEvery != 0) return false;
  const double span = samples[n - 1].X - samples[0].X;
  if (span < kLeastTailMs) return false;
  const std::span<const TDot> all(samples.Dots());
  const TTail tail = FitTail(all);
  const double highest = HighestBar();
  const bool agrees = std::abs(tail.Final - FitTail(all.first(all.size() - kLookEvery)).Final) <= kAgreeShare * highest;
  const bool ends = std::abs(tail.Remaining) <= kRemainingShare * highest;
  if (!(agrees && ends) && span <= static_cast<double>(kStableLimitMs)) return false;
  press = tail.Final;
  return true;
}

void TGasRefine::BuildCurve(TIncList& list) const {
  list.Clear();
  const std::vector<TDot> knots = Knots();
  for (std::size_t i = 0; i < knots.size(); ++i) {
    list.Append(knots[i]);
    if (i + 1 == knots.size()) break;
    const TDot bend = GapAfter(knots, i, 1.0).Bend;
    const double chord = knots[i].Y + Slope(knots[i], knots[i + 1]) * (bend.X - knots[i].X);
    const bool apart = bend.X - knots[i].X >= kSameVolt && knots[i + 1].X - bend.X >= kSameVolt;
    if (apart) list.Append({bend.X, chord + kTouchShare * (bend.Y - chord)});
  }
  list.MonoInc(kValueEpsilon);
}

double TGasRefine::HighestBar() const {
  double highest = 0.0;
  for (const TPoint& point : FPoints) highest = std::max(highest, point.Bar);
  return highest;
}

std::vector<TDot> TGasRefine::Knots() const {
  TIncList list;
  for (const TPoint& point : FPoints) list.AddItem({point.Volt + (point.Falling ? FPlay : -FPlay), point.Bar});
  list.DelDupItem(kSameVolt);
  while (list.Count() > 0 && list[0].X <= kSameVolt) list.Delete(0);
  list.AddItem({0.0, 0.0});
  list.MonoInc(kValueEpsilon);
  return list.Dots();
}

const TGasRefine::TPoint* TGasRefine::Partner(const TPoint& point) const {
  const auto it = std::ranges::find_if(FPoints, [&](const TPoint& other) {
    return std::abs(other.Volt - point.Volt) <= Epsilon_Voltage && other.Falling != point.Falling;
  });
  return it == FPoints.end() ? nullptr : &*it;
}

bool TGasRefine::PlayVolt(double& volt) const {
  if (std::ranges::any_of(FPoints, [&](const TPoint& point) { return Partner(point) != nullptr; })) return false;
  const std::vector<TDot> knots = Knots();
  double steepest = 0.0;
  for (const TPoint& point : FPoints) {
    if (point.Falling || point.Volt > FPoints.back().Volt - 2 * kMostPlay) continue;
    const auto knot = std::ranges::find(knots, point.Volt, &TDot::X);
    if (knot == knots.begin() || knot == knots.end() || std::next(knot) == knots.end()) continue;
    const double slope = std::min(Slope(*std::prev(knot), *knot), Slope(*knot, *std::next(knot)));
    if (slope <= steepest) continue;
    steepest = slope;
    volt = point.Volt;
  }
  return steepest > 0.0;
}

void TGasRefine::LearnPlay() {
  const TPoint last = FPoints.back();
  const TPoint* const partner = Partner(last);
  if (!partner || FPlay != 0.0) return;
  // The slope there, from the points of the first time.
  FPoints.pop_back();
  const std::vector<TDot> knots = Knots();
  FPoints.push_back(last);
  const auto knot = std::ranges::find(knots, partner->Volt, &TDot::X);
  if (knot == knots.begin() || knot == knots.end() || std::next(knot) == knots.end()) return;
  const double slope = Slope(*std::prev(knot), *std::next(knot));
  const double rise = last.Falling ? last.Bar - partner->Bar : partner->Bar - last.Bar;
  FPlay = std::clamp(rise / slope / 2.0, 0.0, kMostPlay);
}

}  // namespace ixocamglue
