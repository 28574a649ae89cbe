// The commands that read an alarm store, and those that need none: lookup and check.
#include <algorithm>
#include <cstdio>
#include <map>
#include <ostream>

#include <nlohmann/json.hpp>

#include "controller/SignalStop.h"
#include "controller/StateFolder.h"
#include "ixocamglue/alarms/Almintprt.h"
#include "ixocamglue/alarms/Ualarmdefs.h"
#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/support/Files.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Problem.h"
#include "ixocamglue/support/ValueText.h"
#include "ixocut/CommandLine.h"
#include "ixocut/alarms/AlarmView.h"
#include "ixocut/alarms/AlarmsCommand.h"

namespace ixocut {
using namespace ixocontroller;
namespace {

constexpr std::uint32_t kWatchEveryMs = 100;

std::string NowText() { return FormatDateTime(Clock().Now()); }

// What the interpreter knows of the machine's own alarms, where there is a machine file already: reading makes none.
std::filesystem::path KnownMachine(const TAlarmsOptions& options) {
  if (options.Machine) return MachineFile(options.Machine, options.State);
  const std::filesystem::path copy = StateFolder(options.State) / "machine.xml";
  std::error_code error;
  return std::filesystem::exists(copy, error) ? copy : ShareFolder() / "machines" / "machine.xml";
}

void Dump(std::ostream& out, const nlohmann::ordered_json& json) {
  out << json.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
}

TAlarmFilter FilterOf(const TAlarmsOptions& options) {
  if (!options.Since.empty() && !StoredTimeMs(options.Since))
    throw EProblem(pbRequest, "--since: \"" + options.Since +
                                  "\" is no time; expected YYYY-MM-DD, or that with hh:mm, hh:mm:ss or "
                                  "hh:mm:ss.zzz behind a blank");
  TAlarmFilter filter;
  if (options.Active != options.History)
    filter.What = options.Active ? TAlarmFilter::TWhat::Active : TAlarmFilter::TWhat::History;
  filter.Since = options.Since;
  filter.Level = options.Level;
  filter.Identifier = options.Id;
  return filter;
}

}  // namespace

std::filesystem::path AlarmDbFile(const TAlarmsOptions& options) {
  return options.Db.empty() ? StateFolder(options.State) / "alarms.db" : std::filesystem::path(options.Db);
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
  if (options.Json) {
    nlohmann::ordered_json json{{"known", known}};
    for (const auto& [name, text] : fields) json[name] = *text;
    Dump(out, json);
  } else {
    for (const auto& [name, text] : fields) out << Format("%-10s %s\n", name, text->c_str());
    if (!known) out << "no definition has this identifier\n";
  }
  return known ? kExitSuccess : kExitOtherwise;
}

int RunAlarmsList(const TAlarmsOptions& options, std::ostream& out) {
  const TAlarmFilter filter = FilterOf(options);
  TAlarmHistory history(AlarmDbFile(options));
  const TAlarmLookup lookup(options.Language, KnownMachine(options));
  const auto suppressions = history.Suppressions(NowText());
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
    Dump(out, json);
  } else if (hidden > 0 && !options.Csv) {
    out << Format("%zu suppressed (--suppressed shows them):", hidden);
    for (const TAlarmSuppression& s : suppressions)
      out << Format(" %s until %s, %s;", s.Identifier.c_str(), s.Until.c_str(), s.Reason.c_str());
    out << '\n';
  }
  return kExitSuccess;
}

int RunAlarmsWatch(const TAlarmsOptions& options, std::ostream& out) {
  TAlarmHistory history(AlarmDbFile(options));
  const TAlarmLookup lookup(options.Language, KnownMachine(options));
  const TSignalStop signals;
  const std::uint64_t start = Clock().MonotonicMs();
  std::map<std::int64_t, std::string> shown;  // the state of each row that was shown or is old
  std::int64_t version = -1;
  bool first = true;
  const auto ended = [&] {
    return signals.Asked() || (options.ForMs != 0 && Clock().MonotonicMs() - start >= options.ForMs);
  };
  for (; !ended(); Clock().Sleep(kWatchEveryMs)) {
    try {
      const std::int64_t present = history.DataVersion();
      if (present == version) continue;
      const auto suppressions = history.Suppressions(NowText());
      for (const TAlarmRow& row : history.Rows({})) {
        std::string state = AlarmState(row);
        const auto [known, isNew] = shown.try_emplace(row.Row);
        if (!isNew && known->second == state) continue;
        known->second = std::move(state);
        if ((first && !row.Active()) || IsSuppressed(row, suppressions)) continue;
        out << AlarmLine(Translated(row)) << '\n';
      }
      out << std::flush;
      version = present;
      first = false;
    } catch (const ESqlite&) {  // a writer holds the file; the next round reads it
    }
  }
  return kExitSuccess;
}

int RunAlarmsStats(const TAlarmsOptions& options, std::ostream& out) {
  const TAlarmFilter filter = FilterOf(options);
  TAlarmHistory history(AlarmDbFile(options));
  const TAlarmStats stats = StatsOf(history.Rows(filter), NowText());
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
    Dump(out, json);
    return kExitSuccess;
  }
  out << Format("raises           %zu, %zu of them active\n", stats.Raises, stats.Active);
  out << Format("per 10 minutes   %.2f on average, %zu at most, %zu in the last ten\n", stats.PerSpan,
                stats.BusiestSpan, stats.LastSpan);
  for (const auto& flood : stats.Floods)
    out << Format("flood            %zu raises from %s to %s\n", flood.Raises, flood.From.c_str(), flood.To.c_str());
  for (const auto& count : stats.Chattering)
    out << Format("chattering       %s, %zu raises in 60 s\n", count.Identifier.c_str(), count.Raises);
  for (const auto& row : stats.Stale)
    out << Format("stale            %s, active since %s\n", row.Identifier.c_str(), row.Raised.c_str());
  for (const auto& count : stats.Frequent)
    out << Format("frequent         %6zu  %s\n", count.Raises, count.Identifier.c_str());
  return kExitSuccess;
}

int RunAlarmsAck(const TAlarmsOptions& options, std::ostream& out) {
  TAlarmHistory history(AlarmDbFile(options));
  if (!history.Acknowledge(options.Id, options.Who, NowText())) {
    out << options.Id << ": no active alarm has this identifier\n";
    return kExitOtherwise;
  }
  out << options.Id << " acknowledged by " << options.Who << '\n';
  return kExitSuccess;
}

int RunAlarmsCheck(const TAlarmsOptions& options, std::ostream& out) {
  const std::string text = ReadFile(std::filesystem::path(options.File)).OrThrow(pbUnusable);
  const bool isXml = TrimXml(WithoutMark(text)).starts_with('<');
  std::vector<TProblem> problems;
  if (isXml) {
    TMachineConfig config;
    const TInstalled<TMachineConfig> installed(config);
    if (const auto loaded = config.Load(options.File); !loaded) {
      out << loaded.Problem().Text() << '\n';
      return kExitOtherwise;
    }
    problems = CheckAlarmsSection(config.Section("Alarms"));
  } else {
    problems = CheckAlarmDefinitions(text);
  }
  for (const TProblem& problem : problems) {
    const std::string line = problem.Text();
    out << options.File << (line.front() >= '0' && line.front() <= '9' ? ":" : ": ") << line << '\n';
  }
  if (problems.empty()) out << options.File << ": in order\n";
  return problems.empty() ? kExitSuccess : kExitOtherwise;
}

}  // namespace ixocut
