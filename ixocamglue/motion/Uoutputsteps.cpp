#include "ixocamglue/motion/Uoutputsteps.h"

#include <limits>

#include "ixocamglue/motion/Umotionchecks.h"
#include "ixocamglue/motion/Umotiontexts.h"

namespace ixocamglue {

void TSmtSwitchOutport::ResetParams() {
  TSmtAtomic::ResetParams();
  FPort = -1;
}

TStepType TSmtSwitchOutport::DoMotion(std::int32_t) {
  TPreCheck check(*this);
  if (!check.InRange(SNamePort, FPort, {-1.0, std::numeric_limits<double>::infinity()})) return Fail();
  if (FPort == -1) return Await(csbtEnsure);
  TNcMotionCard* const card = MotionCard();
  if (!check.Has(card, SNameMotionCard)) return Fail();
  card->SwitchOutport(FPort, FOn);
  return Await(csbtEnsure);
}

}  // namespace ixocamglue
