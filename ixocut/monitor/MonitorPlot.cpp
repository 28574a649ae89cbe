#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>
#include <ostream>
#include <vector>

#include <nlohmann/json.hpp>

#include "controller/HostTexts.h"
#include "controller/recordings/Recording.h"
#include "ixocamglue/motion/Umotioncontroller.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Problem.h"
#include "ixocamglue/support/Texts.h"
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
constexpr double kMostScale = 8.0;   // between the curves of one panel
constexpr double kNearZero = 0.25;   // of the curve's far end
constexpr double kRoom = 0.07;       // of the curve's height, above and below it
constexpr double kLeastRoom = 0.01;  // in the signal's unit
constexpr std::size_t kMostLabels = 20;

// A break where a value is none.
std::string Points(const TSeries& series) {
  const std::size_t count = series.Ms.size();
  const TSeries points = Outline(series, count <= kMostPoints ? 1 : 2 * count / kMostPoints + 1);
  std::string data;
  for (std::size_t i = 0; i < points.Ms.size(); ++i) {
    if (std::isfinite(points.Values[i]))
      data += Format("%lld %.9g", static_cast<long long>(points.Ms[i]), points.Values[i]);
    data += '\n';
  }
  return data;
}

struct TSpan {
  double Low = std::numeric_limits<double>::quiet_NaN();
  double High = std::numeric_limits<double>::quiet_NaN();
  [[nodiscard]] double Length() const { return High - Low; }
  void Take(double value) {
    if (!std::isfinite(value)) return;
    Low = std::fmin(Low, value);
    High = std::fmax(High, value);
  }
  [[nodiscard]] bool Empty() const { return std::isnan(Low); }
};

TSpan SpanOf(const TSeries& series) {
  TSpan span;
  for (const double value : series.Values) span.Take(value);
  return span;
}

struct TCurve {
  std::string Name;
  const TSeries* Series;
  TSpan Span;
};

struct TPanel {
  std::string Title;
  std::vector<TCurve> Curves;
  TSpan Span;
};

// A signal of few whole values: a row of its own that is filled where it is not 0, with the value's name.
struct TBand {
  std::string Title;
  const TSeries* Series;
  bool Values = false;  // the values are told beside it; otherwise it is on or off
  bool State = false;
};

struct TPicture {
  std::vector<TPanel> Panels;
  std::vector<TBand> Bands;
  std::string LeftOut;  // signals without a number
};

// Curves of one kind share a panel while the smaller one can still be read in it.
void AddCurve(std::vector<TPanel>& panels, const std::string& title, TCurve curve) {
  const auto fits = [&](const TPanel& panel) {
    if (panel.Title != title) return false;
    const double small = std::min(panel.Span.Length(), curve.Span.Length());
    const double large = std::max(panel.Span.Length(), curve.Span.Length());
    TSpan both = panel.Span;
    both.Take(curve.Span.Low), both.Take(curve.Span.High);
    // A flat curve is read in any panel that it does not press together.
    return small == 0.0 ? both.Length() <= 2.0 * large : small * kMostScale >= both.Length();
  };
  auto panel = std::ranges::find_if(panels, fits);
  if (panel == panels.end()) panel = panels.insert(panels.end(), TPanel{title, {}, {}});
  panel->Span.Take(curve.Span.Low), panel->Span.Take(curve.Span.High);
  panel->Curves.push_back(std::move(curve));
}

TPicture PictureOf(const TRecording& recording) {
  TPicture picture;
  for (const auto& [key, series] : recording.Series) {
    const TMonitorSignal* const signal = FindMonitorSignal(key.MainType, key.SubType);
    const auto& motors = recording.Report.Motors;
    const std::string title = SignalCaption({key.MainType, key.SubType, 0, 0}, {});
    const TSpan span = SpanOf(series);
    if (span.Empty()) {
      picture.LeftOut += (picture.LeftOut.empty() ? "" : ", ") + SignalName(key);
    } else if (signal && signal->Integer) {
      const bool values = signal->Kind == skState || signal->Kind == skGasBranch;
      picture.Bands.push_back({SignalCaption(key, motors), &series, values, signal->Kind == skState});
    } else {
      const bool named = key.Param1 > 0 && key.Param1 <= motors.size();
      const std::string name = named ? motors[key.Param1 - 1U] : key.Param1 > 0 ? std::to_string(key.Param1) : "";
      AddCurve(picture.Panels, title, {name, &series, span});
    }
  }
  return picture;
}

// 0 is shown where it is near; room on both sides, so that a plateau is not taken for the frame.
std::string RangeOf(const TSpan& span) {
  double low = span.Low;
  double high = span.High;
  if (low > 0.0 && low < kNearZero * high) low = 0.0;
  if (high < 0.0 && high > kNearZero * low) high = 0.0;
  const double room = std::max({kRoom * (high - low), kLeastRoom, high == low ? kRoom * std::abs(high) : 0.0});
  return Format("set yrange [%.9g:%.9g]\n", low - room, high + room);
}

std::string ValueName(const TBand& band, double value) {
  const auto number = static_cast<std::int32_t>(value);
  if (!band.State) return Format("%d", number);
  return Format("%s %d", number == nsCustomMotion ? SPlotProcedure.Get() : SRowState.Get(), number);
}

