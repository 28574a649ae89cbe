// A machine of its own: a laser source and nothing else. Whatever is not fitted is not installed, and reads as null.
//
// A driver of a real source writes to its device where this one only remembers, and reads back what the device
// confirms.
#pragma once

#include <atomic>
#include <optional>

#include <ixocamglue/platform/Machine.h>
#include <ixocamglue/platform/services/Clock.h>
#include <ixocamglue/platform/states/NcState.h>
#include <ixocamglue/support/Locks.h>

namespace example {
using namespace ixocamglue;

class TSmallMachine final : public IMachine, public TNcCutSystem, public TNcLaser {
 public:
  explicit TSmallMachine(const TMachineContext& context) : FContext(context) {}

  TResult<> Connect() override {
    FInstalled.emplace(*this);
    return {};
  }

 private:
  std::int32_t GetState() override { return FContext.Framework.CurrentState(); }
  TNcLaser* Laser() override { return this; }
  void Lock() override IXO_ACQUIRE(FLock) { FLock.lock(); }
  void Unlock() override IXO_RELEASE(FLock) { FLock.unlock(); }
  void SwitchLaser(bool on) override { Tell(sgLaser, FBeam, on, &TNcWatch::LaserOn); }

  bool GetEmission() override { return FEmission; }
  bool GetLaser() override { return FBeam; }
  void EmissionOn() override { Tell(sgEmission, FEmission, true, &TNcWatch::EmissionOn); }
  void EmissionOff() override { Tell(sgEmission, FEmission, false, &TNcWatch::EmissionOn); }

  // What changes is told to whoever watches the machine from outside, and to the journal.
  void Tell(TSignalKind kind, std::atomic<bool>& state, bool on, TNcSince TNcWatch::*since) {
    if (state.exchange(on) == on) return;
    const std::uint64_t nowMs = Clock().MonotonicMs();
    TNcSince& span = FContext.Framework.Watch().*since;
    on ? span.Begin(nowMs) : span.End();
    FContext.Observer.Signalled({nowMs, kind, on});
  }

  const TMachineContext FContext;
  TRecursiveSection FLock;
  std::atomic<bool> FEmission{false}, FBeam{false};
  std::optional<TInstalled<TNcCutSystem>> FInstalled;
};

inline TMachineFactory SmallMachine() {
  using TMade = TResult<std::unique_ptr<IMachine>>;
  return {"small",
          [](const TMachineContext& context) -> TMade { return TMade(std::make_unique<TSmallMachine>(context)); }};
}

}  // namespace example
