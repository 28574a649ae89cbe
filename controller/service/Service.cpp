#include "controller/service/Service.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <future>
#include <pthread.h>
#include <utility>

#include "controller/AlarmPackage.h"
#include "controller/process/RealTime.h"
#include "controller/process/RoundThread.h"
#include "controller/runs/ProcedureRun.h"
#include "controller/safety/LaserLatch.h"
#include "controller/safety/SafeEnd.h"
#include "ixocamglue/motion/Ulasersteps.h"
#include "ixocamglue/platform/ports/CutSystem.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/platform/services/ThreadTable.h"
#include "ixocamglue/support/Faults.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

constexpr const char* kThread = "ixo-interface";
constexpr const char* kFiles = "ixo-files";
constexpr std::uint64_t kMostBehindUs = 100'000;  // virtual time that cannot keep up is not made up for
constexpr std::uint64_t kLeastWaitUs = 50;
constexpr std::uint64_t kRunLookMs = 5;  // at a run, in real time
constexpr std::uint64_t kFaultAgainMs = 10'000;
constexpr std::size_t kJournalEntries = 20'000;
constexpr std::uint32_t kTaskMs = 300;    // for a task that is under way at the end
constexpr std::uint32_t kFilesMs = 1000;  // and for what a disk still has to take
constexpr std::uint64_t kReturnsMs = 50;  // a step that has not returned for longer keeps no stop waiting
constexpr const char* kSource = "TPHost";
constexpr const char* kAllOffTrip = TrMark("everything was switched off");

std::uint64_t RealUs() {
  using namespace std::chrono;
  return static_cast<std::uint64_t>(duration_cast<microseconds>(steady_clock::now().time_since_epoch()).count());
}

void TripLaser() {
  if (TNcLaser* const laser = FittedLaser()) laser->Trip(kAllOffTrip);
}

// Counts what has begun, and what of it is done.
class TCounted {
 public:
  TCounted(std::atomic<std::uint32_t>& begun, std::atomic<std::uint32_t>& done) : FDone(done) { ++begun; }
  ~TCounted() { ++FDone; }
  TCounted(const TCounted&) = delete;
  TCounted& operator=(const TCounted&) = delete;

 private:
  std::atomic<std::uint32_t>& FDone;
};

}  // namespace

// Lines of the application log as events.
class TService::TLogEvents final : public ILogSink {
 public:
  explicit TLogEvents(TEventRing& events) : FEvents(events) {}
  void Write(const TLogRecord& record) override {
    if (record.Diagnostic) return;
    FEvents.Add(evLog, [kind = record.Kind, text = record.Text, source = record.Source, ms = record.TimeMs] {
      return nlohmann::ordered_json{{"kind", kind}, {"text", text}, {"source", source}, {"machineMs", ms}};
    });
  }

 private:
  TEventRing& FEvents;
};

TService::TService(TServiceOptions options)
    : FOptions(std::move(options)),
      FAccess(FOptions.StateFolder),
      FLogEvents(std::make_unique<TLogEvents>(FEvents)),
      FController([this] {
        TControllerOptions controller = FOptions.Controller;
        controller.Sinks.push_back(FLogEvents.get());
        controller.Sinks.push_back(&FLogLines);
        return std::make_unique<TController>(std::move(controller));
      }()),
      FGas(*FController, FEvents),
      FRunner(*FController, FSteps, FPath, FEvents),
      FLease([this](const TLeaseEvent& event) { LeaseChanged(event); }) {
  FAlarms.emplace(*FController, FEvents);
  FController->Journal().Bound(kJournalEntries);
  FController->OnState([this](std::int32_t from, std::int32_t to) {
    FRunner.Changed(from, to);
    // Told by the interface thread: a reader may have the ring.
    const auto tell = [this, from, to] {
      FEvents.Add(evState, [from, to] {
        return nlohmann::ordered_json{{"from", StateWord(from)}, {"state", StateWord(to)}, {"stateNumber", to}};
      });
    };
    if (!Post([this, tell] {
          PublishBeforeEvent();
          tell();
        }))
      tell();
  });
  FSteps.OnBegun([this] { Wake(); });
  if (TVirtualClock* const clock = FController->VirtualClock())
    FClockHandle = clock->OnStep([this](std::uint64_t nowMs) { FRunner.Sample(nowMs); });
  FStopper.emplace([this] { FController->Machine().StopNow(); });
  FJobs.emplace(*this);
  FRunner.OnCurrent([this] { PublishBeforeEvent(); });
  Publish();
}

TService::~TService() {
  End();
  if (TVirtualClock* const clock = FController->VirtualClock()) clock->Remove(FClockHandle);
}

