// Follows a procedure through its tree: which step stood when, and a progress line for the first step of each list (the
// lists themselves report each advance). Written on the state thread, read by any. Times are monotonic ms.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
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

// An observer of the state controller. A root that is no list has no spans. Of a procedure that goes through more than
// kMost steps the first ones are dropped. Nothing of it fails.
class TStepSpans final : public IMotionObserver {
 public:
  static constexpr std::size_t kMost = 10'000;

  void Entered(IStateMotion& root) override { Look(root); }
  void Ticked(IStateMotion& root, TStepType answer) override;
  void Ended(const TMotionOutcome*) override;

  // Rises with each step that begins.
  [[nodiscard]] std::uint64_t Begun() const { return FBegun.load(std::memory_order_acquire); }
  // In the order in which they began; one that still stands ends now.
  [[nodiscard]] std::vector<TStepSpan> Items() const;
  // Those that began behind the first `begun`, which then counts them too; some may be dropped already.
  [[nodiscard]] std::vector<TStepSpan> Behind(std::uint64_t& begun) const;
  // Those that stand now, from the outside in.
  [[nodiscard]] std::vector<TStepSpan> Open() const;
  // How many were dropped.
  [[nodiscard]] std::size_t Gone() const;
  // All is forgotten, for the next procedure. While none runs.
  void Clear();
  // Called on the state thread behind each step that begins, without a lock. Before the state thread runs.
  void OnBegun(std::function<void()> told) { FTold = std::move(told); }
  // Those that stood when the procedure ended without success, from the outside in.
  [[nodiscard]] std::vector<TStepSpan> Standing() const;

 private:
  struct TOpen {
    const TStateMotion* Step;
    std::uint64_t Index;  // of all that began
    TStepSpan Span;
  };
  void Look(IStateMotion& root);
  void Follow(IStateMotion& root);
  void CloseFrom(std::size_t level) IXO_REQUIRES(FLock);
  void KeepStanding() IXO_REQUIRES(FLock);

  std::function<void()> FTold;
  std::atomic<std::uint64_t> FBegun{0};
  mutable TCriticalSection FLock;
  std::deque<TStepSpan> FSpans IXO_GUARDED_BY(FLock);
  std::uint64_t FFirst IXO_GUARDED_BY(FLock) = 0;  // of all that began, the first one that is kept
  std::vector<TOpen> FOpen IXO_GUARDED_BY(FLock);
  std::vector<TStepSpan> FStanding IXO_GUARDED_BY(FLock);
};

}  // namespace ixocontroller
