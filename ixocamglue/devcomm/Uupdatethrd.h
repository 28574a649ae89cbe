// The update thread of a device object, and the object's lock.
//
// Every object has one thread, made with it, that calls UpdateStatus every 100 ms under the data lock, or skips the
// round while the lock is busy. Its first round waits until the object is whole: MakeDevice opens the gate after the
// last constructor has returned. An object made without it keeps its gate shut, and touches neither clock nor device,
// until StartUpdates.
//
// An object ends like this: a request under way is broken off, the thread stops and is joined, the request is waited
// for, then the object is freed. A call that begins after destruction has begun is the caller's fault, and so is
// destruction on the update thread itself.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <thread>
#include <utility>

#include "ixocamglue/devcomm/Ucommtypes.h"
#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/platform/services/ThreadTable.h"
#include "ixocamglue/support/Locks.h"

namespace ixocamglue {

inline constexpr char kUpdateThreadFault[] = "TNcUpdateStateThrd Error Message";

class TNcUpdateStateThrd {
 public:
  // `state` outlives the thread.
  explicit TNcUpdateStateThrd(INcThrdStateIntf& state);
  ~TNcUpdateStateThrd() { Stop(); }
  TNcUpdateStateThrd(const TNcUpdateStateThrd&) = delete;
  TNcUpdateStateThrd& operator=(const TNcUpdateStateThrd&) = delete;

  void Start();  // opens the gate; again has no effect. Any thread
  // Asks the thread to end and waits for it; again has no effect. On the update thread itself it only asks.
  void Stop();
  // One round, without its pause. False when an exception has ended the thread: it is logged, and nothing escapes.
  bool RunRound();

  // Empty, or the fault that has ended the thread; there is no restart. Any thread.
  [[nodiscard]] const char* FatalError() const {
    return FFailed.load(std::memory_order_acquire) ? kUpdateThreadFault : "";
  }

  const std::uint32_t Interval = 100;  // ms

 private:
  void Execute();

  INcThrdStateIntf* FStateIntf;      // null once the thread has ended
  std::optional<TThreadSign> FSign;  // the thread's; a fault stands in it until the object is freed
  bool FLogFirstError = true;
  std::atomic<bool> FFailed{false};
  std::atomic<bool> FGate{false};
  TStop FStop;
  TCriticalSection FJoining;  // who joins FThread
  std::thread FThread;
};

// The object's side: its lock and its thread.
class TNcThrdStateBase : public INcThrdStateIntf {
 public:
  TNcThrdStateBase();
  // Every destructor of the chain, and the deleter, begin with EndUse.
  ~TNcThrdStateBase() override { EndUse(); }
  TNcThrdStateBase(const TNcThrdStateBase&) = delete;
  TNcThrdStateBase& operator=(const TNcThrdStateBase&) = delete;

  // The data lock; re-entrant for its owning thread.
  [[nodiscard]] bool TryLockData() override IXO_NO_ANALYSIS;
  void LockData() override IXO_NO_ANALYSIS;
  void UnLockData() override IXO_NO_ANALYSIS;

  void StartUpdates() { FThread->Start(); }
  void StopUpdates() { FThread->Stop(); }
  // Breaks off a request under way, stops the thread, then waits for the request.
  void EndUse();
  [[nodiscard]] TNcUpdateStateThrd& Thread() { return *FThread; }

 protected:
  // Makes a request under way end early. Any thread; takes no lock.
  virtual void BreakOff() {}

  TRecursiveSection FLock;  // recursive: SendCMD holds it and calls EnqueueCMD, handlers send again

 private:
  std::unique_ptr<TNcUpdateStateThrd> FThread;  // freed before the lock
};

struct TDeviceDeleter {
  template <class T>
  void operator()(T* device) const {
    device->EndUse();  // while every override is still there
    delete device;
  }
};
template <class T>
using TDevicePtr = std::unique_ptr<T, TDeviceDeleter>;

// The way to make a device object whose thread runs.
template <class T, class... Args>
[[nodiscard]] TDevicePtr<T> MakeDevice(Args&&... args) {
  TDevicePtr<T> device(new T(std::forward<Args>(args)...));
  device->StartUpdates();
  return device;
}

}  // namespace ixocamglue