void TService::Start() {
  if (!FController->VirtualClock()) FController->StartThreads();
  std::promise<void> ready;
  FThread = std::thread([this, &ready] { RunThread(ready); });
  ready.get_future().get();
}

void TService::End() {
  {
    TGuard guard(FLock);
    if (std::exchange(FEnding, true)) return;
  }
  FWork.notify_all();
  const auto wait = [this](std::uint32_t ms) {
    for (; FThread.joinable() && ms > 0 && !FStopped.load(); --ms)
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return FStopped.load() || !FThread.joinable();
  };
  (void)wait(kTaskMs);
  FController->StopThreads();
  EndOrExit(wait(kTaskMs), Tr("a task of the interface thread has not returned"));
  if (FThread.joinable()) FThread.join();
  EndOrExit(FStopper->End(kTaskMs), Tr("the machine's stop has not returned"));
  FJobs->StartNoMore();
  FRunner.Close();
  EndOrExit(FFiles.End(kFilesMs), Tr("a request that reads or writes a file has not returned"));
  RunLate();
  EndOrExit(FJobs->Close(), Tr("the history of runs has not been written to its end"));
}

// Nothing can be taken down under a thread that may come back from its call at any time.
void TService::EndOrExit(bool ended, const char* what) {
  if (ended) return;
  if (FOptions.Controller.EndFailed) FOptions.Controller.EndFailed({.What = what}, true);
  std::_Exit(kExitHangs);
}

bool TService::Post(std::function<void()> task) {
  {
    TGuard guard(FLock);
    if (FEnding) return false;
    FTasks.push_back(std::move(task));
  }
  FWork.notify_one();
  return true;
}

void TService::OnDisk(std::function<void()> work, std::function<void()> then) {
  const auto both = [this, work = std::move(work), then = std::move(then)] {
    try {
      work();
    } catch (...) {
      LogFault(kFiles, std::current_exception());
    }
    if (Post(then)) return;
    TGuard guard(FLock);
    FLate.push_back(then);
  };
  if (PostFiles(both)) return;
  both();
  RunLate();
}

// Nobody else is left: what it asks for in turn is done at once.
void TService::RunLate() {
  std::vector<std::function<void()>> late;
  {
    TGuard guard(FLock);
    late.swap(FLate);
  }
  for (const auto& then : late) Carefully(then);
}

void TService::Wake() {
  {
    TGuard guard(FLock);
    FWoken = true;
  }
  FWork.notify_one();
}

void TService::SetAddress(const std::string& url) {
  FAccess.SetAddress(url);
  FController->NoteAddress(url);
}

std::shared_ptr<const TStatus> TService::Status() const {
  TGuard guard(FStatusLock);
  return FStatus;
}

std::shared_ptr<const std::string> TService::StatusText(const std::string& language) {
  return FStatusTexts.Of(*Status(), language);
}

// --- what ends something; any thread ---

void TService::Stop(const TAsker& who) {
  const TLanguageScope own("");
  const std::string cause = Format(Tr("stopped by %s"), who.Name.c_str());
  FController->Framework().Stop(cause);
  LogMsg(lkWarning, 0, cause, kSource);
  Post([this, cause] { FRunner.StopAsked(cause); });
}

void TService::Pause(const TAsker& who) {
  const TLanguageScope own("");
  const std::string cause = Format(Tr("paused by %s"), who.Name.c_str());
  FController->Framework().Abort(srPause, cause);
  LogMsg(lkWarning, 0, cause, kSource);
  Post([this, cause] { FRunner.StopAsked(cause); });  // for one that was not entered yet
}

void TService::AllOff(const TAsker& who) {
  const TLanguageScope own("");
  const TCounted counted(FAllOffsBegun, FAllOffsDone);
  FAllOff.store(true);
  const std::uint64_t askedMs = Clock().MonotonicMs();
  TTryAll tryAll;
  tryAll(&TripLaser);
  FStopper->Ask();
  TNcStateFramework& framework = FController->Framework();
  std::string cause = Format(Tr("everything was switched off by %s"), who.Name.c_str());
  tryAll([&] { framework.RunNext(&TSafeEnd::StopDevices); })([&] { framework.Stop(cause); })([&] { KeepStill(cause); });
  LogMsg(lkError, 0, cause, kSource);
  Post([this, cause = std::move(cause), askedMs] {
    FRunner.CutOff(cause, askedMs);
    Publish();
  });
}

