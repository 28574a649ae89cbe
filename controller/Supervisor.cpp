#include "controller/Supervisor.h"

#include <algorithm>
#include <pthread.h>
#include <utility>

#include "controller/HostTexts.h"
#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/platform/states/BeamWatch.h"
#include "ixocamglue/platform/states/NcState.h"
#include "ixocamglue/support/Faults.h"
#include "ixocamglue/support/Format.h"

namespace ixocontroller {
namespace {

void LogFault(const char* where, const std::exception_ptr& error) {
  try {
    LogMsg(lkException, 0, Format("%s: %s", where, DescribeException(error).c_str()));
  } catch (...) {  // no memory for the line
  }
}

}  // namespace

TSupervisor::TSupervisor(const TNcWatch& watch, std::function<std::int32_t()> state, const TMachineBounds& machine,
                         TSupervisorActions actions)
    : FWatch(watch),
      FState(std::move(state)),
      FLimits(machine.Supervisor),
      FEmissionMs(machine.Laser.EmissionOnDelay + machine.Supervisor.EmissionExtraMs),
      FActions(std::move(actions)) {}

void TSupervisor::Round(std::uint64_t nowMs) {
  WatchBeam(nowMs);
  const auto reason = Broken(nowMs);
  if (!reason)
    FRung = TRung::Watching;
  else if (FRung == TRung::Watching || nowMs >= FNextAt)
    Climb(*reason, nowMs);
}

void TSupervisor::EmergencyStop() { LatchAndStop(SWatchEmergency.Get()); }

void TSupervisor::LatchAndStop(const std::string& reason) {
  for (const auto* action : {&FActions.Latch, &FActions.Stop}) {
    try {
      if (*action) (*action)(reason);
    } catch (...) {
      LogFault(kSupervisorAlarmPrefix, std::current_exception());
    }
  }
  LogMsg(lkError, 0, Show(SWatchLatch, reason.c_str()), kSupervisorAlarmPrefix);
}

void TSupervisor::WatchBeam(std::uint64_t nowMs) {
  TBeamFacts facts = TBeamFacts::Read(FWatch);
  facts.LaserAsked = facts.LaserAsked || FWatch.LaserOn.Runs();
  const TBeamCause cause = JudgeBeam(facts);
  // Emission alone lights nothing: a step that waits for it may answer a stop when its wait is over.
  const bool ends = facts.LaserAsked && FWatch.EndPosted.load(std::memory_order_acquire);
  if (cause == bcNone && !ends) {
    FBeamCause.End();
    FBeamAnswered = false;
    return;
  }
  FBeamCause.Begin(nowMs);
  if (FBeamCause.LastedMs(nowMs) < kDarkWithinMs || std::exchange(FBeamAnswered, true)) return;
  const std::string why = cause == bcNone ? SWatchEnding.Get() : BeamCauseText(cause);
  LatchAndStop(Show(SWatchDark, why.c_str(), static_cast<int>(kDarkWithinMs)));
}

std::optional<std::string> TSupervisor::Broken(std::uint64_t nowMs) const {
  const auto over = [](const TText& text, std::uint64_t lasted, std::int32_t limitMs) -> std::optional<std::string> {
    const auto limit = static_cast<std::uint64_t>(std::max(limitMs, 0));
    if (lasted <= limit) return std::nullopt;
    return Show(text, ShownMs(lasted), ShownMs(limit));
  };
  // A beat is younger than `nowMs` when it came while this round was on its way.
  const std::uint64_t beat = FWatch.BeatMs.load(std::memory_order_acquire);
  const std::uint64_t silent = FState() == nsStandby || beat > nowMs ? 0 : nowMs - beat;
  const std::uint64_t absent = FWatch.EmissionOn.Runs() ? 0 : FWatch.EmissionAsked.LastedMs(nowMs);

  if (auto text = over(SWatchBeat, silent, FLimits.HeartbeatLimitMs)) return text;
  if (auto text = over(SWatchLaser, FWatch.LaserOn.LastedMs(nowMs), FLimits.LaserOnLimitMs)) return text;
  if (auto text = over(SWatchEmission, absent, FEmissionMs)) return text;
  if (auto text = over(SWatchBusy, FWatch.BusySince.LastedMs(nowMs), FLimits.BusyLimitMs)) return text;
  return over(SWatchGas, FWatch.GasOn.LastedMs(nowMs), FLimits.GasOnLimitMs);
}

void TSupervisor::Climb(const std::string& reason, std::uint64_t nowMs) {
  const auto act = [&](TRung rung, const TText& line, const std::function<void(const std::string&)>& action) {
    FRung = rung;
    FNextAt = nowMs + static_cast<std::uint64_t>(std::max(FLimits.StepMs, 0));
    LogMsg(lkError, 0, Show(line, reason.c_str()), kSupervisorAlarmPrefix);
    try {
      if (action) action(reason);
    } catch (...) {
      LogFault(kSupervisorAlarmPrefix, std::current_exception());
    }
  };
  switch (FRung) {
    case TRung::Watching: return act(TRung::Alarmed, SWatchAlarm, FActions.Alarm);
    case TRung::Alarmed: return act(TRung::Stopped, SWatchStop, FActions.Stop);
    case TRung::Stopped: return act(TRung::Latched, SWatchLatch, FActions.Latch);
    case TRung::Latched: return;
  }
}

TRoundThread::TRoundThread(const char* name, std::uint32_t periodMs, std::function<void(std::uint64_t)> round)
    : FThread([this, name, periodMs, call = std::move(round)] {
        pthread_setname_np(pthread_self(), name);
        do {
          try {
            call(Clock().MonotonicMs());
          } catch (...) {
            LogFault(name, std::current_exception());
          }
        } while (!Clock().Pause(FStop, periodMs));
      }) {}

TRoundThread::~TRoundThread() {
  FStop.Ask();
  FThread.join();
}

}  // namespace ixocontroller
