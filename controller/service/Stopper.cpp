#include "controller/service/Stopper.h"

#include <chrono>
#include <pthread.h>
#include <utility>

#include "controller/process/RoundThread.h"
#include "ixocamglue/platform/services/ThreadTable.h"

namespace ixocontroller {
namespace {

constexpr const char* kStopperThread = "ixo-stopper";

}  // namespace

TStopper::TStopper(std::function<void()> stop) : FStop(std::move(stop)), FThread([this] { Run(); }) {}

TStopper::~TStopper() {
  {
    TGuard guard(FLock);
    FEnding = true;
  }
  FAsking.notify_all();
  FThread.join();
}

void TStopper::Ask() {
  {
    TGuard guard(FLock);
    FAsked = true;
  }
  FAsking.notify_all();
}

bool TStopper::End(std::uint32_t withinMs) {
  {
    TGuard guard(FLock);
    FEnding = true;
  }
  FAsking.notify_all();
  for (std::uint32_t ms = 0; ms < withinMs && !FEnded.load(); ++ms)
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  return FEnded.load();
}

// Silent while it waits for work; while it stops something its silence is an alarm, as any thread's is.
void TStopper::Run() IXO_NO_ANALYSIS {
  pthread_setname_np(pthread_self(), kStopperThread);
  TThreadSign sign(kStopperThread, tkOther);
  std::unique_lock lock(FLock.Native());
  while (true) {
    sign.Park();
    FAsking.wait(lock, [this]() IXO_NO_ANALYSIS { return FAsked || FEnding; });
    if (!std::exchange(FAsked, false)) break;
    lock.unlock();
    sign.Beat();
    try {
      FStop();
    } catch (...) {
      LogFault(kStopperThread, std::current_exception());
    }
    lock.lock();
  }
  FEnded.store(true);
}

}  // namespace ixocontroller
