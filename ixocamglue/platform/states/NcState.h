// The state framework: machine states by number, what they wait for, and the loop that runs them.
//
// One state is current. Each pass of the loop (RunOnce) first looks at stop, alarms, the beam (BeamWatch.h) and pause,
// then lets the state watch its signals (UpdateThread), then, when what the state waits for has come about, gives it
// one tick (StepDone); a requested change of state is carried out last. A state that ends goes dark before it is left,
// and what forbade its beam within its last tick still ends it: with one more tick. Everything that a state implements
// runs on the state thread: the thread that calls RunOnce. The requests marked "any thread" are handed over and take
// effect in the next pass. No request throws: what a state or a device throws is caught in the pass that ran it, and
// logged.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "ixocamglue/platform/ports/CutSystem.h"
#include "ixocamglue/platform/ports/NcAlarms.h"
#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/platform/states/BeamWatch.h"
#include "ixocamglue/platform/states/GasWatch.h"
#include "ixocamglue/platform/states/NcWatch.h"
#include "ixocamglue/support/Installed.h"
#include "ixocamglue/support/Locks.h"
#include "ixocamglue/support/Problem.h"

namespace ixocamglue {

// Why a state gets a tick.
inline constexpr std::int32_t srDone = 0;  // what it waited for has come about
inline constexpr std::int32_t srStop = 1;
inline constexpr std::int32_t srPause = 3;
inline constexpr std::int32_t srAlarm = 4;
inline constexpr std::int32_t srError = 5;  // a fault of a device or of the state itself, or a time limit

inline constexpr std::int32_t nsStandby = 0;
inline constexpr std::int32_t nsCustomMotion = 204;  // a motion procedure
inline constexpr std::int32_t nsZemGasAdjust = 205;  // the gas calibration
inline constexpr std::uint32_t kLoopDelayMs = 10;    // between two passes, unless the state asks for another

class TNcStateFramework;

template <>
TNcStateFramework*& TInstalled<TNcStateFramework>::Slot();
// The running framework; null while there is none.
[[nodiscard]] TNcStateFramework* NcStates();

// A machine state. Created by the framework on first entry, kept until the framework ends. State thread, except
// StopExec. Overrides call the inherited operation.
class TNcStateCtrl {
 public:
  explicit TNcStateCtrl(TNcStateFramework& owner) : FOwner(owner) {}
  virtual ~TNcStateCtrl() = default;
  TNcStateCtrl(const TNcStateCtrl&) = delete;
  TNcStateCtrl& operator=(const TNcStateCtrl&) = delete;

  // True refuses the entry; the machine goes to standby.
  virtual bool CheckEnterAlarm(std::int32_t param);
  // True when the new alarm ends the state. Here: it does when it, or one that stands, forbids all motion or requires a
  // stop. One that requires a stop ends every state, also when it is gone before anybody has looked.
  virtual bool CheckNewAlarm(const TNcAlarmRecord& alarm);
  // Asked every pass; true when a standing alarm ends the state.
  virtual bool CheckStateAlarm();
  // An exception refuses the entry: LeaveState is called and the machine goes to standby.
  virtual void InitState(std::int32_t param);
  virtual void LeaveState(std::int32_t param);  // param: the number of the next state
  // One tick. Here: a reason other than srDone demands laser, emission and gas off.
  virtual void StepDone(std::int32_t reason);
  virtual void StopExec();  // any thread; the StepDone(srStop) follows in the next pass
  // Every pass; loopDelay arrives as kLoopDelayMs, what it holds afterwards (at least 1) is the time to the next pass.
  virtual void UpdateThread(std::uint32_t& loopDelay);
  virtual std::string StateName();

 protected:
  // A request, carried out at the end of the pass; a later one replaces an earlier one.
  void ChangeState(std::int32_t state, std::int32_t param);
  // What the next StepDone(srDone) waits for; limits in ms, -1 none; past a limit comes StepDone(srError).
  void EnsureBusySet();  // nothing: the next pass
  void SetBusy(INcBusyDevice& device, std::int32_t limitMs);
  void SetBusyMotion(std::int32_t limitMs);
  void SetBusyGas(std::int32_t limitMs);
  void SetBusyDelay(std::int32_t limitMs);

 public:
  // Starts the delay for which SetBusyDelay waits, of any number of ms.
  void Delay(std::uint32_t ms);

  TNcStateFramework& Owner() const { return FOwner; }

 private:
  TNcStateFramework& FOwner;
};

// State classes by number. Filled by the units' start-up, before a framework runs.
class TNcRegistry {
 public:
  // What it throws refuses the entry; the next one tries again.
  using TFactory = std::function<std::unique_ptr<TNcStateCtrl>(TNcStateFramework&)>;

