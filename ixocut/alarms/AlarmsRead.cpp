// The commands that read an alarm store, and those that need none: lookup and check.
#include <algorithm>
#include <cstdio>
#include <map>
#include <optional>
#include <ostream>

#include <nlohmann/json.hpp>

#include "controller/SignalStop.h"
#include "controller/StateFiles.h"
#include "controller/StateFolder.h"
#include "ixocamglue/alarms/Almintprt.h"
#include "ixocamglue/alarms/Ualarmdefs.h"
#include "ixocamglue/platform/services/UtcTime.h"
#include "ixocamglue/support/FileLock.h"
#include "ixocamglue/support/Files.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/JsonText.h"
#include "ixocamglue/support/Problem.h"
#include "ixocamglue/support/Texts.h"
#include "ixocamglue/support/ValueText.h"
#include "ixocut/CommandLine.h"
#include "ixocut/Document.h"
#include "ixocut/alarms/AlarmView.h"
#include "ixocut/alarms/AlarmsCommand.h"

namespace ixocut {
using namespace ixocontroller;
namespace {

constexpr std::uint32_t kWatchEveryMs = 100;

// What the interpreter knows of the machine's own alarms, where there is a machine file already: reading makes none.
std::filesystem::path KnownMachine(const TAlarmsOptions& options) {
  if (options.Machine) return MachineFile(options.Machine, options.State);
  const std::filesystem::path copy = StateFolder(options.State) / kMachineFile;
  std::error_code error;
  return std::filesystem::exists(copy, error) ? copy : ShareFolder() / "machines" / "machine.xml";
}

TAlarmFilter Filter(const TAlarmsOptions& options) {
  return FilterOf({options.Since, options.Active, options.History, options.Level, options.Id}, "--since");
}

}  // namespace

std::filesystem::path AlarmDbFile(const TAlarmsOptions& options) {
  return options.Db.empty() ? StateFolder(options.State) / kAlarmStoreFile : std::filesystem::path(options.Db);
}

int RunAlarmsLookup(const TAlarmsOptions& options, std::ostream& out) {
  const TAlarmLookup lookup(options.Language, KnownMachine(options));
  const TAlarmInterpreter* const interpreter = AlarmInterpreter();
  TAlarmRec rec;
  TNcAlarmMsg msg;
  msg.Texts = TNcAlarmTexts(options.Id, {});
  const bool known = interpreter && interpreter->TryGetAlarmRec(msg, rec);
  const std::pair<const char*, const std::string*> fields[] = {
      {"HelpID", &rec.HelpID},       {"Code", &rec.Code},         {"Category", &rec.Category},
      {"Alarmtype", &rec.Alarmtype}, {"BrifDesc", &rec.BrifDesc}, {"AlarmDesc", &rec.AlarmDesc},
      {"Reason", &rec.Reason},       {"Solution", &rec.Solution}};
  const std::optional<TProblem> problem =
      known ? std::nullopt
            : std::optional(TProblem{.What = Tr("no definition has this identifier"), .Where = options.Id});
  if (options.Json) {
    nlohmann::ordered_json json{{"known", known}};
    for (const auto& [name, text] : fields) json[name] = *text;
    PrintDocument(out, "alarms lookup", json, problem);
  } else {
    for (const auto& [name, text] : fields) out << Format("%-10s %s\n", name, text->c_str());
    if (problem) out << problem->Text() << '\n';
  }
  return known ? kExitSuccess : kExitOtherwise;
}

int RunAlarmsList(const TAlarmsOptions& options, std::ostream& out) {
  const TAlarmFilter filter = Filter(options);
  TAlarmHistory history(AlarmDbFile(options));
  const TAlarmLookup lookup(options.Language, KnownMachine(options));
  const auto suppressions = history.Suppressions(UtcNow());
  auto json = nlohmann::ordered_json::array();
  if (options.Csv) out << AlarmCsvHead() << '\n';
  std::size_t hidden = 0;
  for (const TAlarmRow& stored : history.Rows(filter)) {
    if (!options.Suppressed && IsSuppressed(stored, suppressions)) {
      ++hidden;
      continue;
    }
    const TAlarmRow row = Translated(stored);
    if (options.Json)
      json.push_back(AlarmJson(row));
    else
      out << (options.Csv ? AlarmCsv(row) : AlarmLine(row)) << '\n';
  }
  if (options.Json) {
    PrintDocument(out, "alarms list", json);
  } else if (hidden > 0 && !options.Csv) {
    out << Format(Tr("%zu suppressed (--suppressed shows them):"), hidden);
    for (const TAlarmSuppression& s : suppressions)
      out << Format(Tr(" %s until %s, %s;"), s.Identifier.c_str(), ShownTime(s.Until).c_str(), s.Reason.c_str());
    out << '\n';
  }
  return kExitSuccess;
}

int RunAlarmsWatch(const TAlarmsOptions& options, std::ostream& out) {
  std::optional<TAlarmHistory> history(std::in_place, AlarmDbFile(options));
  const TAlarmLookup lookup(options.Language, KnownMachine(options));
  const TSignalStop signals;
  const std::uint64_t start = Clock().MonotonicMs();
  std::map<std::int64_t, std::string> shown;  // the state of each row that was shown or is old
  std::int64_t version = -1;
  bool first = true;
  const auto look = [&] {
    if (!history || !history->InPlace()) {
      history.reset();
      history.emplace(AlarmDbFile(options));
      shown.clear();
      version = -1;
    }
    const std::int64_t present = history->DataVersion();
    if (present == version) return;
    const auto suppressions = history->Suppressions(UtcNow());
    for (const TAlarmRow& row : history->Rows({})) {
      std::string state = AlarmState(row);
      const auto [known, isNew] = shown.try_emplace(row.Row);
      if (!isNew && known->second == state) continue;
      known->second = std::move(state);
      if ((first && !row.Active()) || IsSuppressed(row, suppressions)) continue;
      if (options.Json)
        PrintDocument(out, "alarms watch", AlarmJson(Translated(row)), {}, true);
      else
        out << AlarmLine(Translated(row)) << '\n';
    }
    out << std::flush;
    version = present;
    first = false;
  };
  const auto ended = [&] {
    return signals.Asked() || (options.ForMs != 0 && Clock().MonotonicMs() - start >= options.ForMs);
  };
  for (; !ended(); Clock().Sleep(kWatchEveryMs)) {
    try {
      look();
    } catch (const ESqlite&) {  // a writer holds the file, or makes it again; the next round reads it
    }
  }
  return kExitSuccess;
}

int RunAlarmsStats(const TAlarmsOptions& options, std::ostream& out) {
  const TAlarmFilter filter = Filter(options);
  TAlarmHistory history(AlarmDbFile(options));
  const TAlarmStats stats = StatsOf(history.Rows(filter), UtcNow());
  if (options.Json) {
    nlohmann::ordered_json json{{"raises", stats.Raises},
                                {"active", stats.Active},
                                {"last10Min", stats.LastSpan},
                                {"per10Min", stats.PerSpan},
                                {"busiest10Min", stats.BusiestSpan},
                                {"floods", nlohmann::ordered_json::array()},
                                {"chattering", nlohmann::ordered_json::array()},
                                {"stale", nlohmann::ordered_json::array()},
                                {"mostFrequent", nlohmann::ordered_json::array()}};
    for (const auto& flood : stats.Floods)
      json["floods"].push_back({{"from", flood.From}, {"to", flood.To}, {"raises", flood.Raises}});
    for (const auto& count : stats.Chattering)
      json["chattering"].push_back({{"identifier", count.Identifier}, {"raisesIn60s", count.Raises}});
    for (const auto& row : stats.Stale)
      json["stale"].push_back({{"identifier", row.Identifier}, {"raised", row.Raised}});
    for (const auto& count : stats.Frequent)
      json["mostFrequent"].push_back({{"identifier", count.Identifier}, {"raises", count.Raises}});
    PrintDocument(out, "alarms stats", json);
    return kExitSuccess;
  }
  out << Format(Tr("raises           %zu, %zu of them active\n"), stats.Raises, stats.Active);
  out << Format(Tr("per 10 minutes   %.2f on average, %zu at most, %zu in the last ten\n"), stats.PerSpan,
                stats.BusiestSpan, stats.LastSpan);
  for (const auto& flood : stats.Floods)
    out << Format(Tr("flood            %zu raises from %s to %s\n"), flood.Raises, ShownTime(flood.From).c_str(),
                  ShownTime(flood.To).c_str());
  for (const auto& count : stats.Chattering)
    out << Format(Tr("chattering       %s, %zu raises in 60 s\n"), count.Identifier.c_str(), count.Raises);
  for (const auto& row : stats.Stale)
    out << Format(Tr("stale            %s, active since %s\n"), row.Identifier.c_str(), ShownTime(row.Raised).c_str());
  for (const auto& count : stats.Frequent)
    out << Format(Tr("frequent         %6zu  %s\n"), count.Raises, count.Identifier.c_str());
  return kExitSuccess;
}

EProblem NotActive(const std::string& id) {
  return {pbRefused, {.What = Tr("no active alarm has this identifier"), .Where = id, .Why = {}, .Remedy = {}}};
}

void TellAcknowledged(const TAlarmsOptions& options, const std::string& who, std::ostream& out) {
  if (options.Json)
    PrintDocument(out, "alarms ack", {{"identifier", options.Id}, {"byWhom", who}});
  else
    out << Format(Tr("%s acknowledged by %s\n"), options.Id.c_str(), who.c_str());
}

int AcknowledgeInStore(const TAlarmsOptions& options, std::ostream& out) {
  if (options.Who.empty()) throw EProblem(pbRequest, Tr("--who is missing: who has seen it"));
  TAlarmHistory history(AlarmDbFile(options));
  if (!history.Acknowledge(options.Id, options.Who, UtcNow())) throw NotActive(options.Id);
  TellAcknowledged(options, options.Who, out);
  return kExitSuccess;
}

int RunAlarmsClear(const TAlarmsOptions& options, std::ostream& out) {
  const std::filesystem::path db = AlarmDbFile(options);
  TAlarmHistory history(db);
  TFileLock lock;
  if (const TLockState state = lock.Take(db.string(), 0); state != lsHeld)
    throw EProblem(state == lsBusy ? pbRefused : pbUnusable, lock.Problem());
  if (!history.Clear(options.Id, UtcNow())) {
    if (history.Rows({.What = TAlarmFilter::TWhat::Active, .Identifier = options.Id}).empty())
      throw NotActive(options.Id);
    throw EProblem(pbRefused, {.What = Tr("this alarm was raised by the machine, not by hand"),
                               .Where = options.Id,
                               .Why = {},
                               .Remedy = Tr("the next start of the machine closes it")});
  }
  if (options.Json)
    PrintDocument(out, "alarms clear", {{"identifier", options.Id}});
  else
    out << Format(Tr("%s cleared\n"), options.Id.c_str());
  return kExitSuccess;
}

int RunAlarmsCheck(const TAlarmsOptions& options, std::ostream& out) {
  const std::string text = ReadFile(std::filesystem::path(options.File)).OrThrow(pbUnusable);
  const bool isXml = TrimXml(WithoutMark(text)).starts_with('<');
  std::vector<TProblem> problems;
  if (isXml) {
    TMachineConfig config;
    const TInstalled<TMachineConfig> installed(config);
    config.Load(options.File).OrThrow(pbRefused);
    problems = CheckAlarmsSection(config.Section("Alarms"));
  } else {
    problems = CheckAlarmDefinitions(text);
  }
  if (options.Json) {
    auto json = nlohmann::ordered_json::array();
    for (const TProblem& problem : problems) json.push_back(ProblemJson(problem));
    PrintDocument(out, "alarms check", {{"file", options.File}, {"problems", json}},
                  problems.empty() ? std::nullopt : std::optional(problems.front()));
  } else {
    for (const TProblem& problem : problems) {
      const std::string line = problem.Text();
      out << options.File << (line.front() >= '0' && line.front() <= '9' ? ":" : ": ") << line << '\n';
    }
    if (problems.empty()) out << Format(Tr("%s: in order\n"), options.File.c_str());
  }
  return problems.empty() ? kExitSuccess : kExitOtherwise;
}

}  // namespace ixocut
