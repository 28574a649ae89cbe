// A thread that stands ready to stop the machine at once (IMachine::StopNow), so that nobody who asks for it waits for
// a device: its calls may hang.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <thread>

#include "ixocamglue/support/Locks.h"

namespace ixocontroller {
using namespace ixocamglue;

class TStopper {
 public:
  explicit TStopper(std::function<void()> stop);
  ~TStopper();  // ends; the process ends with it when a call has not come back (End says so)
  TStopper(const TStopper&) = delete;
  TStopper& operator=(const TStopper&) = delete;

  void Ask();  // any thread; waits for nothing
  // Waits this long at most. False: a call has not come back, and what it uses must stay.
  [[nodiscard]] bool End(std::uint32_t withinMs);

 private:
  void Run();

  const std::function<void()> FStop;
  TCriticalSection FLock;
  std::condition_variable FAsking;
  bool FAsked IXO_GUARDED_BY(FLock) = false;
  bool FEnding IXO_GUARDED_BY(FLock) = false;
  std::atomic<bool> FEnded{false};
  std::thread FThread;
};

}  // namespace ixocontroller
