#include "ixocut/procedures/RunPlot.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>
#include <vector>

#include "controller/HostTexts.h"
#include "ixocamglue/config/Libmachinecfg.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"
#include "ixocut/Plot.h"

namespace ixocut {
namespace {

constexpr int kWidth = 1280;
constexpr int kHeight = 680;
constexpr double kStraightMm = 0.005;  // a point this near to the line between its neighbours says nothing
constexpr double kLeastMm = 1.0;       // that a picture shows, also of a path that is a point
constexpr double kFlattest = 0.4;      // the picture's shorter side by its longer one
constexpr double kMargin = 0.05;       // of what is shown, around it
constexpr std::size_t kMostLabels = 40;
constexpr double kLabelRoom = 0.025;  // of the picture

bool OnTheWay(double ax, double ay, double bx, double by, double cx, double cy) {
  const double length = std::hypot(cx - ax, cy - ay);
  if (length < kStraightMm) return std::hypot(bx - ax, by - ay) < kStraightMm;
  const double along = ((bx - ax) * (cx - ax) + (by - ay) * (cy - ay)) / length;
  const double aside = std::abs((bx - ax) * (cy - ay) - (by - ay) * (cx - ax)) / length;
  return aside < kStraightMm && along >= 0.0 && along <= length;
}

// A curve without the points on its straight stretches.
std::string Curve(const std::vector<TTracePoint>& points, double (*x)(const TTracePoint&, double),
                  double (*y)(const TTracePoint&), double start) {
  std::string data;
  std::size_t kept = 0;
  for (std::size_t i = 0; i < points.size(); ++i) {
    const bool end = i == 0 || i + 1 == points.size();
    if (!end && OnTheWay(x(points[kept], start), y(points[kept]), x(points[i], start), y(points[i]),
                         x(points[i + 1], start), y(points[i + 1])))
      continue;
    kept = i;
    data += Format("%.9g %.9g\n", x(points[i], start), y(points[i]));
  }
  return data;
}

struct TInterval {
  double From = 0.0;
  double To = 0.0;
  [[nodiscard]] double Length() const { return To - From; }
  void Widen(double length) {
    const double more = (length - Length()) / 2.0;
    if (more > 0.0) From -= more, To += more;
  }
};

TInterval Shown(const std::vector<TTracePoint>& points, double TTracePoint::*value) {
  if (points.empty()) return {-kLeastMm, kLeastMm};
  const auto [low, high] = std::ranges::minmax_element(points, {}, value);
  TInterval shown{(*low).*value, (*high).*value};
  shown.Widen(std::max(shown.Length() * (1.0 + 2.0 * kMargin), kLeastMm));
  return shown;
}

// The path while the beam was on, a block a stretch; where nothing moved, the place in a block of its own.
struct TBeamPath {
  std::string Moving, Resting;
};
TBeamPath BeamPath(const TRunReport& report, const std::vector<TTracePoint>& points) {
  using P = const TTracePoint&;
  TBeamPath path;
  const auto add = [&](std::uint64_t from, std::uint64_t to) {
    auto first = std::ranges::upper_bound(points, from, {}, &TTracePoint::Ms);
    if (first != points.begin()) --first;  // where it stood when the beam came
    const auto end = std::ranges::upper_bound(points, to, {}, &TTracePoint::Ms);
    const std::vector<TTracePoint> lit(first, std::max(first, end));
    if (lit.empty()) return;
    const bool moved = std::ranges::any_of(
        lit, [&](P p) { return std::hypot(p.X - lit.front().X, p.Y - lit.front().Y) >= kStraightMm; });
    (moved ? path.Moving : path.Resting) += Curve(
                                                lit, [](P p, double) { return p.X; }, [](P p) { return p.Y; }, 0.0) +
                                            "\n";
  };
  std::optional<std::uint64_t> since;
  for (const TSignal& signal : report.Signals) {
    if (signal.Kind != sgLaser) continue;
    if (signal.On && !since) since = signal.Ms;
    if (!signal.On && since) add(*std::exchange(since, std::nullopt), signal.Ms);
  }
  if (since) add(*since, report.EndMs);
  return path;
}

// A signal's row: where it is on.
struct TSignalRow {
  TSignalKind Kind;
  std::int32_t Output;  // 0: no output's
  std::string Data = "0 0\n";
  bool On = false;
};

std::string LabelOf(const TSignalRow& row) {
  switch (row.Kind) {
    case sgState: return SRowState.Get();
    case sgEmission: return SRowEmission.Get();
    case sgLaser: return SRowLaser.Get();
    case sgGas: return SRowGas.Get();
    case sgOutput: {
      const std::string name = PortName("Outport", row.Output);
      return name.empty() ? Format("%s %d", SRowOutput.Get(), row.Output) : name;
    }
    case sgAiming: return Tr("aiming light");
    case sgGasVolt: break;  // no row
  }
  return {};
}

std::vector<TSignalRow> SignalRows(const TRunReport& report) {
  const auto seconds = [&](std::uint64_t ms) {
    return static_cast<double>(std::max(ms, report.StartMs) - report.StartMs) / 1000.0;
  };
  const auto change = [&](TSignalRow& row, std::uint64_t ms, bool on) {
    row.Data += Format("%.3f %d\n%.3f %d\n", seconds(ms), row.On ? 1 : 0, seconds(ms), on ? 1 : 0);
    row.On = on;
  };
  std::vector<TSignalRow> rows;
  const auto rowOf = [&](TSignalKind kind, std::int32_t output) -> TSignalRow& {
    const auto found =
        std::ranges::find_if(rows, [&](const TSignalRow& row) { return row.Kind == kind && row.Output == output; });
    return found != rows.end() ? *found : rows.emplace_back(TSignalRow{kind, output});
  };
  // From the bottom up.
  for (const TSignalKind kind : {sgGas, sgLaser, sgEmission, sgState}) (void)rowOf(kind, 0);
  for (const TSignal& signal : report.Signals)
    if (signal.Kind != sgGasVolt)
      change(rowOf(signal.Kind, signal.Kind == sgOutput ? signal.Number : 0), signal.Ms, signal.On);
  for (TSignalRow& row : rows) change(row, report.EndMs, row.On);
  return rows;
}

// A thin line where each step of the root begins, with its number.
std::string StepMarks(const TRunReport& report, double seconds) {
  const auto top = [](const TStepSpan& step) { return step.Level == 0; };
  if (static_cast<std::size_t>(std::ranges::count_if(report.Steps, top)) > kMostLabels) return {};
  std::string marks;
  double labelled = -1.0;
  for (const TStepSpan& step : report.Steps) {
    if (!top(step)) continue;
    const double at = static_cast<double>(step.From - report.StartMs) / 1000.0;
    marks += Format("set arrow from first %.3f, graph 0 to first %.3f, graph 1 nohead lc rgb '#c0c0c0'\n", at, at);
    if (labelled >= 0.0 && at - labelled < kLabelRoom * seconds) continue;
    labelled = at;
    marks += Format("set label '%d' at first %.3f, graph 1.03 center font ',8'\n", step.Number, at);
  }
  return marks;
}

}  // namespace

void PlotRun(const TRunReport& report, const TMotionTrace& trace, const std::string& title, const std::string& target) {
  using P = const TTracePoint&;
  const std::vector<TTracePoint> points = trace.Points();
  const auto start = static_cast<double>(report.StartMs);
  const std::vector<TSignalRow> rows = SignalRows(report);

  std::string script = PlotStart(kWidth, kHeight) + "set grid\nset tics nomirror\n";
  script += "$xy << EOD\n" +
            Curve(
                points, [](P p, double) { return p.X; }, [](P p) { return p.Y; }, start) +
            "EOD\n";
  script +=
      "$z << EOD\n" +
      Curve(
          points, [](P p, double from) { return static_cast<double>(p.Ms) - from; }, [](P p) { return p.Z; }, start) +
      "EOD\n";
  const TTracePoint end = points.empty() ? TTracePoint{} : points.back();
  script += Format("$end << EOD\n%.9g %.9g\nEOD\n", end.X, end.Y);
  for (std::size_t i = 0; i < rows.size(); ++i) script += Format("$s%zu << EOD\n", i) + rows[i].Data + "EOD\n";

  const TBeamPath beam = BeamPath(report, points);
  for (const auto& [name, data] : {std::pair("$beam", &beam.Moving), std::pair("$spot", &beam.Resting)})
    if (!data->empty()) script += std::string(name) + " << EOD\n" + *data + "EOD\n";

  script += "set multiplot title " + PlotText(title + ": " + report.End.Words) +
            "\nset key horizontal outside bottom center font ',9'\n";
  script += "set origin 0,0\nset size 0.5,0.94\nset size ratio -1\nset title " + PlotText(SPlotPath.Get()) + "\n";
  TInterval x = Shown(points, &TTracePoint::X);
  TInterval y = Shown(points, &TTracePoint::Y);
  x.Widen(kFlattest * y.Length());
  y.Widen(kFlattest * x.Length());
  script += Format("set xlabel 'X'\nset ylabel 'Y'\nset xrange [%.6g:%.6g]\nset yrange [%.6g:%.6g]\n", x.From, x.To,
                   y.From, y.To);
  const auto titled = [](const TText& text) { return " title " + PlotText(text.Get()); };
  std::string path = "plot $xy using 1:2 with lines lw 1.5 lc rgb '#1f77b4' notitle";
  std::string beamTitle = titled(SPlotBeam);
  if (!beam.Moving.empty())
    path += ", $beam using 1:2 with lines lw 4 lc rgb '#d62728'" + std::exchange(beamTitle, " notitle");
  if (!beam.Resting.empty()) path += ", $spot using 1:2 with points pt 3 ps 1.4 lw 2 lc rgb '#d62728'" + beamTitle;
  path += ", $xy every ::0::0 using 1:2 with points pt 7 ps 0.7 lc rgb '#2ca02c'" + titled(SPlotStart);
  path += Format(", $end using 1:2 with points pt 4 ps 1.2 lw 1.5 lc rgb '#000000'") + titled(SPlotEnd);
  script += path + "\nunset key\n";
  const double seconds = std::max(static_cast<double>(report.EndMs - report.StartMs) / 1000.0, 0.001);
  script += Format(
      "set size noratio\nset lmargin at screen 0.6\nset rmargin at screen 0.98\nset xrange "
      "[0:%.3f]\n",
      seconds);
  script += "set tmargin at screen 0.88\nset bmargin at screen 0.54\nunset xlabel\nunset ylabel\n";
  script += StepMarks(report, seconds);
  // Z grows downwards: drawn as it stands.
  const TInterval z = Shown(points, &TTracePoint::Z);
  script += Format("set yrange [%.6g:%.6g]\nset title ", z.To, z.From) + PlotText(SPlotZ.Get()) + " offset 0,0.6\n";
  script += "plot $z using ($1/1000):2 with lines lw 1.5 lc rgb '#d62728'\n";
  script += "set tmargin at screen 0.44\nset bmargin at screen 0.09\nset xlabel 's'\nset title " +
            PlotText(SPlotSignals.Get()) + " offset 0,0\nunset label\n";
  script += Format("set yrange [-0.3:%zu]\nset ytics (", rows.size());
  for (std::size_t i = 0; i < rows.size(); ++i)
    script += (i > 0 ? ", " : "") + PlotText(LabelOf(rows[i])) + Format(" %.2f", static_cast<double>(i) + 0.35);
  script += ")\nplot ";
  for (std::size_t i = 0; i < rows.size(); ++i)
    script += Format("%s$s%zu using 1:(%zu+0.7*$2) with lines lw 1.5", i > 0 ? ", " : "", i, i);
  script += "\nunset multiplot\nset output\n";
  DrawPlot(script, target);
}

}  // namespace ixocut
