#include "controller/procedures/GoProcedures.h"

#include <string>

#include "ixocamglue/config/Uassistconfig.h"
#include "ixocamglue/motion/Ustatemotion.h"
#include "ixocamglue/support/Problem.h"

namespace ixocontroller {
namespace {

void Require(bool holds, const char* section, const char* why) {
  if (!holds) throw EProblem(pbUnusable, std::string(section) + ": " + why);
}

// What every place has to be before anything is sent there.
void RequirePlace(bool exists, bool enabled, bool configured, const char* section) {
  Require(exists, section, "the machine has no such configuration");
  Require(enabled, section, "Enabled is false");
  Require(configured, section, "the position was never configured, all coordinates are 0");
}

}  // namespace

TStepPtr MakeGoMaintenance(TCustomMotionState* ctrl) {
  const TCutHeadMaintainConfig* const config = FCHMaintainCfg;
  const TPoint4 pos = config ? config->GetMaintainPos() : TPoint4{};
  RequirePlace(config != nullptr, config && config->GetEnable(), IsConfigured(pos), "MaintainCutHead");
  auto go = MakeStepOf<TSmtSafeMoveToXYZF>(ctrl);
  go->FTarget = {pos.X, pos.Y};
  go->FTargetZ = pos.Z;
  go->FFocus = pos.A;
  return go;
}

TStepPtr MakeGoBlanking(TCustomMotionState* ctrl) {
  const TBlankingConfig* const config = FBlankingCfg;
  const TPoint2 pos = config ? TPoint2{config->PosX, config->PosY} : TPoint2{};
  RequirePlace(config != nullptr, config && config->GetEnabled(), !(pos == TPoint2{}), "Blanking");
  auto go = MakeStepOf<TSmtSafeMoveToXY>(ctrl);
  go->FTarget = pos;
  return go;
}

}  // namespace ixocontroller
