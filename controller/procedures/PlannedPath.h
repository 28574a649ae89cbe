// Where a run will send XY: what its steps know when it begins, and what the lists that are built on entry know when
// they are entered, in the place where they stand.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "ixocamglue/motion/Umotioncontroller.h"
#include "ixocamglue/platform/ports/MotionDriver.h"
#include "ixocamglue/support/Locks.h"

namespace ixocontroller {
using namespace ixocamglue;

// An observer of the state controller. Machine coordinates, mm. What a step throws that cannot say where it goes is
// logged by the state controller, and the path is without it.
class TPlannedPath final : public IMotionObserver {
 public:
  static constexpr std::size_t kMost = 2000;  // points; more are not told

  void Entered(IStateMotion& root) override;
  void Ticked(IStateMotion& root, TStepType answer) override;
  void Ended(const TMotionOutcome*) override {}

  // Any thread. Rises when more is known.
  [[nodiscard]] std::uint64_t Changes() const { return FChanges.load(std::memory_order_acquire); }
  // Any thread: in the order in which it is gone, of the procedure that entered last.
  [[nodiscard]] std::vector<TPoint2> Points() const;

 private:
  // Of steps that follow each other, or of a list that is not built yet.
  struct TPart {
    const TStateMotion* Unbuilt = nullptr;
    std::vector<TPoint2> Way;
  };
  void Collect(TStateMotion& step, std::vector<TPart>& parts);
  void Built(TSmtComposite& list);

  // state thread
  std::size_t FUnbuilt = 0;  // lists
  std::size_t FRoom = 0;     // for points

  std::atomic<std::uint64_t> FChanges{0};
  mutable TCriticalSection FLock;
  std::vector<TPart> FParts IXO_GUARDED_BY(FLock);
};

}  // namespace ixocontroller
