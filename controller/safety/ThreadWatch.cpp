#include "controller/safety/ThreadWatch.h"

#include "controller/texts/HostTexts.h"
#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Log.h"

namespace ixocontroller {

TThreadWatch::TThreadWatch(const TThreadTable& threads, const TSupervisorConfig& limits, TNcAlarmManager& alarms)
    : FThreads(threads), FLimits(limits.InForce()), FAlarms(alarms) {}

void TThreadWatch::Round(std::uint64_t nowMs) {
  TThreadSeen seen;
  for (std::size_t row = 0; row < TThreadTable::kRows; ++row) {
    const std::int32_t id = FThreads.Read(row, seen) ? Judge(seen, nowMs) : 0;
    TTold& told = FTold[row];
    if (told.Alarm != 0 && (id != told.Id || seen.Serial != told.Serial)) {
      (void)FAlarms.ClearSerial(told.Alarm);
      told = {};
    }
    if (id != 0 && (told.Alarm == 0 || !FAlarms.Stands(told.Alarm))) told = {seen.Serial, id, Raise(seen, id, nowMs)};
  }
}

std::int32_t TThreadWatch::Judge(const TThreadSeen& seen, std::uint64_t nowMs) const {
  switch (seen.Life) {
    case tlFailed: return kThreadFailed;
    case tlParked: return 0;
    case tlRuns: break;
  }
  // A beat is younger than `nowMs` when it came while this round was on its way.
  return nowMs > seen.BeatMs && nowMs - seen.BeatMs > LimitMs(seen.Kind) ? kThreadSilent : 0;
}

std::uint64_t TThreadWatch::LimitMs(TThreadKind kind) const {
  switch (kind) {
    case tkDevice: return static_cast<std::uint64_t>(FLimits.DeviceThreadLimitMs);
    case tkLog: return static_cast<std::uint64_t>(FLimits.LogThreadLimitMs);
    case tkOther: break;
  }
  return static_cast<std::uint64_t>(FLimits.ThreadLimitMs);
}

std::uint64_t TThreadWatch::Raise(const TThreadSeen& seen, std::int32_t id, std::uint64_t nowMs) {
  const std::string desc = id == kThreadFailed ? Show(SThreadFailed, seen.Name.c_str())
                                               : Show(SThreadSilent, seen.Name.c_str(), ShownMs(nowMs - seen.BeatMs),
                                                      ShownMs(LimitMs(seen.Kind)));
  LogMsg(lkError, 0, desc, kThreadAlarmPrefix);
  return FAlarms.Raise({.IdPrefix = kThreadAlarmPrefix, .Desc = desc, .Id = id, .Attrs = naShownOnly});
}

}  // namespace ixocontroller