// One alarm, however often it is asked for.
void TService::KeepStill(std::string why) {
  const std::uint64_t serial =
      FController->Alarms().Raise({.IdPrefix = kAllOffAlarm, .Desc = std::move(why), .Id = 1, .Attrs = kAllOffForbids});
  std::uint64_t none = 0;
  if (!FAllOffAlarm.compare_exchange_strong(none, serial)) (void)FController->Alarms().ClearSerial(serial);
}

void TService::Connected(std::uint64_t connection) {
  Post([this, connection] { FRunner.Connected(connection); });
}

void TService::Disconnected(std::uint64_t connection) {
  Post([this, connection] {
    FRunner.Disconnected(connection);
    FDesks->Panel.Keys().ConnectionGone(connection, RealMs());
  });
}

// --- interface thread: what begins something ---

TResult<> TService::AtRest() {
  if (FRunner.Current())
    return TProblem{.What = Format(Tr("the procedure %s is running"), FRunner.Current()->Procedure.c_str()),
                    .Remedy = Tr("stop it, or wait until it has ended")};
  if (!FController->Running()) return {};
  const char* const state = StateWord(FController->Framework().CurrentState());
  return TProblem{.What = Format(Tr("the procedure %s is running"), state),
                  .Remedy = Tr("stop it, or wait until it has ended")};
}

TResult<> TService::NotAllOff() const {
  if (!FAllOff.load()) return {};
  return TProblem{.What = Tr("everything was switched off"), .Remedy = Tr("remove the cause, then reset it")};
}

// What only darkens starts at any time.
TResult<> TService::NoEmergency(const TRunRequest& request) const {
  const auto darkens = [](const TMotionCall& call) {
    return call.Row->Command == TSmtLaserOff::Cmd || call.Row->Command == TSmtLaserOffOnly::Cmd;
  };
  if (!FController->Keys().IsActive() || (!request.Job && std::ranges::all_of(request.Calls, darkens))) return {};
  return TProblem{.What = Tr("the emergency stop is active"), .Where = {}, .Why = {}, .Remedy = Tr("release it")};
}

TResult<std::uint64_t> TService::Run(TRunRequest request, const TAsker& who) {
  TNcStateFramework& framework = FController->Framework();
  const std::uint32_t ends = request.Ends.value_or(framework.EndsAsked());
  if (TResult<> on = NotAllOff(); !on) return on.Problem();
  if (TResult<> none = NoEmergency(request); !none) return none.Problem();
  TResult<std::uint64_t> run = FRunner.Start(std::move(request), who);
  if (run && framework.EndsAsked() != ends) {  // an end that came before there was anything to end
    framework.Stop();
    FRunner.StopAsked({});
  }
  return run;
}

TResult<> TService::MayRun(const TRunRequest& request) {
  if (TResult<> on = NotAllOff(); !on) return on;
  if (TResult<> none = NoEmergency(request); !none) return none;
  return FRunner.MayStart(request);
}

namespace {

TProblem StaysOff(std::string why, const char* remedy) {
  return {.What = Tr("everything stays switched off"), .Why = std::move(why), .Remedy = remedy};
}

}  // namespace

TResult<> TService::StandsStill() {
  TNcStateFramework& framework = FController->Framework();
  if (!framework.Watch().Lives(Clock().MonotonicMs()))
    return StaysOff(Tr("the state thread gives no sign of life"), Tr("restart the program"));
  if (framework.ChangePending() || framework.CurrentState() != nsStandby || FRunner.Busy())
    return StaysOff(Tr("the machine is not in standby"), Tr("stop what runs"));
  if (framework.SafePending())
    return StaysOff(Tr("a device has not acknowledged switching off"), Tr("wait until it has, or repair it"));
  if (FController->Machine().Snapshot().Moving())
    return StaysOff(Tr("an axis still moves"), Tr("wait until it stands"));
  return {};
}

TResult<> TService::NoOtherAlarm() {
  for (const TNcAlarmRecord& alarm : FController->Alarms().Standing())
    if (alarm.Serial != FAllOffAlarm.load() && alarm.Level() == 1)
      return StaysOff(Format("%s: %s", alarm.Identifier().c_str(), alarm.Desc.c_str()),
                      Tr("remove the cause of the alarm and clear it"));
  return {};
}

// As its alarm says.
std::string TService::WhyAllOff() const {
  for (TNcAlarmRecord& alarm : FController->Alarms().Standing())
    if (alarm.Serial == FAllOffAlarm.load()) return std::move(alarm.Desc);
  const TLanguageScope own("");
  return Tr("everything was switched off");
}

