#include "ixocamglue/platform/ports/CutSystem.h"
#include "ixocamglue/platform/ports/MotionDriver.h"
#include "ixocamglue/platform/ports/NcAlarms.h"
#include "ixocamglue/support/Faults.h"

namespace ixocamglue {

void TNcLaser::Trip(const char*) {
  TTryAll tryAll;
  tryAll([] {
    if (TNcCutSystem* const cut = CutSystem()) cut->SwitchLaser(false);
  })([this] { EmissionOff(); });
}

void TNcCutSystem::KeyDown(std::int32_t command, std::int32_t, bool) {
  if (TNcKeyCommands* const keys = NcKeyCommands()) keys->KeyDown(command);
}

void TNcCutSystem::KeyUp(std::int32_t command, std::int32_t) {
  if (TNcKeyCommands* const keys = NcKeyCommands()) keys->KeyUp(command);
}

TNcLaser* FittedLaser() {
  TNcCutSystem* const cut = CutSystem();
  return cut ? cut->Laser() : nullptr;
}

TNcGas* FittedGas() {
  TNcCutSystem* const cut = CutSystem();
  return cut ? cut->Gas() : nullptr;
}

IXO_DEFINE_SERVICE(TNcCutSystem, CutSystem)
IXO_DEFINE_SERVICE(TNcFollower, GFollower)
IXO_DEFINE_SERVICE(TNcKeyCommands, NcKeyCommands)
IXO_DEFINE_SERVICE(TNcMotionDriver, MotionDriver)
IXO_DEFINE_SERVICE(TNcMotionCard, MotionCard)
IXO_DEFINE_SERVICE(TNcDeviceManager, DeviceManager)
IXO_DEFINE_SERVICE(TNcAlarms, NcAlarms)

}  // namespace ixocamglue
