#include "ixocamglue/platform/states/NcState.h"

#include <algorithm>
#include <iterator>
#include <pthread.h>
#include <utility>

#include "ixocamglue/platform/ports/CutStates.h"
#include "ixocamglue/platform/ports/MotionDriver.h"
#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/platform/states/NcStateTexts.h"
#include "ixocamglue/support/Faults.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocamglue {
namespace {

constexpr std::uint32_t kWedgedPasses = 20;

thread_local bool GOnStateThread = false;

class TStateThreadMark {
 public:
  TStateThreadMark() : FBefore(std::exchange(GOnStateThread, true)) {}
  ~TStateThreadMark() { GOnStateThread = FBefore; }
  TStateThreadMark(const TStateThreadMark&) = delete;
  TStateThreadMark& operator=(const TStateThreadMark&) = delete;

 private:
  const bool FBefore;
};

// Alarms that end every state, by TNcStateCtrl::CheckNewAlarm.
constexpr TNcAlarmAttrs kEndsStates = naForbidMove | naRequireStop;

// What is lit there was lit by hand, and no procedure runs that could be ended.
bool ByHand(std::int32_t state) {
  const TCutState kind = ClassifyCutState(state);
  return kind == csStandby || kind == csPaused || kind == csJogging;
}

class TStandbyState final : public TNcStateCtrl {
 public:
  using TNcStateCtrl::TNcStateCtrl;
  std::string StateName() override { return "nsStandby"; }
};

}  // namespace

bool OnStateThread() { return GOnStateThread; }

// --- TNcStateCtrl ---

bool TNcStateCtrl::CheckEnterAlarm(std::int32_t) { return false; }

bool TNcStateCtrl::CheckNewAlarm(const TNcAlarmRecord& alarm) {
  TNcAlarms* const alarms = NcAlarms();
  return (alarm.Attrs & kEndsStates) != 0 || (alarms && (!alarms->AllowMove() || alarms->RequireStop()));
}

bool TNcStateCtrl::CheckStateAlarm() { return false; }
void TNcStateCtrl::InitState(std::int32_t) {}
void TNcStateCtrl::LeaveState(std::int32_t) {}

void TNcStateCtrl::StepDone(std::int32_t reason) {
  if (reason != srDone) FOwner.DemandSafe(true);
}

void TNcStateCtrl::StopExec() {}
void TNcStateCtrl::UpdateThread(std::uint32_t&) {}
std::string TNcStateCtrl::StateName() { return {}; }

void TNcStateCtrl::ChangeState(std::int32_t state, std::int32_t param) { FOwner.RequestChange({state, param}); }
void TNcStateCtrl::EnsureBusySet() { FOwner.SetBusyKind(bkEnsure, nullptr, -1); }
void TNcStateCtrl::SetBusy(INcBusyDevice& device, std::int32_t limitMs) {
  FOwner.SetBusyKind(bkDevice, &device, limitMs);
}
void TNcStateCtrl::SetBusyMotion(std::int32_t limitMs) { FOwner.SetBusyKind(bkMotion, nullptr, limitMs); }
void TNcStateCtrl::SetBusyGas(std::int32_t limitMs) { FOwner.SetBusyKind(bkGas, nullptr, limitMs); }
void TNcStateCtrl::SetBusyDelay(std::int32_t limitMs) { FOwner.SetBusyKind(bkDelay, nullptr, limitMs); }
void TNcStateCtrl::Delay(std::uint32_t ms) { FOwner.FDelayUntil = Clock().MonotonicMs() + ms; }

// --- TNcRegistry ---

bool TNcRegistry::RegisterStateCtrl(std::int32_t state, TFactory factory) {
  if (FFactories.emplace(state, std::move(factory)).second) return true;
  return FaultOr(false, Format("machine state %d is registered already", state));
}

std::unique_ptr<TNcStateCtrl> TNcRegistry::Create(std::int32_t state, TNcStateFramework& owner) const {
  const auto it = FFactories.find(state);
  return it == FFactories.end() ? nullptr : it->second(owner);
}

