#include "ixocamglue/platform/states/InputWait.h"

#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocamglue {

void TInputWait::Start(std::int32_t input, std::int32_t limitMs, std::uint64_t nowMs) {
  FRuns = true;
  FInput = input;
  FLimitMs = limitMs;
  FSinceMs = nowMs;
}

std::string TInputWait::Look(std::uint64_t nowMs, bool reached) {
  if (FInput == -1 || reached) {
    FRuns = false;
    return Format("input %d reached", FInput);
  }
  if (FLimitMs < 0 || nowMs - FSinceMs < static_cast<std::uint64_t>(FLimitMs)) return {};
  FRuns = false;
  if (FMode == kTimeOutAlarm)
    FAlarms.Raise({.IdPrefix = "InportCtrl",
                   .Desc = Format(Tr("input %d did not come within %d ms"), FInput, FLimitMs),
                   .Id = kAlarmId,
                   .Attrs = naForbidMove});
  return Format("input %d did not come within %d ms", FInput, FLimitMs);
}

std::string TInputWait::Cancel() {
  if (!FRuns) return {};
  FRuns = false;
  return Format("wait for input %d cancelled", FInput);
}

}  // namespace ixocamglue
