#include <algorithm>
#include <cmath>
#include <filesystem>
#include <iterator>
#include <limits>
#include <map>
#include <ostream>
#include <vector>

#include "controller/recordings/Recording.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Problem.h"
#include "ixocut/CommandLine.h"
#include "ixocut/Plot.h"
#include "ixocut/monitor/MonitorCommands.h"

namespace ixocut {
using namespace ixocontroller;
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMostPoints = 4000;  // of a curve; more cannot be told apart
constexpr int kPanelHeight = 170;
constexpr int kWidth = 1100;

void AddPoint(std::string& data, std::int64_t ms, double value) {
  // A break in the curve where there is no number.
  data += std::isfinite(value) ? Format("%lld %.9g\n", static_cast<long long>(ms), value) : "\n";
}

// Of a long curve the smallest and the largest value of each stretch.
std::string Points(const TSeries& series) {
  std::string data;
  const std::size_t count = series.Ms.size();
  const std::size_t stretch = count <= kMostPoints ? 1 : 2 * count / kMostPoints + 1;
  for (std::size_t from = 0; from < count; from += stretch) {
    std::size_t low = from;
    std::size_t high = from;
    for (std::size_t i = from; i < std::min(from + stretch, count); ++i) {
      if (series.Values[i] < series.Values[low]) low = i;
      if (series.Values[i] > series.Values[high]) high = i;
    }
    AddPoint(data, series.Ms[std::min(low, high)], series.Values[std::min(low, high)]);
    if (low != high) AddPoint(data, series.Ms[std::max(low, high)], series.Values[std::max(low, high)]);
  }
  return data;
}

struct TPanel {
  std::string Title;
  bool Steps = false;  // an integer holds until the next one
  std::vector<std::pair<std::string, const TSeries*>> Curves;
};

std::vector<TPanel> Panels(const TRecording& recording) {
  std::map<std::pair<std::uint16_t, std::uint16_t>, TPanel> panels;
  for (const auto& [key, series] : recording.Series) {
    const TMonitorSignal* const signal = FindMonitorSignal(key.MainType, key.SubType);
    TPanel& panel = panels[{key.MainType, key.SubType}];
    panel.Title = SignalCaption({key.MainType, key.SubType, 0, 0}, {});
    panel.Steps = signal && signal->Integer;
    const auto& motors = recording.Report.Motors;
    const bool named = key.Param1 > 0 && key.Param1 <= motors.size();
    panel.Curves.emplace_back(named            ? motors[key.Param1 - 1U]
                              : key.Param1 > 0 ? std::to_string(key.Param1)
                                               : "",
                              &series);
  }
  std::vector<TPanel> out;
  for (auto& [types, panel] : panels) out.push_back(std::move(panel));
  return out;
}

std::string Script(const TRecording& recording, const std::vector<TPanel>& panels) {
  std::int64_t first = std::numeric_limits<std::int64_t>::max();
  std::int64_t last = std::numeric_limits<std::int64_t>::min();
  std::string data;
  std::string plots;
  std::size_t number = 0;
  for (const TPanel& panel : panels) {
    plots += "set title " + PlotText(panel.Title) + "\n";
    std::string curves;
    bool legend = false;
    for (const auto& [name, series] : panel.Curves) {
      if (series->Ms.empty()) continue;
      first = std::min(first, series->Ms.front());
      last = std::max(last, series->Ms.back());
      data += Format("$d%zu << EOD\n", number) + Points(*series) + "EOD\n";
      curves += curves.empty() ? "plot " : ", ";
      curves +=
          Format("$d%zu using 1:2 with %s lw 1.5 title ", number++, panel.Steps ? "steps" : "lines") + PlotText(name);
      legend = legend || !name.empty();
    }
    if (&panel == &panels.back()) plots += "set xlabel 'ms'\n";
    plots += legend ? "set key outside right\n" : "unset key\n";
    // A flat curve needs room around it.
    plots += "set yrange [*<-0.05:0.05<*]\n";
    if (panel.Steps) plots += "set yrange [-0.2:1.2<*]\n";
    plots += curves + "\n";
  }
  std::string script = PlotStart(kWidth, 60 + kPanelHeight * static_cast<int>(panels.size()));
  script += "set grid\nset lmargin 12\nset rmargin 14\n" + data;
  script += Format("set xrange [%lld:%lld]\n", static_cast<long long>(first),
                   static_cast<long long>(std::max(last, first + 1)));
  script += Format("set multiplot layout %zu,1 title ", panels.size()) +
            PlotText(fs::path(recording.Report.FileName).filename().string()) + "\n";
  return script + plots + "unset multiplot\nset output\n";
}

}  // namespace

int PlotMonitorFile(const std::string& file, const std::string& target, std::ostream& out) {
  CheckPlotName("--out", target);
  const TRecording recording = LoadRecording(file);
  const std::vector<TPanel> panels = Panels(recording);
  if (std::ranges::none_of(recording.Series, [](const auto& item) { return !item.second.Ms.empty(); }))
    throw EProblem(pbUnusable, {"holds no samples: there is nothing to plot", file, "", ""});
  DrawPlot(Script(recording, panels), target);
  out << target << Format(": %zu panels, %zu signals\n", panels.size(), recording.Series.size());
  return kExitSuccess;
}

}  // namespace ixocut