// --- TNcStateFramework: requests ---

TNcStateFramework::TNcStateFramework(TNcStateOptions options) : FOptions(options) {
  FStates.emplace(nsStandby, std::make_unique<TStandbyState>(*this));
}

TNcStateFramework::~TNcStateFramework() {
  if (CurrentState() != nsStandby) {
    Stop();
    RunOnce();
  }
}

TResult<> TNcStateFramework::RequestState(std::int32_t state, std::int32_t param) {
  TGuard guard(FLock);
  if (FStopping)
    return TProblem{
        .What = Tr("a stop has not come to its end"),
        .Why = SafePending() ? Tr("a device has not acknowledged switching off") : Tr("the state is being left"),
        .Remedy = Tr("start again when the machine is in standby")};
  FMail.Change = TChange{state, param};
  FPending.store(state, std::memory_order_release);
  FHasMail.store(true, std::memory_order_release);
  return {};
}

void TNcStateFramework::Stop(std::string cause) {
  NoteEndAsked();
  {
    TGuard guard(FLock);
    WithdrawRequest();
    if (FMail.StopCause.empty()) FMail.StopCause = std::move(cause);  // the first one that tells why
    FMail.Stop = true;
    FStopping = true;
    FWatch.EndPosted.store(WhyEndPosted(), std::memory_order_release);
    FHasMail.store(true, std::memory_order_release);
  }
  try {
    if (TNcStateCtrl* current = FCurrent.load(std::memory_order_acquire)) current->StopExec();
  } catch (...) {
    LogGuarded("StopExec", std::current_exception());
  }
}

void TNcStateFramework::Pause() { Abort(srPause); }

void TNcStateFramework::Abort(std::int32_t reason, std::string cause) {
  if (reason == srStop) return Stop(std::move(cause));
  if (reason == srDone) return;
  NoteEndAsked();
  TGuard guard(FLock);
  WithdrawRequest();
  if (FMail.Abort != srDone && FMail.Abort != srPause) return;  // the first one tells why
  FMail.Abort = reason;
  FMail.AbortCause = std::move(cause);
  FWatch.EndPosted.store(WhyEndPosted(), std::memory_order_release);
  FHasMail.store(true, std::memory_order_release);
}

void TNcStateFramework::PostAlarm(TNcAlarmRecord alarm) {
  TGuard guard(FLock);
  if ((alarm.Attrs & kEndsStates) != 0) WithdrawRequest();
  FMail.Alarms.push_back(std::move(alarm));
  FWatch.EndPosted.store(WhyEndPosted(), std::memory_order_release);
  FHasMail.store(true, std::memory_order_release);
}

void TNcStateFramework::Release(std::shared_ptr<void> object) {
  TGuard guard(FLock);
  FMail.Released.push_back(std::move(object));
  FHasMail.store(true, std::memory_order_release);
}

void TNcStateFramework::RunNext(std::function<void()> work) {
  TGuard guard(FLock);
  FMail.Work.push_back(std::move(work));
  FHasMail.store(true, std::memory_order_release);
}

TNcStateFramework::TMail TNcStateFramework::TakeMail() {
  if (!FHasMail.load(std::memory_order_acquire)) return {};
  TGuard guard(FLock);
  FHasMail.store(false, std::memory_order_release);
  return std::exchange(FMail, TMail{});
}

// Nothing is entered behind the end that it was to begin with.
void TNcStateFramework::WithdrawRequest() {
  if (FMail.Change) FPending.store(kNonePending, std::memory_order_release);
  FMail.Change.reset();
}

const char* TNcStateFramework::WhyEndPosted() const {
  if (FStopping) return TrMark("a stop has not come to its end");
  if (FMail.Abort != srDone) return TrMark("the state is about to be ended");
  const bool alarm =
      std::ranges::any_of(FMail.Alarms, [](const TNcAlarmRecord& a) { return (a.Attrs & kEndsStates) != 0; });
  return alarm ? TrMark("an alarm is about to end the state") : nullptr;
}

// --- TNcStateFramework: the pass ---

