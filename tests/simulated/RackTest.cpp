// Follower with its calibration, nozzle rack, brush and pallets: their stories, and each fault of the table.
#include <cmath>

#include "controller/process/StateFolder.h"
#include "fixture/SimMachine.h"
#include "ixocamglue/platform/xml/MachineConfig.h"

namespace ixocamglue::test {
using namespace ixocontroller;
namespace {

constexpr TPoint2 kFreeSlot{3000.0, 740.0};
constexpr TPoint2 kSecondSlot{3030.0, 740.0};
enum TPort : std::int32_t { poCapOpen = 6, poCapClose, poStageUp, poStageDown, poSlot0 = 11, poSlot1 };

TSimConfig ExampleConfig() {
  TMachineConfig file;
  EXPECT_TRUE(file.Load(ShareFolder() / "machines/machine.xml"));
  std::vector<TProblem> problems;
  return TSimConfig::FromRoot(file.Root(), problems);
}

// The example machine, as somebody at its ports moves it.
class SimRack : public testing::Test, protected TSimRig {
 protected:
  SimRack() : TSimRig(ExampleConfig()) {}

  void Apply(const char* fault) { ASSERT_TRUE(Machine.Inject(fault)) << fault; }
  void SettleAll() {
    const auto resting = [] { return !MotionDriver()->IsBusy() && !GFollower()->IsBusy(); };
    for (int i = 0; i < 400 && !resting(); ++i) RunFor(50);
    EXPECT_TRUE(resting());
  }
  void GoTo(TPoint2 xy, double z) {
    GFollower()->MoveZ(0.0, 0.0);
    SettleAll();
    MotionDriver()->MoveXY(xy, 0.0);
    SettleAll();
    GFollower()->MoveZ(z, 0.0);
    SettleAll();
  }
  void Switch(std::int32_t port) {  // a pulse: cap and stage stay where they are after it
    MotionCard()->SwitchOutport(port, true);
    RunFor(500);
    MotionCard()->SwitchOutport(port, false);
  }
  void OpenRack() {
    Switch(poCapOpen);
    Switch(poStageUp);
  }
  void Turn(double turns) {
    MotionDriver()->TurnAxis(3, turns, 2.0);
    SettleAll();
  }
  bool Input(std::int32_t port) { return DeviceManager()->InputGroup()->GetInput(port); }
  TNcCaliResult Calibrate() {
    GFollower()->StartCalibrate();
    EXPECT_TRUE(GFollower()->IsBusy());
    SettleAll();
    return GFollower()->GetCaliResult();
  }
};

TEST(Capacitance, TheCurveFallsWithTheHeightAndCanBeReadBackwards) {
  TCapacitance sensor(7);
  for (double h = 0.0; h < TCapacitance::kReach; h += 0.25) {
    EXPECT_GT(TCapacitance::Curve(h), TCapacitance::Curve(h + 0.25));
    EXPECT_NEAR(TCapacitance::HeightOf(TCapacitance::Curve(h)), h, 1e-9);
    EXPECT_NEAR(sensor.Measure(h), TCapacitance::Curve(h), TCapacitance::kNoise);
  }
  EXPECT_TRUE(std::isinf(TCapacitance::HeightOf(60.0)));
}

TEST_F(SimRack, ACalibrationGoesDownMeasuresAndComesBack) {
  EXPECT_NE(GFollower()->GetCaliResult().ErrorType, 0);  // none yet
  GFollower()->MoveZ(60.0, 0.0);
  SettleAll();
  const TNcCaliResult result = Calibrate();
  EXPECT_EQ(result.ErrorType, 0);
  EXPECT_NEAR(result.Cap, TCapacitance::Curve(0.0), TCapacitance::kNoise);
  EXPECT_NEAR(result.CaliCapRange, TCapacitance::Curve(0.0) - TCapacitance::Curve(20.0), 4 * TCapacitance::kNoise);
  EXPECT_EQ(result.SteadyLv, 1);
  EXPECT_EQ(result.SmoothLv, 1);
  EXPECT_DOUBLE_EQ(GFollower()->GetZ(), 60.0);
}

TEST_F(SimRack, ACalibrationFailsAsAskedAndAStopInterruptsIt) {
  const std::pair<const char*, int> cases[] = {
      {"follower.no-plate", 1}, {"follower.noisy", 2}, {"follower.not-smooth", 3}};
  for (const auto& [fault, error] : cases) {
    Machine.Follower().SetPlate(80.0);
    Machine.Follower().SetNoise(TCapacitance::kNoise);
    Apply(fault);
    EXPECT_EQ(Calibrate().ErrorType, error) << fault;
    EXPECT_DOUBLE_EQ(GFollower()->GetZ(), 0.0) << fault;
  }
  Apply("follower.calibration-stuck");
  GFollower()->StartCalibrate();
  RunFor(20'000);
  EXPECT_TRUE(GFollower()->IsBusy());
  EXPECT_TRUE(Machine.Snapshot().Calibrating);
  GFollower()->Stop(1);
  SettleAll();
  EXPECT_FALSE(Machine.Snapshot().Calibrating);
  EXPECT_NE(GFollower()->GetCaliResult().ErrorType, 0);
}

TEST_F(SimRack, WithoutAPlateFollowingEndsAtTheEndOfTheAxisWithAnAlarm) {
  Apply("follower.no-plate");
  GFollower()->Follow(1.0);
  RunFor(3000);
  EXPECT_FALSE(GFollower()->IsFollowing() || GFollower()->IsBusy());
  EXPECT_TRUE(Journalled("no plate to follow"));
}

TEST_F(SimRack, ANozzleChangesPlacesWhenItIsTurnedAtItsSlot) {
  EXPECT_TRUE(Input(poCapClose) && !Input(poCapOpen));
  EXPECT_TRUE(!Input(poSlot0) && Input(poSlot1));
  EXPECT_EQ(Machine.Rack().HeadNozzle(), 1);
  GoTo(kFreeSlot, 0.0);
  Turn(-3.0);  // not at the slot
  OpenRack();
  EXPECT_TRUE(Input(poCapOpen) && !Input(poCapClose));
  EXPECT_FALSE(Machine.Snapshot().RackMoving);
  GoTo(kFreeSlot, 68.0);
  Turn(3.0);  // the wrong way round
  EXPECT_EQ(Machine.Rack().HeadNozzle(), 1);
  Turn(-3.0);
  EXPECT_TRUE(Input(poSlot0));
  EXPECT_EQ(Machine.Rack().HeadNozzle(), 0);
  GoTo(kSecondSlot, 70.0);
  Turn(1.0);
  EXPECT_TRUE(Input(poSlot1));  // not yet
  Turn(3.0);
  EXPECT_FALSE(Input(poSlot1));
  EXPECT_EQ(Machine.Rack().HeadNozzle(), 2);
  GoTo({0.0, 0.0}, 0.0);
  EXPECT_FALSE(Journalled("struck"));
}

// Over the table, whose plate lies at 80, its slats at 90.
TEST_F(SimRack, ANozzleThatIsDraggedOrPressedIntoPlateOrSlatsIsACollision) {
  const auto drag = [&](double z) {
    GoTo({100.0, 100.0}, z);
    const auto before = Machine.Snapshot().Collisions;
    MotionDriver()->MoveXY({110.0, 100.0}, 0.0);
    SettleAll();
    return Machine.Snapshot().Collisions - before;
  };
  EXPECT_EQ(drag(79.9), 0u);
  GFollower()->Follow(0.2);
  SettleAll();
  MotionDriver()->MoveXY({200.0, 100.0}, 0.0);
  SettleAll();
  GFollower()->Stop(1);
  (void)Calibrate();
  EXPECT_EQ(Machine.Snapshot().Collisions, 0u);
  EXPECT_EQ(drag(80.5), 1u);
  EXPECT_EQ(Machine.Snapshot().FirstCollision,
            "follower: collision: the nozzle is dragged through the plate, 0.50 mm below its surface");
  EXPECT_EQ(drag(85.0), 1u);  // pressed in before, which is one of its own
  EXPECT_TRUE(Journalled("follower: collision: the nozzle is pressed into the plate"));
  Apply("follower.no-plate");
  EXPECT_EQ(drag(89.9), 0u);
  EXPECT_EQ(drag(90.5), 1u);
  GoTo({3010.0, 40.0}, 95.0);  // beside the table
  const auto before = Machine.Snapshot().Collisions;
  GFollower()->MoveZ(121.0, 0.0);
  EXPECT_EQ(Machine.Snapshot().Collisions, before + 1);
  EXPECT_TRUE(Journalled("follower: collision: target 121.000 is outside the limits"));
}

TEST_F(SimRack, ACapThatClosesOntoTheHeadIsACollision) {
  OpenRack();
  GoTo(kFreeSlot, 68.0);
  EXPECT_EQ(Machine.Snapshot().Collisions, 0u);
  Switch(poCapClose);
  EXPECT_EQ(Machine.Snapshot().FirstCollision, "rack: collision: struck by the head");
}

TEST_F(SimRack, TheRackFailsAsAskedAndTellsWhenItIsStruck) {
  GoTo(kFreeSlot, 68.0);  // the stage is down: nothing is in the way
  EXPECT_FALSE(Journalled("struck"));
  Apply("rack.cap-stuck");
  OpenRack();
  EXPECT_FALSE(Input(poCapOpen));
  EXPECT_TRUE(Input(poCapClose) && Input(poStageUp));
  GoTo(kFreeSlot, 68.0);
  EXPECT_TRUE(Journalled("struck"));  // onto the closed cap
  Machine.Rack().SetCapStuck(false);
  OpenRack();
  Apply("rack.jammed");
  Turn(-3.0);
  EXPECT_EQ(Machine.Rack().HeadNozzle(), 1);
  Machine.Rack().SetJammed(false);
  Apply("rack.slot-inputs-stuck");
  Turn(-3.0);
  EXPECT_EQ(Machine.Rack().HeadNozzle(), 0);
  EXPECT_FALSE(Input(poSlot0));
}

TEST_F(SimRack, OnlyAWayThroughTheBristlesUsesTheBrush) {
  GoTo({3010.0, 40.0}, 62.0);
  GFollower()->MoveZ(0.0, 0.0);
  SettleAll();
  EXPECT_EQ(Machine.Brush().Uses(), 0u);
  const auto clean = [this] {
    GoTo({3010.0, 40.0}, 62.0);
    MotionDriver()->MoveXY({3020.0, 40.0}, 0.0);
    SettleAll();
    GFollower()->MoveZ(0.0, 0.0);
    SettleAll();
  };
  clean();
  EXPECT_EQ(Machine.Brush().Uses(), 1u);
  Apply("brush.missing");
  clean();
  EXPECT_EQ(Machine.Brush().Uses(), 1u);
}

TEST_F(SimRack, PalletsStayWhileAHeadFollows) {
  const auto docked = [] { return CutSystem()->SwitchTable()->GetValue("DockedTable", 9); };
  GFollower()->Follow(1.0);
  RunFor(3000);
  ASSERT_TRUE(GFollower()->IsFollowing());
  Machine.Table().Exchange(2, 1000);
  RunFor(2000);
  EXPECT_EQ(docked(), 1) << "nobody has told the head to stop";
  GFollower()->Stop(1);
  RunFor(1000);
  EXPECT_EQ(docked(), 0);
  RunFor(1000);
  EXPECT_EQ(docked(), 2);
}

TEST_F(SimRack, PalletsLimitsAndOriginFailAsAsked) {
  const auto docked = [] { return CutSystem()->SwitchTable()->GetValue("DockedTable", 9); };
  EXPECT_EQ(docked(), 1);
  Machine.Table().Exchange(2, 1000);
  RunFor(500);
  EXPECT_EQ(docked(), 0);
  RunFor(700);
  EXPECT_EQ(docked(), 2);
  Apply("table.moving");
  RunFor(5000);
  EXPECT_EQ(docked(), 0);
  TPoint2 origin;
  EXPECT_TRUE(MotionDriver()->GetWorkOrigin(origin));
  EXPECT_EQ(origin, (TPoint2{25.0, 20.0}));
  Apply("axes.no-origin");
  EXPECT_FALSE(MotionDriver()->GetWorkOrigin(origin));
  Apply("axes.limit");
  MotionDriver()->MoveXY({100.0, 100.0}, 0.0);
  RunFor(100);
  EXPECT_EQ(Machine.Snapshot().Pos, TPoint2{});
}

// The head has no follower: Z is the driver's, with the same limits, and stops with it.
TEST(SimDriverZ, MovesWithinItsLimitsAndStopsWithTheDriver) {
  TSimConfig config = TSimRig::QuickConfig();
  config.Physics.Follower = false;
  TSimRig rig(config);
  EXPECT_EQ(GFollower(), nullptr);
  EXPECT_EQ(CutSystem()->MultiFollower()->GetFollower(0), nullptr);
  TNcMotionDriver& driver = *MotionDriver();
  ASSERT_TRUE(driver.HasZ());
  driver.MoveZ(200.0, 0.0);
  driver.MoveZ(50.0, 100.0);
  rig.RunFor(100);
  EXPECT_TRUE(driver.IsBusy());
  driver.StopAll(0);
  rig.RunFor(200);
  EXPECT_FALSE(driver.IsBusy());
  EXPECT_GT(driver.GetZ(), 1.0);
  EXPECT_LT(driver.GetZ(), 20.0);
  EXPECT_EQ(rig.Machine.Snapshot().Z, driver.GetZ());
  EXPECT_TRUE(rig.Journalled("Z target 200.000 is outside the limits"));
}

}  // namespace
}  // namespace ixocamglue::test
