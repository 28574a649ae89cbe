// Alarms as people read them: with what their definitions say, in the language of the thread that shows them (see
// TLanguageScope). Any thread. Nothing here fails: an alarm without a definition shows its identifier and its
// description.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "ixocamglue/platform/alarms/NcAlarmManager.h"
#include "ixocamglue/support/Locks.h"

namespace ixocontroller {
using namespace ixocamglue;

struct TRunAlarm {
  std::uint64_t RaisedMs = 0;                // monotonic
  std::optional<std::uint64_t> ClearedMs;    // nothing: it stands
  std::uint64_t Serial = 0;                  // the package's
  std::uint8_t Level = 0;                    // 1 forbids or stops something, 0 tells
  std::string Identifier, Description;       // of the raise
  std::string Lang;                          // the description's
  std::string Code, Text, Reason, Solution;  // of the definition; without one the identifier and the description

  [[nodiscard]] static TRunAlarm Of(const TNcAlarmRecord& record);
  // Takes what the definition says from its present texts.
  void Define();
  // "Alarm 1  TPGas#2  G102  | The oxygen pressure ...  | reason  | solution"
  [[nodiscard]] std::string Words() const;
};

// The times count from `startMs` on.
[[nodiscard]] std::vector<std::string> AlarmLines(std::span<const TRunAlarm> alarms, std::uint64_t startMs);
[[nodiscard]] nlohmann::ordered_json AlarmsJson(std::span<const TRunAlarm> alarms, std::uint64_t startMs);

// What is raised from the construction on, and what stands by then; the first kMost of it. The package outlives it.
class TRunAlarms {
 public:
  static constexpr std::size_t kMost = 1000;

  explicit TRunAlarms(TNcAlarmManager& package);
  ~TRunAlarms();
  TRunAlarms(const TRunAlarms&) = delete;
  TRunAlarms& operator=(const TRunAlarms&) = delete;

  [[nodiscard]] std::vector<TRunAlarm> Items() const;  // in the order of their raises
  [[nodiscard]] std::size_t Gone() const;              // those behind the first kMost

 private:
  void Raised(const TNcAlarmRecord& record);
  void Cleared(const TNcAlarmRecord& record);

  TNcAlarmManager& FPackage;
  mutable TCriticalSection FLock;
  std::vector<TRunAlarm> FItems IXO_GUARDED_BY(FLock);
  std::size_t FGone IXO_GUARDED_BY(FLock) = 0;
  std::uint64_t FAdded = 0;
  std::uint64_t FRemoved = 0;
};

}  // namespace ixocontroller
