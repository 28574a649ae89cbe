// The commands that read an alarm store, those that need none (lookup and check), and what the controller that runs has
// to be told, as a store that it writes does not tell it.
#include "controller/alarms/AlarmChanges.h"
#include "controller/alarms/AlarmRows.h"
#include "controller/process/SignalStop.h"
#include "controller/process/StateFiles.h"
#include "controller/process/StateFolder.h"
#include "ixocamglue/alarms/Almintprt.h"
#include "ixocamglue/alarms/Ualarmdefs.h"
#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/UtcTime.h"
#include "ixocamglue/platform/xml/MachineConfig.h"
#include "ixocamglue/support/FileLock.h"
#include "ixocamglue/support/Files.h"
#include "ixocamglue/support/JsonText.h"
#include "ixocamglue/support/ValueText.h"
#include "ixocut/Command.h"
#include "ixocut/OperatorTexts.h"
#include "ixocut/alarms/AlarmsCommand.h"
#include "ixocut/client/Attach.h"

namespace ixocut {
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

// The interpreter with its services, for a command without a machine.
class TAlarmLookup {
 public:
  // The alarms of the machine file count too. Throws EProblem for a file that cannot be used.
  TAlarmLookup(const TAlarmsOptions& options, const TConsole& console) {
    FConfig.Load(KnownMachine(options)).OrThrow(pbUnusable);
    FApp.Register(IID_IAlarmInterpreterSvc, std::make_shared<TAlarmDefinitionFiles>(ShareFolder() / "alarms"));
    FTexts.emplace(console);
  }

 private:
  TAppSys FApp;
  TInstalled<TAppSys> FAppInstalled{FApp};
  TMachineConfig FConfig;
  TInstalled<TMachineConfig> FConfigInstalled{FConfig};
  std::optional<TOperatorTexts> FTexts;
};

}  // namespace

std::filesystem::path AlarmDbFile(const TAlarmsOptions& options) {
  return options.Db.empty() ? StateFolder(options.State) / kAlarmStoreFile : std::filesystem::path(options.Db);
}

int RunAlarmsLookup(const TAlarmsOptions& options, TConsole& console) {
  const TAlarmLookup lookup(options, console);
  const TAlarmInterpreter* const interpreter = AlarmInterpreter();
  TAlarmRec rec;
  TNcAlarmMsg msg;
  msg.Texts = TNcAlarmTexts(options.Id, {});
  const bool known = interpreter && interpreter->TryGetAlarmRec(msg, rec);
  const std::pair<const char*, const std::string*> fields[] = {
      {"HelpID", &rec.HelpID},       {"Code", &rec.Code},         {"Category", &rec.Category},
      {"Alarmtype", &rec.Alarmtype}, {"BrifDesc", &rec.BrifDesc}, {"AlarmDesc", &rec.AlarmDesc},
      {"Reason", &rec.Reason},       {"Solution", &rec.Solution}};
  nlohmann::ordered_json json{{"known", known}};
  for (const auto& [name, text] : fields) {
    json[name] = *text;
    console.Say(Format("%-10s %s", name, text->c_str()));
  }
  std::optional<TProblem> problem;
  if (!known) problem = {.What = Tr("no definition has this identifier"), .Where = options.Id};
  if (problem) console.Say(problem->Text());
  return console.Print(json, problem);
}

int RunAlarmsList(const TAlarmsOptions& options, TConsole& console) {
  const TAlarmFilter filter = Filter(options);
  TAlarmHistory history(AlarmDbFile(options));
  const TAlarmLookup lookup(options, console);
  const auto suppressions = history.Suppressions(UtcNow());
  auto json = nlohmann::ordered_json::array();
  if (options.Csv) console.Say(AlarmCsvHead());
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
      console.Say(options.Csv ? AlarmCsv(row) : AlarmLine(row));
  }
  if (hidden > 0 && !options.Csv) {
    std::string line = Format(Tr("%zu suppressed (--suppressed shows them):"), hidden);
    for (const TAlarmSuppression& s : suppressions)
      line += Format(Tr(" %s until %s, %s;"), s.Identifier.c_str(), ShownTime(s.Until).c_str(), s.Reason.c_str());
    console.Say(line);
  }
  return console.Print(json);
}

int RunAlarmsWatch(const TAlarmsOptions& options, TConsole& console) {
  TAlarmChanges changes(AlarmDbFile(options));
  const TAlarmLookup lookup(options, console);
  const TSignalStop signals;
  const std::uint64_t start = Clock().MonotonicMs();
  const auto ended = [&] {
    return TSignalStop::Asked() || (options.ForMs != 0 && Clock().MonotonicMs() - start >= options.ForMs);
  };
  for (; !ended(); Clock().Sleep(kWatchEveryMs))
    for (const TAlarmRow& stored : changes.Next()) {
      const TAlarmRow row = Translated(stored);
      console.Say(AlarmLine(row));
      console.Print(AlarmJson(row), {}, true);
    }
  return kExitSuccess;
}

