#include "ixocamglue/platform/ports/CutSystem.h"
#include "ixocamglue/platform/ports/MotionDriver.h"
#include "ixocamglue/platform/ports/NcAlarms.h"

namespace ixocamglue {

IXO_DEFINE_SERVICE(TNcCutSystem, CutSystem)
IXO_DEFINE_SERVICE(TNcFollower, GFollower)
IXO_DEFINE_SERVICE(TNcMotionDriver, MotionDriver)
IXO_DEFINE_SERVICE(TNcMotionCard, MotionCard)
IXO_DEFINE_SERVICE(TNcDeviceManager, DeviceManager)
IXO_DEFINE_SERVICE(TNcAlarms, NcAlarms)

}  // namespace ixocamglue