  // False, with a fault reported, when the number is taken; the first stays.
  bool RegisterStateCtrl(std::int32_t state, TFactory factory);
  void UnregisterStateCtrl(std::int32_t state) { FFactories.erase(state); }
  // Null for a number that nobody registered.
  [[nodiscard]] std::unique_ptr<TNcStateCtrl> Create(std::int32_t state, TNcStateFramework& owner) const;

 private:
  std::map<std::int32_t, TFactory> FFactories;
};

IXO_DECLARE_SERVICE(TNcRegistry, NcRegistry);

struct TNcStateOptions {
  // Laser, emission and, after an abort, gas are demanded off on every abort and on entering standby, until the
  // devices acknowledge. Only a check of what the procedures do by themselves turns this off.
  bool SafeEntry = true;
};

class TNcStateFramework {
 public:
  explicit TNcStateFramework(TNcStateOptions options = {});
  // Ends the current state like a stop. The loop's thread must have ended.
  ~TNcStateFramework();
  TNcStateFramework(const TNcStateFramework&) = delete;
  TNcStateFramework& operator=(const TNcStateFramework&) = delete;

  // --- any thread ---
  // Refused, with its reason, from the moment a stop is posted until the state is left and every device has
  // acknowledged switching off.
  TResult<> RequestState(std::int32_t state, std::int32_t param);
  // As do Pause, Abort and PostAlarm with an alarm that forbids all motion or requires a stop, it also withdraws a
  // state requested before and not yet entered. `cause`: for the report, in the operator's words; of several stops in
  // one pass the first one that has a cause tells it.
  void Stop(std::string cause = {});
  void Pause();
  void Abort(std::int32_t reason, std::string cause = {});  // ends the current state with this reason; 0 is ignored
  // How many stops, pauses and other ends were asked for so far, also in standby: for who starts one thing behind the
  // other, and must not behind any of these.
  [[nodiscard]] std::uint32_t EndsAsked() const { return FEndsAsked.load(std::memory_order_acquire); }
  // Counts one that finds nothing to end.
  void NoteEndAsked() { FEndsAsked.fetch_add(1, std::memory_order_acq_rel); }
  void PostAlarm(TNcAlarmRecord alarm);
  // Drops this reference in a pass in which it is the last one, or with the framework.
  void Release(std::shared_ptr<void> object);
  // Has the state thread do this behind its next pass, whatever that comes to. What it throws is logged.
  void RunNext(std::function<void()> work);
  [[nodiscard]] std::int32_t CurrentState() const { return FNumber.load(std::memory_order_acquire); }
  [[nodiscard]] TNcBusyKind Busy() const { return FWatch.Busy.load(std::memory_order_acquire); }
  // A change of state is requested and not yet carried out. Asked before CurrentState: it ends behind the entry and
  // what the observer is told of it, so that whoever asks in this order misses neither.
  [[nodiscard]] bool ChangePending() const { return FPending.load(std::memory_order_acquire) != kNonePending; }
  // The same, to this state.
  [[nodiscard]] bool IsPending(std::int32_t state) const { return FPending.load(std::memory_order_acquire) == state; }
  // Devices have not acknowledged switching off yet, or have not been told: the first pass tells them.
  [[nodiscard]] bool SafePending() const { return FSafePending.load(std::memory_order_acquire); }
  // What befell the beam of the last state when it was ended already; bcNone again when the next one is entered.
  [[nodiscard]] TBeamCause LateBeamCause() const { return FLateBeam.load(std::memory_order_acquire); }
  [[nodiscard]] TNcWatch& Watch() { return FWatch; }

  // --- state thread ---
  // One pass. Returns the time to the next one in ms (at least 1). Never throws.
  std::uint32_t RunOnce();
  // What `work` does counts as the state thread's. Between two passes.
  static void RunAside(const std::function<void()>& work);
  // Called on the state thread after each change of state, a refused entry included. Set before the loop runs.
  using TObserver = std::function<void(std::int32_t from, std::int32_t to)>;
  void SetObserver(TObserver observer) { FObserver = std::move(observer); }
  // Why the tick under way ends the state, when whoever ended it said so; empty in a tick with srDone.
  [[nodiscard]] const std::string& EndCause() const { return FEndCause; }
  // The state object of a number, created if need be; null when nobody registered it. Throws what its factory throws.
  [[nodiscard]] TNcStateCtrl* State(std::int32_t state);

 private:
  friend class TNcStateCtrl;

  struct TChange {
    std::int32_t State = nsStandby;
    std::int32_t Param = 0;
  };
  struct TMail {
    std::optional<TChange> Change;
    std::vector<TNcAlarmRecord> Alarms;
    std::vector<std::shared_ptr<void>> Released;
    std::vector<std::function<void()>> Work;
    bool Stop = false;
    std::int32_t Abort = srDone;
    std::string StopCause, AbortCause;
  };

