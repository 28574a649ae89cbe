// Axes, follower, gas, ports, and the machine file.
#include <cmath>
#include <limits>

#include "fixture/OwnConfig.h"
#include "fixture/SimMachine.h"

namespace ixocamglue::test {
using namespace ixocontroller;
namespace {

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

class Axes : public TSimTest {
 protected:
  TSimMotion& Driver() { return Machine.Motion(); }

  // Steps until at rest, checking speed and acceleration along the path; returns the greatest speed.
  double RunChecked(double speedLimit) {
    const double change = Machine.Config().X.Acceleration * 0.001;
    double before = FSpeed;
    double most = 0.0;
    for (int ms = 0; Driver().IsBusy() && ms < 20'000; ++ms) {
      VirtualClock.Sleep(1);
      FSpeed = Machine.Snapshot().AxesMoving ? PathSpeed() : 0.0;
      most = std::max(most, std::abs(FSpeed));
      EXPECT_LE(std::abs(FSpeed - before), change * 1.001) << "at ms " << ms;
      before = FSpeed;
    }
    EXPECT_FALSE(Driver().IsBusy());
    EXPECT_LE(most, speedLimit * (1.0 + 1e-9));
    return most;
  }
  double PathSpeed() { return Driver().PathSpeed(); }

  double FSpeed = 0.0;
};

TEST_F(Axes, AMoveReachesItsTargetExactlyWithinSpeedAndAcceleration) {
  Driver().MoveXY({1000.0, 500.0}, 400.0);
  EXPECT_NEAR(RunChecked(400.0), 400.0, 1e-6);
  EXPECT_EQ(Machine.Snapshot().Pos, (TPoint2{1000.0, 500.0}));
  Driver().MoveXY({1000.01, 500.0}, 0.0);  // too short for any speed
  RunChecked(Machine.Config().X.MaxSpeed);
  EXPECT_EQ(Machine.Snapshot().Pos, (TPoint2{1000.01, 500.0}));
  Driver().MoveXY({0.0, 0.0}, 1e9);
  EXPECT_NEAR(RunChecked(Machine.Config().X.MaxSpeed), Machine.Config().X.MaxSpeed, 1e-6);
  EXPECT_EQ(Machine.Snapshot().Pos, (TPoint2{0.0, 0.0}));
}

TEST_F(Axes, StoppingFollowsTheRampAndDropsWhatWasWaiting) {
  Driver().MoveXY({2000.0, 0.0}, 1000.0);
  RunFor(500);
  Driver().MoveXY({2000.0, 1000.0}, 1000.0);
  FSpeed = PathSpeed();
  Driver().StopAll(0);
  const double from = Driver().GetPos(0);
  RunChecked(1000.0);
  EXPECT_NEAR(Driver().GetPos(0) - from, 1000.0 * 1000.0 / (2.0 * Machine.Config().X.Acceleration), 1.0);
  EXPECT_EQ(Driver().GetPos(1), 0.0);
}

TEST_F(Axes, ANewMoveFirstLetsTheOldOneComeToRest) {
  Driver().MoveXY({2000.0, 0.0}, 1000.0);
  RunFor(300);
  FSpeed = PathSpeed();
  Driver().MoveXY({100.0, 100.0}, 1000.0);
  RunChecked(1000.0);
  EXPECT_EQ(Machine.Snapshot().Pos, (TPoint2{100.0, 100.0}));
}

TEST_F(Axes, ACurveRestsInSharpCornersOnly) {
  const TPoint2 points[] = {{200.0, 0.0}, {400.0, 20.0}, {400.0, 200.0}};
  Driver().MoveCurve(points, 500.0);
  bool passedSmooth = false;
  bool restedSharp = false;
  for (int ms = 0; Driver().IsBusy() && ms < 20'000; ++ms) {
    VirtualClock.Sleep(1);
    const TPoint2 pos = Machine.Snapshot().Pos;
    if (std::abs(pos.X - 200.0) < 1.0) passedSmooth = passedSmooth || PathSpeed() > 400.0;
    if (pos == points[1]) restedSharp = PathSpeed() == 0.0;
  }
  EXPECT_TRUE(passedSmooth);
  EXPECT_TRUE(restedSharp);
  EXPECT_EQ(Machine.Snapshot().Pos, points[2]);
}

TEST_F(Axes, ImpossibleTargetsMoveNothing) {
  const TPoint2 outside[] = {{100.0, 100.0}, {-1.0, 0.0}};
  Driver().MoveXY({3001.0, 0.0}, 0.0);
  Driver().MoveXY({kNan, 0.0}, 0.0);
  Driver().MoveCurve(outside, 0.0);
  Driver().TurnAxis(1, 1.0, 1.0);
  Driver().TurnAxis(8, 1.0, 1.0);
  CutSystem()->CutHeadCtrl()->MoveFocus(26.0, 0.0);
  GFollower()->MoveZ(kNan, 0.0);
  GFollower()->Follow(-1.0);
  RunFor(100);
  const TMachineSnapshot now = Machine.Snapshot();
  EXPECT_FALSE(now.Moving() || now.Following);
  EXPECT_EQ(now.Pos, TPoint2{});
  EXPECT_FALSE(Journalled(": moving"));
}

TEST_F(Axes, TurningIsRelativeAndFlagsRememberPositions) {
  Driver().TurnAxis(3, 2.5, 0.0);
  RunFor(4000);
  Driver().TurnAxis(3, -1.0, 2.0);
  RunFor(4000);
  EXPECT_DOUBLE_EQ(Driver().GetPos(3), 1.5);
  EXPECT_FALSE(Driver().IsBusy());
  Driver().MoveXY({10.0, 20.0}, 0.0);
  RunFor(1000);
  Driver().SaveFlagPos(4);
  EXPECT_EQ(*Driver().FlagPos(4), (TPoint2{10.0, 20.0}));
}

TEST_F(Axes, TheFollowerKeepsItsDistanceToThePlateUntilStopped) {
  TSimFollower& follower = Machine.Follower();
  follower.Follow(1.5);
  EXPECT_TRUE(follower.IsBusy());
  RunFor(2000);
  EXPECT_FALSE(follower.IsBusy());
  EXPECT_NEAR(follower.GetZ(), 78.5, 0.05);
  follower.SetPlate(75.0);
  RunFor(500);
  EXPECT_NEAR(follower.GetZ(), 73.5, 0.05);
  follower.Stop(1);
  follower.SetPlate(60.0);
  RunFor(500);
  EXPECT_FALSE(follower.IsFollowing());
  EXPECT_NEAR(follower.GetZ(), 73.5, 0.05);
  CutSystem()->CutHeadCtrl()->MoveFocus(-5.0, 0.0);
  RunFor(30);
  CutSystem()->CutHeadCtrl()->Stop(1);
  RunFor(500);
  EXPECT_LT(Machine.Snapshot().Focus, 0.0);
  EXPECT_GT(Machine.Snapshot().Focus, -5.0);
}

class SimGas : public TSimTest {};

TEST_F(SimGas, ThePressureGoesTowardsItsSetValueLikeAFirstOrderLagAfterTheValveHasSwitched) {
  TSimGas& gas = Machine.GasDevice();
  gas.SelectBranch(3);
  gas.SetPressure(10.0);
  gas.SwitchOn();
  EXPECT_TRUE(gas.IsBusy());
  RunFor(59);
  EXPECT_TRUE(gas.IsBusy());
  EXPECT_EQ(Machine.Snapshot().GasBar, 0.0);
  RunFor(1);
  EXPECT_FALSE(gas.IsBusy());
  RunFor(static_cast<std::uint64_t>(Machine.Config().Physics.GasTimeConstantMs));
  EXPECT_NEAR(Machine.Snapshot().GasBar, 10.0 * (1.0 - std::exp(-1.0)), 0.05);
  RunFor(3000);
  EXPECT_DOUBLE_EQ(Machine.Snapshot().GasBar, 10.0);
  EXPECT_TRUE(NcWatch()->GasOn.Runs());
  gas.SetPressure(99.0);
  gas.SelectBranch(9);
  gas.SetPressure(kNan);
  gas.SwitchOff();
  RunFor(3000);
  EXPECT_EQ(Machine.Snapshot().GasBar, 0.0);
  EXPECT_FALSE(NcWatch()->GasOn.Runs());
  EXPECT_EQ(Signals(), (TTexts{"gas on 3 10.00", "gas on 3 25.00", "gas off"}));
  EXPECT_TRUE(Journalled("branch 9 is not fitted"));
}

class SimPorts : public TSimTest {
 protected:
  // Whether the wait ends, and after how many ms; -1 when it lasts longer than 1000 ms.
  int Wait(std::int32_t inport, std::int32_t limitMs, std::int32_t mode = 0) {
    TNcInportCtrl& ctrl = *CutSystem()->InportCtrl();
    ctrl.SetTimeOutMode(mode);
    ctrl.StartWait(inport, limitMs);
    for (int ms = 0; ms <= 1000; ++ms) {
      if (!ctrl.IsBusy()) return ms;
      RunFor(1);
    }
    return -1;
  }
};

TEST_F(SimPorts, AWaitEndsWithTheLevelThatCountsOrItsLimit) {
  TSimPorts& ports = Machine.Ports();
  EXPECT_EQ(Wait(-1, 100), 0);
  EXPECT_EQ(Wait(1, 100), 100);
  EXPECT_TRUE(NcAlarms()->AllowMove());
  ports.SetInputAt(1, true, VirtualClock.MonotonicMs() + 40);
  EXPECT_EQ(Wait(1, 100), 40);
  EXPECT_EQ(Wait(1, 100), 0);
  DeviceManager()->InputGroup()->SetInputLogic(1, false);
  EXPECT_EQ(Wait(1, 100), 100);
  EXPECT_EQ(Wait(2, -1), -1);
  ports.SetInput(2, true);
  RunFor(1);
  EXPECT_FALSE(CutSystem()->InportCtrl()->IsBusy());
  ports.FollowOutput(5, 3, 25);
  MotionCard()->SwitchOutport(5, true);
  EXPECT_EQ(Wait(3, 100), 25);
  MotionCard()->SwitchOutport(99, true);
  EXPECT_EQ(Machine.Snapshot().OutputsOn, std::vector<std::int32_t>{5});
  EXPECT_EQ(Signals(), (TTexts{"output 5 on"}));
}

TEST_F(SimPorts, ATimeOutInModeThreeRaisesAnAlarmUnlessTheStateWasLeft) {
  NoteState(204);
  CutSystem()->InportCtrl()->SetTimeOutMode(3);
  CutSystem()->InportCtrl()->StartWait(1, 50);
  NoteState(0);
  RunFor(100);
  EXPECT_TRUE(NcAlarms()->AllowMove());
  EXPECT_EQ(Wait(1, 50, 3), 50);
  EXPECT_FALSE(NcAlarms()->AllowMove());
  ASSERT_EQ(Alarms.Standing().size(), 1U);
  EXPECT_EQ(Alarms.Standing().front().Desc, "input 1 did not come within 50 ms");
}

TEST(SimConfig, WhatIsWrongIsNamedWithItsPlaceAndTheDefaultStands) {
  const TOwnConfig own(R"(<MachineConfig DHMode="3">
    <Laser EmissionOnDelay="soon" MaxPower="nan"/>
    <Axes><Axis Name="X" SoftLimitNeg="10" SoftLimitPos="10"/><Axis Name="W"/><Axis Name="Y" MaxSpeed="-5"/>
      <Axis Name="Y"/></Axes>
    <GasBranches><GasBranch GasType="2"/><GasBranch GasType="2"/><GasBranch GasType="7"/></GasBranches>
    <Ports><Outport Number="3"/><Outport Number="3"/><Inport/></Ports>
    <Slaves><Slave Identity="0xE000002199"/></Slaves>
    <Supervisor LaserOnLimitMs="70000"/>
    <Simulator SecondFollower="maybe" PlateZ="500"/>
  </MachineConfig>)");
  std::vector<TProblem> problems;
  const TSimConfig config = TSimConfig::FromRoot(own.Config.Root(), problems);
  const std::vector<std::string> expected = {
      "DHMode: \"3\", outside 0 to 2",
      "Laser/EmissionOnDelay: \"soon\", not a whole number in range",
      "Laser/MaxPower: \"nan\", not a number",
      "Axes/Axis[1]/SoftLimitPos: \"10\", not above SoftLimitNeg (10)",
      "Axes/Axis[2]/Name: \"W\", not one of X, Y, Z, Focus",
      "Axes/Axis[3]/MaxSpeed: \"-5\", outside 0.1 to 100000 mm/s",
      "Axes/Axis[4]/Name: \"Y\", described twice",
      "GasBranches/GasBranch[2]/GasType: \"2\", given twice",
      "GasBranches/GasBranch[3]/GasType: \"7\", outside 1 to 6",
      "GasBranches/GasBranch[3]/GasType: the branch has no valid gas type",
      "Ports/Inport[1]/Number: the port has no valid number",
      "Ports/Outport[2]/Number: \"3\", given twice",
      "Slaves/Slave[1]/Identity: \"0xE000002199\", not a whole number in range",
      "Supervisor/LaserOnLimitMs: \"70000\", outside 100 to 64000 ms",
      "Simulator/SecondFollower: \"maybe\", neither true nor false",
      "Simulator/PlateZ: \"500\", outside 0 to 120 mm",
  };
  std::vector<std::string> texts;
  for (const TProblem& problem : problems) texts.push_back(problem.Where + ": " + problem.What);
  EXPECT_EQ(texts, expected);
  EXPECT_EQ(config.Laser.EmissionOnDelay, TSimConfig{}.Laser.EmissionOnDelay);
  EXPECT_EQ(config.X.SoftLimitPos, TSimConfig{}.X.SoftLimitPos);
  EXPECT_EQ(config.Supervisor.LaserOnLimitMs, TSimConfig{}.Supervisor.LaserOnLimitMs);
}

}  // namespace
}  // namespace ixocamglue::test