// The stretches where the band is on, "from to low high" a line, and what they are called.
std::string BandData(const TBand& band, std::size_t row, std::string& labels) {
  std::string data;
  const TSeries& series = *band.Series;
  std::size_t labelled = 0;
  for (std::size_t from = 0; from < series.Ms.size();) {
    std::size_t to = from + 1;
    while (to < series.Ms.size() && series.Values[to] == series.Values[from]) ++to;
    const double value = series.Values[from];
    if (std::isfinite(value) && value != 0.0) {
      const std::int64_t end = to < series.Ms.size() ? series.Ms[to] : series.Ms.back();
      data += Format("%lld %lld %.2f %.2f\n", static_cast<long long>(series.Ms[from]), static_cast<long long>(end),
                     static_cast<double>(row) + 0.15, static_cast<double>(row) + 0.85);
      if (band.Values && labelled++ < kMostLabels)
        labels += Format("set label %s at first %lld, first %.2f offset 0.3,0 font ',8' front\n",
                         PlotText(ValueName(band, value)).c_str(), static_cast<long long>(series.Ms[from]),
                         static_cast<double>(row) + 0.5);
    }
    from = to;
  }
  return data.empty() ? "0 0 0 0\n" : data;
}

std::string CurvePlots(const TPanel& panel, std::string& data, std::size_t& number) {
  std::string curves;
  bool legend = false;
  std::size_t behind = panel.Curves.size();
  for (const TCurve& curve : panel.Curves) {
    data += Format("$d%zu << EOD\n", number) + Points(*curve.Series) + "EOD\n";
    // A curve that lies on another one leaves its edges to be seen.
    curves += Format("%s$d%zu using 1:2 with lines lw %.1f title ", curves.empty() ? "plot " : ", ", number++,
                     1.2 + static_cast<double>(--behind)) +
              PlotText(curve.Name);
    legend = legend || !curve.Name.empty();
  }
  return "set title " + PlotText(panel.Title) + "\n" + (legend ? "set key outside right\n" : "unset key\n") +
         RangeOf(panel.Span) + curves + "\n";
}

std::string BandPlots(const std::vector<TBand>& bands, std::string& data) {
  std::string labels, tics, plots;
  for (std::size_t i = 0; i < bands.size(); ++i) {
    data += Format("$b%zu << EOD\n", i) + BandData(bands[i], i, labels) + "EOD\n";
    tics += Format("%s%s %.1f", i > 0 ? ", " : "", PlotText(bands[i].Title).c_str(), static_cast<double>(i) + 0.5);
    plots += Format("%s$b%zu using 1:3:1:2:3:4 with boxxyerror fs solid 0.6 noborder lt %zu notitle",
                    i > 0 ? ", " : "plot ", i, i + 1);
  }
  return "unset title\nunset key\n" + labels + Format("set yrange [0:%zu]\nset ytics (", bands.size()) + tics + ")\n" +
         plots + "\n";
}

std::string Script(const TRecording& recording, const TPicture& picture) {
  std::int64_t first = std::numeric_limits<std::int64_t>::max();
  std::int64_t last = std::numeric_limits<std::int64_t>::min();
  for (const auto& [key, series] : recording.Series) {
    if (series.Ms.empty()) continue;
    first = std::min(first, series.Ms.front());
    last = std::max(last, series.Ms.back());
  }
  std::string data, plots;
  std::size_t number = 0;
  const std::size_t rows = picture.Panels.size() + (picture.Bands.empty() ? 0 : 1);
  for (const TPanel& panel : picture.Panels) {
    if (picture.Bands.empty() && &panel == &picture.Panels.back()) plots += "set xlabel 'ms'\n";
    plots += CurvePlots(panel, data, number);
  }
  if (!picture.Bands.empty()) plots += "set xlabel 'ms'\n" + BandPlots(picture.Bands, data);
  std::string script = PlotStart(kWidth, 60 + kPanelHeight * static_cast<int>(rows));
  script += "set grid\nset lmargin 16\nset rmargin 14\n" + data;
  script += Format("set xrange [%lld:%lld]\n", static_cast<long long>(first),
                   static_cast<long long>(std::max(last, first + 1)));
  script += Format("set multiplot layout %zu,1 title ", rows) +
            PlotText(fs::path(recording.Report.FileName).filename().string()) + "\n";
  return script + plots + "unset multiplot\nset output\n";
}

}  // namespace

int PlotMonitorFile(const std::string& file, const std::string& target, TConsole& console) {
  CheckPlotFile("--out", target);
  const TRecording recording = LoadRecording(file, TDetail::Outline);
  const TPicture picture = PictureOf(recording);
  const std::size_t panels = picture.Panels.size() + (picture.Bands.empty() ? 0 : 1);
  if (panels == 0) throw EProblem(pbUnusable, {Tr("holds no numbers: there is nothing to plot"), file, "", ""});
  DrawPlot(Script(recording, picture), target);
  console.Say(Format(Tr("%s: %zu panels, %zu signals"), target.c_str(), panels, recording.Series.size()));
  if (!picture.LeftOut.empty()) console.Say(Format(Tr("left out, without a number: %s"), picture.LeftOut.c_str()));
  console.Print(
      "monitor plot",
      {{"file", target}, {"panels", panels}, {"signals", recording.Series.size()}, {"leftOut", picture.LeftOut}});
  return kExitSuccess;
}

}  // namespace ixocut
