#include "controller/recordings/RecordingFacts.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include <nlohmann/json.hpp>

namespace ixocontroller {
namespace {

double Distance(double a, double b) {
  if (a == b || (std::isnan(a) && std::isnan(b))) return 0.0;
  const double distance = std::abs(a - b);
  return std::isnan(distance) ? std::numeric_limits<double>::infinity() : distance;
}

const char* KindName(TMonitorNoteKind kind) {
  switch (kind) {
    case mnSkippedLine: return "skippedLine";
    case mnBadField: return "badField";
    case mnClampedCount: return "clampedCount";
    case mnFewerValues: return "fewerValues";
    case mnMoreFields: return "moreFields";
  }
  return "";
}

}  // namespace

std::map<TMonitorSignalKey, TSignalFacts> SignalFacts(TMonitorReader& reader) {
  std::map<TMonitorSignalKey, TSignalFacts> facts;
  TSampleClock clock;
  for (TMonitorDataFrame frame; reader.Next(frame);) {
    TSignalFacts& signal = facts[KeyOf(frame)];
    const std::int64_t start = clock.At(frame.SampleTime);
    const auto count = static_cast<std::int64_t>(frame.Count());
    const std::int64_t end = start + std::max<std::int64_t>(count - 1, 0) * frame.TimeInterval;
    if (signal.Frames++ == 0) {
      CheckSignalCount(facts.size(), reader.Report().FileName);
      signal.FirstMs = start;
    }
    signal.FirstMs = std::min(signal.FirstMs, start);
    signal.LastMs = std::max(signal.LastMs, end);
    for (std::size_t i = 0; i < frame.Count(); ++i) {
      const double value = frame.GetValue(i);
      ++signal.Samples;
      signal.Min = std::fmin(signal.Min, value);
      signal.Max = std::fmax(signal.Max, value);
    }
  }
  return facts;
}

TSeriesDifference Compare(const TSeries& a, const TSeries& b) {
  TSeriesDifference out;
  std::size_t j = 0;
  for (std::size_t i = 0; i < a.Ms.size(); ++i) {
    const std::int64_t ms = a.Ms[i];
    if (b.Ms.empty() || ms < b.Ms.front()) continue;
    if (ms > b.Ms.back()) break;
    while (j + 1 < b.Ms.size() && b.Ms[j + 1] <= ms) ++j;
    ++out.Samples;
    const double distance = Distance(a.Values[i], b.Values[j]);
    if (distance <= out.Largest) continue;
    out.Largest = distance;
    out.AtMs = ms;
    out.A = a.Values[i];
    out.B = b.Values[j];
  }
  return out;
}

nlohmann::ordered_json FactsJson(const TMonitorLoadReport& report, const TRecordingFacts& facts, bool partial) {
  nlohmann::ordered_json signals = nlohmann::ordered_json::array();
  for (const auto& [key, signal] : facts)
    signals.push_back({{"name", SignalName(key)},
                       {"caption", SignalCaption(key, report.Motors)},
                       {"mainType", key.MainType},
                       {"subType", key.SubType},
                       {"param1", key.Param1},
                       {"param2", key.Param2},
                       {"frames", signal.Frames},
                       {"samples", signal.Samples},
                       {"fromMs", signal.FirstMs},
                       {"toMs", signal.LastMs},
                       {"min", signal.Min},
                       {"max", signal.Max}});
  nlohmann::ordered_json notes = nlohmann::ordered_json::array();
  for (const TMonitorNote& note : report.Notes)
    notes.push_back({{"kind", KindName(note.Kind)}, {"line", note.Line}, {"field", note.Field}, {"text", note.Text}});
  return {{"file", report.FileName},
          {"version", report.Version},
          {"motors", report.Motors},
          {"bytes", report.Bytes},
          {"lines", report.Lines},
          {"frames", report.Frames},
          {"signals", std::move(signals)},
          {"skippedLines", report.SkippedLines},
          {"badFields", report.BadFields},
          {"clampedCounts", report.ClampedCounts},
          {"fewerValues", report.FewerValues},
          {"moreFields", report.MoreFields},
          {"cutLines", report.CutLines},
          {"openEnd", report.OpenEnd},
          {"partial", partial},
          {"notes", std::move(notes)}};
}

TRecordingDifference Compare(const TRecording& a, const TRecording& b) {
  TRecordingDifference all;
  const auto onlyIn = [&](const char* side, const TMonitorSignalKey& key, const TSeries& series) {
    TSignalDifference& one = all.Signals.emplace_back(TSignalDifference{.Key = key, .OnlyIn = side});
    (*side == 'A' ? one.SamplesA : one.SamplesB) = series.Ms.size();
    all.Differ = true;
  };
  for (const auto& [key, series] : a.Series) {
    const auto other = b.Series.find(key);
    if (other == b.Series.end()) {
      onlyIn("A", key, series);
      continue;
    }
    const auto& one = all.Signals.emplace_back(
        TSignalDifference{key, "", Compare(series, other->second), series.Ms.size(), other->second.Ms.size()});
    all.Compared += one.Of.Samples;
    all.Differ =
        all.Differ || one.Of.Largest > 0.0 || one.SamplesA != one.SamplesB || (one.Of.Samples == 0 && one.SamplesA > 0);
  }
  for (const auto& [key, series] : b.Series)
    if (!a.Series.contains(key)) onlyIn("B", key, series);
  return all;
}

nlohmann::ordered_json SignalsJson(const TRecordingDifference& difference) {
  auto list = nlohmann::ordered_json::array();
  for (const TSignalDifference& one : difference.Signals) {
    const std::string name = SignalName(one.Key);
    if (*one.OnlyIn)
      list.push_back({{"name", name}, {"onlyIn", one.OnlyIn}, {"samples", one.SamplesA + one.SamplesB}});
    else
      list.push_back({{"name", name},
                      {"compared", one.Of.Samples},
                      {"largest", one.Of.Largest},
                      {"atMs", one.Of.AtMs},
                      {"a", one.Of.A},
                      {"b", one.Of.B},
                      {"samplesA", one.SamplesA},
                      {"samplesB", one.SamplesB}});
  }
  return list;
}

}  // namespace ixocontroller