std::uint32_t TNcStateFramework::RunOnce() {
  const TStateThreadMark mark;
  FWatch.Pass.fetch_add(1, std::memory_order_acq_rel);
  FWatch.BeatMs.store(Clock().MonotonicMs(), std::memory_order_release);

  std::uint32_t loopDelay = kLoopDelayMs;
  TMail mail;
  try {
    Pass(mail, loopDelay);
  } catch (...) {  // nothing kills the state thread
    LogGuarded("RunOnce", std::current_exception());
    PostAgain();
  }
  for (const auto& work : mail.Work) try {
      work();
    } catch (...) {
      LogGuarded("RunNext", std::current_exception());
    }
  return std::max<std::uint32_t>(loopDelay, 1);
}

void TNcStateFramework::Pass(TMail& mail, std::uint32_t& loopDelay) {
  if (!FCurrent.load(std::memory_order_relaxed)) {  // power-up: enter standby
    FCurrent.store(State(nsStandby), std::memory_order_release);
    DemandSafe(false);
  }
  RetrySafe();
  mail = TakeMail();
  if (mail.Stop) {
    FStopTaken = true;
    FStopLeft = CurrentState() == nsStandby;
    FStopCause = std::move(mail.StopCause);
  }
  FreeReleased(mail);
  if (mail.Change) RequestChange(*mail.Change);
  std::int32_t reason = AbortReason(mail);
  try {
    FCurrent.load(std::memory_order_relaxed)->UpdateThread(loopDelay);
  } catch (...) {
    LogGuarded("UpdateThread", std::current_exception());
    if (reason == srDone) {
      FEndCause = DescribeException(std::current_exception());
      reason = srError;
    }
  }
  if (reason != srDone || BusyMet(reason)) Tick(reason);
  if (FChange) EndState(reason);
  if (FChange) Enter(*std::exchange(FChange, std::nullopt));
  StopWhenWedged();
  EndStop();
}

// A stop that was taken and could not be carried out is not lost, nor is its cause.
void TNcStateFramework::PostAgain() {
  if (!FStopTaken || FStopLeft) return;
  TGuard guard(FLock);
  if (!FStopCause.empty()) FMail.StopCause = std::move(FStopCause);
  FMail.Stop = true;
  FHasMail.store(true, std::memory_order_release);
}

void TNcStateFramework::RunAside(const std::function<void()>& work) {
  const TStateThreadMark mark;
  work();
}

// Nobody takes a new reference to what was released: once there is only this one, it stays the last.
void TNcStateFramework::FreeReleased(TMail& mail) {
  std::ranges::move(mail.Released, std::back_inserter(FReleased));
  if (!FReleased.empty()) std::erase_if(FReleased, [](const auto& object) { return object.use_count() == 1; });
}

// The state is about to be left: dark in this pass, whatever follows, and before anybody hears how it ended; gas that
// was switched off and stays open is told again.
void TNcStateFramework::EndState(std::int32_t reason) {
  if (ByHand(CurrentState())) {
    // No state that is not by hand begins with a beam that a key lit in the last moment.
    if (FWatch.LaserAsked.Runs() && !ByHand(FChange->State)) DemandSafe(false);
    return;
  }
  FBeam.Remember();
  DemandSafe(FWatch.GasStays());
  const TBeamCause cause = FBeam.Look();
  if (cause == bcNone) return;
  if (reason != srDone) return FLateBeam.store(cause, std::memory_order_release);
  FEndCause = BeamCauseText(cause);
  Tick(BeamReason(cause));
}

// What was posted before this pass has been carried out by now.
void TNcStateFramework::EndStop() {
  const bool over = FStopTaken && FStopLeft && !FSafeLaser && !FSafeGas;
  if (over) FStopTaken = false;
  if (!over && !FWatch.EndPosted.load(std::memory_order_acquire)) return;
  TGuard guard(FLock);
  if (over) FStopping = FMail.Stop;  // another one may have come meanwhile
  FWatch.EndPosted.store(WhyEndPosted(), std::memory_order_release);
}

