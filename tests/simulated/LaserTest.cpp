// The simulated laser: when emission and beam come, and what the latch does about it.
#include <functional>

#include "fixture/SimMachine.h"

namespace ixocamglue::test {
namespace {

class SimLaser : public TSimTest {
 protected:
  TSimLaser& Laser() { return Machine.LaserDevice(); }
};

TEST_F(SimLaser, ABeamAskedForWithoutEmissionIsHeldBackAndComesWithIt) {
  Machine.SwitchLaser(true);
  RunFor(1000);
  EXPECT_FALSE(Laser().GetLaser());
  EXPECT_FALSE(Laser().LatchTripped());
  Laser().EmissionOn();
  RunFor(99);
  EXPECT_EQ(Signals(), TTexts{});
  RunFor(1);
  EXPECT_EQ(Signals(), (TTexts{"emission on", "laser on"}));
  Laser().EmissionOff();
  EXPECT_FALSE(Laser().GetLaser());
  Laser().EmissionOn();
  RunFor(1000);  // the beam has to be asked for again
  EXPECT_EQ(Journal.Signals().After("laser on"), (TTexts{"laser off", "emission off", "emission on"}));
}

TEST_F(SimLaser, EmissionFollowsItsScript) {
  Laser().SetEmissionScript(TEmissionScript::AfterPolls(2));
  Laser().EmissionOn();
  RunFor(500);
  EXPECT_FALSE(Laser().GetEmission());
  EXPECT_FALSE(Laser().GetEmission());
  EXPECT_TRUE(Laser().GetEmission());
  Machine.SwitchLaser(true);
  Laser().LoseEmission();
  EXPECT_FALSE(Laser().GetLaser());
  EXPECT_FALSE(Laser().GetEmission());
  EXPECT_TRUE(NcWatch()->EmissionAsked.Runs() && NcWatch()->LaserAsked.Runs()) << "no off call followed";
  EXPECT_TRUE(NcWatch()->EmissionLost);
  Laser().SetEmissionScript(TEmissionScript::Never());
  Laser().EmissionOn();
  RunFor(20'000);
  EXPECT_FALSE(Laser().GetEmission());
  EXPECT_EQ(NcWatch()->EmissionAsked.LastedMs(VirtualClock.MonotonicMs()), 20'000U);
}

struct TCause {
  const char* Reason;  // null: nothing must trip
  std::function<void(TSimRig&)> Do;
};

TEST(Latch, TripsOnEachCauseStaysUntilResetAndThenLeavesEverythingOff) {
  const TCause causes[] = {
      {nullptr, [](TSimRig& rig) { rig.Framework.RunOnce(), rig.VirtualClock.Sleep(200); }},
      {"the heartbeat is older than 200 ms",
       [](TSimRig& rig) { rig.Framework.RunOnce(), rig.VirtualClock.Sleep(201); }},
      {nullptr, [](TSimRig& rig) { rig.Raise(naForbidMove); }},
      {"an alarm forbids the laser", [](TSimRig& rig) { rig.Raise(naForbidLaser); }},
      {nullptr, [](TSimRig& rig) { rig.RunFor(64'800); }},
      {"the laser was on for more than 65 s", [](TSimRig& rig) { rig.RunFor(65'100); }},
      {nullptr,
       [](TSimRig& rig) {
         NcWatch()->DarkDemandedInPass.store(NcWatch()->Pass.load());
         rig.VirtualClock.Sleep(10);
       }},
      {"not dark one pass after a stop",
       [](TSimRig& rig) {
         NcWatch()->DarkDemandedInPass.store(NcWatch()->Pass.load());
         rig.RunFor(20);
       }},
      {"by hand", [](TSimRig& rig) { rig.Machine.LaserDevice().Trip("by hand"); }},
  };
  for (const TCause& cause : causes) {
    SCOPED_TRACE(cause.Reason ? cause.Reason : "no trip");
    TSimRig rig;
    TSimLaser& laser = rig.Machine.LaserDevice();
    rig.ShootOn();
    ASSERT_TRUE(laser.GetLaser());
    cause.Do(rig);
    if (!cause.Reason) {
      EXPECT_TRUE(laser.GetLaser());
      continue;
    }
    EXPECT_FALSE(laser.Lit() || laser.Emitting());
    EXPECT_EQ(rig.Machine.Snapshot().LatchReason, cause.Reason);
    EXPECT_EQ(rig.Journal.Signals().After("laser on"), (TTexts{"laser off", "emission off"}));

    rig.Alarms.ClearAll();
    NcWatch()->DarkDemandedInPass.store(0);
    rig.ShootOn();
    EXPECT_FALSE(laser.GetEmission());
    laser.ResetLatch();
    rig.RunFor(500);
    EXPECT_FALSE(laser.GetEmission()) << "what was asked for while tripped must not come by itself";
    rig.ShootOn();
    EXPECT_TRUE(laser.GetLaser());
  }
}

TEST_F(SimLaser, RefusesWhatIsForbiddenNotesItAndForgetsIt) {
  const struct {
    std::function<void()> Forbid, End;
    const char* Why;
  } cases[] = {
      {[&] { Framework.Stop(); }, [] {}, "a stop has not come to its end"},
      {[&] { Raise(naForbidLaser); }, [&] { Alarms.ClearAll(); }, "an alarm forbids the laser"},
      {[&] { Laser().Trip("by hand"); }, [&] { Laser().ResetLatch(); }, "the laser is latched"},
  };
  for (const auto& c : cases) {
    Journal.Clear();
    c.Forbid();
    Laser().EmissionOn();
    Machine.SwitchLaser(true);
    const auto entries = Journal.Entries();
    EXPECT_EQ(std::ranges::count(entries, toRefused, &TJournalEntry::Outcome), 2);
    EXPECT_TRUE(Journalled(std::string("SwitchLaser refused: ") + c.Why));
    EXPECT_TRUE(NcWatch()->EmissionAsked.Runs() && NcWatch()->LaserAsked.Runs()) << "asked for all the same";
    c.End();
    RunFor(500);
    EXPECT_EQ(Signals(), TTexts{}) << c.Why;
    ShootOn();
    EXPECT_TRUE(Laser().GetLaser());
    Laser().EmissionOff();
  }
}

TEST(Latch, StopsEmissionThatIsStillOnItsWay) {
  TSimRig rig;
  rig.Machine.Laser()->EmissionOn();
  rig.Raise(naForbidLaser);
  rig.RunFor(500);
  EXPECT_TRUE(rig.Machine.Laser()->LatchTripped());
  EXPECT_EQ(rig.Signals(), TTexts{});
}

TEST(Latch, AnOffThatNeverArrivesIsDarkBecauseOfThePlatformsDemand) {
  TSimRig rig;
  rig.ShootOn();
  rig.Gate.PlanSet({.Call = rig.Gate.Calls() + 2, .Fault = gfThrow, .Sticky = true, .HangMs = 0, .Callback = {}});
  rig.Framework.Stop();  // standby: switches the beam off, then the emission, which fails on and on
  rig.RunFor(50);
  EXPECT_EQ(rig.Gate.Stuck(), std::pair(std::string("laser"), std::string("EmissionOff")));
  EXPECT_FALSE(rig.Machine.Snapshot().Emission);
  EXPECT_STREQ(rig.Machine.Laser()->LatchReason(), "not dark one pass after a stop");
}

}  // namespace
}  // namespace ixocamglue::test
