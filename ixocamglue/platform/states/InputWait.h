// The wait for an input that a machine's TNcInportCtrl is made of: its limit, and what a time-out does. No lock: its
// owner's. Times monotonic ms. Nothing throws: why a wait has failed is its text.
#pragma once

#include <cstdint>
#include <string>

#include "ixocamglue/platform/alarms/NcAlarmManager.h"

namespace ixocamglue {

class TInputWait {
 public:
  static constexpr std::int32_t kTimeOutAlarm = 3;  // the time-out mode that raises an alarm
  static constexpr std::int32_t kAlarmId = 176;

  explicit TInputWait(TNcAlarmManager& alarms) : FAlarms(alarms) {}

  [[nodiscard]] bool Runs() const { return FRuns; }
  [[nodiscard]] std::int32_t Input() const { return FInput; }  // -1: none, which counts as reached
  void SetTimeOutMode(std::int32_t mode) { FMode = mode; }     // any other one than kTimeOutAlarm: the wait ends
  void Start(std::int32_t input, std::int32_t limitMs, std::uint64_t nowMs);  // a negative limit: none
  // While it runs: `reached` says whether the input has its level. What has come of it, for the journal; empty: it
  // still runs.
  [[nodiscard]] std::string Look(std::uint64_t nowMs, bool reached);
  // It ends without a result; what is said of it, empty where it did not run.
  [[nodiscard]] std::string Cancel();

 private:
  TNcAlarmManager& FAlarms;
  bool FRuns = false;
  std::int32_t FInput = -1;
  std::int32_t FMode = 0;
  std::int32_t FLimitMs = -1;
  std::uint64_t FSinceMs = 0;
};

}  // namespace ixocamglue
