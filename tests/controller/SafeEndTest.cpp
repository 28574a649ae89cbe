// What was switched on by hand does not outlive its controller.
#include <optional>

#include <gmock/gmock.h>

#include "controller/safety/SafeEnd.h"
#include "fixture/Machine.h"
#include "ixocamglue/platform/ports/MotionDriver.h"

namespace ixocamglue::test {
namespace {

class SafeEnd : public TMachineTest {
 protected:
  SafeEnd() : TMachineTest({}, {.EndFailed = [this](const TProblem& p, bool) { FFailed = p; }}) {
    TSimMachine& machine = Machine();
    machine.Laser()->SetAiming(true);
    machine.Laser()->EmissionOn();
    machine.SwitchLaser(true);
    machine.Gas()->SelectBranch(1);
    machine.Gas()->SetPressure(2.0);
    machine.Gas()->SwitchOn();
    MotionDriver()->MoveXY({1000.0, 1000.0}, 0.0);
    machine.Follower().Follow(2.0);
    machine.CutHeadCtrl()->MoveFocus(20.0, 5.0);
    FController.RunFor(100);
    Journal().Clear();
  }
  // From here on this call of a device fails.
  template <class Call>
  void Break(Call call, TGateFault fault = gfRefuse) {
    Gate().PlanSet({.Call = Gate().Calls() + 1, .Fault = fault, .Sticky = true});
    try {
      call();
    } catch (const EDeviceFault&) {  // as planned
    }
    Journal().Clear();
  }

  std::optional<TProblem> FFailed;
};

TEST_F(SafeEnd, SwitchesEverythingOffInItsOrderAndTakesNoLongerThanItHasTo) {
  const auto start = Clock().MonotonicMs();
  EXPECT_TRUE(Machine().Snapshot().Laser && Machine().Snapshot().Gas && Machine().Snapshot().Moving());
  FController.StopThreads();
  TTexts commands;
  for (const TJournalEntry& e : Journal().Entries())
    if (e.IsCommand() && commands.size() < 7) commands.push_back(e.Device + "." + e.Verb);
  EXPECT_EQ(commands, Lines("laser.SwitchLaser", "laser.EmissionOff", "laser.AimingOff", "gas.SwitchOff",
                            "axes.StopAll", "follower.Stop", "head.Stop"));
  const TMachineSnapshot end = Machine().Snapshot();
  EXPECT_FALSE(end.Laser || end.Emission || end.LatchTripped || end.Gas || end.Following || end.Moving());
  EXPECT_LT(Clock().MonotonicMs() - start, 500u);
  EXPECT_FALSE(FFailed);
}

TEST_F(SafeEnd, NamesWhatDoesNotGoOffAndLatchesTheLaser) {
  Break([&] { Machine().Gas()->SwitchOff(); });
  const auto start = Clock().MonotonicMs();
  FController.StopThreads();
  const TMachineSnapshot end = Machine().Snapshot();
  EXPECT_TRUE(end.Gas);
  EXPECT_FALSE(end.Laser || end.Emission || end.Moving());
  EXPECT_EQ(end.LatchReason, "controller ended");
  ASSERT_TRUE(FFailed);
  EXPECT_THAT(FFailed->What, testing::HasSubstr(" gas ")) << FFailed->What;
  EXPECT_NEAR(static_cast<double>(Clock().MonotonicMs() - start), kSafeEndMs, 100.0);
}

class SafeEndUnread : public SafeEnd, public testing::WithParamInterface<void (*)()> {};

INSTANTIATE_TEST_SUITE_P(Each, SafeEndUnread,
                         testing::Values(
                             +[] { (void)FittedLaser()->GetLaser(); }, +[] { (void)FittedLaser()->GetEmission(); },
                             +[] { (void)FittedLaser()->GetAiming(); }, +[] { (void)FittedGas()->GetGas(); },
                             +[] { (void)MotionDriver()->IsBusy(); }, +[] { (void)GFollower()->IsFollowing(); },
                             +[] { (void)CutSystem()->CutHeadCtrl()->IsBusy(); }));

TEST_P(SafeEndUnread, WhatCannotSayWhetherItIsOnIsToldToGoOff) {
  Break(GetParam(), gfThrow);
  FController.StopThreads();
  const TMachineSnapshot end = Machine().Snapshot();
  EXPECT_FALSE(end.Laser || end.Emission || end.Aiming || end.Gas || end.Following || end.Moving());
  EXPECT_TRUE(FFailed) << "nobody knows";
}

}  // namespace
}  // namespace ixocamglue::test