// A procedure that waits for nothing gets no further tick, and nobody would end it.
void TNcStateFramework::StopWhenWedged() {
  const std::int32_t state = CurrentState();
  const bool runs = state == nsCustomMotion || state == nsZemGasAdjust;
  if (!runs || Busy() != bkNone || ChangePending()) {
    FWedgedPasses = 0;
  } else if (++FWedgedPasses >= kWedgedPasses) {
    FWedgedPasses = 0;
    Stop(Show(SNcWedged, state));
  }
}

std::int32_t TNcStateFramework::AbortReason(TMail& mail) {
  FEndCause.clear();
  bool alarm = false, gasMissing = false;
  std::optional<std::string> fault;
  TBeamCause beam = bcNone;
  const bool forbidden =
      std::ranges::any_of(mail.Alarms, [](const TNcAlarmRecord& a) { return (a.Attrs & naForbidLaser) != 0; });
  try {
    alarm = AlarmStands(mail);
    gasMissing = FGasWatch.Round(FWatch, ByHand(CurrentState()), Clock().MonotonicMs());
    beam = BeamEnds(forbidden);
  } catch (...) {
    LogGuarded("checks", std::current_exception());
    fault = DescribeException(std::current_exception());
  }
  if (mail.Stop) {
    FEndCause = FStopCause;
    return srStop;
  }
  const std::int32_t dark = BeamReason(beam);
  if (dark != srDone && (!alarm || dark == srAlarm)) FEndCause = BeamCauseText(beam);
  if (alarm && FEndCause.empty()) {
    const auto ends = [](const TNcAlarmRecord& record) { return (record.Attrs & kEndsStates) != 0; };
    if (const auto first = std::ranges::find_if(mail.Alarms, ends); first != mail.Alarms.end())
      FEndCause = std::move(first->Desc);
  }
  if (alarm) return srAlarm;
  if (dark != srDone) return dark;
  if (fault) {
    FEndCause = std::move(*fault);
    return srError;
  }
  if (gasMissing) {
    FEndCause = Show(SGasSupplyLow, static_cast<int>(TGasWatch::kLimitMs));
    return srError;
  }
  FEndCause = std::move(mail.AbortCause);
  return mail.Abort;
}

TBeamCause TNcStateFramework::BeamEnds(bool forbidden) {
  const TBeamCause cause = FBeam.Look(forbidden);
  const bool byHand = cause != bcNone && ByHand(CurrentState());
  const bool told = std::exchange(FDarkByHand, byHand);
  if (!byHand) return cause;
  if (!FSafeLaser && (FWatch.LaserAsked.Runs() || FWatch.EmissionAsked.Runs())) DemandSafe(false);
  if (!told) {
    FLateBeam.store(cause, std::memory_order_release);
    LogMsg(lkError, 0, Show(SBeamSwitchedOff, BeamCauseText(cause).c_str()));
  }
  return bcNone;
}

bool TNcStateFramework::AlarmStands(const TMail& mail) {
  TNcStateCtrl* const current = FCurrent.load(std::memory_order_relaxed);
  bool alarm = false;
  for (const TNcAlarmRecord& record : mail.Alarms)
    alarm = current->CheckNewAlarm(record) || (record.Attrs & naRequireStop) != 0 || alarm;
  return current->CheckStateAlarm() || alarm;
}

bool TNcStateFramework::BusyMet(std::int32_t& reason) {
  const auto idle = [](INcBusyDevice* device) { return !device || !device->IsBusy(); };
  const std::uint64_t now = Clock().MonotonicMs();
  try {
    bool met = false;
    switch (Busy()) {
      case bkNone: return false;
      case bkEnsure: return true;
      case bkDevice: met = idle(FBusyDevice); break;
      case bkMotion: met = idle(MotionDriver()); break;
      case bkGas: met = idle(FittedGas()); break;
      case bkDelay: met = now >= FDelayUntil; break;
    }
    if (met) return true;
  } catch (...) {
    LogGuarded("busy condition", std::current_exception());
    FEndCause = DescribeException(std::current_exception());
    reason = srError;
    return true;
  }
  if (now < FBusyLimitAt) return false;
  if (TDiag d{dlError}) d("busy condition %d: time limit exceeded", static_cast<int>(Busy()));
  reason = srError;
  return true;
}

