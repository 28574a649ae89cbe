#include "controller/procedures/GoProcedures.h"

#include "ixocamglue/config/Uassistconfig.h"
#include "ixocamglue/motion/Ustatemotion.h"
#include "ixocamglue/support/Problem.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

void Require(bool holds, const char* section, const char* why) {
  if (!holds) throw EProblem(pbUnusable, TProblem{.What = Tr(why), .Where = section});
}

// What every place has to be before anything is sent there.
void RequirePlace(bool exists, bool enabled, bool configured, const char* section) {
  Require(exists, section, TrMark("the machine has no such configuration"));
  Require(enabled, section, TrMark("Enabled is false"));
  Require(configured, section, TrMark("the position was never configured, all coordinates are 0"));
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
