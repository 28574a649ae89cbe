// Calibration of the height sensor: alone (151), where the head stands (153), at its own place (152).
#include "fixture/ConfiguredMachine.h"

namespace ixocamglue::test {
namespace {

class CalibrationSteps : public TConfiguredMachine {
 protected:
  CalibrationSteps() {
    Lower(60);
    FBefore = FCaliRstCfg->Count();
  }
  // How many results were appended, and the error type of the last one.
  std::pair<std::int32_t, std::int32_t> Appended() const {
    const std::int32_t count = FCaliRstCfg->Count();
    return {count - FBefore, FCaliRstCfg->GetItem(count - 1)->ErrorType};
  }

  std::int32_t FBefore = 0;
};

using TAppended = std::pair<std::int32_t, std::int32_t>;

TEST_F(CalibrationSteps, AResultThatCannotBeSavedStandsAndIsTold) {
  NcParams()->SetInt("AutoSaveCaliResult", 1);
  std::filesystem::remove(MachineFile());
  std::filesystem::create_directory(MachineFile());
  EXPECT_EQ(StoryOf(151).back(), "-> 100 ensure");
  EXPECT_EQ(Appended(), (TAppended{1, 0}));
  EXPECT_THAT(ErrorLines(), testing::Contains(testing::HasSubstr("the calibration result was not saved: ")));
}

TEST_F(CalibrationSteps, EveryResultIsAppendedAndABadOneFails) {
  const std::string text = FileText();
  EXPECT_EQ(StoryOf(151), Lines("follower.StartCalibrate  -> 20001 follower", "-> 100 ensure"));
  EXPECT_EQ(Appended(), (TAppended{1, 0}));
  const TCaliRst& result = *FCaliRstCfg->GetItem(FBefore);
  EXPECT_TRUE(result.GetTime().IsSet() && result.Cap > 0.0 && result.CaliCapRange > 0.0);
  EXPECT_EQ(FileText(), text);  // not asked to save

  NcParams()->SetInt("AutoSaveCaliResult", 1);
  Machine().Follower().RemovePlate();
  EXPECT_EQ(StoryOf(151), Lines("follower.StartCalibrate  -> 20001 follower", "-> -2"));
  EXPECT_EQ(Appended(), (TAppended{2, 1}));
  EXPECT_THAT(Refusals(), testing::ElementsAre(testing::HasSubstr("the calibration failed: no plate found")));
  EXPECT_THAT(FileText(), testing::HasSubstr("ErrorType=\"1\""));
}

TEST(CalibrationStepsOfASecondHead, HaveTheirOwnList) {
  TRig rig({}, [](TSimConfig& config) { config.Physics.SecondFollower = true; });
  const auto before = FCaliRstCfg->Count();
  const auto second = [](auto& s) { s.FFollowerIndex = 1; };
  rig.StoryOf<TSmtSafeMoveToZ>(136, [](auto& s) { s.FFollowerIndex = 1, s.FTargetZ = 60; });
  EXPECT_EQ(rig.StoryOf<TSmtCapCaliMotion>(151, second),
            Lines("follower2.StartCalibrate  -> 20001 follower2", "-> 100 ensure"));
  EXPECT_EQ(FCaliRstCfg2->Count(), 1);
  EXPECT_EQ(FCaliRstCfg->Count(), before);
  rig.Start<TSmtSimpleAutoCaliState>(second);
  EXPECT_EQ(rig.Finish(), metSuccess);
  EXPECT_THAT(rig.Commands("follower2"),
              testing::ElementsAre("MoveZ 60.000 0.0", "StartCalibrate", "StartCalibrate", "MoveZ 10.000 0.0"));
}

TEST_F(CalibrationSteps, AStopInterruptsItAndNothingIsAppended) {
  Start<TSmtSimpleAutoCaliState>();
  FController.RunFor(200);
  EXPECT_EQ(Stop(), metStop);
  EXPECT_EQ(FCaliRstCfg->Count(), FBefore);
  EXPECT_FALSE(Machine().Snapshot().Moving());
}

TEST_F(CalibrationSteps, TheProcedureTakesThePlaceConfiguredWhenItIsEnteredAndComesBack) {
  StoryOf<TSmtMoveToXY>(131, [](auto& s) { s.FTarget = {200, 210}; });
  Journal().Clear();
  Start<TSmtAutoCaliState>();
  FFloatCailCfg->SetFloatCaliPos({50, 60, 55});  // entered and built, not ticked: still in time
  EXPECT_EQ(Finish(60'000), metSuccess);
  EXPECT_EQ(AllCommands(),
            Lines("follower.MoveZ 10.000 0.0", "axes.MoveXY 50.000 60.000 0.0", "follower.MoveZ 55.000 0.0",
                  "follower.StartCalibrate ", "follower.MoveZ 10.000 0.0", "axes.MoveXY 200.000 210.000 0.0"));
  EXPECT_EQ(Appended(), (TAppended{1, 0}));
  EXPECT_TRUE(ExecOK(152));

  Journal().Clear();
  Start<TSmtAutoCaliState>([](auto& s) { s.FReturn = false; });
  EXPECT_EQ(Finish(60'000), metSuccess);
  EXPECT_EQ(AllCommands().back(), "follower.MoveZ 10.000 0.0");
}

}  // namespace
}  // namespace ixocamglue::test
