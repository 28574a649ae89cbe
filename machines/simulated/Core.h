// What all devices of one simulated machine share: its lock, its time and its way to the observer.
//
// A device call passes the gate first, without the lock, and then opens a TSimScope: that takes the lock and lets the
// physics of the whole machine catch up with the clock in steps of 1 ms. Nothing of it fails.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "ixocamglue/platform/CallGate.h"
#include "ixocamglue/platform/Machine.h"
#include "ixocamglue/support/Locks.h"
#include "machines/simulated/DeviceAlarms.h"

namespace ixocamglue {

// Something with physics. Called with the core's lock held, once per ms in rising order.
class ISimPart {
 public:
  virtual ~ISimPart() = default;
  virtual void Step(std::uint64_t nowMs) = 0;
};

class TSimCore {
 public:
  TSimCore(TCallGate& gate, IMachineObserver& observer);
  TSimCore(const TSimCore&) = delete;
  TSimCore& operator=(const TSimCore&) = delete;

  // During construction of the machine only; parts are stepped in this order.
  void AddPart(ISimPart& part) { FParts.push_back(&part); }

  // For a part's Step, whose caller holds the lock out of the compiler's sight.
  void AssertLocked() const IXO_TSA(assert_capability(Lock)) {}
  [[nodiscard]] std::uint64_t Now() const IXO_REQUIRES(Lock) { return FNow; }
  void Event(std::string_view device, std::string_view text) IXO_REQUIRES(Lock) {
    FObserver.Happened(FNow, device, text);
  }
  // What was struck; the journal has each, the snapshot the count and the first.
  // `shown`: the text in the operator's language, where it has one.
  void Collide(std::string_view device, std::string_view text, std::string_view shown = {}) IXO_REQUIRES(Lock);
  [[nodiscard]] std::uint32_t Collisions() const IXO_REQUIRES(Lock) { return FCollisions; }
  [[nodiscard]] const std::string& FirstCollision() const IXO_REQUIRES(Lock) { return FFirstCollision; }
  void Signal(TSignalKind kind, bool on, std::int32_t number = 0, double value = 0.0) IXO_REQUIRES(Lock) {
    FObserver.Signalled({FNow, kind, on, number, value});
  }

  TCallGate& Gate;
  TSimDeviceAlarms DeviceAlarms;
  mutable TCriticalSection Lock;

 private:
  friend class TSimScope;

  void CatchUp(std::uint64_t nowMs) IXO_REQUIRES(Lock);

  IMachineObserver& FObserver;
  std::vector<ISimPart*> FParts;
  std::uint64_t FNow IXO_GUARDED_BY(Lock);
  std::uint32_t FCollisions IXO_GUARDED_BY(Lock) = 0;
  std::string FFirstCollision IXO_GUARDED_BY(Lock);
};

class IXO_SCOPED_CAPABILITY TSimScope {
 public:
  explicit TSimScope(TSimCore& core) IXO_ACQUIRE(core.Lock);  // up to Clock().MonotonicMs()
  TSimScope(TSimCore& core, std::uint64_t nowMs) IXO_ACQUIRE(core.Lock);
  ~TSimScope() IXO_RELEASE();
  TSimScope(const TSimScope&) = delete;
  TSimScope& operator=(const TSimScope&) = delete;

 private:
  TSimCore& FCore;
};

}  // namespace ixocamglue
