// A source that its owner only tells what is so: Set from any thread, the alarm package does the rest.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ixocamglue/platform/ports/NcAlarmSource.h"
#include "ixocamglue/support/Locks.h"

namespace ixocamglue {

// The delays keep a condition that flickers from raising or clearing at once. They are refused (counted as 0) for an
// alarm that forbids something or requires anything: such an alarm never waits.
class TNcSimpleAlarmSource final : public INcAlarmSource20 {
 public:
  struct TRow {
    std::int32_t Id = 0;
    TNcAlarmAttrs Attrs = 0;
    std::string Desc;
    std::uint32_t OnDelayMs = 0;
    std::uint32_t OffDelayMs = 0;
  };
  TNcSimpleAlarmSource(std::string prefix, std::vector<TRow> rows);

  // `desc` replaces the row's description at the next raise; empty: the row's own. An unknown id is a design fault.
  void Set(std::int32_t id, bool active, std::string_view desc = {});

  std::string GetAlarmIDPrefix() override { return FPrefix; }
  void RegisterAlarms(INcAlarmTable20& table) override;
  void UpdateAlarms(INcAlarmReport20& report) override;
  void ResetAlarm(std::int32_t id) override;  // as if the condition had ended
  std::string GetAlarmDesc(std::int32_t id) override;

 private:
  enum class TWord : std::uint8_t { Raise, Clear };
  struct TCondition {
    TRow Row;
    std::string Desc;
    bool Active = false;    // as told
    bool Reported = false;  // as last reported
    bool Pulse = false;     // was active since the last report
    std::uint64_t SinceMs = 0;
  };

  const std::string FPrefix;
  TCriticalSection FLock;
  std::map<std::int32_t, TCondition> FConditions IXO_GUARDED_BY(FLock);
  // The thread's that asks: what this report says. It is said without the lock, since the report asks for descriptions;
  // kept, so that a report allocates nothing.
  std::vector<std::pair<std::int32_t, TWord>> FWords;
};

}  // namespace ixocamglue
