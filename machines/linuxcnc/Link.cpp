#include "machines/linuxcnc/Link.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <pthread.h>
#include <stdexcept>
#include <utility>

#include "ixocamglue/platform/ports/CutStates.h"
#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/platform/services/ThreadTable.h"
#include "ixocamglue/platform/states/NcWatch.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"
#include "ixocamglue/support/ValueText.h"
#include "machines/linuxcnc/Pins.h"

namespace ixocamglue {
namespace {

constexpr std::uint64_t kRetryMs = 500;
constexpr std::uint64_t kStateBeatMs = 200;  // the state thread's silence after which nothing beats any more
constexpr std::uint32_t kAskLimitMs = 430;   // a `get` takes less than 1 ms
constexpr std::uint32_t kAskEveryMs = 10;
constexpr double kMovedMm = 0.0025;      // half of what counts as arrived: an encoder may tremble at rest
constexpr std::uint64_t kRestMs = 50;    // an axis that has not moved for so long rests
constexpr double kByHandMm = 0.05;       // what has moved so far without an order was moved by somebody else
constexpr std::uint64_t kLetGoMs = 200;  // in which Z comes to rest when the height is not followed any more

constexpr TNcWatchAxis kWatched[] = {waX, waY, waZ, waFocus};

[[noreturn]] void ThrowNotHomed(TLncAxis axis) {
  throw std::runtime_error(
      Format(Tr("axis %s of LinuxCNC is not homed; home it there, or by \"ixocut machine home\""), AxisName(axis)));
}

}  // namespace

TLncLink::TLncLink(const TLncConfig& config, IDriverEvents& events)
    : FConfig(config),
      FEvents(events),
      FHal(config.HalSocket),
      FCommands(config.Rsh, "ixocut", FTurn),
      FAsks(config.Rsh, "ixocut-status", FTurn) {}

TLncLink::~TLncLink() { End(); }

void TLncLink::End() {
  FStop.Ask();
  FCommands.Cancel();
  FAsks.Cancel();
  FWake.notify_all();
  for (std::thread& thread : FThreads) thread.join();
  FThreads.clear();
}

TResult<> TLncLink::Start() {
  if (TResult<> open = FHal.Open(); !open) return open;
  if (TResult<> pins = CheckPins(); !pins) return pins;
  if (TResult<> limits = CheckLimits(); !limits) return limits;
  if (TResult<> open = FAsks.Open(false); !open) return open;
  if (TResult<> units = CheckUnits(); !units) return units;
  if (TResult<> open = FCommands.Open(true); !open) return open;
  OutliveLatch();
  Track(Clock().MonotonicMs());
  StatusRound();
  {
    TGuard guard(FLock);
    FHalOpen = FCommandsOpen = FAsksOpen = true;
  }
  FThreads.emplace_back([this] { Run("linuxcnc-hal", &TLncLink::HalRound); });
  FThreads.emplace_back([this] { Run("linuxcnc-status", &TLncLink::StatusRound); });
  FThreads.emplace_back([this] { Run("linuxcnc", &TLncLink::CommandRound); });
  return {};
}

void TLncLink::Run(const char* name, void (TLncLink::*round)()) {
  pthread_setname_np(pthread_self(), name);
  TThreadSign sign(name, tkDevice);
  for (; !FStop.Asked(); sign.Beat()) {
    try {
      (this->*round)();
    } catch (const std::exception& error) {  // no round throws of its own accord
      LogMsg(lkError, 0, Format("%s: %s", name, error.what()));
      Lose(error.what());
      Clock().Pause(FStop, kAskEveryMs);
    }
  }
  sign.Park();
}

// --- what is known ---

TResult<> TLncLink::CheckPins() const {
  const auto problem = [&](std::string what) {
    return TProblem{std::move(what),
                    FConfig.HalSocket,
                    {},
                    Tr("give ixocut-hal the list of pins in share/machines/linuxcnc, and net them")};
  };
  const auto need = [&](std::string_view name, THalKind kind, bool output) -> TResult<> {
    const auto pin = FHal.Pin(name);
    if (!pin) return problem(Format(Tr("ixocut-hal has no pin \"%s\""), std::string(name).c_str()));
    if (pin->Output == output && pin->Kind == kind) return {};
    return problem(Format(Tr("the pin \"%s\" of ixocut-hal is of another kind"), std::string(name).c_str()));
  };
  for (const auto& [name, kind, output] : kNeededPins)
    if (TResult<> there = need(name, kind, output); !there) return there;
  for (std::size_t axis = 0; axis < kLncAxes; ++axis) {
    if (!FConfig.Axes[axis].Fitted) continue;
    for (const auto& [what, kind] : kAxisPins)
      if (TResult<> there = need(FConfig.Pin(static_cast<TLncAxis>(axis), what), kind, false); !there) return there;
  }
  return {};
}

// By the beats of a controller that has just ended the latch may still be up: who takes it for his own sees it fall
// when he begins.
void TLncLink::OutliveLatch() {
  for (const std::uint64_t end = Clock().MonotonicMs() + std::uint64_t{2} * kHalLatchMs;
       FHal.IsOn(kPinLatch) && Clock().MonotonicMs() < end;)
    if (!FHal.Round(kHalFrameMs, false)) return;  // it is seen to be away by the thread that looks at it
}

// A contradiction would show only when something moves, and then too late.
TResult<> TLncLink::CheckUnits() {
  std::string units;
  if (FAsks.Get("user_linear_units", kAskLimitMs, units) == roAck && units == "MM") return {};
  return TProblem{Tr("LinuxCNC does not count in mm"), Format("%s:%d", FConfig.Rsh.Host.c_str(), FConfig.Rsh.Port),
                  Format(Tr("its linear units are \"%s\""), units.c_str()),
                  Tr("set LINEAR_UNITS = mm in LinuxCNC's INI file")};
}

TResult<> TLncLink::CheckLimits() const {
  constexpr double kSlack = 1e-3;
  for (const TLncAxis axis : {laX, laY, laZ, laFocus}) {
    const TLncAxisFacts& facts = FConfig.Axes[axis];
    if (!facts.Fitted) continue;
    const auto theirs = [&](std::string_view what) { return FHal.Value(FConfig.Pin(axis, what)).value_or(0.0); };
    double least = FConfig.ToOurs(axis, theirs(kAxisLeast));
    double most = FConfig.ToOurs(axis, theirs(kAxisMost));
    if (least > most) std::swap(least, most);
    const auto problem = [&](std::string what, std::string why) {
      return TProblem{std::move(what), Format("Axes/Axis %s", AxisName(axis)), std::move(why),
                      Tr("make the machine file and LinuxCNC's INI file agree")};
    };
    if (facts.Limits.SoftLimitNeg < least - kSlack || facts.Limits.SoftLimitPos > most + kSlack)
      return problem(Format(Tr("the limits of axis %s are wider than LinuxCNC's: %g to %g"), AxisName(axis),
                            facts.Limits.SoftLimitNeg, facts.Limits.SoftLimitPos),
                     Format(Tr("LinuxCNC has %g to %g"), least, most));
    if (facts.Limits.MaxSpeed > theirs(kAxisSpeed) + kSlack)
      return problem(
          Format(Tr("axis %s is faster than LinuxCNC lets it be: %g mm/s"), AxisName(axis), facts.Limits.MaxSpeed),
          Format(Tr("LinuxCNC has %g mm/s"), theirs(kAxisSpeed)));
  }
  return {};
}

void TLncLink::RequireFresh() const {
  const auto at = FHal.FrameAt();
  if (at && Clock().MonotonicMs() - *at <= kOldMs) return;
  const std::string why = WhyAway();
  throw EDeviceAway(why.empty() ? Tr("what ixocut-hal has said is too old") : why);
}

void TLncLink::RequireHomed(TLncAxis axis) const {
  if (!Homed(axis)) ThrowNotHomed(axis);
}

double TLncLink::Pos(TLncAxis axis) const {
  RequireFresh();
  return At(axis);
}

double TLncLink::At(TLncAxis axis) const {
  TGuard guard(FTrackLock);
  return FTracks[axis].At;
}

bool TLncLink::Moving(TLncAxis axis) const {
  TGuard guard(FTrackLock);
  return FTrackedMs - FTracks[axis].ChangedMs < kRestMs;
}

bool TLncLink::Homed(TLncAxis axis) const { return FHal.IsOn(FConfig.Pin(axis, kAxisHomed)); }

TLncStatus TLncLink::Status() const {
  TGuard guard(FLock);
  return FStatus;
}

std::string TLncLink::WhyAway() const {
  TGuard guard(FLock);
  return FAway;
}

std::optional<std::uint64_t> TLncLink::AgeMs() const {
  const auto at = FHal.FrameAt();
  if (!at) return std::nullopt;
  return Clock().MonotonicMs() - *at;
}

std::string TLncLink::NotReady() const {
  TGuard guard(FLock);
  return NotReadyLocked();
}

std::string TLncLink::NotReadyLocked() const {
  if (!FAway.empty()) return FAway;
  if (FStatus.Estop) return Tr("LinuxCNC is in emergency stop; release it there, or by \"ixocut machine arm\"");
  if (!FStatus.On) return Tr("LinuxCNC's machine is off; switch it on there, or by \"ixocut machine arm\"");
  if (!FHal.IsOn(kPinLatch)) return Tr("the latch in HAL is down and holds the axes; reset the laser's latch");
  return {};
}

bool TLncLink::Rests(TLncUnit unit) const {
  switch (unit) {
    case luXY: return !Moving(laX) && !Moving(laY);
    case luZ: return !Moving(laZ);
    case luFocus: return !Moving(laFocus);
    case luTurn:
    case kLncUnits: break;
  }
  return !Moving(laTurn);
}

// While the height is followed, Z belongs to the loop in HAL.
bool TLncLink::AllRest() const {
  for (const TLncUnit unit : {luXY, luZ, luFocus, luTurn})
    if (!Rests(unit) && !(unit == luZ && FHal.IsOn(kPinFollow))) return false;
  return true;
}

// --- orders ---

void TLncLink::Move(TLncMove move) { Enqueue({.Move = std::move(move)}); }

void TLncLink::JogUnhomed(TLncUnit unit, TLncAxis axis, double way, double speed) {
  Enqueue({.Move = {.Unit = unit}, .JogAxis = axis, .JogWay = way, .JogSpeed = speed});
}

void TLncLink::Enqueue(TJob job) {
  const TLncUnit unit = job.Move.Unit;
  const bool jogs = job.JogAxis != kLncAxes;
  TGuard guard(FLock);
  if (!FAway.empty()) throw EDeviceAway(FAway);  // then nobody knows whether it is homed
  for (const TLncMove::TTarget& target : job.Move.Targets) RequireHomed(target.Axis);
  if (const std::string why = NotReadyLocked(); !why.empty()) throw std::runtime_error(why);
  if (jogs && FState.load(std::memory_order_acquire) != StateNumber(csJogging)) ThrowNotHomed(job.JogAxis);
  const bool before = FActiveUnit == unit ||
                      std::ranges::any_of(FWaiting, [&](const TJob& waiting) { return waiting.Move.Unit == unit; });
  if (before) BeginStop(1U << unit);
  FFailed[unit].clear();
  FWaiting.push_back(std::move(job));
  ++FMoves;
  FWake.notify_all();
}

bool TLncLink::Busy(TLncUnit unit) {
  TGuard guard(FLock);
  if (!FAway.empty()) throw EDeviceAway(FAway);
  if (!FFailed[unit].empty()) throw std::runtime_error(FFailed[unit]);
  return FActiveUnit == unit || (FStopping & (1U << unit)) != 0 ||
         std::ranges::any_of(FWaiting, [&](const TJob& job) { return job.Move.Unit == unit; });
}

void TLncLink::Stop(TLncUnit unit) {
  TGuard guard(FLock);
  BeginStop(1U << unit);
}

void TLncLink::StopAll() {
  TGuard guard(FLock);
  BeginStop((1U << kLncUnits) - 1);
}

void TLncLink::Rearm() {
  TGuard guard(FLock);
  if (!FAway.empty()) throw EDeviceAway(FAway);
  FRearmDue = FAbortDue = true;
  ++FStops;
  FWake.notify_all();
}

bool TLncLink::RearmDue() const {
  TGuard guard(FLock);
  return FRearmDue;
}

void TLncLink::BeginStop(unsigned units) {
  const auto has = [&](TLncUnit unit) { return unit != kLncUnits && (units & (1U << unit)) != 0; };
  std::erase_if(FWaiting, [&](const TJob& job) { return has(job.Move.Unit); });
  bool moving = has(FActiveUnit) || !FStatus.Idle;
  for (const TLncUnit unit : {luXY, luZ, luFocus, luTurn}) {
    if (!has(unit)) continue;
    FFailed[unit].clear();
    moving = moving || (!Rests(unit) && !(unit == luZ && FHal.IsOn(kPinFollow)));
  }
  if (!moving && FAway.empty()) return;
  Mark(true);
  FHal.Set(kPinStop, 1.0);
  FStopping |= units;
  FAbortDue = true;
  ++FStops;
  FWake.notify_all();
}

void TLncLink::Mark(bool on) {
  if (FHal.Pin(kPinMark)) FHal.Set(kPinMark, on ? 1.0 : 0.0);
}

// --- away and back ---

void TLncLink::Lose(const std::string& why) {
  TGuard telling(FTelling);
  {
    TGuard guard(FLock);
    if (!FAway.empty()) return;
    FAway = why;
    FWaiting.clear();
    FStopping = 0;
    FAbortDue = true;  // as soon as it can be told
    FRearmDue = false;
    ++FStops;
    FHal.Set(kPinStop, 1.0);
    FWake.notify_all();
  }
  FEvents.Away(why);
}

void TLncLink::TryReturn() {
  TGuard telling(FTelling);
  {
    TGuard guard(FLock);
    if (FAway.empty() || FAbortDue || !FCommandsOpen || !FAsksOpen || !FHalOpen) return;
    if (FState.load(std::memory_order_acquire) != StateNumber(csStandby)) return;
    FAway.clear();
    for (std::string& failed : FFailed) failed.clear();
  }
  FEvents.Back();
}

void TLncLink::Reopen(TRshClient& rsh, std::uint64_t& triedMs, bool enable) {
  const std::uint64_t now = Clock().MonotonicMs();
  if (now - triedMs < kRetryMs) {
    Clock().Pause(FStop, kAskEveryMs);
    return;
  }
  triedMs = now;
  const bool opened = rsh.Open(enable).Ok();
  TGuard guard(FLock);
  (enable ? FCommandsOpen : FAsksOpen) = opened;
  if (enable && opened) HoldUntilAborted();  // another client may have left lines that wait
}

void TLncLink::CloseCommands() {
  FCommands.Close();
  TGuard guard(FLock);
  FCommandsOpen = false;
}

void TLncLink::HoldUntilAborted() {
  FHal.Set(kPinStop, 1.0);
  FAbortDue = true;
  ++FStops;
}

// --- HAL ---

bool TLncLink::MayBeat(std::uint64_t now) const {
  const TNcWatch* const watch = NcWatch();
  const std::uint64_t beat = watch ? watch->BeatMs.load(std::memory_order_acquire) : 0;
  if (beat == 0 || (now > beat && now - beat >= kStateBeatMs)) return false;
  TGuard guard(FLock);
  return FAway.empty();
}

void TLncLink::HalRound() {
  const std::uint64_t now = Clock().MonotonicMs();
  if (!FHal.IsOpen()) {
    if (now - FHalTriedMs < kRetryMs) {
      Clock().Pause(FStop, kAskEveryMs);
      return;
    }
    FHalTriedMs = now;
    if (!FHal.Open()) return;
    if (!CheckPins()) return FHal.Close();
    TGuard guard(FLock);
    FHalOpen = true;
    HoldUntilAborted();
  }
  if (const TResult<> round = FHal.Round(kHalFrameMs, MayBeat(now)); !round) {
    {
      TGuard guard(FLock);
      FHalOpen = false;
    }
    return Lose(Format(Tr("ixocut-hal is away: %s"), round.Problem().What.c_str()));
  }
  Track(Clock().MonotonicMs());
}

void TLncLink::Track(std::uint64_t now) {
  {
    TGuard guard(FTrackLock);
    FTrackedMs = FHal.FrameAt().value_or(FTrackedMs);
    TNcWatch* const watch = NcWatch();
    for (std::size_t i = 0; i < kLncAxes; ++i) {
      const auto axis = static_cast<TLncAxis>(i);
      const auto at = FConfig.Axes[i].Fitted ? FHal.Value(FConfig.Pin(axis, kAxisPos)) : std::nullopt;
      if (!at) continue;
      TTrack& track = FTracks[i];
      track.At = *at;
      if (std::abs(*at - track.From) > kMovedMm) {
        track.ChangedMs = FTrackedMs;
        track.From = *at;
      }
      if (watch && i < std::size(kWatched))
        watch->Pos[kWatched[i]].store(FConfig.ToOurs(axis, *at), std::memory_order_release);
    }
  }
  if (FOnFrame) FOnFrame(now);
}

// --- status ---

void TLncLink::StatusRound() {
  if (!FAsks.IsOpen()) return Reopen(FAsks, FAsksTriedMs, false);
  TLncStatus status;
  status.AskedMs = Clock().MonotonicMs();
  std::string text;
  const auto ask = [&](const char* name) {
    switch (FAsks.Get(name, kAskLimitMs, text)) {
      case roAck: return true;
      case roClosed: Lose(Tr("LinuxCNC has closed its text interface")); break;
      case roNak:
      case roSilent: Lose(Tr("LinuxCNC's text interface is silent")); break;
    }
    FAsks.Close();
    TGuard guard(FLock);
    FAsksOpen = false;
    return false;
  };
  // In this order: what has switched it off is known when it is seen to be off.
  if (!ask("machine")) return;
  status.On = text == "ON";
  if (!ask("estop")) return;
  status.Estop = text != "OFF";
  if (!ask("mode")) return;
  status.Mode = text;
  if (!ask("feed_override")) return;
  status.FeedOverride = ParseNumber<std::int32_t>(text).value_or(-1);
  if (!ask("program_status")) return;
  status.Idle = text == "IDLE";
  {
    TGuard guard(FLock);
    FStatus = status;
    FWake.notify_all();
  }
  WatchTakeover(status);
  TryReturn();
  Clock().Pause(FStop, kAskEveryMs);
}

// Somebody else's hands while the controller works.
void TLncLink::WatchTakeover(const TLncStatus& status) {
  const bool runs = FState.load(std::memory_order_acquire) != StateNumber(csStandby);
  if (!runs || !FRan) {
    FThen = status;
    for (std::size_t axis = 0; axis < kLncAxes; ++axis)
      FHomedThen[axis] = FConfig.Axes[axis].Fitted && Homed(static_cast<TLncAxis>(axis));
    FRestedAfter.reset();
    FRan = runs;
    if (!runs || !status.On) return;
  }
  std::string ours;
  {
    TGuard guard(FLock);
    ours = FModeSet;
  }
  if (FThen.On && status.Estop) return Lose(Tr("LinuxCNC has gone into emergency stop"));
  if (FThen.On && !status.On) return Lose(Tr("LinuxCNC's machine was switched off"));
  if (status.Mode == ours)
    FThen.Mode = ours;
  else if (status.Mode != FThen.Mode)
    return Lose(Format(Tr("LinuxCNC was brought into the mode %s by somebody else"), status.Mode.c_str()));
  for (std::size_t axis = 0; axis < kLncAxes; ++axis)
    if (FHomedThen[axis] && FHal.IsOpen() && !Homed(static_cast<TLncAxis>(axis)))
      return Lose(Format(Tr("axis %s of LinuxCNC was unhomed"), AxisName(static_cast<TLncAxis>(axis))));
  WatchHands();
}

// A jog in the mode that it is in, or its screen's own line. Positions are held against each other only where no order
// came between the two looks: this thread may be held up for longer than a move takes. Z, which following moves without
// an order, has been let go for long enough at both of them.
void TLncLink::WatchHands() {
  const std::uint64_t now = Clock().MonotonicMs();
  const bool follows = FHal.IsOn(kPinFollow) || FHal.IsOn(kPinClear);
  if (std::exchange(FFollows, follows) || follows) FFollowedMs = now;
  const bool letGo = now - FFollowedMs >= kLetGoMs;
  const bool comparesZ = std::exchange(FLetGo, letGo) && letGo;
  const std::optional<std::uint64_t> before = OrdersDone();
  std::array<double, kLncAxes> at{};
  for (std::size_t axis = 0; axis < kLncAxes; ++axis) at[axis] = At(static_cast<TLncAxis>(axis));
  const std::optional<std::uint64_t> after = OrdersDone();
  const bool compares = before && before == after && before == FRestedAfter;
  FRestedAfter = before == after ? after : std::nullopt;
  for (std::size_t i = 0; i < kLncAxes; ++i) {
    const auto axis = static_cast<TLncAxis>(i);
    if (!compares || (axis == laZ && !comparesZ))
      FOurs[axis] = at[axis];
    else if (std::abs(at[axis] - FOurs[axis]) > kByHandMm)
      return Lose(Format(Tr("axis %s of LinuxCNC was moved by somebody else"), AxisName(axis)));
  }
}

std::optional<std::uint64_t> TLncLink::OrdersDone() const {
  TGuard guard(FLock);
  if (FActiveUnit != kLncUnits || !FWaiting.empty() || FStopping != 0 || FAbortDue) return std::nullopt;
  return FMoves + FStops;
}

}  // namespace ixocamglue
