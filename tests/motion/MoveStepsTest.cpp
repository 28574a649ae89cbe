// The steps that command a device, tick by tick.
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
  const struct {
    std::int32_t Command;
    std::function<void(TStateMotion&)> Configure;
    TTexts Story;
  } cases[] = {
      {131,
       With<TSmtMoveToXY>([](auto& s) { s.FTarget.X = 9, s.FSpeed = 80; }),
       {"axes.MoveXY 9.000 0.000 80.0 -> 100 motion"}},
      {131, With<TSmtMoveToXY>([](auto& s) { s.FTarget.X = 9; }), {"-> 100 ensure"}},  // is there
      {134, {}, {"-> 100 ensure"}},                                                    // above the safe height
      {136, With<TSmtSafeMoveToZ>([](auto& s) { s.FTargetZ = 40; }), {"follower.MoveZ 40.000 0.0 -> 100 follower"}},
      {136, With<TSmtSafeMoveToZ>([](auto& s) { s.FTargetZ = 40; }), {"-> 100 ensure"}},
      {138,
       With<TSmtSafeMoveToWorkXY>([](auto& s) { s.FTarget.X = 1; }),
       {"follower.MoveZ 10.000 0.0 -> 20001 follower", "axes.MoveXY 26.000 20.000 0.0 -> 100 motion"}},
      {139,
       With<TSmtSafeMoveToAssistXY>([](auto& s) { s.FTarget.Y = 7; }),
       {"axes.MoveXY 0.000 7.000 0.0 -> 100 motion"}},
      {421, With<TSmtMoveToF>([](auto& s) { s.FFocus = -3; }), {"head.MoveFocus -3.000 0.0 -> 100 focus"}},
      {421, With<TSmtMoveToF>([](auto& s) { s.FFocus = -3; }), {"-> 100 ensure"}},
      {154, With<TSmtFollow>([](auto& s) { s.FHeight = 2; }), {"follower.Follow 2.000 -> 100 follower"}},
      {134, {}, {"follower.MoveZ 10.000 0.0 -> 100 follower"}},
      {172, With<TSmtOpenOutport>([](auto& s) { s.FPort = 4; }), {"ports.SwitchOutport 4 on -> 100 ensure"}},
      {173, With<TSmtCloseOutport>([](auto& s) { s.FPort = 4; }), {"ports.SwitchOutport 4 off -> 100 ensure"}},
      {172, {}, {"-> 100 ensure"}},
  };
  for (const auto& [command, configure, story] : cases) EXPECT_EQ(StoryOf<TStateMotion>(command, configure), story);
  const auto z = Make<TSmtSafeMoveToZ>(136, [](auto& s) { s.FTargetZ = 40; });
  Story(*z);  // leaving resets
  EXPECT_TRUE(z->FUseSafeZ && z->FOnlyUp && z->FTargetZ == 0.0 && z->GetID() == 136);
  EXPECT_EQ(Refusals(), TTexts{});
}

// A head whose rise was refused does not travel.
TEST_F(MoveSteps, AHeadThatDidNotRiseDoesNotTravel) {
  bool refused = false;
  for (std::uint64_t ahead = 1; ahead < 20 && !refused; ++ahead) {
    Lower(30);
    const auto move = Make<TSmtSafeMoveToAssistXY>(139, [](auto& s) { s.FTarget = {60, 70}; });
    Gate().PlanSet({.Call = Gate().Calls() + ahead, .Fault = gfRefuse});
    refused = Story(*move) == Lines("follower.MoveZ 10.000 0.0 -> 20001 follower", "-> -2");
  }
  EXPECT_TRUE(refused);
  EXPECT_THAT(Refusals(), testing::Contains(testing::HasSubstr("head 1 is below the safe height")));
}

// What follows would rely on it: a head that is lowered beside the brush, for example.
TEST(MoveStepsOfAFaultyDevice, FailWhenItIgnoresTheCommand) {
  const std::pair<std::int32_t, std::function<void(TStateMotion&)>> cases[] = {
      {131, With<TSmtMoveToXY>([](auto& s) { s.FTarget.X = 90; })},
      {133, {}},
      {136, With<TSmtSafeMoveToZ>([](auto& s) { s.FTargetZ = 40; })},
      {139, With<TSmtSafeMoveToAssistXY>([](auto& s) { s.FTarget.X = 90; })},
      {151, {}},
      {154, {}},
      {350, {}},
      {421, With<TSmtMoveToF>([](auto& s) { s.FFocus = 3; })},
  };
  for (const auto& [command, configure] : cases) {
    bool ignored = false;
    for (std::uint64_t ahead = 1; ahead < 20 && !ignored; ++ahead) {
      TRig rig;
      const auto step = rig.Make(command, configure);
      rig.Gate().PlanSet({.Call = rig.Gate().Calls() + ahead, .Fault = gfRefuse});
      const std::string last = rig.Story(*step).back();
      ignored = std::ranges::any_of(rig.Journal().Entries(),
                                    [](const TJournalEntry& e) { return e.Kind == vkStart && e.Outcome == toRefused; });
      EXPECT_TRUE(!ignored || last.ends_with("-> -2") || last.ends_with("stuck")) << command << " " << last;
      EXPECT_TRUE(!ignored || rig.Refusals().size() == 1u) << command;
    }
    EXPECT_TRUE(ignored) << command;
  }
}

