// The steps that command a device, tick by tick, and what each of them refuses.
#include "fixture/Allocations.h"
#include "fixture/ConfiguredMachine.h"

namespace ixocamglue::test {
namespace {

using MoveSteps = TConfiguredMachine;
template <class Step>
std::function<void(TStateMotion&)> With(void (*configure)(Step&)) {
  return [configure](TStateMotion& step) { configure(dynamic_cast<Step&>(step)); };
}

TEST_F(MoveSteps, EachCommandsItsDeviceAndNamesWhatItWaitsFor) {
  const auto story = [this](std::int32_t command, const std::function<void(TStateMotion&)>& configure) {
    return StoryOf<TStateMotion>(command, configure);
  };
  const auto xy = [](TSmtMoveToXY& s) { s.FTarget = {100, 50}, s.FSpeed = 80; };
  const auto z40 = [](TSmtSafeMoveToZ& s) { s.FTargetZ = 40; };
  EXPECT_EQ(story(131, With<TSmtMoveToXY>(xy)), Lines("axes.MoveXY 100.000 50.000 80.0 -> 100 motion"));
  EXPECT_EQ(story(131, With<TSmtMoveToXY>(xy)), Lines("-> 100 ensure"));  // is there
  EXPECT_EQ(story(134, {}), Lines("-> 100 ensure"));                      // above the safe height
  EXPECT_EQ(story(136, With<TSmtSafeMoveToZ>(z40)), Lines("follower.MoveZ 40.000 0.0 -> 100 follower"));
  EXPECT_EQ(story(136, With<TSmtSafeMoveToZ>(z40)), Lines("-> 100 ensure"));
  EXPECT_EQ(story(138, With<TSmtSafeMoveToWorkXY>([](auto& s) {
                    s.FTarget = {10, 20};
                  })),
            Lines("follower.MoveZ 10.000 0.0 -> 20001 follower", "axes.MoveXY 35.000 40.000 0.0 -> 100 motion"));
  EXPECT_EQ(story(139, With<TSmtSafeMoveToAssistXY>([](auto& s) {
                    s.FTarget = {60, 70}, s.FSpeed = 9;
                  })),
            Lines("axes.MoveXY 60.000 70.000 9.0 -> 100 motion"));
  EXPECT_EQ(story(421, With<TSmtMoveToF>([](auto& s) { s.FFocus = -3, s.FSpeed = 5; })),
            Lines("head.MoveFocus -3.000 5.0 -> 100 focus"));
  EXPECT_EQ(story(421, With<TSmtMoveToF>([](auto& s) { s.FFocus = -3; })), Lines("-> 100 ensure"));
  EXPECT_EQ(story(154, With<TSmtFollow>([](auto& s) { s.FHeight = 2; })),
            Lines("follower.Follow 2.000 -> 100 follower"));
  EXPECT_EQ(story(134, {}), Lines("follower.MoveZ 10.000 0.0 -> 100 follower"));
  EXPECT_EQ(story(172, With<TSmtOpenOutport>([](auto& s) { s.FPort = 4; })),
            Lines("ports.SwitchOutport 4 on -> 100 ensure"));
  EXPECT_EQ(story(173, With<TSmtCloseOutport>([](auto& s) { s.FPort = 4; })),
            Lines("ports.SwitchOutport 4 off -> 100 ensure"));
  EXPECT_EQ(story(172, {}), Lines("-> 100 ensure"));
  EXPECT_EQ(Refusals(), TTexts{});
}

// The parameters are back when a step is left; 136 is told apart from 134 all the same.
TEST_F(MoveSteps, LeavingResetsTheParameters) {
  const auto z = Make<TSmtSafeMoveToZ>(136, [](auto& s) { s.FTargetZ = 40; });
  Story(*z);
  EXPECT_TRUE(z->FUseSafeZ && z->FOnlyUp && z->FTargetZ == 0.0 && z->GetID() == 136);
  const auto follow = Make<TSmtFollow>(154, [](auto& s) { s.FHeight = 3; });
  Story(*follow);
  EXPECT_EQ(follow->FHeight, 1.0);
}

TEST_F(MoveSteps, WhatCannotBeDoneIsRefusedWithOneLineBeforeAnythingIsCommanded) {
  struct TCase {
    std::int32_t Command;
    std::function<void(TStateMotion&)> Configure;
    const char* Line;
  };
  constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
  const TCase cases[] = {
      {131, With<TSmtMoveToXY>([](auto& s) {
         s.FTarget = {4000, 0};
       }),
       "Move XY(131): X = 4000.000 is outside 0.000 to 3050.000"},
      {131, With<TSmtMoveToXY>([](auto& s) { s.FTarget.Y = kNaN; }), "Move XY(131): Y = nan is outside"},
      {131, With<TSmtMoveToXY>([](auto& s) {
         s.FTarget = {1, 1}, s.FSpeed = -1;
       }),
       "Move XY(131): speed = -1.000"},
      {134, With<TSmtSafeMoveToZ>([](auto& s) { s.FFollowerIndex = 2; }), "safe height(134): no Z axis"},
      {136, With<TSmtSafeMoveToZ>([](auto& s) { s.FTargetZ = 500; }), "Move Z(136): Z = 500.000 is outside 0.000 to"},
      {136, With<TSmtSafeMoveToZ>([](auto& s) { s.FTargetZ = -0.5; }), "Move Z(136): Z = -0.500 is outside"},
      {138, With<TSmtSafeMoveToWorkXY>([](auto& s) {
         s.FTarget = {2960, 1};
       }),
       "(138): X in the work area = 2985.000 is outside 0.000 to 2980.000"},
      {139, With<TSmtSafeMoveToAssistXY>([](auto& s) {
         s.FTarget = {0, -1};
       }),
       "(139): Y = -1.000 is outside"},
      {421, With<TSmtMoveToF>([](auto& s) { s.FFocus = 99; }), "(421): focus = 99.000 is outside"},
      {154, With<TSmtFollow>([](auto& s) { s.FHeight = 0; }), "(154): follow height = 0.000"},
      {154, With<TSmtFollow>([](auto& s) { s.FFollowerIndex = 1; }), "(154): no follower"},
      {151, With<TSmtCapCaliMotion>([](auto& s) { s.FFollowerIndex = 1; }), "(151): no follower"},
      {172, With<TSmtOpenOutport>([](auto& s) { s.FPort = -2; }), "(172): output port = -2.000"},
      {350, With<TSmtLubricateCurve>([](auto& s) {
         s.FRange = TRange2{{5, 5}, {5, 90}};
       }),
       "(350): the range is empty"},
      {350, With<TSmtLubricateCurve>([](auto& s) {
         s.FRange = TRange2{{5, 5}, {9000, 90}};
       }),
       "(350): X = 9000.000"},
      {350, With<TSmtLubricateCurve>([](auto& s) { s.FCount = 0; }), "(350): count = 0.000"},
      {133, With<TSmtCleanHeadCurve>([](auto& s) { s.FUseConfig = false, s.FCount = 1, s.FWidth = -1; }),
       "(133): width = -1.000"},
      {133, With<TSmtCleanHeadCurve>([](auto& s) { s.FUseConfig = false, s.FCount = 1, s.FLength = 10; }),
       "(133): X = -5.000 is outside"},
  };
  FSession.RunFor(100);
  Journal().Clear();
  for (const auto& [command, configure, line] : cases) {
    const auto step = Make(command, configure);
    EXPECT_EQ(Story(*step), Lines("-> -2")) << line;
    const TTexts refusals = Refusals();
    ASSERT_EQ(refusals.size(), 1u) << line;
    EXPECT_THAT(refusals.front(), testing::HasSubstr(line));
  }
}

TEST_F(MoveSteps, TheMachinesStateRefusesToo) {
  const auto refusal = [this](std::int32_t command) {
    EXPECT_EQ(StoryOf(command), Lines("-> -2")) << command;
    const TTexts lines = Refusals();
    return lines.size() == 1 ? lines.front() : Format("%d lines", static_cast<int>(lines.size()));
  };
  Machine().Motion().SetWorkOrigin(std::nullopt);
  EXPECT_THAT(refusal(138), testing::HasSubstr("no valid work origin"));
  Lower(30);
  EXPECT_THAT(refusal(350), testing::HasSubstr("below the safe height"));
  Machine().Alarms().Raise({"T", "", 1}, {.Follower = true});
  EXPECT_THAT(refusal(154), testing::HasSubstr("an alarm forbids the follower"));
  EXPECT_THAT(refusal(151), testing::HasSubstr("an alarm forbids the follower"));
  Machine().Laser()->EmissionOn();
  Machine().SwitchLaser(true);
  FSession.RunFor(100);
  EXPECT_THAT(refusal(139), testing::HasSubstr("the laser is on"));
}

TEST_F(MoveSteps, AskedToStopNoCommandStartsAnything) {
  for (const TMotionCommand& row : MotionCommands()) {
    if (row.Command == 141 || row.Command == 142 || row.Command == 176 || row.Command >= 515) continue;
    const auto step = Make(row.Command, {});
    step->StopExec();
    if (row.Command == 514) FNozzleCleanCfg->CleanHeadEnabled = true;
    EXPECT_EQ(Story(*step).back(), "-> -2") << row.Command;
    EXPECT_THAT(Refusals(), testing::ElementsAre(testing::HasSubstr("a stop has been asked for"))) << row.Command;
  }
}

TEST(MoveStepsWithoutDevices, EachMissingDeviceIsNamed) {
  TRig rig({.CutHead = false,
            .MultiFollower = false,
            .Follower = false,
            .MotionDriver = false,
            .MotionCard = false,
            .DeviceManager = false});
  for (const auto& [command, device] : std::map<std::int32_t, const char*>{{131, "no motion driver"},
                                                                           {133, "no motion driver"},
                                                                           {134, "no Z axis"},
                                                                           {136, "no Z axis"},
                                                                           {138, "no motion driver"},
                                                                           {139, "no motion driver"},
                                                                           {151, "no follower"},
                                                                           {152, "no motion driver"},
                                                                           {154, "no follower"},
                                                                           {163, "no motion driver"},
                                                                           {172, "no motion card"},
                                                                           {350, "no motion driver"},
                                                                           {421, "no cutting head controller"},
                                                                           {513, "no motion driver"}}) {
    const auto step = rig.Make(command, {});
    if (auto* output = dynamic_cast<TSmtSwitchOutport*>(step.get())) output->FPort = 4;
    EXPECT_EQ(rig.Story(*step), Lines("-> -2")) << command;
    EXPECT_THAT(rig.Refusals(), testing::ElementsAre(testing::HasSubstr(device))) << command;
  }
  EXPECT_EQ(rig.StoryOf(173), Lines("-> 100 ensure"));  // port -1 needs no card
}

// A head whose rise was refused does not travel.
TEST_F(MoveSteps, AHeadThatDidNotRiseDoesNotTravel) {
  bool refused = false;
  for (std::uint64_t ahead = 1; ahead < 20 && !refused; ++ahead) {
    Lower(30);
    const auto move = Make<TSmtSafeMoveToAssistXY>(139, [](auto& s) { s.FTarget = {60, 70}; });
    FSession.Gate().PlanSet({.Call = FSession.Gate().Calls() + ahead, .Fault = gfRefuse});
    refused = Story(*move) == Lines("follower.MoveZ 10.000 0.0 -> 20001 follower", "-> -2");
  }
  EXPECT_TRUE(refused);
  EXPECT_THAT(Refusals(), testing::Contains(testing::HasSubstr("the head is below the safe height")));
}

TEST_F(MoveSteps, TheLubricationRunGoesRoundTheEdgesAndOverBothDiagonals) {
  const auto run = Make<TSmtLubricateCurve>(350, [](auto& s) { s.FCount = 2; });
  Tick(*run);
  const auto curve = Commands("axes").back();
  EXPECT_THAT(curve, testing::StartsWith("MoveCurve 17 "));
  FSession.RunFor(60'000);
  EXPECT_EQ(run->Motion(srDone), mstpEnd);
  const auto pos = Machine().Snapshot().Pos;
  EXPECT_TRUE(IsNear(pos, {10, 10}, 0.01)) << pos.X << " " << pos.Y;
}

TEST(MoveStepsOfASecondHead, ItsFollowerHasItsOwnBusyTypeAndStopsWithTheOthers) {
  TRig rig({}, [](TSimConfig& config) { config.Physics.SecondFollower = true; });
  const auto second = [](TStateMotion& s) { dynamic_cast<TSmtFollowerStep&>(s).FFollowerIndex = 1; };
  EXPECT_EQ(rig.StoryOf<TStateMotion>(154, second), Lines("follower2.Follow 1.000 -> 100 follower2"));
  EXPECT_EQ(rig.StoryOf<TStateMotion>(134, second), Lines("follower2.MoveZ 10.000 0.0 -> 100 follower2"));
  rig.StartSequence(
      {{154, "follow", second}, {612, "delay", [](auto& s) { dynamic_cast<TSmtDelay&>(s).SetDelay(60'000); }}});
  rig.FSession.RunFor(5000);
  EXPECT_TRUE(rig.Machine().Snapshot().Following);
  EXPECT_EQ(rig.Stop(), metStop);
  EXPECT_FALSE(rig.Machine().Snapshot().Following);
}

TEST(MoveStepsWithoutFollower, TheDriversOwnZAxisTakesItsPlace) {
  TRig rig({}, [](TSimConfig& config) { config.Physics.Follower = false; });
  const auto z = rig.Make<TSmtSafeMoveToZ>(136, [](auto& s) { s.FTargetZ = 30; });
  EXPECT_EQ(rig.Story(*z), Lines("axes.MoveZ 30.000 0.0 -> 100 motion"));
  EXPECT_EQ(rig.StoryOf(151), Lines("-> -2"));
}

TEST_F(MoveSteps, TheCompositesWalkInTheirOrder) {
  Lower(30);
  Start<TSmtSafeMoveToXYZF>([](auto& s) { s.FTarget = {30, 40}, s.FSpeed = 90, s.FTargetZ = 25, s.FFocus = 4; });
  EXPECT_EQ(Finish(), metSuccess);
  EXPECT_EQ(AllCommands(), Lines("follower.MoveZ 10.000 0.0", "axes.MoveXY 30.000 40.000 90.0",
                                 "head.MoveFocus 4.000 0.0", "follower.MoveZ 25.000 0.0"));
  EXPECT_TRUE(ExecOK(422));
  Lower(30);
  Start<TSmtSafeMoveToXYZ>([](auto& s) { s.FTarget = {50, 40}, s.FTargetZ = 5000; });
  EXPECT_EQ(Finish(), metError);
  EXPECT_EQ(Controller().Outcome().Path, "->Raise Z, then move XY and Z(181)(FStep = 2)->Move Z(136)(FStep = 0)");
}

TEST(MoveStepsWithoutFollower, NoTickOfAMoveAllocates) {
  TRig rig({.MultiFollower = false});
  TLogService::Listen(0);
  TQuietDriver driver;
  const TInstalled<TNcMotionDriver> installed(driver);
  const auto move = rig.Make<TSmtSafeMoveToXYZ>(181, [](auto& s) { s.FTarget = {30, 40}, s.FTargetZ = 20; });
  const auto assist = rig.Make<TSmtSafeMoveToAssistXY>(139, [](auto& s) { s.FTarget = {10, 10}; });
  const auto before = AllocationsSoFar();
  for (int i = 0; i < 8; ++i) EXPECT_NE(move->Motion(srDone), mstpError);
  EXPECT_EQ(assist->Motion(srDone), mstpPolling);
  EXPECT_EQ(assist->Motion(srDone), mstpStep);
  EXPECT_EQ(assist->Motion(srDone), mstpEnd);
  EXPECT_EQ(AllocationsSoFar(), before);
  EXPECT_EQ(driver.Pos, (TPoint2{10, 10}));
  EXPECT_EQ(driver.Z, 0.0);
}

}  // namespace
}  // namespace ixocamglue::test
