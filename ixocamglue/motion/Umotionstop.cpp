#include "ixocamglue/motion/Umotionstop.h"

#include <cstdint>

#include "ixocamglue/platform/ports/CutSystem.h"
#include "ixocamglue/platform/ports/MotionDriver.h"
#include "ixocamglue/support/Faults.h"

namespace ixocamglue {
namespace {

constexpr std::int32_t kFollowers = 2;  // that a multi-follower can hold

}  // namespace

void StopFocusMotion() {
  TNcCutSystem* const cut = CutSystem();
  if (TNcCutHeadCtrl* head = cut ? cut->CutHeadCtrl() : nullptr) head->Stop(1);
}

void StopAllMotion() {
  TTryAll tryAll;
  tryAll([] {
    if (auto* follower = GFollower()) follower->Stop(1);
  });
  // Of two followers the service is one.
  TNcCutSystem* const cut = CutSystem();
  for (std::int32_t index = 0; index < kFollowers; ++index)
    tryAll([cut, index] {
      TNcMultiFollower* const followers = cut ? cut->MultiFollower() : nullptr;
      TNcFollower* const follower = followers ? followers->GetFollower(index) : nullptr;
      if (follower && follower != GFollower()) follower->Stop(1);
    });
  tryAll([] {
    if (auto* driver = MotionDriver()) driver->StopAll(0);
  })([] { StopFocusMotion(); });
  tryAll.Rethrow();
}

}  // namespace ixocamglue
