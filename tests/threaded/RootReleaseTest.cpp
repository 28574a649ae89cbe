// A root that is dropped while another thread asks it to stop.
#include <atomic>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "fixture/Installed.h"
#include "ixocamglue/motion/Ustatemotion.h"
#include "ixocamglue/motion/Ustatemotionbase.h"
#include "ixocamglue/platform/services/VirtualClock.h"
#include "ixocamglue/support/Faults.h"

namespace ixocamglue::test {
namespace {

std::atomic<int> GLeft{0};
std::atomic<int> GLeftElsewhere{0};

// Stays loaded until it is taken away.
class TEndless : public TSmtAtomic {
 public:
  static constexpr std::string_view kClassName = "TEndless";
  std::int32_t GetID() override { return 901; }
  std::string GetDesc() override { return "endless"; }
  TStepType DoMotion(std::int32_t) override { return PollAgain(csbtEnsure); }
  void DoLeaveMotion() override {
    ++(OnStateThread() ? GLeft : GLeftElsewhere);
    TSmtAtomic::DoLeaveMotion();
  }
};

TEST(RootReleaseThreaded, TheForcedLeaveIsTheStateThreadsWhoeverHoldsTheRootLast) {
  constexpr int kRounds = 50'000;
  std::atomic<int> forced{0};  // each forced leave is a fault
  const TFaultHandler before = SetFaultHandler([&](std::string_view) { ++forced; });
  TVirtualClock clock;
  TNcRegistry registry;
  const TAllInstalled<IClock, TNcRegistry> installed(clock, registry);
  StartMotionController();
  {
    TNcStateFramework framework;
    auto& motion = dynamic_cast<TCustomMotionState&>(*framework.State(nsCustomMotion));
    std::atomic<bool> done{false};
    std::vector<std::thread> others;
    others.emplace_back([&] {
      while (!done) motion.StopExec();
    });
    others.emplace_back([&] {
      while (!done) static_cast<void>(motion.StateName()), static_cast<void>(TCustomMotionState::GetStateID());
    });
    for (int round = 0; round < kRounds; ++round) {
      TCustomMotionState::SetStateMotion(MakeStep<TEndless>(nullptr));
      static_cast<void>(framework.RequestState(nsCustomMotion, 0));
      framework.RunOnce();
      framework.RunOnce();  // entered and loaded
      static_cast<void>(framework.RequestState(nsStandby, 0));
      framework.RunOnce();  // taken away
    }
    done = true;
    for (std::thread& other : others) other.join();
    framework.RunOnce();
    EXPECT_EQ(GLeftElsewhere, 0);
    EXPECT_EQ(GLeft, kRounds);
  }
  FreeMotionController();
  SetFaultHandler(before);
  EXPECT_EQ(forced, kRounds);
}

}  // namespace
}  // namespace ixocamglue::test