TEST(MoveStepsOfASecondHead, ItsFollowerHasItsOwnBusyTypeAndStopsWithTheOthers) {
  TRig rig({}, [](TSimConfig& config) { config.Physics.SecondFollower = true; });
  const auto second = [](TStateMotion& s) { dynamic_cast<TSmtFollowerStep&>(s).FFollowerIndex = 1; };
  EXPECT_EQ(rig.StoryOf<TStateMotion>(154, second), Lines("follower2.Follow 1.000 -> 100 follower2"));
  EXPECT_EQ(rig.StoryOf<TStateMotion>(134, second), Lines("follower2.MoveZ 10.000 0.0 -> 100 follower2"));
  rig.StartSequence(
      {{154, "follow", second}, {612, "delay", [](auto& s) { dynamic_cast<TSmtDelay&>(s).SetDelay(60'000); }}});
  rig.FController.RunFor(5000);
  EXPECT_TRUE(rig.Machine().Snapshot().Following);
  EXPECT_EQ(rig.Stop(), metStop);
  EXPECT_FALSE(rig.Machine().Snapshot().Following);
}

TEST(MoveStepsOfASecondHead, EachSafeMoveRaisesBothHeadsAndNoOtherOneLeavesTheSecondBehind) {
  const auto low = [](TRig& rig) {
    rig.StoryOf<TSmtSafeMoveToZ>(136, [](auto& s) { s.FTargetZ = 40; });
    rig.StoryOf<TSmtSafeMoveToZ>(136, [](auto& s) { s.FTargetZ = 50, s.FFollowerIndex = 1; });
    rig.Journal().Clear();
  };
  const auto twoHeads = [](TSimConfig& config) { config.Physics.SecondFollower = true; };
  const TTexts raised{"follower.MoveZ 10.000 0.0", "follower2.MoveZ 10.000 0.0"};
  for (const std::int32_t command : {138, 139}) {
    TRig rig({}, twoHeads);
    low(rig);
    const TTexts story = rig.StoryOf<TSmtRaisedMove>(command, [](auto& s) { s.FTarget = {60, 70}; });
    ASSERT_EQ(story.size(), 3u) << command;
    EXPECT_EQ(story[0], raised[0] + " -> 20001 follower");
    EXPECT_EQ(story[1], raised[1] + " -> 20001 follower2");
    EXPECT_TRUE(story[2].starts_with("axes.MoveXY")) << story[2];
  }
  for (const std::int32_t command : {137, 152, 181, 422, 513, 514}) {
    TRig rig({}, twoHeads);
    low(rig);
    rig.StartSequence({{command, "move"}});
    rig.Finish(60'000);
    const TTexts commands = rig.AllCommands();
    ASSERT_GE(commands.size(), 2u) << command;
    EXPECT_EQ(TTexts(commands.begin(), commands.begin() + 2), raised) << command;
  }
  TRig rig({}, twoHeads);
  low(rig);
  for (const std::int32_t command : {131, 133, 350}) {
    EXPECT_EQ(rig.StoryOf(command), Lines("-> -2")) << command;
    EXPECT_THAT(rig.Refusals(), testing::ElementsAre(testing::HasSubstr(command == 350 ? "head 1 is below the"
                                                                                       : "head 2 is below the")));
  }
  rig.StoryOf(134);  // its own index only
  EXPECT_EQ(rig.AllCommands(), Lines("follower.MoveZ 10.000 0.0"));
  EXPECT_EQ(rig.StoryOf(350), Lines("-> -2"));
}

// A head whose rise was refused keeps the other one where it is, and both from travelling.
TEST(MoveStepsOfASecondHead, AHeadThatDidNotRiseEndsTheMove) {
  bool refused = false;
  for (std::uint64_t ahead = 1; ahead < 20 && !refused; ++ahead) {
    TRig rig({}, [](TSimConfig& config) { config.Physics.SecondFollower = true; });
    rig.StoryOf<TSmtSafeMoveToZ>(136, [](auto& s) { s.FTargetZ = 50, s.FFollowerIndex = 1; });
    const auto move = rig.Make<TSmtSafeMoveToAssistXY>(139, [](auto& s) { s.FTarget = {60, 70}; });
    rig.Gate().PlanSet({.Call = rig.Gate().Calls() + ahead, .Fault = gfRefuse});
    refused = rig.Story(*move) == Lines("follower2.MoveZ 10.000 0.0 -> 20001 follower2", "-> -2");
  }
  EXPECT_TRUE(refused);
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

TEST(MoveStepsWithoutFollower, TheLubricationRunGoesRoundTheEdgesAndOverBothDiagonals) {
  TRig rig({.MultiFollower = false});
  TQuietDriver driver;
  driver.Z = 0.0;
  const TInstalled<TNcMotionDriver> installed(driver);
  rig.StoryOf<TSmtLubricateCurve>(350, [](auto& s) { s.FCount = 2; });
  const std::vector<TPoint2> once{{10, 10}, {90, 10}, {90, 90}, {10, 90}, {10, 10}, {90, 90}, {90, 10}, {10, 90}};
  ASSERT_EQ(driver.Curve.size(), 17u);
  EXPECT_TRUE(std::equal(once.begin(), once.end(), driver.Curve.begin() + 8));
  EXPECT_EQ(driver.Curve.back(), once.front());
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
