#include "controller/StopOnSignal.h"

#include <atomic>
#include <pthread.h>
#include <thread>
#include <utility>

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
  enum TState : std::uint8_t { siIdle, siBegun, siGivenUp };

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
      const std::uint64_t deadline = DeadlineMs;
      const bool overdue = askedMs == 0 && deadline != 0 && now >= deadline + kGiveUpMs;
      if (!overdue && (askedMs == 0 || now < askedMs + kGiveUpMs)) continue;
      TState begun = siBegun;
      if (GiveUp && State.compare_exchange_strong(begun, siGivenUp)) GiveUp(overdue);
    }
  }

  std::function<void(bool)> GiveUp;
  std::atomic<bool> Ending{false};
  std::atomic<std::uint64_t> DeadlineMs{0};
  std::atomic<TState> State{siIdle};
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
  FImpl->DeadlineMs = deadlineMs;
  FImpl->State = TImpl::siBegun;
}

void TStopOnSignal::End() {
  TImpl::TState begun = TImpl::siBegun;
  if (FImpl->State.compare_exchange_strong(begun, TImpl::siIdle)) return;
  if (begun == TImpl::siGivenUp) FImpl->Thread.join();  // which ends the process
}

}  // namespace ixocontroller
