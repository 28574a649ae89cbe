#include "controller/process/StopOnSignal.h"

#include <atomic>
#include <pthread.h>
#include <thread>
#include <utility>

#include "ixocamglue/support/Locks.h"

namespace ixocontroller {
namespace {

sigset_t StopSignals() {
  sigset_t signals;
  ::sigemptyset(&signals);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) ::sigaddset(&signals, signal);
  return signals;
}

}  // namespace

TSignalsBlocked::TSignalsBlocked() {
  const sigset_t signals = StopSignals();
  ::pthread_sigmask(SIG_BLOCK, &signals, &FBefore);
}

TSignalsBlocked::~TSignalsBlocked() { ::pthread_sigmask(SIG_SETMASK, &FBefore, nullptr); }

// The signals are taken by a thread of their own, which may lock what it likes.
struct TStopOnSignal::TImpl {
  void Watch(TStop& stop) {
    pthread_setname_np(pthread_self(), "ixo-signals");
    constexpr timespec kSlice{0, 20'000'000};
    const sigset_t signals = StopSignals();
    std::uint64_t askedMs = 0;
    while (!Ending) {
      const bool signal = ::sigtimedwait(&signals, nullptr, &kSlice) > 0;
      const std::uint64_t now = Clock().MonotonicMs();
      if (signal) stop.Ask();
      if (signal && askedMs == 0) askedMs = now;
      const TGuard guard(Lock);
      const bool overdue = askedMs == 0 && DeadlineMs != 0 && now >= DeadlineMs + kGiveUpMs;
      if (!Begun || (!overdue && (askedMs == 0 || now < askedMs + kGiveUpMs))) continue;
      if (GiveUp) GiveUp(overdue);
    }
  }

  std::function<void(bool)> GiveUp;
  std::atomic<bool> Ending{false};
  TCriticalSection Lock;  // also while it is given up: who says that it came to its end waits here then
  bool Begun IXO_GUARDED_BY(Lock) = false;
  std::uint64_t DeadlineMs IXO_GUARDED_BY(Lock) = 0;
  std::thread Thread;
};

TStopOnSignal::TStopOnSignal(TStop& stop, std::function<void(bool overdue)> giveUp) : FImpl(std::make_unique<TImpl>()) {
  FImpl->GiveUp = std::move(giveUp);
  FImpl->Thread = std::thread([&stop, impl = FImpl.get()] { impl->Watch(stop); });
}

TStopOnSignal::~TStopOnSignal() {
  FImpl->Ending = true;
  FImpl->Thread.join();
}

void TStopOnSignal::Begin(std::uint64_t deadlineMs) {
  const TGuard guard(FImpl->Lock);
  FImpl->DeadlineMs = deadlineMs;
  FImpl->Begun = true;
}

void TStopOnSignal::End() {
  const TGuard guard(FImpl->Lock);
  FImpl->Begun = false;
}

}  // namespace ixocontroller
