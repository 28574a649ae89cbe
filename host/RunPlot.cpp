#include <algorithm>
#include <cmath>
#include <map>
#include <vector>

#include "host/HostTexts.h"
#include "host/Plot.h"
#include "host/RunReport.h"
#include "support/Format.h"

namespace ixocamglue {
namespace {

constexpr int kWidth = 1280;
constexpr int kHeight = 680;
constexpr double kStraightMm = 0.005;  // a point this near to the line between its neighbours says nothing
constexpr double kRoomMm = 5.0;        // around a path that is a point
constexpr std::size_t kMostLabels = 40;

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

// A signal's row: where it is on. "gas on 2 3.50", "output 5 off", "state 204".
struct TSignalRow {
  std::string Label;
  std::string Data;
  bool On = false;
};

std::string LabelOf(const std::string& name) {
  if (name == "emission") return SRowEmission.Get();
  if (name == "laser") return SRowLaser.Get();
  if (name == "gas") return SRowGas.Get();
  if (name == "state") return SRowState.Get();
  if (name.starts_with("output ")) return Format("%s %s", SRowOutput.Get(), name.c_str() + 7);
  return name;
}

std::vector<TSignalRow> SignalRows(const TRunReport& report) {
  std::map<std::string, TSignalRow> rows;
  for (const char* const name : {"state", "emission", "laser", "gas"}) rows[name].Label = LabelOf(name);
  const auto seconds = [&](std::uint64_t ms) {
    return static_cast<double>(std::max(ms, report.StartMs) - report.StartMs) / 1000.0;
  };
  const auto change = [&](TSignalRow& row, std::uint64_t ms, bool on) {
    row.Data += Format("%.3f %d\n%.3f %d\n", seconds(ms), row.On ? 1 : 0, seconds(ms), on ? 1 : 0);
    row.On = on;
  };
  for (const TSignal& signal : report.Signals) {
    const std::string& text = signal.Text;
    const std::size_t on = (text + " ").find(" on ");
    const bool isOff = text.ends_with(" off");
    if (text.starts_with("state ")) {
      change(rows["state"], signal.Ms, text != "state 0");
    } else if (on != std::string::npos || isOff) {
      const std::string name = text.substr(0, isOff ? text.size() - 4 : on);
      TSignalRow& row = rows[name];
      if (row.Label.empty()) row.Label = LabelOf(name);
      change(row, signal.Ms, !isOff);
    }
  }
  std::vector<TSignalRow> out;
  for (auto& [name, row] : rows) {
    change(row, report.EndMs, row.On);
    out.push_back(std::move(row));
  }
  return out;
}

// A thin line where each step of the root begins, with its number.
std::string StepMarks(const TRunReport& report) {
  const auto top = [](const TStepSpan& step) { return step.Level == 0; };
  if (static_cast<std::size_t>(std::ranges::count_if(report.Steps, top)) > kMostLabels) return {};
  std::string marks;
  for (const TStepSpan& step : report.Steps) {
    if (!top(step)) continue;
    const double at = static_cast<double>(step.From - report.StartMs) / 1000.0;
    marks += Format("set arrow from first %.3f, graph 0 to first %.3f, graph 1 nohead lc rgb '#c0c0c0'\n", at, at);
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
  for (std::size_t i = 0; i < rows.size(); ++i) script += Format("$s%zu << EOD\n", i) + rows[i].Data + "EOD\n";

  script += "set multiplot title " + PlotText(title) + "\nunset key\n";
  script += "set origin 0,0\nset size 0.5,0.94\nset size ratio -1\nset title " + PlotText(SPlotPath.Get()) + "\n";
  script += Format("set xlabel 'X'\nset ylabel 'Y'\nset offsets %.1f,%.1f,%.1f,%.1f\n", kRoomMm,
                   kRoomMm, kRoomMm, kRoomMm);
  script +=
      "plot $xy using 1:2 with lines lw 1.5 lc rgb '#1f77b4', $xy every ::0::0 using 1:2 with points pt 7 ps 0.6 "
      "lc rgb '#2ca02c'\n";
  const double seconds = std::max(static_cast<double>(report.EndMs - report.StartMs) / 1000.0, 0.001);
  script += Format(
      "unset offsets\nset size noratio\nset lmargin at screen 0.6\nset rmargin at screen 0.98\nset xrange "
      "[0:%.3f]\n",
      seconds);
  script += "set tmargin at screen 0.88\nset bmargin at screen 0.54\nunset xlabel\nunset ylabel\n";
  script += StepMarks(report);
  // Z grows downwards: drawn as it stands.
  script += "set yrange [*<-0.5:0.5<*] reverse\nset title " + PlotText(SPlotZ.Get()) + " offset 0,0.6\n";
  script += "plot $z using ($1/1000):2 with lines lw 1.5 lc rgb '#d62728'\n";
  script += "set tmargin at screen 0.44\nset bmargin at screen 0.09\nset xlabel 's'\nset title " +
            PlotText(SPlotSignals.Get()) + " offset 0,0\nunset label\n";
  script += Format("set yrange [-0.3:%zu] noreverse\nset ytics (", rows.size());
  for (std::size_t i = 0; i < rows.size(); ++i)
    script += (i > 0 ? ", " : "") + PlotText(rows[i].Label) + Format(" %.2f", static_cast<double>(i) + 0.35);
  script += ")\nplot ";
  for (std::size_t i = 0; i < rows.size(); ++i)
    script += Format("%s$s%zu using 1:(%zu+0.7*$2) with lines lw 1.5", i > 0 ? ", " : "", i, i);
  script += "\nunset multiplot\nset output\n";
  DrawPlot(script, target);
}

}  // namespace ixocamglue
