#include "controller/service/Service.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <future>
#include <pthread.h>
#include <utility>

#include "controller/service/RealTime.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/platform/services/ThreadTable.h"
#include "ixocamglue/support/Faults.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

constexpr const char* kThread = "ixo-interface";
constexpr std::uint64_t kMostBehindUs = 100'000;  // virtual time that cannot keep up is not made up for
constexpr std::uint64_t kLeastWaitUs = 50;

std::uint64_t RealUs() {
  using namespace std::chrono;
  return static_cast<std::uint64_t>(duration_cast<microseconds>(steady_clock::now().time_since_epoch()).count());
}

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
      FLease([this](const TLeaseEvent& event) { LeaseChanged(event); }) {
  TControllerOptions controller = FOptions.Controller;
  controller.Sinks.push_back(FLogEvents.get());
  FController = std::make_unique<TController>(std::move(controller));
  FAlarms.emplace(*FController, FEvents);
  FController->OnState([this](std::int32_t from, std::int32_t to) {
    FEvents.Add(evState, [from, to] {
      return nlohmann::ordered_json{{"from", StateWord(from)}, {"state", StateWord(to)}, {"stateNumber", to}};
    });
    Wake();
  });
  Publish();
}

TService::~TService() { End(); }

void TService::Start() {
  if (!FController->VirtualClock()) {
    FController->StartThreads();
    WaitForStandby(*FController);
    FThread = std::thread([this] { Run(); });
    return;
  }
  std::promise<void> ready;
  FThread = std::thread([this, &ready] {
    try {
      WaitForStandby(*FController);
    } catch (...) {
      FStopped.store(true);
      return ready.set_exception(std::current_exception());
    }
    ready.set_value();
    Run();
  });
  ready.get_future().get();
}

void TService::End() {
  {
    TGuard guard(FLock);
    FEnding = true;
  }
  FWork.notify_all();
  if (FThread.joinable()) FThread.join();
  FController->StopThreads();
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

void TService::Stop(const TAsker& who) {
  LogMsg(lkWarning, 0, Format(Tr("%s asks to stop"), who.Name.c_str()), "TPHost");
  FController->Framework().Stop(Format(Tr("%s has stopped it"), who.Name.c_str()));
}

TResult<> TService::AtRest() {
  if (!FController->Running()) return {};
  return TProblem{.What = Tr("a procedure is running")};
}

// --- the interface thread ---

void TService::Run() {
  pthread_setname_np(pthread_self(), kThread);
  if (FController->VirtualClock())
    RunVirtual();
  else
    RunReal();
  FStopped.store(true);
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
      LogFault(kThread, std::current_exception());
    }
  return !ending;
}

void TService::WaitForWork(std::uint64_t micros) {
  std::unique_lock lock(FLock.Native());
  FWork.wait_for(lock, std::chrono::microseconds(micros),
                 [this]() IXO_NO_ANALYSIS { return FWoken || FEnding || !FTasks.empty(); });
}

void TService::RunReal() {
  TThreadSign sign(kThread, tkOther);
  while (RunTasks()) {
    sign.Beat();
    const std::uint64_t now = RealMs();
    if (now >= FRoundAt) Round();
    WaitForWork((FRoundAt > now ? FRoundAt - now : 1) * 1000);
  }
}

// Passes while machine time is owed, and tasks between any two of them.
void TService::RunVirtual() {
  TVirtualClock& clock = *FController->VirtualClock();
  std::uint64_t startUs = RealUs();
  std::uint64_t startMs = clock.MonotonicMs();
  while (RunTasks()) {
    const std::uint64_t nowUs = RealUs();
    if (nowUs / 1000 >= FRoundAt) Round();
    // When the clock is due where it stands.
    const auto dueUs = startUs + static_cast<std::uint64_t>(static_cast<double>(clock.MonotonicMs() - startMs) *
                                                            1000.0 / FOptions.Speed);
    if (nowUs >= dueUs) {
      if (nowUs - dueUs > kMostBehindUs) {
        startUs = nowUs;
        startMs = clock.MonotonicMs();
      }
      FController->RunPass();
    } else {
      const std::uint64_t roundUs = FRoundAt * 1000 > nowUs ? FRoundAt * 1000 - nowUs : 0;
      WaitForWork(std::max(std::min(dueUs - nowUs, roundUs), kLeastWaitUs));
    }
  }
}

void TService::Round() {
  const std::uint64_t now = RealMs();
  FRoundAt = now + kStatusEveryMs;
  FLease.Watch(now);
  for (const auto& round : FRounds) try {
      round(now);
    } catch (...) {
      LogFault(kThread, std::current_exception());
    }
  Publish();
}

void TService::LeaseChanged(const TLeaseEvent& event) {
  FEvents.Add(evLease, [event] {
    const auto name = [](const std::optional<TAsker>& who) {
      return who ? nlohmann::ordered_json(who->Name) : nlohmann::ordered_json();
    };
    return nlohmann::ordered_json{
        {"event", LeaseChangeWord(event.Change)}, {"was", name(event.Was)}, {"holder", name(event.Now)}};
  });
  for (const auto& told : FLeaseTold) told(event);
}

void TService::Publish() {
  const std::shared_ptr<const TStatus> before = Status();
  auto status = std::make_shared<TStatus>();
  TNcStateFramework& framework = FController->Framework();
  status->Number = before ? before->Number + 1 : 1;
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
  status->Alarms = static_cast<std::uint32_t>(FController->Alarms().Standing().size());
  if (before && !SameSignals(before->Machine, status->Machine))
    FEvents.Add(evSignals, [status] { return SignalsJson(status->Machine); });
  TGuard guard(FStatusLock);
  FStatus = std::move(status);
}

}  // namespace ixocontroller