void TNcStateFramework::Tick(std::int32_t reason) {
  SetBusyKind(bkNone, nullptr, -1);
  FWatch.Tick.fetch_add(1, std::memory_order_acq_rel);
  try {
    FCurrent.load(std::memory_order_relaxed)->StepDone(reason);
  } catch (...) {
    LogGuarded("StepDone", std::current_exception());
    DemandSafe(true);
    RequestChange({nsStandby, 0});
  }
}

void TNcStateFramework::SetBusyKind(TNcBusyKind kind, INcBusyDevice* device, std::int32_t limitMs) {
  const std::uint64_t now = Clock().MonotonicMs();
  FBusyDevice = device;
  FBusyLimitAt = limitMs < 0 ? TNcSince::kNot : now + static_cast<std::uint64_t>(limitMs);
  if (kind == bkNone)
    FWatch.BusySince.End();
  else
    FWatch.BusySince.Restart(now);
  FWatch.Busy.store(kind, std::memory_order_release);
}

// --- TNcStateFramework: changes of state ---

void TNcStateFramework::RequestChange(TChange change) {
  FChange = change;
  FPending.store(change.State, std::memory_order_release);
}

TNcStateCtrl* TNcStateFramework::State(std::int32_t state) {
  auto it = FStates.find(state);
  if (it == FStates.end()) {
    TNcRegistry* const registry = NcRegistry();
    auto created = registry ? registry->Create(state, *this) : nullptr;
    if (!created) return nullptr;
    it = FStates.emplace(state, std::move(created)).first;
  }
  return it->second.get();
}

// Null also where its factory throws.
TNcStateCtrl* TNcStateFramework::StateOrLog(std::int32_t state) {
  try {
    TNcStateCtrl* const found = State(state);
    if (!found) LogMsg(lkError, 0, Format(Tr("machine state %d is not registered"), state));
    return found;
  } catch (...) {
    LogGuarded("constructor", std::current_exception(), state);
    return nullptr;
  }
}

void TNcStateFramework::Enter(TChange change) {
  const std::int32_t from = CurrentState();
  const auto leave = [&](TNcStateCtrl* state, std::int32_t next) {
    try {
      state->LeaveState(next);
    } catch (...) {
      LogGuarded("LeaveState", std::current_exception());
    }
  };
  leave(FCurrent.load(std::memory_order_relaxed), change.State);
  if (!ByHand(change.State)) {
    FBeam.Restart();
    FLateBeam.store(bcNone, std::memory_order_release);
  }
  FStopLeft = true;
  SetBusyKind(bkNone, nullptr, -1);

  TNcStateCtrl* const next = StateOrLog(change.State);
  if (!next || !Entered(*next, change)) {
    if (next) leave(next, nsStandby);
    DemandSafe(true);
    change.State = nsStandby;
  }
  if (change.State == nsStandby) {
    FCurrent.store(State(nsStandby), std::memory_order_release);
    FNumber.store(nsStandby, std::memory_order_release);
    if (ByHand(from)) DemandSafe(false);  // any other state went dark before it was left
  }
  try {
    if (FObserver) FObserver(from, change.State);
  } catch (...) {
    LogGuarded("state observer", std::current_exception());
  }
  TGuard guard(FLock);  // one that was posted meanwhile stays pending
  const std::optional<TChange>& posted = FChange ? FChange : FMail.Change;
  FPending.store(posted ? posted->State : kNonePending, std::memory_order_release);
}

bool TNcStateFramework::Entered(TNcStateCtrl& next, const TChange& change) {
  try {
    if (next.CheckEnterAlarm(change.Param)) return false;
    FCurrent.store(&next, std::memory_order_release);
    FNumber.store(change.State, std::memory_order_release);
    next.InitState(change.Param);
    // The first tick comes in the next pass, unless the state has named what it waits for.
    if (change.State != nsStandby && Busy() == bkNone) SetBusyKind(bkEnsure, nullptr, -1);
    return true;
  } catch (...) {
    LogGuarded("InitState", std::current_exception());
    FChange.reset();  // what a refused entry asked for is void
    return false;
  }
}

