#include "ixocut/Console.h"

#include <iostream>
#include <utility>

#include <nlohmann/json.hpp>

#include "commandline/CommandLine.h"
#include "commandline/Document.h"
#include "controller/runs/ErrorSentence.h"
#include "ixocamglue/support/Format.h"
#include "ixocut/Commands.h"

namespace ixocut {
namespace {

const char* LogLevelOf(const TLogRecord& record) {
  if (!record.Diagnostic) {
    if (record.Kind >= lkException) return "exception";
    if (record.Kind >= lkError) return "error";
    return record.Kind >= lkWarning ? "warning" : "info";
  }
  switch (record.Level) {
    case dlEntry: return "entry";
    case dlExit: return "exit";
    case dlMessage: return "message";
    case dlError: return "error";
    case dlNote: return "note";
    case dlProgress: return "progress";
  }
  return "";
}

bool IsTrouble(const TLogRecord& record) {
  return record.Diagnostic ? record.Level == dlError : record.Kind >= lkWarning;
}

}  // namespace

TConsole::TConsole(std::ostream& out, std::string command, const TOutputSettings& settings)
    : FOut(out),
      FCommand(std::move(command)),
      FSettings(settings),
      FTerminal(IsTerminal(out)),
      FStatus(out, FTerminal) {}

TConsole::~TConsole() {
  TGuard guard(FLock);
  if (FStatus.Drawn()) FOut << std::endl;
}

void TConsole::Draw(std::string_view line) {
  TGuard guard(FLock);
  if (!FSettings.Json) FStatus.Draw(line);
}

void TConsole::Status(std::uint64_t ms, std::string_view text) {
  const std::uint64_t shown = ms > FStartMs ? ms - FStartMs : 0;
  Draw(Format("%8llu ms  ", static_cast<unsigned long long>(shown)).append(text));
}

void TConsole::Write(const TLogRecord& record) {
  if (record.Diagnostic && (Mask() & DiagBit(record.Level)) == 0) return;
  const std::uint64_t ms = record.TimeMs > FStartMs ? record.TimeMs - FStartMs : 0;
  TGuard guard(FLock);
  if (FSettings.Json) {
    FLines.push_back({ms, LogLevelOf(record), record.Text, record.Source});
    return;
  }
  FStatus.Clear();
  FOut << Format("%8llu ms  ", static_cast<unsigned long long>(ms));
  if (FSettings.Trace)
    FOut << Format("%-9s ", LogLevelOf(record));
  else if (IsTrouble(record))
    FOut << "! ";
  FOut << (!FSettings.Trace && IsTrouble(record) ? ixocontroller::ErrorSentence(record.Text) : record.Text) << '\n'
       << std::flush;
}

void TConsole::Say(std::string_view line) {
  TGuard guard(FLock);
  if (FSettings.Json) return;
  FStatus.Clear();
  FOut << line << '\n' << std::flush;
}

void TConsole::SayLines(std::span<const std::string> lines) {
  TGuard guard(FLock);
  if (FSettings.Json || lines.empty()) return;
  FStatus.Clear();
  for (const std::string& line : lines) FOut << line << '\n';
  FOut << std::flush;
}

nlohmann::ordered_json TConsole::Log() const {
  TGuard guard(FLock);
  auto lines = nlohmann::ordered_json::array();
  for (const TLine& line : FLines) {
    lines.push_back({{"ms", line.Ms}, {"level", line.Level}, {"text", line.Text}});
    if (!line.Source.empty()) lines.back()["source"] = line.Source;
  }
  return lines;
}

int TConsole::Print(const nlohmann::ordered_json& result, const std::optional<TProblem>& problem, bool lines) {
  if (FSettings.Json) {
    TGuard guard(FLock);
    PrintDocument(FOut, FCommand, result, problem, lines);
  }
  return problem ? kExitOtherwise : kExitSuccess;
}

void TConsole::Note(std::string_view text) const {
  std::cerr << Format("%s %s: ", kProgramName, FCommand.c_str()).append(text).append("\n") << std::flush;
}

bool TConsole::Broken() const { return !FOut; }

}  // namespace ixocut
