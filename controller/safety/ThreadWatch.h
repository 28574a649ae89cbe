// Shows an alarm for each thread that is silent for too long, and for each device whose update thread a fault has
// ended: shown only, it ends nothing. It stands as long as what it tells of, also when the operator clears it.
//
// One round per round of the supervisor, in real time only: in virtual time there is nobody to be silent. The state
// thread is the supervisor's own business.
#pragma once

#include <array>
#include <cstdint>

#include "ixocamglue/platform/alarms/NcAlarmManager.h"
#include "ixocamglue/platform/services/ThreadTable.h"
#include "ixocamglue/platform/xml/MachineSections.h"

namespace ixocontroller {
using namespace ixocamglue;

inline constexpr const char* kThreadAlarmPrefix = "TPThread";
inline constexpr std::int32_t kThreadFailed = 1;
inline constexpr std::int32_t kThreadSilent = 2;

class TThreadWatch {
 public:
  // Table and package outlive it.
  TThreadWatch(const TThreadTable& threads, const TSupervisorConfig& limits, TNcAlarmManager& alarms);

  void Round(std::uint64_t nowMs);

 private:
  struct TTold {
    std::uint32_t Serial = 0;  // of the thread
    std::int32_t Id = 0;
    std::uint64_t Alarm = 0;  // 0: none
  };
  // The alarm's number; 0: nothing is wrong.
  [[nodiscard]] std::int32_t Judge(const TThreadSeen& seen, std::uint64_t nowMs) const;
  [[nodiscard]] std::uint64_t LimitMs(TThreadKind kind) const;
  [[nodiscard]] std::uint64_t Raise(const TThreadSeen& seen, std::int32_t id, std::uint64_t nowMs);

  const TThreadTable& FThreads;
  const TSupervisorConfig FLimits;
  TNcAlarmManager& FAlarms;
  std::array<TTold, TThreadTable::kRows> FTold{};
};

}  // namespace ixocontroller