// --- TNcStateFramework: safe entry ---

void TNcStateFramework::DemandSafe(bool gasToo) {
  if (!FOptions.SafeEntry) return;
  FSafeLaser = true;
  FSafeGas = FSafeGas || gasToo;
  FSafePending.store(true, std::memory_order_release);
  if (FWatch.DarkDemandedInPass.load(std::memory_order_relaxed) == 0)
    FWatch.DarkDemandedInPass.store(FWatch.Pass.load(std::memory_order_relaxed), std::memory_order_release);
  RetrySafe();
}

// Without the cutting system's lock: whoever holds it may be the one that hangs.
void TNcStateFramework::RetrySafe() {
  if (!FSafeLaser && !FSafeGas) return;
  TTryAll tryAll;
  bool dark = !FSafeLaser;
  bool closed = !FSafeGas;
  TNcCutSystem* const cut = CutSystem();
  TNcLaser* laser = nullptr;
  TNcGas* gas = nullptr;
  tryAll([&] { laser = FittedLaser(); });
  tryAll([&] { gas = FittedGas(); });
  if (FSafeLaser) {
    if (laser) {
      tryAll([&] { cut->SwitchLaser(false); })([&] { laser->EmissionOff(); });
      // What was asked for and has not come yet would come later: a device that missed the off is not dark.
      tryAll([&] {
        dark = !laser->GetLaser() && !laser->GetEmission() && !FWatch.LaserAsked.Runs() && !FWatch.EmissionAsked.Runs();
      });
    } else {
      tryAll([&] { dark = !FittedLaser(); });
    }
  }
  if (FSafeGas) {
    if (gas)
      tryAll([&] { gas->SwitchOff(); })([&] { closed = !gas->GetGas(); });
    else
      tryAll([&] { closed = !FittedGas(); });
  }
  if (dark) FWatch.DarkDemandedInPass.store(0, std::memory_order_release);
  FSafeLaser = !dark;
  FSafeGas = !closed;
  const bool pending = FSafeLaser || FSafeGas;
  if (pending && !std::exchange(FSafeReported, true))
    LogMsg(lkError, 0,
           Tr("a device did not acknowledge switching off laser, emission or gas; it is told again every pass"));
  if (!pending) FSafeReported = false;
  FSafePending.store(pending, std::memory_order_release);
}

void TNcStateFramework::LogGuarded(const char* where, const std::exception_ptr& error, std::int32_t state) {
  try {
    LogMsg(lkException, 0, Format(Tr("state %d, %s: %s"), state, where, DescribeException(error).c_str()));
  } catch (...) {  // no memory for the line: the loop goes on all the same
  }
}

// --- TNcStateThread ---

TNcStateThread::TNcStateThread(TNcStateFramework& framework, std::function<void()> last)
    : FThread([this, &framework, last = std::move(last)] {
        pthread_setname_np(pthread_self(), "ixo-state");
        while (!Clock().Pause(FStop, framework.RunOnce())) {
        }
        if (last) last();
        FEnded.store(true, std::memory_order_release);
      }) {}

bool TNcStateThread::End(std::uint32_t withinMs) {
  FStop.Ask();
  const std::uint64_t until = Clock().MonotonicMs() + withinMs;
  while (!FEnded.load(std::memory_order_acquire) && Clock().MonotonicMs() < until) Clock().Sleep(1);
  return FEnded.load(std::memory_order_acquire);
}

TNcStateThread::~TNcStateThread() {
  FStop.Ask();
  FThread.join();
}

IXO_DEFINE_SERVICE(TNcRegistry, NcRegistry)
IXO_DEFINE_SERVICE(TNcWatch, NcWatch)
IXO_DEFINE_SERVICE(TNcStateFramework, NcStates)

}  // namespace ixocamglue
