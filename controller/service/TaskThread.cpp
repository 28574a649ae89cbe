#include "controller/service/TaskThread.h"

#include <chrono>
#include <exception>
#include <pthread.h>
#include <utility>

#include "controller/process/RoundThread.h"
#include "ixocamglue/platform/services/ThreadTable.h"
#include "ixocamglue/support/Faults.h"

namespace ixocontroller {

TTaskThread::TTaskThread(std::string name) : FThread([this, name = std::move(name)] { Run(name); }) {}

bool TTaskThread::Post(std::function<void()> task) {
  {
    TGuard guard(FLock);
    if (FEnding) return false;
    FTasks.push_back(std::move(task));
  }
  FWork.notify_one();
  return true;
}

TTaskThread::~TTaskThread() {
  (void)End(0);
  if (FThread.joinable()) FThread.join();
}

bool TTaskThread::End(std::uint32_t ms) {
  {
    TGuard guard(FLock);
    FEnding = true;
  }
  FWork.notify_one();
  for (; ms > 0 && !FEnded.load(); --ms) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  return FEnded.load();
}

void TTaskThread::Run(const std::string& name) IXO_NO_ANALYSIS {
  pthread_setname_np(pthread_self(), name.c_str());
  TThreadSign sign(name, tkLog);
  std::vector<std::function<void()>> tasks;
  for (bool ending = false; !ending;) {
    sign.Park();
    {
      std::unique_lock lock(FLock.Native());
      FWork.wait(lock, [this]() IXO_NO_ANALYSIS { return FEnding || !FTasks.empty(); });
      tasks.swap(FTasks);
      ending = FEnding;
    }
    for (const auto& task : tasks) {
      sign.Beat();
      try {
        task();
      } catch (...) {
        LogFault(name.c_str(), std::current_exception());
      }
    }
    tasks.clear();
  }
  FEnded.store(true);
}

}  // namespace ixocontroller
