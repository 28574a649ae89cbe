#include "ixocamglue/platform/Machine.h"

#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/platform/states/NcState.h"
#include "ixocamglue/support/Format.h"

namespace ixocamglue {

std::string TSignal::Text() const {
  const char* const onOff = On ? "on" : "off";
  switch (Kind) {
    case sgState: return Format("state %d", Number);
    case sgEmission: return Format("emission %s", onOff);
    case sgLaser: return Format("laser %s", onOff);
    case sgAiming: return Format("aiming %s", onOff);
    case sgGas: return On ? Format("gas on %d %.2f", Number, Value) : "gas off";
    case sgGasVolt: return Format("da %d %.2f", Number, Value);
    case sgOutput: return Format("output %d %s", Number, onOff);
  }
  return {};
}

TMachineSnapshot IMachine::Snapshot() {
  TMachineSnapshot now;
  now.Ms = Clock().MonotonicMs();
  if (const TNcWatch* const watch = NcWatch()) {
    now.Laser = watch->LaserOn.Runs();
    now.Emission = watch->EmissionOn.Runs();
    now.Gas = watch->GasOn.Runs();
  }
  if (TNcLaser* const laser = FittedLaser())
    if (const char* const reason = laser->LatchReason()) {
      now.LatchTripped = true;
      now.LatchReason = reason;
    }
  if (const TNcStateFramework* const states = NcStates()) now.State = states->CurrentState();
  return now;
}

}  // namespace ixocamglue
