#include "ixocut/procedures/RunPlot.h"

#include <utility>

#include "controller/runs/RunPicture.h"
#include "controller/texts/HostTexts.h"
#include "ixocut/Plot.h"

namespace ixocut {
namespace {

constexpr int kWidth = 1280;
constexpr int kHeight = 680;
constexpr int kDigits = 9;

std::string Titled(const TText& text) { return " title " + PlotText(text.Get()); }

std::string PathPlot(const TRunPicture& picture, TPlotData& data) {
  const auto lines = [](const std::vector<TPlotCurve>& curves) {
    std::string blocks;
    for (const TPlotCurve& curve : curves) blocks += TPlotData::Lines(curve, kDigits) + "\n";
    return blocks;
  };
  const std::string xy = data.Add(TPlotData::Lines(picture.Path, kDigits), "$xy");
  TPlotList path;
  path.Add(xy + " using 1:2 with lines lw 1.5 lc rgb '#1f77b4' notitle");
  std::string beamTitle = Titled(SPlotBeam);
  if (!picture.LitMoving.empty())
    path.Add(data.Add(lines(picture.LitMoving), "$beam") + " using 1:2 with lines lw 4 lc rgb '#d62728'" +
             std::exchange(beamTitle, " notitle"));
  if (!picture.LitResting.empty())
    path.Add(data.Add(lines(picture.LitResting), "$spot") + " using 1:2 with points pt 3 ps 1.4 lw 2 lc rgb '#d62728'" +
             beamTitle);
  path.Add(xy + " every ::0::0 using 1:2 with points pt 7 ps 0.7 lc rgb '#2ca02c'" + Titled(SPlotStart));
  path.Add(data.Add(TPlotData::Lines(TPlotCurve{picture.End}, kDigits), "$end") +
           " using 1:2 with points pt 4 ps 1.2 lw 1.5 lc rgb '#000000'" + Titled(SPlotEnd));
  return Format("set xlabel 'X'\nset ylabel 'Y'\nset xrange [%.6g:%.6g]\nset yrange [%.6g:%.6g]\n", picture.X.From,
                picture.X.To, picture.Y.From, picture.Y.To) +
         path.Text();
}

// A thin line where each step of the root begins, with its number.
std::string StepMarks(const TRunPicture& picture) {
  std::string marks;
  for (const auto& [at, number] : picture.Steps) {
    marks += Format("set arrow from first %.3f, graph 0 to first %.3f, graph 1 nohead lc rgb '#c0c0c0'\n", at, at);
    if (number != 0) marks += Format("set label '%d' at first %.3f, graph 1.03 center font ',8'\n", number, at);
  }
  return marks;
}

std::string SignalsPlot(const TRunPicture& picture, TPlotData& data) {
  std::string tics;
  TPlotList plots;
  for (std::size_t i = 0; i < picture.Signals.size(); ++i) {
    tics += (i > 0 ? ", " : "") + PlotText(picture.Signals[i].Label) + Format(" %.2f", static_cast<double>(i) + 0.35);
    plots.Add(data.Add(TPlotData::Lines(picture.Signals[i].Curve, kDigits), Format("$s%zu", i)) +
              Format(" using 1:(%zu+0.7*$2) with lines lw 1.5", i));
  }
  return Format("set yrange [-0.3:%zu]\nset ytics (", picture.Signals.size()) + tics + ")\n" + plots.Text();
}

}  // namespace

void PlotRun(const TRunReport& report, const TMotionTrace& trace, const std::string& title, const std::string& target) {
  const TRunPicture picture = PictureOf(report, trace);
  TPlotData data;
  std::string plots = "set multiplot title " + PlotText(title + ": " + report.End.Words) +
                      "\nset key horizontal outside bottom center font ',9'\n";
  plots += "set origin 0,0\nset size 0.5,0.94\nset size ratio -1\nset title " + PlotText(SPlotPath.Get()) + "\n";
  plots += PathPlot(picture, data) + "unset key\n";
  plots += Format(
      "set size noratio\nset lmargin at screen 0.6\nset rmargin at screen 0.98\nset xrange "
      "[0:%.3f]\n",
      picture.Seconds);
  plots += "set tmargin at screen 0.88\nset bmargin at screen 0.54\nunset xlabel\nunset ylabel\n";
  plots += StepMarks(picture);
  // Z grows downwards: drawn as it stands.
  plots += Format("set yrange [%.6g:%.6g]\nset title ", picture.ZSpan.To, picture.ZSpan.From) + PlotText(SPlotZ.Get()) +
           " offset 0,0.6\n";
  plots += "plot " + data.Add(TPlotData::Lines(picture.Z, kDigits), "$z") +
           " using ($1/1000):2 with lines lw 1.5 lc rgb '#d62728'\n";
  plots += "set tmargin at screen 0.44\nset bmargin at screen 0.09\nset xlabel 's'\nset title " +
           PlotText(SPlotSignals.Get()) + " offset 0,0\nunset label\n";
  plots += SignalsPlot(picture, data);
  DrawPlot(kWidth, kHeight, "set grid\nset tics nomirror\n", data, plots, target);
}

}  // namespace ixocut
