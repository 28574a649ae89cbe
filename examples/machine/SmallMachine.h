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
  void SwitchLaser(bool on) override {
    if (!on)
      Watch().LaserAsked.End();
    else if (Refused("SwitchLaser", &TNcWatch::AskLaser))
      return;
    if (!Tell(sgLaser, FBeam, on)) return;
    on ? Watch().LaserOn.Begin(Clock().MonotonicMs()) : Watch().LaserOn.End();
  }

  bool GetEmission() override { return FEmission; }
  bool GetLaser() override { return FBeam; }
  void EmissionOn() override {
    if (!Refused("EmissionOn", &TNcWatch::AskEmission)) Emit(true);
  }
  void EmissionOff() override {
    Watch().EmissionAsked.End();
    Emit(false);
  }

  TNcWatch& Watch() { return FContext.Framework.Watch(); }
  // Every ask is noted; true: it is refused, the device does nothing.
  bool Refused(const char* verb, void (TNcWatch::*ask)(std::uint64_t, bool)) {
    const char* const why = LaserForbidden();
    const std::uint64_t nowMs = Clock().MonotonicMs();
    (Watch().*ask)(nowMs, why != nullptr);
    if (why) FContext.Observer.Called({nowMs, ++FRefusals, "laser", verb, why, vkStart, toRefused});
    return why != nullptr;
  }
  void Emit(bool on) {
    if (Tell(sgEmission, FEmission, on)) Watch().ShowEmission(on, Clock().MonotonicMs());
  }
  // What changes is told to the journal.
  bool Tell(TSignalKind kind, std::atomic<bool>& state, bool on) {
    if (state.exchange(on) == on) return false;
    FContext.Observer.Signalled({Clock().MonotonicMs(), kind, on});
    return true;
  }

  const TMachineContext FContext;
  TRecursiveSection FLock;
  std::atomic<bool> FEmission{false}, FBeam{false};
  std::atomic<std::uint64_t> FRefusals{0};
  std::optional<TInstalled<TNcCutSystem>> FInstalled;
};

inline TMachineFactory SmallMachine() {
  using TMade = TResult<std::unique_ptr<IMachine>>;
  return {"small",
          [](const TMachineContext& context) -> TMade { return TMade(std::make_unique<TSmallMachine>(context)); }};
}

}  // namespace example
