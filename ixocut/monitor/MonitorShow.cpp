#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <ostream>

#include <nlohmann/json.hpp>

#include "controller/recordings/Recording.h"
#include "ixocamglue/monitor/Umonitorsink.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Problem.h"
#include "ixocut/CommandLine.h"
#include "ixocut/monitor/MonitorCommands.h"

namespace ixocut {
using namespace ixocontroller;
namespace {

constexpr std::size_t kShownNotes = 20;
constexpr double kNoValue = std::numeric_limits<double>::quiet_NaN();

struct TSignalFacts {
  std::uint64_t Frames = 0;
  std::uint64_t Samples = 0;
  std::int64_t FirstMs = 0;
  std::int64_t LastMs = 0;
  double Min = kNoValue;  // of the values that are numbers
  double Max = kNoValue;
};

using TFacts = std::map<TMonitorSignalKey, TSignalFacts>;

TFacts Collect(TMonitorReader& reader) {
  TFacts facts;
  TSampleClock clock;
  for (TMonitorDataFrame frame; reader.Next(frame);) {
    TSignalFacts& signal = facts[KeyOf(frame)];
    const std::int64_t start = clock.At(frame.SampleTime);
    const auto count = static_cast<std::int64_t>(frame.Count());
    const std::int64_t end = start + std::max<std::int64_t>(count - 1, 0) * frame.TimeInterval;
    if (signal.Frames++ == 0) signal.FirstMs = start;
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

const char* KindWords(TMonitorNoteKind kind) {
  switch (kind) {
    case mnSkippedLine: return "skipped, it has fewer than 11 fields";
    case mnBadField: return "no number, read as 0";
    case mnClampedCount: return "more than 32 values announced, read as 32";
    case mnFewerValues: return "fewer values than announced, the others are 0";
    case mnMoreFields: return "fields behind the last value, passed over";
  }
  return "";
}

void PrintText(const TMonitorLoadReport& report, const std::string& problem, bool partial, const TFacts& facts,
               std::ostream& out) {
  out << report.FileName << '\n';
  std::string motors;
  for (const std::string& motor : report.Motors) motors += (motors.empty() ? "" : ", ") + motor;
  out << "version  " << (report.Version.empty() ? "-" : report.Version) << '\n'
      << "motors   " << (motors.empty() ? "-" : motors) << '\n'
      << Format("size     %llu bytes, %llu lines, %llu frames\n", static_cast<unsigned long long>(report.Bytes),
                static_cast<unsigned long long>(report.Lines), static_cast<unsigned long long>(report.Frames));
  if (!problem.empty()) out << "not read: " << problem << '\n';
  if (!facts.empty())
    out << Format("\n%-20s %8s %9s %10s %10s %12s %12s  %s\n", "signal", "frames", "samples", "from ms", "to ms", "min",
                  "max", "caption");
  for (const auto& [key, signal] : facts)
    out << Format("%-20s %8llu %9llu %10lld %10lld %12.6g %12.6g  %s\n", SignalName(key).c_str(),
                  static_cast<unsigned long long>(signal.Frames), static_cast<unsigned long long>(signal.Samples),
                  static_cast<long long>(signal.FirstMs), static_cast<long long>(signal.LastMs), signal.Min, signal.Max,
                  SignalCaption(key, report.Motors).c_str());
  if (partial) out << "\nnot whole: its writer has not ended it (ixocut monitor recover)\n";
  if (report.Clean()) return;
  out << Format(
      "\n%llu lines skipped, %llu bad fields, %llu counts above 32, %llu lines with too few values, "
      "%llu with too many fields, %llu cut\n",
      static_cast<unsigned long long>(report.SkippedLines), static_cast<unsigned long long>(report.BadFields),
      static_cast<unsigned long long>(report.ClampedCounts), static_cast<unsigned long long>(report.FewerValues),
      static_cast<unsigned long long>(report.MoreFields), static_cast<unsigned long long>(report.CutLines));
  for (std::size_t i = 0; i < std::min(report.Notes.size(), kShownNotes); ++i) {
    const TMonitorNote& note = report.Notes[i];
    out << "  line " << note.Line;
    if (note.Field > 0) out << ", field " << note.Field;
    out << ": " << KindWords(note.Kind) << (note.Text.empty() ? "" : ": \"" + note.Text + "\"") << '\n';
  }
  if (report.Notes.size() > kShownNotes) out << "  and more; --json lists up to 1000\n";
  if (report.OpenEnd) out << "  the last line has no line end: it may have been cut off\n";
}

void PrintJson(const TMonitorLoadReport& report, const std::string& problem, bool partial, const TFacts& facts,
               std::ostream& out) {
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
  const nlohmann::ordered_json result{{"file", report.FileName},
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
  std::optional<TProblem> what;
  if (!problem.empty()) what = {.What = problem, .Where = report.FileName};
  if (!what && partial)
    what = {.What = Tr("the file is not whole: its recording did not end"), .Where = report.FileName};
  PrintDocument(out, "monitor show", result, what);
}

}  // namespace

int ShowMonitorFile(const std::string& file, bool json, std::ostream& out) {
  TMonitorReader reader;
  reader.Open(file).OrThrow(pbUnusable);
  TFacts facts;
  if (reader.Is1P2()) facts = Collect(reader);
  std::string problem;
  if (const TResult<void> readable = CheckReadable(reader); !readable)
    problem = TProblem{.What = readable.Problem().What, .Why = readable.Problem().Why}.Text();
  const bool partial = reader.Report().OpenEnd || file.ends_with(kPartialEnding);
  (json ? PrintJson : PrintText)(reader.Report(), problem, partial, facts, out);
  if (!problem.empty()) return kExitUnusable;
  return partial ? kExitOtherwise : kExitSuccess;
}

}  // namespace ixocut