int RunAlarmsStats(const TAlarmsOptions& options, TConsole& console) {
  const TAlarmFilter filter = Filter(options);
  TAlarmHistory history(AlarmDbFile(options));
  const TAlarmStats stats = StatsOf(history.Rows(filter), UtcNow());
  console.Say(Format(Tr("raises           %zu, %zu of them active"), stats.Raises, stats.Active));
  console.Say(Format(Tr("per 10 minutes   %.2f on average, %zu at most, %zu in the last ten"), stats.PerSpan,
                     stats.BusiestSpan, stats.LastSpan));
  for (const auto& flood : stats.Floods)
    console.Say(Format(Tr("flood            %zu raises from %s to %s"), flood.Raises, ShownTime(flood.From).c_str(),
                       ShownTime(flood.To).c_str()));
  for (const auto& count : stats.Chattering)
    console.Say(Format(Tr("chattering       %s, %zu raises in 60 s"), count.Identifier.c_str(), count.Raises));
  for (const auto& row : stats.Stale)
    console.Say(
        Format(Tr("stale            %s, active since %s"), row.Identifier.c_str(), ShownTime(row.Raised).c_str()));
  for (const auto& count : stats.Frequent)
    console.Say(Format(Tr("frequent         %6zu  %s"), count.Raises, count.Identifier.c_str()));
  return console.Print(StatsJson(stats));
}

namespace {

EProblem NotActive(const std::string& id) {
  return {pbRefused, {.What = Tr("no active alarm has this identifier"), .Where = id}};
}

int TellAcknowledged(const TAlarmsOptions& options, const std::string& who, TConsole& console) {
  console.Say(Format(Tr("%s acknowledged by %s"), options.Id.c_str(), who.c_str()));
  return console.Print({{"identifier", options.Id}, {"byWhom", who}});
}

int AcknowledgeInStore(const TAlarmsOptions& options, TConsole& console) {
  if (options.Who.empty()) throw EProblem(pbRequest, Tr("--who is missing: who has seen it"));
  TAlarmHistory history(AlarmDbFile(options));
  if (!history.Acknowledge(options.Id, options.Who, UtcNow())) throw NotActive(options.Id);
  return TellAcknowledged(options, options.Who, console);
}

}  // namespace

int RunAlarmsAck(TAlarmsOptions options, TConsole& console) {
  if (!options.Db.empty()) return AcknowledgeInStore(options, console);
  const TAttached attachment(options);
  TWireClient* const client = attachment.Client();
  if (!client) return AcknowledgeInStore(options, console);
  nlohmann::ordered_json seen;  // the newest one
  const auto standing = client->Get("/api/v1/alarms");
  for (const auto& alarm : standing.at("alarms"))
    if (alarm.at("identifier") == options.Id) seen = alarm.at("serial");
  if (seen.is_null()) throw NotActive(options.Id);
  const auto answer = client->Post("/api/v1/alarms/" + seen.dump() + "/acknowledge");
  return TellAcknowledged(options, answer.at("byWhom"), console);
}

int RunAlarmsSuppress(TAlarmsOptions options, TConsole& console) {
  const TAttached attachment(options);
  const auto answer = attachment.Controller().Post(
      "/api/v1/alarms/suppress",
      {{"identifier", options.Id}, {"minutes", options.Minutes}, {"reason", options.Reason}});
  console.Say(Format(Tr("%s is suppressed until %s"), options.Id.c_str(),
                     ShownTime(answer.at("until").get<std::string>()).c_str()));
  return console.Print(answer);
}

int RunAlarmsClear(const TAlarmsOptions& options, TConsole& console) {
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
                               .Remedy = Tr("the next start of the machine closes it")});
  }
  console.Say(Format(Tr("%s cleared"), options.Id.c_str()));
  return console.Print({{"identifier", options.Id}});
}

int RunAlarmsCheck(const TAlarmsOptions& options, TConsole& console) {
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
  auto json = nlohmann::ordered_json::array();
  for (const TProblem& problem : problems) {
    json.push_back(ProblemJson(problem));
    const std::string line = problem.Text();
    console.Say(options.File + (line.front() >= '0' && line.front() <= '9' ? ":" : ": ") + line);
  }
  if (problems.empty()) console.Say(Format(Tr("%s: in order"), options.File.c_str()));
  return console.Print({{"file", options.File}, {"problems", json}},
                       problems.empty() ? std::nullopt : std::optional(problems.front()));
}

}  // namespace ixocut
