#include "controller/procedures/Travel.h"

namespace ixocontroller {

TStepType TSmtTravel::DoMotion(std::int32_t) {
  TNcMotionDriver* const driver = MotionDriver();
  if (!driver) return Fail();
  driver->MoveXY(FTarget, FSpeed);
  return Await(csbtMotion);
}

}  // namespace ixocontroller
