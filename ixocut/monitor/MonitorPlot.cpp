#include <algorithm>
#include <filesystem>

#include "controller/recordings/RecordingPicture.h"
#include "ixocut/Command.h"
#include "ixocut/Plot.h"
#include "ixocut/monitor/MonitorCommands.h"

namespace ixocut {
namespace {

constexpr int kPanelHeight = 170;

using TPicture = TRecordingPicture;

// A break where a value is none.
std::string LinesOf(const TSeries& series) {
  std::string lines;
  for (std::size_t i = 0; i < series.Ms.size(); ++i) {
    if (std::isfinite(series.Values[i]))
      lines += Format("%lld %.9g", static_cast<long long>(series.Ms[i]), series.Values[i]);
    lines += '\n';
  }
  return lines;
}

std::string CurvePlots(const TPicture::TPanel& panel, TPlotData& data) {
  TPlotList curves;
  bool legend = false;
  std::size_t behind = panel.Curves.size();
  for (const TPicture::TCurve& curve : panel.Curves) {
    // A curve that lies on another one leaves its edges to be seen.
    curves.Add(data.Add(LinesOf(curve.Points())) +
               Format(" using 1:2 with lines lw %.1f title ", 1.2 + static_cast<double>(--behind)) +
               PlotText(curve.Name));
    legend = legend || !curve.Name.empty();
  }
  const TValueSpan shown = panel.Shown();
  return "set title " + PlotText(panel.Title) + "\n" + (legend ? "set key outside right\n" : "unset key\n") +
         Format("set yrange [%.9g:%.9g]\n", shown.Low, shown.High) + curves.Text();
}

std::string BandPlots(const std::vector<TPicture::TBand>& bands, TPlotData& data) {
  std::string labels, tics;
  TPlotList plots;
  for (std::size_t i = 0; i < bands.size(); ++i) {
    const auto row = static_cast<double>(i);
    std::string boxes;
    for (const auto& [from, to, value] : bands[i].Stretches) {
      boxes += Format("%lld %lld %.2f %.2f\n", static_cast<long long>(from), static_cast<long long>(to), row + 0.15,
                      row + 0.85);
      if (!value.empty())
        labels += Format("set label %s at first %lld, first %.2f offset 0.3,0 font ',8' front\n",
                         PlotText(value).c_str(), static_cast<long long>(from), row + 0.5);
    }
    tics += Format("%s%s %.1f", i > 0 ? ", " : "", PlotText(bands[i].Title).c_str(), row + 0.5);
    plots.Add(data.Add(boxes.empty() ? "0 0 0 0\n" : boxes) +
              Format(" using 1:3:1:2:3:4 with boxxyerror fs solid 0.6 noborder lt %zu notitle", i + 1));
  }
  return "unset title\nunset key\n" + labels + Format("set yrange [0:%zu]\nset ytics (", bands.size()) + tics + ")\n" +
         plots.Text();
}

}  // namespace

int PlotMonitorFile(const std::string& file, const std::string& target, TConsole& console) {
  CheckPlotFile("--out", target);
  const TRecording recording = LoadRecording(file, TDetail::Outline);
  const TPicture picture = PictureOf(recording);
  const std::size_t panels = picture.Panels.size() + (picture.Bands.empty() ? 0 : 1);
  if (panels == 0) throw EProblem(pbUnusable, {Tr("holds no numbers: there is nothing to plot"), file, "", ""});
  std::string plots = Format("set xrange [%lld:%lld]\n", static_cast<long long>(picture.FirstMs),
                             static_cast<long long>(std::max(picture.LastMs, picture.FirstMs + 1)));
  plots += Format("set multiplot layout %zu,1 title ", panels) +
           PlotText(std::filesystem::path(recording.Report.FileName).filename().string()) + "\n";
  TPlotData data;
  for (const TPicture::TPanel& panel : picture.Panels) {
    if (picture.Bands.empty() && &panel == &picture.Panels.back()) plots += "set xlabel 'ms'\n";
    plots += CurvePlots(panel, data);
  }
  if (!picture.Bands.empty()) plots += "set xlabel 'ms'\n" + BandPlots(picture.Bands, data);
  DrawPlot(kPlotWidth, 60 + kPanelHeight * static_cast<int>(panels), "set grid\nset lmargin 16\nset rmargin 14\n", data,
           plots, target);
  console.Say(Format(Tr("%s: %zu panels, %zu signals"), target.c_str(), panels, recording.Series.size()));
  if (!picture.LeftOut.empty()) console.Say(Format(Tr("left out, without a number: %s"), picture.LeftOut.c_str()));
  return console.Print(
      {{"file", target}, {"panels", panels}, {"signals", recording.Series.size()}, {"leftOut", picture.LeftOut}});
}

}  // namespace ixocut
