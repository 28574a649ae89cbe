// Ctrl-C while the main thread waits where no stop reaches: for a name that is resolved, a connection that is opened.
// For programs without a controller's threads; others have SignalStop.h. Main thread. Nothing here fails. Times: ms of
// Clock().MonotonicMs.
#pragma once

#include <csignal>
#include <cstdint>
#include <functional>
#include <memory>

#include "ixocamglue/platform/services/Clock.h"

namespace ixocontroller {
using namespace ixocamglue;

// Keeps SIGINT, SIGTERM and SIGHUP for TStopOnSignal. Made before any thread, which would take them.
class TSignalsBlocked {
 public:
  TSignalsBlocked();
  ~TSignalsBlocked();
  TSignalsBlocked(const TSignalsBlocked&) = delete;
  TSignalsBlocked& operator=(const TSignalsBlocked&) = delete;

 private:
  sigset_t FBefore;
};

// The first signal asks `stop`. What has not come to its end kGiveUpMs later, or kGiveUpMs after its deadline (a name
// that is resolved, a connection that is opened), does not hold the program up: `giveUp` is called on another thread,
// and ends the process; empty: nothing is given up. `stop` outlives this.
class TStopOnSignal {
 public:
  static constexpr std::uint32_t kGiveUpMs = 120;
  explicit TStopOnSignal(TStop& stop, std::function<void(bool overdue)> giveUp = {});
  ~TStopOnSignal();
  TStopOnSignal(const TStopOnSignal&) = delete;
  TStopOnSignal& operator=(const TStopOnSignal&) = delete;

  // From now on it may be given up; 0: it has no deadline.
  void Begin(std::uint64_t deadlineMs = 0);
  // It came to its end; does not return once it is given up.
  void End();

 private:
  struct TImpl;
  const std::unique_ptr<TImpl> FImpl;
};

}  // namespace ixocontroller
