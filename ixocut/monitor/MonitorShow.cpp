#include <algorithm>

#include "controller/recordings/RecordingFacts.h"
#include "ixocamglue/monitor/Umonitorsink.h"
#include "ixocamglue/support/Lists.h"
#include "ixocut/Command.h"
#include "ixocut/monitor/MonitorCommands.h"

namespace ixocut {
namespace {

constexpr std::size_t kShownNotes = 20;

const char* KindWords(TMonitorNoteKind kind) {
  switch (kind) {
    case mnSkippedLine: return Tr("skipped, it has fewer than 11 fields");
    case mnBadField: return Tr("no number, read as 0");
    case mnClampedCount: return Tr("more than 32 values announced, read as 32");
    case mnFewerValues: return Tr("fewer values than announced, the others are 0");
    case mnMoreFields: return Tr("fields behind the last value, passed over");
  }
  return "";
}

void SayNotes(const TMonitorLoadReport& report, TConsole& console) {
  console.Say("");
  const TRows rows{{Tr("lines skipped"), std::to_string(report.SkippedLines)},
                   {Tr("bad fields"), std::to_string(report.BadFields)},
                   {Tr("counts above 32"), std::to_string(report.ClampedCounts)},
                   {Tr("lines with too few values"), std::to_string(report.FewerValues)},
                   {Tr("lines with too many fields"), std::to_string(report.MoreFields)},
                   {Tr("lines cut"), std::to_string(report.CutLines)}};
  console.SayTable(rows);
  for (std::size_t i = 0; i < std::min(report.Notes.size(), kShownNotes); ++i) {
    const TMonitorNote& note = report.Notes[i];
    const std::string place = note.Field > 0 ? Format(Tr("line %s, field %s"), std::to_string(note.Line).c_str(),
                                                      std::to_string(note.Field).c_str())
                                             : Format(Tr("line %s"), std::to_string(note.Line).c_str());
    console.Say("  " + place + ": " + KindWords(note.Kind) + (note.Text.empty() ? "" : ": \"" + note.Text + "\""));
  }
  if (report.Notes.size() > kShownNotes) console.Say(Tr("  and more; --json lists up to 1000"));
  if (report.OpenEnd) console.Say(Tr("  the last line has no line end: it may have been cut off"));
}

void PrintText(const TMonitorLoadReport& report, const std::string& problem, bool partial, const TRecordingFacts& facts,
               TConsole& console) {
  console.Say(report.FileName);
  const std::string motors = Joined(report.Motors);
  const TRows head{{Tr("version"), report.Version.empty() ? "-" : report.Version},
                   {Tr("motors"), motors.empty() ? "-" : motors},
                   {Tr("size"), Format(Tr("%s bytes, %s lines, %s frames"), std::to_string(report.Bytes).c_str(),
                                       std::to_string(report.Lines).c_str(), std::to_string(report.Frames).c_str())}};
  console.SayTable(head);
  if (!problem.empty()) console.Say(Format(Tr("not read: %s"), problem.c_str()));
  if (!facts.empty()) {
    TRows rows{{Tr("signal"), Tr("frames"), Tr("samples"), Tr("from ms"), Tr("to ms"), Tr("smallest"), Tr("largest"),
                Tr("caption")}};
    for (const auto& [key, signal] : facts)
      rows.push_back({SignalName(key), std::to_string(signal.Frames), std::to_string(signal.Samples),
                      std::to_string(signal.FirstMs), std::to_string(signal.LastMs), Format("%.6g", signal.Min),
                      Format("%.6g", signal.Max), SignalCaption(key, report.Motors)});
    console.Say("");
    console.SayTable(rows);
  }
  if (partial) console.Say(std::string("\n") + Tr("not whole: its writer has not ended it (ixocut monitor recover)"));
  if (!report.Clean()) SayNotes(report, console);
}

}  // namespace

int ShowMonitorFile(const std::string& file, TConsole& console) {
  TMonitorReader reader;
  reader.Open(file).OrThrow(pbUnusable);
  TRecordingFacts facts;
  if (reader.Is1P2()) facts = SignalFacts(reader);
  std::string problem;
  if (const TResult<void> readable = CheckReadable(reader); !readable)
    problem = TProblem{.What = readable.Problem().What, .Why = readable.Problem().Why}.Text();
  const bool partial = reader.Report().OpenEnd || file.ends_with(kPartialEnding);
  PrintText(reader.Report(), problem, partial, facts, console);
  std::optional<TProblem> what;
  if (!problem.empty()) what = {.What = problem, .Where = reader.Report().FileName};
  if (!what && partial)
    what = {.What = Tr("the file is not whole: its recording did not end"), .Where = reader.Report().FileName};
  const int exitCode = console.Print(FactsJson(reader.Report(), facts, partial), what);
  return problem.empty() ? exitCode : kExitUnusable;
}

}  // namespace ixocut
