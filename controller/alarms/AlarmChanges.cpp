#include "controller/alarms/AlarmChanges.h"

#include <utility>

#include "controller/alarms/AlarmRows.h"
#include "ixocamglue/platform/services/UtcTime.h"

namespace ixocontroller {

TAlarmChanges::TAlarmChanges(std::filesystem::path file) : FFile(std::move(file)), FHistory(std::in_place, FFile) {}

std::vector<TAlarmRow> TAlarmChanges::Next() {
  try {
    return Read();
  } catch (const ESqlite&) {  // a writer holds the file, or makes it again
    return {};
  }
}

std::vector<TAlarmRow> TAlarmChanges::Read() {
  if (!FHistory || !FHistory->InPlace()) {
    FHistory.reset();
    FHistory.emplace(FFile);
    FKnown.clear();
    FVersion = -1;
  }
  const std::int64_t present = FHistory->DataVersion();
  if (present == FVersion) return {};
  const auto suppressions = FHistory->Suppressions(UtcNow());
  std::vector<TAlarmRow> changed;
  for (const TAlarmRow& row : FHistory->Rows({})) {
    std::string state = AlarmState(row);
    const auto [known, isNew] = FKnown.try_emplace(row.Row);
    if (!isNew && known->second == state) continue;
    known->second = std::move(state);
    if ((!FFirst || row.Active()) && !IsSuppressed(row, suppressions)) changed.push_back(row);
  }
  FVersion = present;
  FFirst = false;
  return changed;
}

}  // namespace ixocontroller
