#include <algorithm>
#include <filesystem>
#include <iterator>

#include "commandline/OutputFile.h"
#include "controller/recordings/RecordingCopies.h"
#include "controller/recordings/RecordingFacts.h"
#include "ixocamglue/monitor/Umonitorsink.h"
#include "ixocamglue/support/ValueText.h"
#include "ixocut/Command.h"
#include "ixocut/monitor/MonitorCommands.h"

namespace ixocut {
namespace {

constexpr const char* kAlignedBy[] = {"", TrMark("0 ms is the first beam of each run"),
                                      TrMark("0 ms is the first procedure's start of each run"),
                                      TrMark("0 ms is the first sample of each run")};

void RefuseOwnSource(const std::string& file, const std::string& target) {
  std::error_code absent;
  if (std::filesystem::equivalent(file, target, absent))
    throw EProblem(pbRequest, {.What = Tr("is the file that is read"),
                               .Where = "--out " + target,
                               .Remedy = Tr("name another one; nothing was written")});
}

void CheckTarget(const std::string& file, const std::string& target) {
  RefuseOwnSource(file, target);
  CheckMonitorTarget(target);
}

}  // namespace

void CheckMonitorTarget(const std::string& target) {
  CheckOutputFile("--out", target, [](std::string_view head) {
    const std::string_view text = WithoutMark(head);
    const std::string_view first = text.substr(0, text.find_first_of("\r\n"));
    return first.starts_with(kTimeColumn) || first.find(SFileVersion) != std::string_view::npos;
  });
}

int DiffMonitorFiles(const std::string& a, const std::string& b, const std::string& align, TConsole& console) {
  TRecording left = LoadRecording(a, TDetail::Whole);
  TRecording right = LoadRecording(b, TDetail::Whole);
  const auto asked = static_cast<TAlignment>(std::ranges::find(kAlignments, align) - std::begin(kAlignments));
  const auto used = static_cast<std::size_t>(Align(left, right, asked));
  const TRecordingDifference difference = Compare(left, right);
  TRows rows{{Tr("signal"), Tr("compared"), Tr("largest"), Tr("at ms"), "A", "B", Tr("caption")}};
  for (const auto& [key, onlyIn, d, countA, countB] : difference.Signals) {
    if (*onlyIn) {
      const char* const text = *onlyIn == 'A' ? Tr("only in A (%zu samples)") : Tr("only in B (%zu samples)");
      rows.push_back({SignalName(key), "0", "", "", "", "", Format(text, countA + countB)});
      continue;
    }
    rows.push_back({SignalName(key), std::to_string(d.Samples), Format("%.8g", d.Largest), std::to_string(d.AtMs),
                    Format("%.8g", d.A), Format("%.8g", d.B),
                    SignalCaption(key, left.Report.Motors) +
                        (countA == countB ? "" : Format(Tr("; %zu samples in A, %zu in B"), countA, countB))});
  }
  std::optional<TProblem> problem;
  if (difference.Compared == 0)
    problem = {.What = Tr("nothing was compared: the runs have no signal with samples at the same time")};
  else if (difference.Differ)
    problem = {.What = Tr("the runs differ")};
  console.Say(Tr(kAlignedBy[used]));
  console.SayTable(rows);
  console.Say(problem ? problem->What : Tr("no difference"));
  return console.Print({{"alignedBy", kAlignments[used]}, {"signals", SignalsJson(difference)}}, problem);
}

int ConvertMonitorFile(const std::string& file, const std::string& target, TConsole& console) {
  CheckTarget(file, target);
  const TRecording recording = LoadRecording(file, TDetail::Whole);
  TMonitorFileSink sink(target);
  const std::uint64_t rows = WriteTable(recording, sink);
  sink.Commit();
  const std::size_t signals = recording.Series.size();
  console.Say(Format(Tr("%s: %llu rows, %zu signals"), target.c_str(), static_cast<unsigned long long>(rows), signals));
  return console.Print({{"file", target}, {"rows", rows}, {"signals", signals}});
}

int RecoverMonitorFile(const std::string& file, const std::string& target, TConsole& console) {
  CheckTarget(file, target);
  TMonitorFileSink sink(target);
  const TWholeLines lines = CopyWholeLines(file, sink);
  sink.Commit();
  const std::string& dropped = lines.Dropped;
  console.Say(target + ": " +
              (dropped.empty()
                   ? Tr("the last line is whole, nothing was dropped")
                   : Format(Tr("the last line was cut off and is dropped: %zu bytes: \"%s\""), dropped.size(),
                            (dropped.substr(0, 60) + (dropped.size() > 60 ? "..." : "")).c_str())));
  return console.Print({{"file", target}, {"copiedBytes", lines.Copied}, {"droppedBytes", dropped.size()}});
}

}  // namespace ixocut