TResult<> TService::Reset(const TAsker& who) {
  const std::uint32_t done = FAllOffsDone.load();
  if (FAllOff.load())
    if (TResult<> still = StandsStill(); !still) return still;
  FController->ClearAlarms();
  FController->Alarms().ResetAlarms();
  if (FAllOff.load())
    if (TResult<> none = NoOtherAlarm(); !none) return none;
  const std::string why = WhyAllOff();
  const std::uint64_t serial = FAllOffAlarm.exchange(0);
  if (serial != 0) (void)FController->Alarms().ClearSerial(serial);
  if (FController->Keys().IsActive()) FController->Keys().SetEmergencyStop(false);  // the panel's key
  if (TResult<> reset = FController->ResetLatch(); !reset) {
    if (FAllOff.load()) KeepStill(why);
    return reset;
  }
  FAllOff.store(false);
  // One that was under way, or has begun meanwhile: what it had done by then may be undone, and is done again.
  if (FAllOffsBegun.load() != done) {
    FAllOff.store(true);
    TTryAll tryAll;
    tryAll (&TripLaser)([&] { KeepStill(why); });
    return StaysOff(Tr("it was asked for again meanwhile"), Tr("reset it again"));
  }
  const TLanguageScope own("");
  LogMsg(lkWarning, 0, Format(Tr("reset by %s"), who.Name.c_str()), kSource);
  Publish();  // who asks next sees it
  return {};
}

// --- the interface thread ---

void TService::RunThread(std::promise<void>& ready) {
  pthread_setname_np(pthread_self(), kThread);
  try {
    WaitForStandby(*FController);
    FDesks.emplace(
        *FController, FEvents, FOptions.StateFolder,
        [this](std::function<void()> work, std::function<void()> then) { OnDisk(std::move(work), std::move(then)); });
    Publish();
  } catch (...) {
    FStopped.store(true);
    return ready.set_exception(std::current_exception());
  }
  ready.set_value();
  if (FController->VirtualClock())
    RunVirtual();
  else
    RunReal();
  FDesks.reset();
  FStopped.store(true);
}

template <class F>
bool TService::Carefully(F action) {
  try {
    action();
    return true;
  } catch (...) {
    RoundFailed(std::current_exception());
    return false;
  }
}

void TService::RoundFailed(const std::exception_ptr& error) {
  ++FFaults;
  try {
    std::string text = DescribeException(error);
    const std::uint64_t now = RealMs();
    if (text == FToldFault && now - FToldMs < kFaultAgainMs) return;
    FToldFault = std::move(text);
    FToldMs = now;
  } catch (...) {  // no memory for the text
  }
  LogFault(kThread, error);
}

bool TService::RunTasks() {
  std::vector<std::function<void()>> tasks;
  bool ending = false;
  {
    TGuard guard(FLock);
    tasks.swap(FTasks);
    FWoken = false;
    ending = FEnding;
  }
  for (const auto& task : tasks) try {
      task();
    } catch (...) {
      ++FFaults;
      LogFault(kThread, std::current_exception());
    }
  return !ending;
}

void TService::WaitForWork(std::uint64_t micros) {
  std::unique_lock lock(FLock.Native());
  FWork.wait_for(lock, std::chrono::microseconds(micros),
                 [this]() IXO_NO_ANALYSIS { return FWoken || FEnding || !FTasks.empty(); });
}

std::uint64_t TService::RoundEveryMs() {
  const bool idle = !FController->VirtualClock() && !FRunner.Busy() && !FRunner.AnyConnected() && !FJobs->WillStart() &&
                    !FDesks->Panel.Keys().Any();
  return idle ? kIdleEveryMs : kStatusEveryMs;
}

bool TService::RoundIsDue(std::uint64_t nowMs) { return nowMs >= FRoundedMs + RoundEveryMs(); }

void TService::RunReal() {
  TThreadSign sign(kThread, tkOther);
  while (RunTasks()) {
    sign.Beat();
    const std::uint64_t now = RealMs();
    const bool ends = StopPastTheStep();
    Carefully([this] { FRunner.Pass(); });
    if (RoundIsDue(now)) Round();
    const std::uint64_t due = FRoundedMs + RoundEveryMs();
    const std::uint64_t left = due > now ? due - now : 1;
    WaitForWork((ends || FRunner.Busy() ? std::min(left, kRunLookMs) : left) * 1000);
  }
}

// The end itself stays the state thread's. True: it is still to come. A step that polls a device within its tick gives
// signs of life, so it is passes that count.
bool TService::StopPastTheStep() {
  const TNcWatch& watch = FController->Framework().Watch();
  const bool ends = watch.EndPosted.load(std::memory_order_acquire) != nullptr;
  const std::uint32_t pass = watch.Pass.load(std::memory_order_acquire);
  const std::uint64_t now = RealMs();
  if (!ends || pass != FEndingPass) {
    FEndingPass = pass;
    FEndingMs = now;
    FStoppedPast = false;
  } else if (now > FEndingMs + kReturnsMs && !std::exchange(FStoppedPast, true)) {
    FStopper->Ask();
    LogMsg(lkWarning, 0, Tr("the step that stands has not returned: the machine is stopped past it"), kSource);
  }
  return ends;
}