  TMail TakeMail();
  void Pass(TMail& mail, std::uint32_t& loopDelay);
  void FreeReleased(TMail& mail);
  // What ends the state in this pass, or srDone.
  std::int32_t AbortReason(TMail& mail);
  // The beam's cause, when it ends the state; where there is nothing to end the beam goes dark instead.
  [[nodiscard]] TBeamCause BeamEnds(bool forbidden);
  [[nodiscard]] bool AlarmStands(const TMail& mail);
  // True when the busy condition is met; sets `reason` to srError when its limit is over or its device fails.
  [[nodiscard]] bool BusyMet(std::int32_t& reason);
  void Tick(std::int32_t reason);
  void RequestChange(TChange change);
  void EndState(std::int32_t reason);
  void EndStop();
  void PostAgain();
  [[nodiscard]] const char* WhyEndPosted() const IXO_REQUIRES(FLock);
  void WithdrawRequest() IXO_REQUIRES(FLock);
  void StopWhenWedged();
  [[nodiscard]] TNcStateCtrl* StateOrLog(std::int32_t state);
  void Enter(TChange change);
  [[nodiscard]] bool Entered(TNcStateCtrl& next, const TChange& change);
  void SetBusyKind(TNcBusyKind kind, INcBusyDevice* device, std::int32_t limitMs);
  void DemandSafe(bool gasToo);
  void RetrySafe();
  void LogGuarded(const char* where, const std::exception_ptr& error) { LogGuarded(where, error, CurrentState()); }
  static void LogGuarded(const char* where, const std::exception_ptr& error, std::int32_t state);

  // constant after construction
  const TNcStateOptions FOptions;
  TObserver FObserver;

  // any thread
  std::atomic<std::int32_t> FNumber{nsStandby};
  std::atomic<TNcStateCtrl*> FCurrent{nullptr};
  static constexpr std::int32_t kNonePending = -1;
  std::atomic<std::int32_t> FPending{kNonePending};  // the state that a change leads to
  std::atomic<bool> FSafePending{FOptions.SafeEntry};
  std::atomic<bool> FHasMail{false};
  std::atomic<std::uint32_t> FEndsAsked{0};
  std::atomic<TBeamCause> FLateBeam{bcNone};
  TNcWatch FWatch;
  TInstalled<TNcWatch> FWatchInstalled{FWatch};
  TInstalled<TNcStateFramework> FInstalled{*this};
  TCriticalSection FLock;
  TMail FMail IXO_GUARDED_BY(FLock);
  bool FStopping IXO_GUARDED_BY(FLock) = false;  // a stop was posted and has not come to its end

  // state thread
  std::map<std::int32_t, std::unique_ptr<TNcStateCtrl>> FStates;
  std::optional<TChange> FChange;
  std::string FEndCause;
  TBeamWatch FBeam{FWatch};
  std::vector<std::shared_ptr<void>> FReleased;  // another thread may still hold them too
  TGasWatch FGasWatch;
  INcBusyDevice* FBusyDevice = nullptr;
  std::uint64_t FBusyLimitAt = TNcSince::kNot;
  std::uint64_t FDelayUntil = 0;
  std::uint32_t FWedgedPasses = 0;
  bool FStopTaken = false;
  std::string FStopCause;  // of the stop that was taken last
  bool FStopLeft = false;  // the state that the stop ends was left; in standby there is none
  bool FSafeLaser = false;
  bool FSafeGas = false;
  bool FSafeReported = false;
  bool FDarkByHand = false;  // a cause stands that was answered with dark
};

// For a gas device's adapter, before it switches gas off. Anybody but the running state who has gas switched off while
// the gas calibration runs ends it with a stop, so that it does not switch gas on again. Any thread.
// Gas that is on all the same when a procedure ends is told again until it acknowledges.
void NoteGasOff();
// For the same adapter, when a command to switch gas on is carried out. Any thread.
void NoteGasOn();

// For a follower's adapter, when following has ended by itself because there is no plate below the head: whatever runs
// ends with an error, dark; light by hand goes off. Any thread, at once.
void NotePlateLost();

// Drops a reference to something whose end may call devices, so that it ends on the state thread: at once where this is
// that thread and nobody else holds it, else in a later pass. Any thread; where no framework runs, at once.
void ReleaseOnStateThread(std::shared_ptr<void> object);

// Runs the loop on a thread of its own until it is ended; the framework outlives it.
class TNcStateThread {
 public:
  // `last` is run on the thread behind the last pass.
  explicit TNcStateThread(TNcStateFramework& framework, std::function<void()> last = {});
  ~TNcStateThread();  // ends and waits
  // Ends, and waits this long at most. False: the thread has not come back, from a device for example.
  [[nodiscard]] bool End(std::uint32_t withinMs);

 private:
  TStop FStop;
  std::atomic<bool> FEnded{false};
  std::thread FThread;
};

}  // namespace ixocamglue
