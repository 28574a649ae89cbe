#include "ixocut/gas/GasPlot.h"

#include <algorithm>

#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Problem.h"
#include "ixocamglue/support/Texts.h"
#include "ixocamglue/support/ValueText.h"
#include "ixocut/Plot.h"
#include "ixocut/gas/GasCommand.h"

namespace ixocut {
namespace {

constexpr int kRowHeight = 340;

std::string Block(TPlotData& data, const std::vector<TDot>& dots) { return data.Add(TPlotData::Lines(dots, 6)); }

std::string CurvePanel(const TGasResult& result, TPlotData& data) {
  std::vector<TDot> measured;
  for (const TGasPoint& point : result.Points)
    if (point.Settled) measured.push_back({point.Volt, point.Press});
  TPlotList plots;
  const auto add = [&](const std::vector<TDot>& dots, const char* style, const char* title) {
    if (!dots.empty()) plots.Add(Block(data, dots) + " using 1:2 with " + style + " title " + PlotText(title));
  };
  add(result.Curve, "linespoints pt 1 ps 0.7 lw 1.5 lc rgb '#1f77b4'", Tr("rebuilt curve"));
  add(measured, "points pt 7 ps 0.6 lc rgb '#d62728'", Tr("measured"));
  const std::string title = Format(Tr("%s: %zu points, %.1f s"), ShownGas(result.Gas).c_str(), measured.size(),
                                   static_cast<double>(result.DurationMs) / 1000);
  return "set title " + PlotText(title) + "\nset xlabel " + PlotText(Tr("valve voltage / V")) + "\nset ylabel " +
         PlotText(Tr("pressure / bar")) + "\nset xrange [0:10]\nset key inside bottom right\n" + plots.Text();
}

std::string TracePanel(const TGasResult& result, TPlotData& data) {
  TPlotList plots;
  int colour = 0;
  const auto count = static_cast<int>(std::max<std::size_t>(result.Points.size(), 2));
  for (const TGasPoint& point : result.Points) {
    if (point.Samples.empty()) continue;
    plots.Add(Block(data, point.Samples) +
              Format(" using 1:2 with lines lw 1.2 lc palette frac %.3f title ", 1.0 * colour++ / (count - 1)) +
              PlotText(Format("%.2f V%s", point.Volt, point.Settled ? "" : Tr(" (not settled)"))));
  }
  return "set title " + PlotText(Tr("pressure after each new voltage")) + "\nset xlabel " +
         PlotText(Tr("time since the voltage was put out / ms")) + "\nset ylabel " + PlotText(Tr("pressure / bar")) +
         "\nset xrange [0:*]\nset key outside right\n" + plots.Text();
}

}  // namespace

void DrawGasCalibration(const std::vector<TGasResult>& results, const TGasNozzle& nozzle, const std::string& target) {
  std::vector<const TGasResult*> shown;
  for (const TGasResult& result : results)
    if (!result.Points.empty()) shown.push_back(&result);
  if (shown.empty()) throw EProblem(pbUnusable, Tr("nothing was measured: there is nothing to plot"));
  TPlotData data;
  std::string plots =
      Format("set multiplot layout %zu,2 title ", shown.size()) +
      PlotText(Format(Tr("gas calibration, nozzle %s %s mm"), nozzle.Type.c_str(), ValueText(nozzle.Size).c_str())) +
      "\n";
  for (const TGasResult* result : shown)
    plots += Format("set yrange [0:%.3g]\n", std::max(1.08 * result->MaxBar(), 0.1)) + CurvePanel(*result, data) +
             TracePanel(*result, data);
  DrawPlot(kPlotWidth, static_cast<int>(40 + kRowHeight * shown.size()),
           "set grid\nunset colorbox\nset palette rgbformulae 33,13,10\nset cbrange [0:1]\n", data, plots, target);
}

}  // namespace ixocut
