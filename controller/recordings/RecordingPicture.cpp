#include "controller/recordings/RecordingPicture.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "controller/texts/HostTexts.h"
#include "ixocamglue/motion/Umotioncontroller.h"
#include "ixocamglue/support/Format.h"

namespace ixocontroller {
namespace {

constexpr double kMostScale = 8.0;   // between the curves of one panel
constexpr double kNearZero = 0.25;   // of the curve's far end
constexpr double kRoom = 0.07;       // of the curve's height, above and below it
constexpr double kLeastRoom = 0.01;  // in the signal's unit
constexpr std::size_t kMostLabels = 20;

TValueSpan SpanOf(const TSeries& series) {
  TValueSpan span;
  for (const double value : series.Values) span.Take(value);
  return span;
}

// Curves of one kind share a panel while the smaller one can still be read in it.
void AddCurve(TRecordingPicture& picture, const std::string& title, TRecordingPicture::TCurve curve) {
  const auto fits = [&](const TRecordingPicture::TPanel& panel) {
    if (panel.Title != title) return false;
    const double small = std::min(panel.Span.Length(), curve.Span.Length());
    const double large = std::max(panel.Span.Length(), curve.Span.Length());
    TValueSpan both = panel.Span;
    both.Take(curve.Span);
    // A flat curve is read in any panel that it does not press together.
    return small == 0.0 ? both.Length() <= 2.0 * large : small * kMostScale >= both.Length();
  };
  auto& panels = picture.Panels;
  auto panel = std::ranges::find_if(panels, fits);
  if (panel == panels.end()) panel = panels.insert(panels.end(), TRecordingPicture::TPanel{title, {}, {}});
  panel->Span.Take(curve.Span);
  panel->Curves.push_back(std::move(curve));
}

std::string ValueName(TMonitorSignalKind kind, double value) {
  const auto number = static_cast<std::int32_t>(value);
  if (kind != skState) return Format("%d", number);
  return Format("%s %d", number == nsCustomMotion ? SPlotProcedure.Get() : SRowState.Get(), number);
}

// Whose values are told beside it; any other signal is on or off.
bool Named(TMonitorSignalKind kind) { return kind == skState || kind == skGasBranch; }

TRecordingPicture::TBand BandOf(std::string title, TMonitorSignalKind kind, const TSeries& series) {
  TRecordingPicture::TBand band{std::move(title), {}};
  for (std::size_t from = 0; from < series.Ms.size();) {
    std::size_t to = from + 1;
    while (to < series.Ms.size() && series.Values[to] == series.Values[from]) ++to;
    const double value = series.Values[from];
    if (std::isfinite(value) && value != 0.0)
      band.Stretches.push_back({series.Ms[from], to < series.Ms.size() ? series.Ms[to] : series.Ms.back(),
                                Named(kind) && band.Stretches.size() < kMostLabels ? ValueName(kind, value) : ""});
    from = to;
  }
  return band;
}

}  // namespace

void TValueSpan::Take(double value) {
  if (!std::isfinite(value)) return;
  Low = std::fmin(Low, value);
  High = std::fmax(High, value);
}

bool TValueSpan::Empty() const { return std::isnan(Low); }

TSeries TRecordingPicture::TCurve::Points() const {
  const std::size_t count = Series->Ms.size();
  return Outline(*Series, count <= kMostPoints ? 1 : 2 * count / kMostPoints + 1);
}

TValueSpan TRecordingPicture::TPanel::Shown() const {
  auto [low, high] = Span;
  if (low > 0.0 && low < kNearZero * high) low = 0.0;
  if (high < 0.0 && high > kNearZero * low) high = 0.0;
  const double room = std::max({kRoom * (high - low), kLeastRoom, high == low ? kRoom * std::abs(high) : 0.0});
  return {low - room, high + room};
}

TRecordingPicture PictureOf(const TRecording& recording) {
  TRecordingPicture picture;
  const auto& motors = recording.Report.Motors;
  picture.FirstMs = std::numeric_limits<std::int64_t>::max();
  picture.LastMs = std::numeric_limits<std::int64_t>::min();
  for (const auto& [key, series] : recording.Series) {
    if (!series.Ms.empty()) {
      picture.FirstMs = std::min(picture.FirstMs, series.Ms.front());
      picture.LastMs = std::max(picture.LastMs, series.Ms.back());
    }
    const TMonitorSignal* const signal = FindMonitorSignal(key.MainType, key.SubType);
    const TValueSpan span = SpanOf(series);
    if (span.Empty()) {
      picture.LeftOut += (picture.LeftOut.empty() ? "" : ", ") + SignalName(key);
    } else if (signal && signal->Integer) {
      picture.Bands.push_back(BandOf(SignalCaption(key, motors), signal->Kind, series));
    } else {
      const bool named = key.Param1 > 0 && key.Param1 <= motors.size();
      const std::string name = named ? motors[key.Param1 - 1U] : key.Param1 > 0 ? std::to_string(key.Param1) : "";
      AddCurve(picture, SignalCaption({key.MainType, key.SubType, 0, 0}, {}), {name, &series, span});
    }
  }
  return picture;
}

}  // namespace ixocontroller
