#include "ixocamglue/platform/alarms/NcSimpleAlarmSource.h"

#include <utility>

#include "ixocamglue/platform/ports/NcAlarms.h"
#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/support/Faults.h"

namespace ixocamglue {

TNcSimpleAlarmSource::TNcSimpleAlarmSource(std::string prefix, std::vector<TRow> rows) : FPrefix(std::move(prefix)) {
  for (TRow& row : rows) {
    if ((row.Attrs & ~TNcAlarmAttrs{naShownOnly}) != 0) row.OnDelayMs = row.OffDelayMs = 0;
    const std::int32_t id = row.Id;
    FConditions[id].Row = std::move(row);
  }
  FWords.reserve(2 * FConditions.size());
}

void TNcSimpleAlarmSource::Set(std::int32_t id, bool active, std::string_view desc) {
  TGuard guard(FLock);
  const auto found = FConditions.find(id);
  if (found == FConditions.end()) return ReportFault(FPrefix + " has no alarm " + std::to_string(id));
  TCondition& condition = found->second;
  if (active) condition.Desc = desc;
  if (condition.Active == active) return;
  condition.Active = active;
  condition.Pulse = condition.Pulse || active;
  condition.SinceMs = Clock().MonotonicMs();
}

void TNcSimpleAlarmSource::RegisterAlarms(INcAlarmTable20& table) {
  TGuard guard(FLock);
  for (const auto& [id, condition] : FConditions) table.RegisterAlarm(id, condition.Row.Attrs);
}

void TNcSimpleAlarmSource::UpdateAlarms(INcAlarmReport20& report) {
  FWords.clear();
  {
    TGuard guard(FLock);
    const std::uint64_t now = Clock().MonotonicMs();
    for (auto& [id, condition] : FConditions) {
      // A condition that came and went between two reports is told, unless it has to last.
      const bool pulse = std::exchange(condition.Pulse, false);
      if (pulse && !condition.Active && !condition.Reported && condition.Row.OnDelayMs == 0) {
        FWords.insert(FWords.end(), {{id, TWord::Raise}, {id, TWord::Clear}});
        continue;
      }
      const bool before = condition.Reported;
      if (condition.Active != before &&
          now - condition.SinceMs >= (condition.Active ? condition.Row.OnDelayMs : condition.Row.OffDelayMs))
        condition.Reported = condition.Active;
      if (condition.Reported || before) FWords.emplace_back(id, condition.Reported ? TWord::Raise : TWord::Clear);
    }
  }
  for (const auto& [id, word] : FWords) word == TWord::Raise ? report.RaiseAlarm(id) : report.ClearAlarm(id);
}

void TNcSimpleAlarmSource::ResetAlarm(std::int32_t id) { Set(id, false); }

std::string TNcSimpleAlarmSource::GetAlarmDesc(std::int32_t id) {
  TGuard guard(FLock);
  const auto found = FConditions.find(id);
  if (found == FConditions.end()) return {};
  return found->second.Desc.empty() ? found->second.Row.Desc : found->second.Desc;
}

}  // namespace ixocamglue
