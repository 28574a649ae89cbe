#include "controller/recordings/Recording.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <optional>

#include "ixocamglue/monitor/Umonitortexts.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Problem.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

// By time, the latest of equal times only.
void Sort(TSeries& series) {
  const auto& ms = series.Ms;
  if (std::ranges::adjacent_find(ms, std::greater_equal<>()) == ms.end()) return;
  std::vector<std::size_t> order(ms.size());
  std::iota(order.begin(), order.end(), std::size_t{0});
  std::ranges::stable_sort(order, {}, [&](std::size_t i) { return ms[i]; });
  TSeries sorted;
  sorted.Frames = series.Frames;
  for (std::size_t i = 0; i < order.size(); ++i) {
    if (i + 1 < order.size() && ms[order[i]] == ms[order[i + 1]]) continue;
    sorted.Ms.push_back(ms[order[i]]);
    sorted.Values.push_back(series.Values[order[i]]);
  }
  series = std::move(sorted);
}

std::optional<std::int64_t> EventMs(const TRecording& recording, TAlignment event) {
  if (event == TAlignment::Start) return 0;
  for (const auto& [key, series] : recording.Series) {
    const TMonitorSignal* const signal = FindMonitorSignal(key.MainType, key.SubType);
    if (!signal || signal->Kind != (event == TAlignment::Beam ? skLaser : skState)) continue;
    const auto on = std::ranges::find_if(series.Values, [](double value) { return value != 0.0; });
    if (on != series.Values.end()) return series.Ms[static_cast<std::size_t>(on - series.Values.begin())];
  }
  return std::nullopt;
}

// To about half; how many samples are left.
std::size_t ThinOut(TRecording& recording) {
  std::size_t left = 0;
  for (auto& [key, series] : recording.Series) {
    series = Outline(series, 4);
    left += series.Ms.size();
  }
  return left;
}

}  // namespace

std::int64_t TSampleClock::At(std::uint32_t sampleTime) {
  if (FStarted) FMs += static_cast<std::int32_t>(sampleTime - FLast);
  FStarted = true;
  FLast = sampleTime;
  return FMs;
}

TResult<void> CheckReadable(const TMonitorReader& reader) {
  const TMonitorLoadReport& report = reader.Report();
  if (report.Problem) return *report.Problem;
  const auto problem = [&](std::string what) { return TProblem{.What = std::move(what), .Where = report.FileName}; };
  if (reader.IsEmpty()) return problem(Tr("the file is empty"));
  if (reader.Is1P0()) return problem(SNotSupportOldVersion.Get());
  if (report.Version.empty()) return problem(Tr("line 1: no version: this is no monitor file"));
  if (!reader.Is1P2()) return problem(Format(Tr("line 1: version \"%s\" is not known"), report.Version.c_str()));
  return {};
}

TMonitorLoadReport ReadFrames(const std::string& file,
                              const std::function<void(const TMonitorDataFrame&, std::int64_t)>& each) {
  TMonitorReader reader;
  reader.Open(file).OrThrow(pbUnusable);
  CheckReadable(reader).OrThrow(pbUnusable);
  TSampleClock clock;
  for (TMonitorDataFrame frame; reader.Next(frame);) each(frame, clock.At(frame.SampleTime));
  CheckReadable(reader).OrThrow(pbUnusable);
  return reader.Report();
}

void CheckSignalCount(std::size_t count, const std::string& file) {
  if (count > kMostSignals)
    throw EProblem(
        pbUnusable,
        {.What = Format(Tr("more than %zu signals: this is no recording of a machine"), kMostSignals), .Where = file});
}

TSeries Outline(const TSeries& series, std::size_t stretch) {
  TSeries outline;
  outline.Frames = series.Frames;
  const auto take = [&](std::size_t i) {
    outline.Ms.push_back(series.Ms[i]);
    outline.Values.push_back(series.Values[i]);
  };
  for (std::size_t from = 0; from < series.Ms.size(); from += stretch) {
    const std::size_t end = std::min(from + stretch, series.Ms.size());
    std::size_t low = end;
    std::size_t high = end;
    for (std::size_t i = from; i < end; ++i) {
      if (!std::isfinite(series.Values[i])) continue;
      if (low == end || series.Values[i] < series.Values[low]) low = i;
      if (high == end || series.Values[i] > series.Values[high]) high = i;
    }
    take(low == end ? from : std::min(low, high));
    if (low != high) take(std::max(low, high));
  }
  return outline;
}

TRecording LoadRecording(const std::string& file, TDetail detail) {
  TRecording recording;
  std::size_t samples = 0;
  recording.Report = ReadFrames(file, [&](const TMonitorDataFrame& frame, std::int64_t start) {
    TSeries& series = recording.Series[KeyOf(frame)];
    if (++series.Frames == 1) CheckSignalCount(recording.Series.size(), file);
    for (std::size_t i = 0; i < frame.Count(); ++i) {
      series.Ms.push_back(start + static_cast<std::int64_t>(i) * frame.TimeInterval);
      series.Values.push_back(frame.GetValue(i));
    }
    samples += frame.Count();
    if (detail == TDetail::Whole && samples > kMostSamples)
      throw EProblem(pbUnusable, {.What = Format(Tr("more than %zu samples, which is too much at once"), kMostSamples),
                                  .Where = file,
                                  .Remedy = Tr("record fewer signals or a shorter time; \"ixocut monitor show\" and "
                                               "\"plot\" take files of any length")});
    if (detail == TDetail::Outline && samples > kMostOutlineSamples) samples = ThinOut(recording);
  });
  for (auto& [key, series] : recording.Series) Sort(series);
  return recording;
}

TAlignment Align(TRecording& a, TRecording& b, TAlignment by) {
  if (by == TAlignment::Auto) {
    for (const TAlignment event : {TAlignment::Beam, TAlignment::Procedure})
      if (EventMs(a, event) && EventMs(b, event)) return Align(a, b, event);
    return Align(a, b, TAlignment::Start);
  }
  for (TRecording* const recording : {&a, &b}) {
    const auto at = EventMs(*recording, by);
    if (!at)
      throw EProblem(pbUnusable,
                     {.What = by == TAlignment::Beam ? Tr("the beam is never on") : Tr("no procedure ever begins"),
                      .Where = recording->Report.FileName,
                      .Remedy = Tr("align by another event, or by the start")});
    for (auto& [key, series] : recording->Series)
      for (std::int64_t& ms : series.Ms) ms -= *at;
  }
  return by;
}

}  // namespace ixocontroller
