#include "controller/safety/Supervisor.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "controller/process/RoundThread.h"
#include "controller/texts/HostTexts.h"
#include "ixocamglue/motion/Ustatemotion.h"
#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/platform/states/BeamWatch.h"
#include "ixocamglue/platform/states/NcState.h"
#include "ixocamglue/support/Faults.h"
#include "ixocamglue/support/Format.h"

namespace ixocontroller {
namespace {

constexpr double kWayMm = 0.1;  // less is no way that an axis makes

// The text of a command, or nothing for a step that has no number in the table.
std::string TextOf(std::int32_t command) {
  for (const TMotionCommand& known : MotionCommands())
    if (known.Command == command) return known.Desc->Get();
  return {};
}

}  // namespace

TSupervisor::TSupervisor(const TNcWatch& watch, std::function<std::int32_t()> state, const TMachineBounds& machine,
                         TSupervisorActions actions)
    : FWatch(watch),
      FState(std::move(state)),
      FLimits(machine.Supervisor.InForce()),
      FEmissionMs(machine.Laser.EmissionOnDelay + FLimits.EmissionExtraMs),
      FActions(std::move(actions)) {}

void TSupervisor::Round(std::uint64_t nowMs) {
  WatchBeam(nowMs);
  SeeProgress(nowMs);
  const auto broken = TooLong(nowMs);
  if (!broken)
    FRung = TRung::Watching;
  else if (FRung == TRung::Watching || nowMs >= FNextAt)
    Climb(*broken, nowMs);
}

void TSupervisor::EmergencyStop() { LatchAndStop(FActions.Emergency, SWatchEmergency.Get()); }

void TSupervisor::LatchAndStop(const TSupervisorActions::TAction& latch, const std::string& reason) {
  for (const auto* action : {&latch, &FActions.Stop}) {
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
  const bool told = FWatch.DarkDemandedInPass.load(std::memory_order_acquire) != 0;
  const bool unasked = FWatch.LaserOn.Runs() && (told || !FWatch.LaserAsked.Runs());
  const auto lasts = [nowMs](TNcSince& since, bool is, std::uint32_t ms) {
    is ? since.Begin(nowMs) : since.End();
    return is && since.LastedMs(nowMs) >= ms;
  };
  const bool late = lasts(FBeamCause, cause != bcNone || ends, kDarkWithinMs);
  const bool stays = lasts(FStaysLit, unasked, kStaysLitMs);
  if (!FBeamCause.Runs() && !FStaysLit.Runs()) FBeamAnswered = false;
  if (!(late || stays) || std::exchange(FBeamAnswered, true)) return;
  const int lasted = static_cast<int>(late ? kDarkWithinMs : kStaysLitMs);
  if (cause == bcNone && !ends && !told) return LatchAndStop(FActions.Latch, Show(SWatchUnasked, lasted));
  const std::string why = cause != bcNone ? BeamCauseText(cause) : ends ? SWatchEnding.Get() : SWatchTold.Get();
  LatchAndStop(FActions.Latch, Show(SWatchDark, why.c_str(), lasted));
}

// While the beam is asked for, a head that moves keeps no wait alive.
void TSupervisor::SeeProgress(std::uint64_t nowMs) {
  if (FWatch.LaserAsked.Runs() || FWatch.EmissionAsked.Runs()) return;
  std::array<double, kWatchAxes> pos{};
  bool made = false;
  for (std::size_t axis = 0; axis < pos.size(); ++axis) {
    pos[axis] = FWatch.Pos[axis].load(std::memory_order_acquire);
    made = made || std::abs(pos[axis] - FPos[axis]) > kWayMm;
  }
  if (!made) return;
  FPos = pos;
  FWayMadeAt.store(nowMs, std::memory_order_release);
}

std::optional<std::string> TSupervisor::Broken(std::uint64_t nowMs) const {
  const auto broken = TooLong(nowMs);
  return broken ? std::optional(broken->Reason) : std::nullopt;
}

std::optional<TSupervisor::TBroken> TSupervisor::TooLong(std::uint64_t nowMs) const {
  const auto over = [](const TText& text, std::uint64_t lasted, std::int32_t limitMs) -> std::optional<TBroken> {
    const auto limit = static_cast<std::uint64_t>(std::max(limitMs, 0));
    if (lasted <= limit) return std::nullopt;
    return TBroken{Show(text, ShownMs(lasted), ShownMs(limit))};
  };
  // A beat is younger than `nowMs` when it came while this round was on its way.
  const std::uint64_t beat = FWatch.BeatMs.load(std::memory_order_acquire);
  const std::uint64_t silent = FState() == nsStandby || beat > nowMs ? 0 : nowMs - beat;
  const std::uint64_t absent = FWatch.EmissionOn.Runs() ? 0 : FWatch.EmissionAsked.LastedMs(nowMs);

  if (auto broken = over(SWatchBeat, silent, FLimits.HeartbeatLimitMs)) return broken;
  if (auto broken = over(SWatchLaser, FWatch.LaserOn.LastedMs(nowMs), FLimits.LaserOnLimitMs)) return broken;
  if (auto broken = over(SWatchEmission, absent, FEmissionMs)) return broken;
  if (FWatch.LeafSince.Runs()) {
    if (auto broken = WaitTooLong(nowMs)) return broken;
  } else if (auto broken = over(SWatchBusy, FWatch.BusySince.LastedMs(nowMs), FLimits.BusyLimitMs)) {
    return broken;
  }
  return over(SWatchGas, FWatch.GasOn.LastedMs(nowMs), FLimits.GasOnLimitMs);
}

std::optional<TSupervisor::TBroken> TSupervisor::WaitTooLong(std::uint64_t nowMs) const {
  // From the kind upwards, as TNcWatch says.
  const TNcLeafWait wait = FWatch.LeafWait.load(std::memory_order_acquire);
  const std::uint64_t limit = FWatch.LeafLimitMs.load(std::memory_order_acquire);
  std::uint64_t lasted = FWatch.LeafSince.LastedMs(nowMs);
  if (wait == lwMoves) lasted = std::min(lasted, nowMs - FWayMadeAt.load(std::memory_order_acquire));
  if (lasted <= limit) return std::nullopt;
  const std::int32_t leaf = FWatch.Leaf.load(std::memory_order_acquire);
  return TBroken{Show(SWatchLeaf, TextOf(leaf).c_str(), ShownMs(lasted), ShownMs(limit)), wait == lwCalibrates};
}

void TSupervisor::Climb(const TBroken& broken, std::uint64_t nowMs) {
  const std::string& reason = broken.Reason;
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
    case TRung::Watching:
      return broken.Fails ? act(TRung::Alarmed, SWatchFail, FActions.Fail)
                          : act(TRung::Alarmed, SWatchAlarm, FActions.Alarm);
    case TRung::Alarmed: return act(TRung::Stopped, SWatchStop, FActions.Stop);
    case TRung::Stopped: return act(TRung::Latched, SWatchLatch, FActions.Latch);
    case TRung::Latched: return;
  }
}

}  // namespace ixocontroller
