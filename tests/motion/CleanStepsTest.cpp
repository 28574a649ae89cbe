// Cleaning the nozzle: the curve (133), by hand (513), automatic (514).
#include <cmath>

#include "fixture/ConfiguredMachine.h"
#include "ixocamglue/motion/Umotiontexts.h"

namespace ixocamglue::test {
namespace {

class CleanSteps : public TConfiguredMachine {
 protected:
  static constexpr std::int32_t kPierces = 77;

  CleanSteps() {
    FIxoCutCfg->ClientWork.AutoCleanHeadConfig.LastPierceCount = kPierces;
    FWorkPierceCounter->LoadParam();
    EXPECT_TRUE(MachineConfig()->Save());
  }
  // The pierce counter starts anew, and the file has it.
  void ExpectCounted() const {
    EXPECT_EQ(FWorkPierceCounter->GetPierceCount(), 0);
    EXPECT_THAT(FileText(), testing::Not(testing::HasSubstr("<LastPierceCount>77<")));
  }
  bool Untouched() const {
    return FWorkPierceCounter->GetPierceCount() == kPierces &&
           FileText().find("<LastPierceCount>77<") != std::string::npos;
  }
};

TEST_F(CleanSteps, ByHandItCleansComesBackAndResetsTheCounter) {
  Start<TSmtManuCleanState>();
  EXPECT_EQ(Finish(60'000), metSuccess);
  EXPECT_EQ(AllCommands(),
            Lines("axes.MoveXY 3010.000 40.000 0.0", "gas.SelectBranch 1", "gas.SetPressure 2.50", "gas.SwitchOn ",
                  "follower.MoveZ 62.000 0.0", "axes.MoveCurve 150.0 2990.000 3030.000 34.000 46.000 6 points",
                  "gas.SwitchOff ", "follower.MoveZ 0.000 0.0", "axes.MoveXY 0.000 0.000 0.0", "gas.SwitchOff "));
  EXPECT_EQ(Machine().Brush().Uses(), 1u);
  ExpectCounted();
}

TEST_F(CleanSteps, HowItGoesUpAndReturnsIsConfigured) {
  const auto end = [this](std::int32_t style, bool back) {
    FNozzleCleanCfg->CleanReturnStyle = style;
    Journal().Clear();
    Start<TSmtManuCleanState>([back](auto& s) { s.FReturn = back; });
    EXPECT_EQ(Finish(60'000), metSuccess);
    const TTexts commands = AllCommands();
    EXPECT_THAT(commands, testing::Each(testing::Not(testing::HasSubstr("gas."))));
    return commands.back();
  };
  FNozzleCleanCfg->CleanGasOpen = false;
  FNozzleCleanCfg->CleanZReturn0 = false;
  EXPECT_EQ(end(0, true), "follower.MoveZ 10.000 0.0");
  EXPECT_EQ(end(2, true), "axes.MoveXY 2900.000 40.000 0.0");
  EXPECT_EQ(end(2, false), "follower.MoveZ 10.000 0.0");
}

TEST_F(CleanSteps, HoweverItFailsTheGasIsOffAndTheCounterStays) {
  Start<TSmtManuCleanState>();
  RunUntil("gas on 1 2.50");
  EXPECT_EQ(Stop(), metStop);
  EXPECT_FALSE(Machine().Snapshot().Gas);

  FNozzleCleanCfg->CleanCurveLength = 9000;  // refused with the gas open
  Start<TSmtManuCleanState>();
  EXPECT_EQ(Finish(60'000), metError);
  EXPECT_FALSE(Machine().Snapshot().Gas);
  EXPECT_THAT(Refusals(), testing::Contains(testing::HasSubstr("(133): X = ")));

  FNozzleCleanCfg->CleanCurveLength = 40;  // cleaned, but the way back cannot be gone
  FNozzleCleanCfg->CleanReturnStyle = 2;
  FNozzleCleanCfg->CleanReturnXPos = -50;
  Start<TSmtManuCleanState>();
  EXPECT_EQ(Finish(60'000), metError);
  EXPECT_TRUE(Untouched());
}

TEST_F(CleanSteps, ACounterThatCannotBeSavedIsSaidAndTheNozzleIsClean) {
  std::filesystem::remove(MachineFile());
  std::filesystem::create_directory(MachineFile());
  Start<TSmtManuCleanState>();
  EXPECT_EQ(Finish(60'000), metSuccess);
  EXPECT_THAT(Refusals(), testing::Contains(testing::HasSubstr("(513): " + std::string(SCheckCounterNotSaved.Get()))));
}

TEST_F(CleanSteps, ACurveThatTheAxesDidNotRunIsNoUseOfTheBrush) {
  Start<TSmtManuCleanState>();
  RunUntil("gas on 1 2.50");
  Machine().Motion().SetLimitPressed(true);
  EXPECT_EQ(Finish(60'000), metError);
  EXPECT_THAT(Refusals(), testing::Contains(testing::HasSubstr("(133): X ended at 3010.000, not at 3030.000")));
  EXPECT_TRUE(Untouched());
}

TEST_F(CleanSteps, AutomaticItDoesNothingWhereThereIsNothingToDo) {
  using TSettings = std::tuple<bool, bool, std::int32_t>;
  for (const auto& [enabled, initialized, docked] :
       {TSettings{false, true, 1}, TSettings{true, false, 1}, TSettings{true, true, 0}}) {
    FNozzleCleanCfg->CleanHeadEnabled = enabled;
    FNozzleCleanCfg->Initialized = initialized;
    Machine().Table().SetDocked(docked);
    Start<TSmtAutoCleanState>();
    EXPECT_EQ(Finish(), metSuccess);
    EXPECT_EQ(AllCommands(), TTexts{});
    EXPECT_TRUE(Untouched());
  }
}

TEST_F(CleanSteps, AutomaticItCalibratesBeforeTheWayBackWhenBothSettingsSaySo) {
  for (const bool afterClean : {false, true})
    for (const bool enabled : {false, true}) {
      FIxoCutCfg->ClientWork.AutoCleanHeadConfig.AutoCailAfterClean = afterClean;
      FFloatCailCfg->AutoCailEnabled = enabled;
      Journal().Clear();
      Start<TSmtAutoCleanState>();
      EXPECT_EQ(Finish(60'000), metSuccess);
      const TTexts commands = AllCommands();
      EXPECT_EQ(std::ranges::count(commands, "follower.StartCalibrate "), afterClean && enabled ? 1 : 0);
      EXPECT_EQ(*(commands.end() - 2), "axes.MoveXY 0.000 0.000 0.0");
    }
  ExpectCounted();
}

// The brush is chosen on entry: a table that docks on the way changes nothing.
TEST_F(CleanSteps, TheBrushOfTheDockedTableServesTheWholeProcedure) {
  FNozzleCleanCfg->UseDoubleBrushes = true;
  FNozzleCleanCfg->CleanReturnStyle = 0;
  Machine().Table().SetDocked(2);
  Start<TSmtAutoCleanState>();
  RunUntil("gas on 1 2.50");
  Machine().Table().SetDocked(1);
  EXPECT_EQ(Finish(60'000), metSuccess);
  EXPECT_EQ(Commands("axes").front(), "MoveXY 3010.000 1480.000 0.0");
  EXPECT_TRUE(IsNear(Machine().Snapshot().Pos, {3030, 1486}, 0.01));
}

TEST(CleanCurves, HaveTheirShape) {
  TRig rig;
  TQuietDriver driver;
  const TInstalled<TNcMotionDriver> installed(driver);
  const auto curve = [&](std::int32_t style, std::int32_t direction, std::int32_t count) {
    rig.StoryOf<TSmtCleanHeadCurve>(133, [&](auto& s) {
      s.FUseConfig = false, s.FCentre = {50, 50}, s.FLength = 40, s.FWidth = 20;
      s.FStyle = style, s.FDirection = direction, s.FCount = count;
    });
    return driver.Curve;
  };
  const std::vector<TPoint2> strokes{{30, 40}, {70, 40}, {70, 50}, {30, 50}, {30, 60}, {70, 60}};
  EXPECT_EQ(curve(0, 0, 3), strokes);
  EXPECT_EQ(curve(7, 0, 3), strokes);  // an unknown style
  EXPECT_EQ(curve(0, 1, 2), (std::vector<TPoint2>{{40, 30}, {40, 70}, {60, 70}, {60, 30}}));
  EXPECT_EQ(curve(0, 0, 1), (std::vector<TPoint2>{{30, 50}, {70, 50}}));
  const auto ellipses = curve(1, 0, 2);
  ASSERT_EQ(ellipses.size(), 2u * 36 + 1);
  for (const TPoint2 p : ellipses) EXPECT_NEAR(std::hypot((p.X - 50) / 20, (p.Y - 50) / 10), 1.0, 1e-9);
  EXPECT_EQ(ellipses.front(), ellipses.back());
  EXPECT_TRUE(IsNear(ellipses[9], {50, 60}, 1e-9));
}

}  // namespace
}  // namespace ixocamglue::test
