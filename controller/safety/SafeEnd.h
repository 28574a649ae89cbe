// What is still on or moves when a controller ends is switched off and stopped, by whoever it was switched on. Nothing
// throws.
#pragma once

#include <atomic>
#include <cstdint>

#include "ixocamglue/platform/states/NcState.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
using namespace ixocamglue;

inline constexpr std::uint32_t kSafeEndMs = 2000;  // for all devices together

class TSafeEnd {
 public:
  explicit TSafeEnd(TNcStateFramework& framework) : FFramework(framework) {}
  TSafeEnd(const TSafeEnd&) = delete;
  TSafeEnd& operator=(const TSafeEnd&) = delete;

  // On the state thread, behind its last pass: ends the state that is not standby, then laser, emission, pilot light,
  // gas, axes, followers and focus in this order, each told again until it acknowledges or kSafeEndMs are over. Never
  // throws.
  void Run();

  // One round over all these devices, for who wants them off at once: each is told, and nobody waits. The state thread.
  static void StopDevices();

  // --- any thread ---
  // The state thread has come to it.
  [[nodiscard]] bool Begun() const { return FBegun.load(); }
  // What was asked last, or has not acknowledged; a literal. Null: everything is off and at rest. Any thread.
  [[nodiscard]] const char* Missing() const { return FMissing.load(); }
  // The latch. `mayHang`: on a thread of its own, for a source whose latch is a device call; waits a moment for it.
  // False: it has not come back, and the thread still uses the laser.
  [[nodiscard]] static bool TripLatch(bool mayHang);

 private:
  void EndState();
  [[nodiscard]] bool Round();

  TNcStateFramework& FFramework;
  std::atomic<bool> FBegun{false};
  std::atomic<const char*> FMissing{TrMark("the machine's state")};
};

}  // namespace ixocontroller
