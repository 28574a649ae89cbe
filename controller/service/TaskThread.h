// A thread that does one thing after the other, for what may wait for a disk: nobody else waits with it.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "ixocamglue/support/Locks.h"

namespace ixocontroller {
using namespace ixocamglue;

class TTaskThread {
 public:
  explicit TTaskThread(std::string name);  // at most 15 characters
  ~TTaskThread();
  TTaskThread(const TTaskThread&) = delete;
  TTaskThread& operator=(const TTaskThread&) = delete;

  // Any thread. False: it has ended, and the task is not done. What a task throws is logged.
  bool Post(std::function<void()> task);
  // What was posted is done first. False: it has not come to its end within that real time, and may not be destroyed.
  [[nodiscard]] bool End(std::uint32_t ms);

 private:
  void Run(const std::string& name);

  TCriticalSection FLock;
  std::condition_variable FWork;
  std::vector<std::function<void()>> FTasks IXO_GUARDED_BY(FLock);
  bool FEnding IXO_GUARDED_BY(FLock) = false;
  std::atomic<bool> FEnded{false};
  std::thread FThread;
};

}  // namespace ixocontroller
