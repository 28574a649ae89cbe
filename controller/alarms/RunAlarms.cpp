#include "controller/alarms/RunAlarms.h"

#include <algorithm>
#include <utility>

#include <nlohmann/json.hpp>

#include "ixocamglue/alarms/Almintprt.h"
#include "ixocamglue/alarms/Ualarmtexts.h"
#include "ixocamglue/platform/services/LocaleManager.h"
#include "ixocamglue/platform/services/UtcTime.h"
#include "ixocamglue/support/Format.h"

namespace ixocontroller {
namespace {

// The monotonic time of a moment (UTC) that is not long ago.
std::uint64_t MsOf(TDateTime time) {
  const std::uint64_t now = Clock().MonotonicMs();
  const std::int64_t ago = UnixMs(UtcNow()) - UnixMs(time);
  return now - std::min(now, static_cast<std::uint64_t>(std::max(ago, std::int64_t{0})));
}

std::uint64_t Since(std::uint64_t startMs, std::uint64_t ms) { return ms > startMs ? ms - startMs : 0; }

}  // namespace

TRunAlarm TRunAlarm::Of(const TNcAlarmRecord& record) {
  TRunAlarm alarm;
  alarm.RaisedMs = MsOf(record.Time);
  alarm.Serial = record.Serial;
  alarm.Level = record.Level();
  alarm.Identifier = record.Identifier();
  alarm.Description = record.Desc;
  alarm.Lang = OwnLanguage();
  alarm.Define();
  return alarm;
}

void TRunAlarm::Define() {
  const TAlarmInterpreter* const interpreter = AlarmInterpreter();
  TAlarmRec rec;
  const bool known = interpreter && interpreter->TryGetAlarmRec(Identifier, rec);
  Code = known ? std::move(rec.Code) : Identifier;
  Text = rec.AlarmDesc.empty() ? Retold(Description) : std::move(rec.AlarmDesc);
  Reason = std::move(rec.Reason);
  Solution = std::move(rec.Solution);
}

std::string TRunAlarm::Words() const {
  std::string words = Format("%s %d  %s", SAlarm.Get(), Level, Identifier.c_str());
  if (Code != Identifier) words += "  " + Code;
  for (const std::string* const text : {&Text, &Reason, &Solution})
    if (!text->empty()) words += "  | " + *text;
  return words;
}

std::vector<std::string> AlarmLines(std::span<const TRunAlarm> alarms, std::uint64_t startMs) {
  std::vector<std::string> lines;
  for (const TRunAlarm& alarm : alarms)
    lines.push_back(
        Format("%8llu  %s", static_cast<unsigned long long>(Since(startMs, alarm.RaisedMs)), alarm.Words().c_str()));
  return lines;
}

nlohmann::ordered_json AlarmsJson(std::span<const TRunAlarm> alarms, std::uint64_t startMs) {
  auto list = nlohmann::ordered_json::array();
  for (TRunAlarm alarm : alarms) {
    if (GThreadCatalogue) alarm.Define();
    auto& json = list.emplace_back(nlohmann::ordered_json{{"atMs", Since(startMs, alarm.RaisedMs)},
                                                          {"clearedMs", nullptr},
                                                          {"level", alarm.Level},
                                                          {"identifier", alarm.Identifier},
                                                          {"description", alarm.Description},
                                                          {"lang", alarm.Lang},
                                                          {"code", alarm.Code},
                                                          {"text", alarm.Text},
                                                          {"reason", alarm.Reason},
                                                          {"solution", alarm.Solution}});
    if (alarm.ClearedMs) json["clearedMs"] = Since(startMs, *alarm.ClearedMs);
  }
  return list;
}

TRunAlarms::TRunAlarms(TNcAlarmManager& package) : FPackage(package) {
  FPackage.BeginRead();
  for (std::int32_t i = 0; i < FPackage.GetAlarmCount(); ++i) Raised(FPackage.GetAlarm(i));
  FAdded = FPackage.AlarmAdded().Subscribe([this](const TNcAlarmRecord& record) { Raised(record); });
  FRemoved = FPackage.AlarmRemoved().Subscribe([this](const TNcAlarmRecord& record) { Cleared(record); });
  FPackage.EndRead();
}

TRunAlarms::~TRunAlarms() {
  FPackage.AlarmAdded().Unsubscribe(FAdded);
  FPackage.AlarmRemoved().Unsubscribe(FRemoved);
}

void TRunAlarms::Raised(const TNcAlarmRecord& record) {
  TRunAlarm alarm = TRunAlarm::Of(record);
  TGuard guard(FLock);
  if (FItems.size() < kMost)
    FItems.push_back(std::move(alarm));
  else
    ++FGone;
}

void TRunAlarms::Cleared(const TNcAlarmRecord& record) {
  TGuard guard(FLock);
  const auto raised = std::ranges::find(FItems, record.Serial, &TRunAlarm::Serial);
  if (raised != FItems.end()) raised->ClearedMs = MsOf(record.Time);
}

std::size_t TRunAlarms::Gone() const {
  TGuard guard(FLock);
  return FGone;
}

std::vector<TRunAlarm> TRunAlarms::Items() const {
  TGuard guard(FLock);
  return FItems;
}

}  // namespace ixocontroller