// Passes while machine time is owed, and tasks between any two of them.
void TService::RunVirtual() {
  TVirtualClock& clock = *FController->VirtualClock();
  std::uint64_t startUs = RealUs();
  std::uint64_t startMs = clock.MonotonicMs();
  while (RunTasks()) {
    const std::uint64_t nowUs = RealUs();
    const std::uint64_t nowMs = RealMs();
    if (RoundIsDue(nowMs)) Round();
    // When the clock is due where it stands.
    const auto dueUs = startUs + static_cast<std::uint64_t>(static_cast<double>(clock.MonotonicMs() - startMs) *
                                                            1000.0 / FOptions.Speed);
    if (nowUs >= dueUs) {
      if (nowUs - dueUs > kMostBehindUs) {
        startUs = nowUs;
        startMs = clock.MonotonicMs();
      }
      Carefully([this] { FDesks->Panel.Watch(RealMs()); });
      if (!Carefully([this] { FController->RunPass(); }))
        WaitForWork(std::uint64_t{kStatusEveryMs} * 1000);  // the clock may stand
      Carefully([this] { FRunner.Pass(); });
    } else {
      const std::uint64_t roundMs = FRoundedMs + RoundEveryMs();
      const std::uint64_t roundUs = roundMs > nowMs ? (roundMs - nowMs) * 1000 : 0;
      WaitForWork(std::max(std::min(dueUs - nowUs, roundUs), kLeastWaitUs));
    }
  }
}

// Each part by itself: what fails keeps no other from its turn.
void TService::Round() {
  const std::uint64_t now = FRoundedMs = RealMs();
  Carefully([&] { FDesks->Round(now); });
  Carefully([&] { FLease.Watch(now); });
  if (FLease.Holder()) FRunner.Attended(now - (TLease::kLeaseMs - std::min(FLease.LeftMs(now), TLease::kLeaseMs)));
  for (const auto& round : FRounds) Carefully([&] { round(now); });
  Carefully([this] { Publish(); });
}

void TService::LeaseChanged(const TLeaseEvent& event) {
  if (FDesks) FDesks->Panel.Keys().ReleaseAll(kuLease, RealMs());
  FEvents.Add(evLease, [event] {
    const auto name = [](const std::optional<TAsker>& who) {
      return who ? nlohmann::ordered_json(who->Name) : nlohmann::ordered_json();
    };
    return nlohmann::ordered_json{
        {"event", LeaseChangeWord(event.Change)}, {"was", name(event.Was)}, {"holder", name(event.Now)}};
  });
  if (event.Now) FRunner.Attend(event.Now->Connection);
  for (const auto& told : FLeaseTold) told(event);
}

// Who hears of it asks next what is.
void TService::PublishBeforeEvent() {
  Carefully([this] { Publish(); });
}

void TService::Publish() {
  const std::shared_ptr<const TStatus> before = Status();
  auto status = std::make_shared<TStatus>();
  TNcStateFramework& framework = FController->Framework();
  status->Number = before ? before->Number + 1 : 1;
  status->RealMs = RealMs();
  status->UnixMs = RealUnixMs();
  status->Machine = FController->Machine().Snapshot();
  status->MachineMs = Clock().MonotonicMs();
  const std::uint64_t beat = framework.Watch().BeatMs.load(std::memory_order_acquire);
  status->BeatAgeMs = status->MachineMs > beat ? status->MachineMs - beat : 0;
  status->Passes = framework.Watch().Pass.load(std::memory_order_acquire);
  status->State = framework.CurrentState();
  status->Running = FController->Running();
  status->SafePending = framework.SafePending();
  status->AllowMove = FController->Alarms().AllowMove();
  status->AllowLaser = FController->Alarms().AllowLaser();
  status->AllOff = FAllOff.load();
  FRunner.Show(*status);
  status->Alarms = static_cast<std::uint32_t>(FController->Alarms().Count());
  if (before && !SameSignals(before->Machine, status->Machine))
    FEvents.Add(evSignals, [status] {
      nlohmann::ordered_json signals = SignalsJson(status->Machine);
      signals["machineMs"] = status->MachineMs;
      return signals;
    });
  TGuard guard(FStatusLock);
  FStatus = std::move(status);
}

}  // namespace ixocontroller
