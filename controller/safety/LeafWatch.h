// Writes down in which step a procedure stands, since when, and how long that may last: what the supervisor measures a
// wait by. A step counts from its start to its end, however often it polls; one that waits for several things in turn
// has the longest of their limits.
//
// State thread. Allocates nothing. A root that is no tree of steps is not followed.
#pragma once

#include <cstdint>

#include "ixocamglue/motion/Umotioncontroller.h"
#include "ixocamglue/platform/xml/Bounds.h"

namespace ixocontroller {
using namespace ixocamglue;

class TLeafWatch final : public IMotionObserver {
 public:
  // `watch` outlives the observer.
  TLeafWatch(TNcWatch& watch, const TMachineBounds& machine);

  void Entered(IStateMotion& root) override;
  void Ticked(IStateMotion& root, TStepType answer) override;
  void Ended(const TMotionOutcome* outcome) override;

 private:
  struct TWait {
    TNcLeafWait Kind;
    std::uint64_t LimitMs;
  };
  void Look(TCustomBusyType busy);
  [[nodiscard]] TWait WaitFor(const TStateMotion& leaf, TCustomBusyType busy) const;

  TNcWatch& FWatch;
  const TSupervisorConfig FLimits;
  const std::int32_t FPollMs;
  TStateMotion* FRoot = nullptr;  // null: none, or none that is followed
  const TStateMotion* FLeaf = nullptr;
  bool FTicked = false;  // the leaf has had a tick of its own, and so a wait
};

}  // namespace ixocontroller
