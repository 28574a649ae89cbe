#include "controller/service/AlarmDesk.h"

#include <algorithm>
#include <utility>

#include "ixocamglue/alarms/Almintprt.h"
#include "ixocamglue/alarms/Ualarmmanager.h"
#include "ixocamglue/alarms/store/AlarmHistory.h"
#include "ixocamglue/platform/services/LocaleManager.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/platform/services/UtcTime.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

constexpr std::size_t kMostHidden = 1000;

// What the definition says, in the thread's language; the description is as the device wrote it.
nlohmann::ordered_json Described(const TNcAlarmRecord& record, const std::string& lang) {
  TAlarmRec rec;
  const std::string identifier = record.Identifier();
  const TAlarmInterpreter* const interpreter = AlarmInterpreter();
  const bool known = interpreter && interpreter->TryGetAlarmRec(identifier, rec);
  return {{"serial", record.Serial},
          {"level", record.Level()},
          {"identifier", identifier},
          {"raised", FormatUtc(record.Time)},
          {"code", known ? rec.Code : identifier},
          {"category", rec.Category},
          {"type", rec.Alarmtype},
          {"text", rec.AlarmDesc.empty() ? Retold(record.Desc) : rec.AlarmDesc},
          {"reason", rec.Reason},
          {"solution", rec.Solution},
          {"description", record.Desc},
          {"forbidsMove", (record.Attrs & naForbidMove) != 0},
          {"forbidsLaser", (record.Attrs & naForbidLaser) != 0},
          {"lang", lang}};
}

}  // namespace

TAlarmDesk::TAlarmDesk(TController& controller, TEventRing& events) : FController(controller), FEvents(events) {
  if (const TAlarmStore* const store = FController.AlarmStore()) {
    try {
      TAlarmHistory history(store->File());
      TGuard guard(FLock);
      for (TAlarmSuppression& hidden : history.Suppressions(UtcNow()))
        FUntil.emplace(std::move(hidden.Identifier), std::move(hidden.Until));
    } catch (const ESqlite& e) {  // it is told of, and tried again, by the store itself
      LogMsg(lkWarning, 0, e.what(), "TPHost");
    }
  }
  TNcAlarmManager& alarms = FController.Alarms();
  FAdded = alarms.AlarmAdded().Subscribe([this](const TNcAlarmRecord& record) { Tell("raised", record); });
  FRemoved = alarms.AlarmRemoved().Subscribe([this](const TNcAlarmRecord& record) {
    {
      TGuard guard(FLock);
      FSeen.erase(record.Serial);
    }
    Tell("cleared", record);
  });
}

TAlarmDesk::~TAlarmDesk() {
  FController.Alarms().AlarmAdded().Unsubscribe(FAdded);
  FController.Alarms().AlarmRemoved().Unsubscribe(FRemoved);
}

void TAlarmDesk::Tell(const char* what, const TNcAlarmRecord& record) {
  FEvents.Add(evAlarm, [what, record, lang = OwnLanguage()] {
    auto json = Described(record, lang);
    json["event"] = what;
    json["at"] = json["raised"];  // of the clear, where it is one
    json.erase("raised");
    return json;
  });
}

nlohmann::ordered_json TAlarmDesk::JsonOf(const TNcAlarmRecord& record) const {
  auto json = Described(record, OwnLanguage());
  const std::string now = FormatUtc(UtcNow());
  TGuard guard(FLock);
  const auto seen = FSeen.find(record.Serial);
  json["acknowledged"] = seen == FSeen.end() ? nlohmann::ordered_json() : nlohmann::ordered_json(seen->second.At);
  json["byWhom"] = seen == FSeen.end() ? nlohmann::ordered_json() : nlohmann::ordered_json(seen->second.ByWhom);
  const auto until = FUntil.find(record.Identifier());
  const bool hidden = record.Level() == 0 && until != FUntil.end() && until->second > now;
  json["suppressedUntil"] = hidden ? nlohmann::ordered_json(until->second) : nlohmann::ordered_json();
  return json;
}

nlohmann::ordered_json TAlarmDesk::Standing() const {
  auto list = nlohmann::ordered_json::array();
  for (const TNcAlarmRecord& record : FController.Alarms().Standing()) list.push_back(JsonOf(record));
  return list;
}

bool TAlarmDesk::Acknowledge(std::uint64_t serial, const TAsker& who) {
  const auto standing = FController.Alarms().Standing();
  const auto found = std::ranges::find(standing, serial, &TNcAlarmRecord::Serial);
  if (found == standing.end()) return false;
  const TDateTime now = UtcNow();
  {
    TGuard guard(FLock);
    FSeen[serial] = {FormatUtc(now), who.Name};
  }
  if (!FController.Alarms().Stands(serial)) {  // its clear may have come before
    TGuard guard(FLock);
    FSeen.erase(serial);
    return false;
  }
  const std::string identifier = found->Identifier();
  if (TAlarmStore* const store = FController.AlarmStore()) store->Acknowledge(identifier, who.Name);
  if (TAlarmManager* const manager = FController.AlarmStore() ? AlarmManager() : nullptr)
    manager->Acknowledge(identifier, now);
  FEvents.Add(evAlarm, [record = *found, by = who.Name, at = FormatUtc(now), lang = OwnLanguage()] {
    auto json = Described(record, lang);
    json["event"] = "acknowledged";
    json["at"] = at;
    json["byWhom"] = by;
    return json;
  });
  return true;
}

TResult<std::string> TAlarmDesk::Suppress(const std::string& identifier, std::uint64_t minutes,
                                          const std::string& reason, const TAsker& who) {
  for (const TNcAlarmRecord& record : FController.Alarms().Standing())
    if (record.Level() != 0 && record.Identifier() == identifier)
      return TProblem{.What = Format(Tr("%s stands with level 1, which is never suppressed"), identifier.c_str())};
  const TDateTime now = UtcNow();
  const std::string until = FormatUtc(MinutesLater(now, static_cast<std::int64_t>(minutes)));
  {
    TGuard guard(FLock);
    std::erase_if(FUntil, [&](const auto& hidden) { return hidden.second <= FormatUtc(now); });
    if (!FUntil.contains(identifier) && FUntil.size() >= kMostHidden)
      return TProblem{.What = Format(Tr("%zu identifiers are suppressed already, which is the most"), FUntil.size())};
    FUntil[identifier] = until;
  }
  if (TAlarmStore* const store = FController.AlarmStore())
    store->Suppress({identifier, until, reason.empty() ? who.Name : reason + " (" + who.Name + ")"});
  FEvents.Add(evAlarm, [identifier, until, by = who.Name] {
    return nlohmann::ordered_json{
        {"event", "suppressed"}, {"identifier", identifier}, {"until", until}, {"byWhom", by}};
  });
  return until;
}

}  // namespace ixocontroller
