// What all devices of one composed machine share: its gate, its lock and its way to the observer. A device call passes
// the gate first, without the lock. Drivers' points and ports are called with the lock held. Any thread; nothing of it
// fails. A signal's value is in the signal's unit.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "ixocamglue/platform/CallGate.h"
#include "ixocamglue/platform/Driver.h"
#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/support/Locks.h"

namespace ixocamglue {

class TComposedCore {
 public:
  explicit TComposedCore(const TMachineContext& context) : Context(context), Gate(&context.Observer) {}
  TComposedCore(const TComposedCore&) = delete;
  TComposedCore& operator=(const TComposedCore&) = delete;

  // For code whose caller holds the lock out of the compiler's sight.
  void AssertLocked() const IXO_TSA(assert_capability(Lock)) {}
  [[nodiscard]] std::uint64_t Now() const { return Clock().MonotonicMs(); }
  void Event(std::string_view device, std::string_view text) { Context.Observer.Happened(Now(), device, text); }
  void Signal(TSignalKind kind, bool on, std::int32_t number = 0, double value = 0.0) {
    Context.Observer.Signalled({Now(), kind, on, number, value});
  }

  const TMachineContext Context;
  TCallGate Gate;
  mutable TCriticalSection Lock;
};

// Runs `act`; a device that cannot be reached is passed over. False: one could not.
template <class Act>
bool WhereReached(const Act& act) {
  try {
    act();
    return true;
  } catch (...) {  // its driver has said so, and says when it is back
    return false;
  }
}

}  // namespace ixocamglue
