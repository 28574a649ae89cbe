// The key commands on the simulated machine, and the demonstration part.
#include <gmock/gmock.h>

#include "controller/procedures/Procedures.h"
#include "fixture/Machine.h"
#include "ixocamglue/motion/Umotioncontroller.h"
#include "ixocamglue/panel/Kbpmngr.h"
#include "ixocamglue/platform/alarms/NcAlarmManager.h"
#include "ixocamglue/platform/ports/CutCommands.h"
#include "ixocamglue/platform/ports/CutStates.h"

namespace ixocamglue::test {
namespace {

using testing::HasSubstr;

class KeyCommands : public TMachineTest {
 protected:
  KeyCommands() { KBPManager()->SetCPMByForm("Work", true); }
  void Press(std::int32_t command) { Machine().KeyDown(command, 0, true); }
  void Release(std::int32_t command) { Machine().KeyUp(command, 0); }
  // Presses, and runs until the machine is in this state.
  void RunTo(TCutState state, std::uint64_t limitMs = 60'000) {
    const std::uint64_t end = Clock().MonotonicMs() + limitMs;
    while (State() != state && Clock().MonotonicMs() < end) FController.RunPass();
    ASSERT_EQ(State(), state);
  }
  TCutState State() { return ClassifyCutState(Framework().CurrentState()); }
  TMachineSnapshot Now() { return Machine().Snapshot(); }
  std::string LastNote() {
    std::string text;
    for (const TJournalEntry& entry : Journal().Entries())
      if (entry.Device == "cut" && entry.Call == 0) text = entry.Verb;
    return text;
  }
};

TEST_F(KeyCommands, StartCutsTheSquare) {
  Press(kcStart);
  RunTo(csWorking);
  RunUntil("laser on");
  const double x = Now().Pos.X, y = Now().Pos.Y;
  EXPECT_NEAR(x, 100, 3);
  EXPECT_NEAR(y, 100, 1);
  RunTo(csStandby);
  EXPECT_EQ(Signals().After("state 1"),
            Lines("gas on 1 2.00", "emission on", "laser on", "laser off", "emission off", "gas off", "state 0"));
  EXPECT_NEAR(static_cast<double>(TimeOf("laser off") - TimeOf("laser on")), 8000, 500) << "800 mm at 100 mm/s";
}

TEST_F(KeyCommands, DryRunAndWalkAroundLightNothing) {
  for (const auto& [command, state] : {std::pair{kcDryCut, csDryRun}, std::pair{kcWalkAround, csWalkAround}}) {
    Press(command);
    RunTo(state);
    RunTo(csStandby);
    EXPECT_GT(Clock().MonotonicMs(), 2000U);
  }
  EXPECT_FALSE(Signals().Has("laser on") || Signals().Has("emission on") || Signals().Has("gas on 1 2.00"));
}

TEST_F(KeyCommands, APauseGoesDarkAndResumeGoesOnWhereItStopped) {
  Press(kcStart);
  RunUntil("laser on");
  FController.RunFor(3000);
  Press(kcPause);
  RunTo(csPaused);
  const TPoint2 broken = Now().Pos;
  FController.RunFor(500);
  EXPECT_FALSE(Now().Laser || Now().Emission || Now().Gas || Now().Moving());
  const std::uint32_t ends = Framework().EndsAsked();
  Press(kcPause);
  EXPECT_EQ(Framework().EndsAsked(), ends + 1) << "it starts nothing, whatever waits for its turn";

  Press(kcJogLeft);  // by hand away from it, and back by itself
  RunTo(csJogging);
  FController.RunFor(1000);
  Release(kcJogLeft);
  RunTo(csPaused);
  EXPECT_LT(Now().Pos.X, broken.X - 5);
  Journal().Clear();
  Press(kcResume);
  RunUntil("laser on");
  EXPECT_NEAR(Now().Pos.X, broken.X, 3);
  EXPECT_NEAR(Now().Pos.Y, broken.Y, 3);
  RunTo(csStandby);
  EXPECT_NEAR(static_cast<double>(TimeOf("laser off") - TimeOf("laser on")), 5000, 500) << "the rest of 800 mm";
  Press(kcResume);
  EXPECT_THAT(LastNote(), HasSubstr("nothing was interrupted"));
}

TEST_F(KeyCommands, AStopThatComesWhileAKeyIsLookedAtEndsWhatTheKeyBegins) {
  struct TStopping final : TNcAlarmManager {
    explicit TStopping(std::function<void()> stop) : Stop(std::move(stop)) {}
    bool RequireStop() override {
      if (const auto stop = std::exchange(Stop, nullptr)) stop();
      return false;
    }
    std::function<void()> Stop;
  };
  for (const std::int32_t command : {kcStart, kcJogLeft}) {
    TStopping alarms([this] {
      Press(kcStop);
      FController.RunPass();  // in standby: it is over at once
    });
    const TInstalled<TNcAlarms> installed(alarms);
    Press(command);
    FController.RunFor(100);
    EXPECT_FALSE(alarms.Stop) << command;
    EXPECT_EQ(State(), csStandby) << command;
    EXPECT_FALSE(Now().Moving()) << command;
    Release(command);
  }
}

TEST_F(KeyCommands, StopEndsEverythingAndTheBreakCanBeLocated) {
  Press(kcStart);
  RunUntil("laser on");
  FController.RunFor(1000);
  Press(kcStop);
  EXPECT_FALSE(Now().Laser) << "at once, on the caller's thread";
  RunTo(csStandby, 50);
  FController.RunFor(500);
  EXPECT_FALSE(Now().Emission || Now().Gas || Now().Moving() || Now().Following);
  const TPoint2 broken = Now().Pos;
  Press(kcReturnOrg);
  RunTo(csReturnOrg);
  RunTo(csStandby);
  EXPECT_NEAR(Now().Pos.X, 0, 1e-6);
  Press(kcBreakLocate);
  RunTo(csWalkAround);
  RunTo(csStandby);
  EXPECT_NEAR(Now().Pos.X, broken.X, 3);
  EXPECT_FALSE(Now().Laser);
}

TEST_F(KeyCommands, AJogLastsAsLongAsItsKey) {
  const struct {
    std::int32_t Command;
    double X, Y, Z;  // direction
  } keys[] = {{kcJogRight, 1, 0, 0}, {kcJogForward, 0, 1, 0}, {kcJogZDown, 0, 0, 1},
              {kcJogLeft, -1, 0, 0}, {kcJogBack, 0, -1, 0},   {kcJogZUp, 0, 0, -1}};
  for (const auto& key : keys) {
    const TMachineSnapshot before = Now();
    Press(key.Command);
    FController.RunFor(500);
    EXPECT_EQ(State(), csJogging);
    Release(key.Command);
    FController.RunFor(200);
    const TMachineSnapshot after = Now();
    EXPECT_EQ(State(), csStandby);
    EXPECT_FALSE(after.Moving());
    // 10 mm/s for half a second
    EXPECT_NEAR(after.Pos.X - before.Pos.X, 5 * key.X, 0.5) << key.Command;
    EXPECT_NEAR(after.Pos.Y - before.Pos.Y, 5 * key.Y, 0.5) << key.Command;
    EXPECT_NEAR(after.Z - before.Z, 5 * key.Z, 0.5) << key.Command;
  }
  Press(kcJogRight);
  Release(kcJogRight);  // before the state thread has seen it
  FController.RunFor(300);
  EXPECT_EQ(State(), csStandby);
  EXPECT_FALSE(Now().Moving());

  FController.Params().SetDouble("JogSpeed", 100);
  Press(kcJogRight);
  FController.RunFor(100);
  Press(kcJogForward);  // another key takes over
  FController.RunFor(100);
  Release(kcJogRight);  // not what is held any more
  const double y = Now().Pos.Y;
  FController.RunFor(100);
  EXPECT_GT(Now().Pos.Y, y + 5);
  Raise(NcAlarmAxis(1, true));
  FController.RunFor(100);
  EXPECT_EQ(State(), csStandby) << "an alarm ends it";
  EXPECT_FALSE(Now().Moving());
}

TEST_F(KeyCommands, AnAlarmBlockedKeyChangesNothing) {
  Raise(naForbidCut | naForbidLaser | naForbidFollower | naForbidHoming | naForbidMove);
  for (std::int32_t axis = 0; axis < 3; ++axis)
    for (const bool positive : {false, true}) Raise(NcAlarmAxis(axis, positive));
  const TMachineSnapshot before = Now();
  for (const std::int32_t command : {kcShutter, kcLaser, kcFollow, kcReturnOrg, kcReturnOrgAlt, kcWalkAround, kcDryCut,
                                     kcStart, kcResume, kcBreakLocate, kcJogLaser, kcCalibration, kcCurPosCalibration,
                                     kcJogLeft, kcJogRight, kcJogForward, kcJogBack, kcJogZUp, kcJogZDown}) {
    Press(command);
    FController.RunFor(1500);
    const TMachineSnapshot now = Now();
    EXPECT_FALSE(now.Laser || now.Emission || now.Gas || now.Moving() || now.Following) << command;
    EXPECT_EQ(std::tuple(now.Pos, now.Z, now.State), std::tuple(before.Pos, before.Z, before.State)) << command;
    Release(command);
  }
}

TEST_F(KeyCommands, DevicesSwitchByHandOnlyWhereTheyMay) {
  Press(kcLaser);
  EXPECT_THAT(LastNote(), HasSubstr("shutter is closed"));
  Press(kcShutter);
  Press(kcAiming);
  Press(kcGas);
  Press(kcFollow);
  FController.RunFor(1000);
  Press(kcLaser);
  FController.RunFor(50);
  EXPECT_TRUE(Now().Laser && Now().Gas && Now().Following && Machine().Laser()->GetAiming());
  for (const std::int32_t command : {kcLaser, kcShutter, kcAiming, kcGas, kcFollow}) Press(command);
  EXPECT_FALSE(Now().Laser || Now().Emission || Now().Gas || Now().Following || Machine().Laser()->GetAiming());

  Press(kcJogLaser);
  FController.RunFor(100);
  EXPECT_TRUE(Now().Laser);
  // Nothing begins with a beam that a key will take away.
  Press(kcDryCut);
  EXPECT_EQ(LastNote(), "command " + std::to_string(kcDryCut) + " refused: the beam is on by hand");
  const TMotionCall delay{FindProcedure("delay"), FindProcedure("delay")->SampleValues(), {}};
  EXPECT_EQ(FController.Start(ShareRoot(MakeRoot("wait", {&delay, 1}))).Problem().What, "the beam is on by hand");
  Release(kcJogLaser);
  EXPECT_FALSE(Now().Laser || Now().Emission);

  Press(kcDryCut);
  RunTo(csDryRun);
  for (const std::int32_t command : {kcShutter, kcGas, kcJogLeft, kcReturnOrg, kcStart}) {
    Press(command);
    EXPECT_THAT(LastNote(), HasSubstr("the machine is in dry run")) << command;
  }
}

TEST_F(KeyCommands, APauseThatComesWithAStartKeepsItFromBeginning) {
  const TMotionCall delay{FindProcedure("delay"), FindProcedure("delay")->SampleValues(), {}};
  for (const bool byKey : {true, false}) {
    Journal().Clear();
    if (byKey)
      Press(kcDryCut);
    else
      ASSERT_TRUE(FController.Start(ShareRoot(MakeRoot("wait", {&delay, 1}))));
    Press(kcPause);
    FController.RunFor(100);
    EXPECT_EQ(State(), csStandby);
    EXPECT_THAT(Commands("axes"), testing::Not(testing::Contains(HasSubstr("MoveXY"))));
  }
}

TEST_F(KeyCommands, AnAlarmEndsABeamThatIsHeldAndItsEndLightsNothing) {
  Press(kcGas);
  Press(kcJogLeft);
  FController.RunFor(100);
  Press(kcJogLaser);
  FController.RunFor(100);
  EXPECT_TRUE(Now().Laser && State() == csJogging);
  Journal().Clear();
  Raise(naForbidLaser);
  FController.RunFor(100);
  EXPECT_EQ(Commands("laser"), Lines("SwitchLaser off", "EmissionOff")) << "once";
  EXPECT_TRUE(Now().Gas && State() == csJogging);
  FController.Alarms().ClearAll();
  Machine().Laser()->ResetLatch();
  FController.RunFor(500);
  EXPECT_FALSE(Now().Laser || Now().Emission);
  Release(kcJogLaser);
  Press(kcJogLaser);
  FController.RunFor(100);
  EXPECT_TRUE(Now().Laser);
  Release(kcJogLaser);
}

TEST_F(KeyCommands, AHeldKeyEndsItsOwnBeamAlwaysAndNoOther) {
  Press(kcJogLaser);
  RunUntil("laser on");
  Release(kcJogLaser);
  RunUntil("laser off");

  // Pressed between the start of a shot and the pass that enters it: dark in that pass, and the release ends no shot.
  Journal().Clear();
  const TMotionCall shot{FindProcedure("shot"), {500.0}, {}};
  ASSERT_TRUE(FController.Start(MakeRoot("shot", {&shot, 1})).Ok());
  Press(kcJogLaser);
  FController.RunPass();
  EXPECT_FALSE(Framework().Watch().LaserAsked.Runs());
  RunUntil("laser on");
  Release(kcJogLaser);
  FController.RunFor(100);
  EXPECT_TRUE(Now().Laser);
  RunTo(csStandby);
  EXPECT_TRUE(TCustomMotionState::GetExecOK(515, false));
}

TEST_F(KeyCommands, NothingThatBeginsWhileAKeyIsPressedGetsItsBeam) {
  const TMotionCall delay{FindProcedure("delay"), {500.0}, {}};
  const auto open = [&] {
    if (!Now().Emission) Press(kcShutter);
    FController.RunFor(200);
  };
  for (const std::int32_t command : {kcLaser, kcJogLaser}) {
    for (const bool entered : {false, true}) {
      open();
      const std::uint64_t before = Gate().Calls();
      Press(command);
      const std::uint64_t lights = Gate().Calls() - before;  // the last of its calls, by which it has been permitted
      EXPECT_TRUE(Now().Laser);
      command == kcLaser ? Press(command) : Release(command);
      open();
      Gate().PlanSet({.Call = Gate().Calls() + lights, .Fault = gfCallback, .Callback = [&] {
                        ASSERT_TRUE(FController.Start(MakeRoot("wait", {&delay, 1})).Ok());
                        if (entered) FController.RunPass();
                      }});
      Press(command);
      EXPECT_TRUE(Gate().Fired());
      EXPECT_FALSE(Framework().Watch().LaserAsked.Runs() || Now().Laser) << command << ' ' << entered;
      Release(command);
      EXPECT_EQ(Finish(), metSuccess);
    }
  }
}

TEST_F(KeyCommands, TheEmergencyStopLatchesUntilItIsResetByHand) {
  Press(kcStart);
  RunUntil("laser on");
  Press(kcEmergencyStop);
  EXPECT_FALSE(Now().Laser);
  EXPECT_TRUE(EmergencyStop()->IsActive());
  FController.RunFor(500);
  EXPECT_EQ(State(), csStandby);
  EXPECT_FALSE(Now().Moving());
  Press(kcShutter);
  EXPECT_THAT(LastNote(), HasSubstr("the emergency stop is active"));
  FController.Keys().SetEmergencyStop(false);
  EXPECT_FALSE(Now().LatchTripped);
  Press(kcShutter);
  FController.RunFor(200);
  EXPECT_TRUE(Now().Emission);
}

TEST_F(KeyCommands, TheEmergencyStopsResetEndsNoOtherTripAndALatchedLaserIsNotAsked) {
  Machine().Laser()->Trip("of its own");
  for (const bool active : {true, false}) FController.Keys().SetEmergencyStop(active);
  EXPECT_EQ(Now().LatchReason, "of its own");
  FController.RunFor(100);
  for (const std::int32_t command : {kcShutter, kcLaser, kcJogLaser, kcStart}) {
    Press(command);
    EXPECT_THAT(LastNote(), HasSubstr("the laser is latched (of its own)")) << command;
  }
  EXPECT_FALSE(FController.Framework().Watch().EmissionAsked.Runs());
  ASSERT_TRUE(FController.ResetLatch());
  Press(kcShutter);
  FController.RunFor(200);
  EXPECT_TRUE(Now().Emission);
}

TEST_F(KeyCommands, AStopNeedsNoStateThread) {
  FController.Params().SetDouble("JogSpeed", 100);
  Press(kcJogRight);
  FController.RunFor(300);
  EXPECT_TRUE(Now().AxesMoving);
  Press(kcStop);  // no pass from here on
  FController.VirtualClock()->Sleep(300);
  EXPECT_FALSE(Now().Moving());
}

TEST_F(KeyCommands, WhetherAStopIsRefusedIsAskedOfNoDevice) {
  struct TBroken final : TNcCutSystem {
    std::int32_t GetState() override { return 0; }
    TNcLaser* Laser() override { throw std::runtime_error("the line is down"); }
    void Lock() override {}
    void Unlock() override {}
    void SwitchLaser(bool) override {}
  } broken;
  const TInstalled<TNcCutSystem> installed(broken);
  for (const std::int32_t command : {kcStop, kcPause, kcEmergencyStop})
    EXPECT_FALSE(FController.Keys().WhyNot(command, {}).Refused()) << command;
  EXPECT_THROW((void)FController.Keys().WhyNot(kcLaser, {}), std::runtime_error);
}

TEST_F(KeyCommands, TheCalibrationAndAForbiddenCommand) {
  Press(kcCurPosCalibration);
  RunTo(csCalibration);
  RunTo(csStandby);
  EXPECT_NEAR(Now().Z, 0, 1e-6);
  const std::int32_t allowed[] = {kcGas};
  FController.Forbidden().RegistAllowKey("only gas", allowed);
  FController.Forbidden().SetForbiddenKey("only gas");
  Press(kcStart);
  EXPECT_THAT(LastNote(), HasSubstr("it is forbidden (only gas)"));
  Press(kcGas);
  EXPECT_TRUE(Now().Gas);
  Press(kcStop);
  FController.RunFor(100);
  EXPECT_FALSE(Now().Gas) << "what stops is never forbidden";
}

}  // namespace
}  // namespace ixocamglue::test
