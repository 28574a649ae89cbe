// Follows a procedure through its tree: which step stood when, and a progress line for the first step of each list (the
// lists themselves report each advance). Written on the state thread, read by any. Times are monotonic ms.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "ixocamglue/motion/Umotioncontroller.h"
#include "ixocamglue/support/Locks.h"

namespace ixocontroller {
using namespace ixocamglue;

// How long one step of a list stood; a step that is a list itself is followed by its own steps.
struct TStepSpan {
  std::int32_t Level = 0;   // 0: a step of the root
  std::int32_t Number = 0;  // from 1
  std::int32_t Count = 0;
  std::int32_t Command = 0;
  std::string Desc;
  std::uint64_t From = 0;
  std::uint64_t To = 0;
};

// An observer of the state controller. A root that is no list has no spans.
class TStepSpans final : public IMotionObserver {
 public:
  void Entered(IStateMotion& root) override { Look(root); }
  void Ticked(IStateMotion& root, TStepType answer) override;
  void Ended(const TMotionOutcome*) override;

  // Rises with each step that begins.
  [[nodiscard]] std::uint64_t Begun() const { return FBegun.load(std::memory_order_acquire); }
  // In the order in which they began; one that still stands ends now.
  [[nodiscard]] std::vector<TStepSpan> Items() const;
  // Those that stood when the procedure ended without success, from the outside in.
  [[nodiscard]] std::vector<TStepSpan> Standing() const;

 private:
  struct TOpen {
    const TStateMotion* Step;
    std::size_t Span;
  };
  void Look(IStateMotion& root);
  void CloseFrom(std::size_t level) IXO_REQUIRES(FLock);
  void KeepStanding() IXO_REQUIRES(FLock);

  std::atomic<std::uint64_t> FBegun{0};
  mutable TCriticalSection FLock;
  std::vector<TStepSpan> FSpans IXO_GUARDED_BY(FLock);
  std::vector<TOpen> FOpen IXO_GUARDED_BY(FLock);
  std::vector<std::size_t> FStanding IXO_GUARDED_BY(FLock);  // spans
};

}  // namespace ixocontroller
