#include "controller/runs/RunPicture.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

#include "controller/texts/HostTexts.h"
#include "ixocamglue/config/Libmachinecfg.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

constexpr double kStraightMm = 0.005;  // a point this near to the line between its neighbours says nothing
constexpr double kLeastMm = 1.0;       // that a picture shows, also of a path that is a point
constexpr double kFlattest = 0.4;      // the picture's shorter side by its longer one
constexpr double kMargin = 0.05;       // of what is shown, around it
constexpr std::size_t kMostLabels = 40;
constexpr double kLabelRoom = 0.025;  // of the picture

bool OnTheWay(TPlotDot a, TPlotDot b, TPlotDot c) {
  const double length = std::hypot(c.X - a.X, c.Y - a.Y);
  if (length < kStraightMm) return std::hypot(b.X - a.X, b.Y - a.Y) < kStraightMm;
  const double along = ((b.X - a.X) * (c.X - a.X) + (b.Y - a.Y) * (c.Y - a.Y)) / length;
  const double aside = std::abs((b.X - a.X) * (c.Y - a.Y) - (b.Y - a.Y) * (c.X - a.X)) / length;
  return aside < kStraightMm && along >= 0.0 && along <= length;
}

// A curve without the points on its straight stretches.
template <class Dot>
TPlotCurve CurveOf(const std::vector<TTracePoint>& points, Dot dot) {
  TPlotCurve curve;
  for (std::size_t i = 0; i < points.size(); ++i) {
    const bool end = i == 0 || i + 1 == points.size();
    if (end || !OnTheWay(curve.back(), dot(points[i]), dot(points[i + 1]))) curve.push_back(dot(points[i]));
  }
  return curve;
}

TPlotDot XY(const TTracePoint& point) { return {point.X, point.Y}; }

TPlotSpan Shown(const std::vector<TTracePoint>& points, double TTracePoint::*value) {
  if (points.empty()) return {-kLeastMm, kLeastMm};
  const auto [low, high] = std::ranges::minmax_element(points, {}, value);
  TPlotSpan shown{(*low).*value, (*high).*value};
  shown.Widen(std::max(shown.Length() * (1.0 + 2.0 * kMargin), kLeastMm));
  return shown;
}

void AddLit(const TRunReport& report, const std::vector<TTracePoint>& points, TRunPicture& picture) {
  const auto add = [&](std::uint64_t from, std::uint64_t to) {
    auto first = std::ranges::upper_bound(points, from, {}, &TTracePoint::Ms);
    if (first != points.begin()) --first;  // where it stood when the beam came
    const auto end = std::ranges::upper_bound(points, to, {}, &TTracePoint::Ms);
    const std::vector<TTracePoint> lit(first, std::max(first, end));
    if (lit.empty()) return;
    const bool moved = std::ranges::any_of(
        lit, [&](const TTracePoint& p) { return std::hypot(p.X - lit.front().X, p.Y - lit.front().Y) >= kStraightMm; });
    (moved ? picture.LitMoving : picture.LitResting).push_back(CurveOf(lit, XY));
  };
  std::optional<std::uint64_t> since;
  for (const TSignal& signal : report.Signals) {
    if (signal.Kind != sgLaser) continue;
    if (signal.On && !since) since = signal.Ms;
    if (!signal.On && since) add(*std::exchange(since, std::nullopt), signal.Ms);
  }
  if (since) add(*since, report.EndMs);
}

std::string LabelOf(TSignalKind kind, std::int32_t output) {
  switch (kind) {
    case sgState: return SRowState.Get();
    case sgEmission: return SRowEmission.Get();
    case sgLaser: return SRowLaser.Get();
    case sgGas: return SRowGas.Get();
    case sgOutput: {
      const std::string name = PortName("Outport", output);
      return name.empty() ? Format("%s %d", SRowOutput.Get(), output) : name;
    }
    case sgAiming: return Tr("aiming light");
    case sgGasVolt: break;  // no row
  }
  return {};
}

void AddSignals(const TRunReport& report, TRunPicture& picture) {
  std::vector<std::pair<TSignalKind, std::int32_t>> known;
  const auto rowOf = [&](TSignalKind kind, std::int32_t output) -> TPlotCurve& {
    const auto found = std::ranges::find(known, std::pair(kind, output));
    const auto at = static_cast<std::size_t>(found - known.begin());
    if (found == known.end()) {
      known.emplace_back(kind, output);
      picture.Signals.push_back({LabelOf(kind, output), {{0.0, 0.0}}});
    }
    return picture.Signals[at].Curve;
  };
  const auto change = [&](TPlotCurve& row, std::uint64_t ms, bool on) {
    const double at = static_cast<double>(std::max(ms, report.StartMs) - report.StartMs) / 1000.0;
    row.push_back({at, row.back().Y});
    row.push_back({at, on ? 1.0 : 0.0});
  };
  for (const TSignalKind kind : {sgGas, sgLaser, sgEmission, sgState}) (void)rowOf(kind, 0);
  for (const TSignal& signal : report.Signals)
    if (signal.Kind != sgGasVolt)
      change(rowOf(signal.Kind, signal.Kind == sgOutput ? signal.Number : 0), signal.Ms, signal.On);
  for (auto& row : picture.Signals) change(row.Curve, report.EndMs, row.Curve.back().Y != 0.0);
}

void AddSteps(const TRunReport& report, TRunPicture& picture) {
  const auto top = [](const TStepSpan& step) { return step.Level == 0; };
  if (static_cast<std::size_t>(std::ranges::count_if(report.Steps, top)) > kMostLabels) return;
  double labelled = -1.0;
  for (const TStepSpan& step : report.Steps) {
    if (!top(step)) continue;
    const double at = static_cast<double>(step.From - report.StartMs) / 1000.0;
    const bool room = labelled < 0.0 || at - labelled >= kLabelRoom * picture.Seconds;
    if (room) labelled = at;
    picture.Steps.push_back({at, room ? step.Number : 0});
  }
}

}  // namespace

void TPlotSpan::Widen(double length) {
  const double more = (length - Length()) / 2.0;
  if (more > 0.0) From -= more, To += more;
}

TRunPicture PictureOf(const TRunReport& report, const TMotionTrace& trace) {
  const std::vector<TTracePoint> points = trace.Points();
  const auto start = static_cast<double>(report.StartMs);
  TRunPicture picture{.Path = CurveOf(points, XY),
                      .Z = CurveOf(points,
                                   [&](const TTracePoint& p) {
                                     return TPlotDot{static_cast<double>(p.Ms) - start, p.Z};
                                   }),
                      .X = Shown(points, &TTracePoint::X),
                      .Y = Shown(points, &TTracePoint::Y),
                      .ZSpan = Shown(points, &TTracePoint::Z),
                      .End = points.empty() ? TPlotDot{} : XY(points.back()),
                      .Seconds = std::max(static_cast<double>(report.EndMs - report.StartMs) / 1000.0, 0.001)};
  picture.X.Widen(kFlattest * picture.Y.Length());
  picture.Y.Widen(kFlattest * picture.X.Length());
  AddLit(report, points, picture);
  AddSignals(report, picture);
  AddSteps(report, picture);
  return picture;
}

}  // namespace ixocontroller
