// Nozzles in and out of the rack: 163 and 164.
#include "fixture/ConfiguredMachine.h"

namespace ixocamglue::test {
namespace {

class NozzleSteps : public TConfiguredMachine {
 protected:
  NozzleSteps() { PrepareRack(); }
  TTexts Nozzle(std::int32_t command, std::int32_t row, std::int32_t col) {
    return StoryOf<TSmtNozzleStep>(command, [&](auto& s) { s.FRow = row, s.FCol = col; });
  }
};

TEST_F(NozzleSteps, ANozzleIsLeftAndAnotherTaken) {
  EXPECT_EQ(Nozzle(163, 0, 0),
            Lines("follower.MoveZ 48.000 50.0 -> 20001 follower", "follower.MoveZ 68.000 5.0 -> 20001 follower",
                  "axes.TurnAxis 3 -3.000 2.000 -> 20001 motion", "follower.MoveZ 48.000 5.0 -> 20001 follower",
                  "-> 100 ensure"));
  EXPECT_EQ(Machine().Rack().HeadNozzle(), 0);
  GoOverSlot(0, 1);
  EXPECT_EQ(Nozzle(164, 0, 1),
            Lines("follower.MoveZ 50.000 50.0 -> 20001 follower", "follower.MoveZ 70.000 5.0 -> 20001 follower",
                  "axes.TurnAxis 3 1.000 1.000 -> 20001 motion", "axes.TurnAxis 3 3.000 2.000 -> 20001 motion",
                  "follower.MoveZ 10.000 5.0 -> 20001 follower", "-> 100 ensure"));
  EXPECT_EQ(Machine().Rack().HeadNozzle(), 2);
  EXPECT_EQ(Refusals(), TTexts{});
}

TEST_F(NozzleSteps, InputsThatAreNotFittedCountAsMet) {
  FNozzleChangeCfg->InCapOpenOK.Port = FNozzleChangeCfg->InStageUpOK.Port =
      FNozzleChangeCfg->TryGetNozzlePosItem(0, 0)->InReady.Port = 0;
  EXPECT_EQ(Nozzle(163, 0, 0).back(), "-> 100 ensure");
}

TEST_F(NozzleSteps, ASlotWhoseInputDidNotChangeFailsTheStep) {
  Machine().Rack().SetJammed(true);
  EXPECT_EQ(Nozzle(163, 0, 0).back(), "-> -2");
  EXPECT_THAT(Refusals(), testing::ElementsAre(testing::HasSubstr("the nozzle is not in the slot in row 1, column 1")));
}

TEST_F(NozzleSteps, AHeadThatIsNotWhereItWasSentDoesNotTurn) {
  const auto make = [this](std::int32_t command) {
    GoOverSlot(0, command == 163 ? 0 : 1);
    return Make<TSmtNozzleStep>(command, [&](auto& s) { s.FRow = 0, s.FCol = command == 163 ? 0 : 1; });
  };
  for (const auto& [command, ticks] : {std::pair{163, 1}, {163, 2}, {164, 1}, {164, 2}, {164, 3}}) {
    const auto step = make(command);
    for (int i = 0; i < ticks; ++i) Tick(*step);
    Lower(20);  // somebody else moves it
    EXPECT_EQ(Tick(*step), "-> -2") << command << " " << ticks;
    EXPECT_EQ(AllCommands(), TTexts{});
    EXPECT_THAT(Refusals(), testing::ElementsAre(testing::HasSubstr("Z ended at 20.000")));
  }
  const auto step = make(163);
  Lower(48);
  EXPECT_EQ(Tick(*step), "-> 20001 ensure") << "there already";
  step->Motion(srStop);
}

TEST_F(NozzleSteps, AStopWhileItTurnsStopsTheTurningAxis) {
  StartSequence({{163, "leave", [](TStateMotion& step) {
                    auto& s = dynamic_cast<TSmtNozzleStep&>(step);
                    s.FRow = s.FCol = 0;
                  }}});
  for (int i = 0; i < 2000 && Commands("axes").back().find("TurnAxis") == std::string::npos; ++i) FController.RunPass();
  EXPECT_EQ(Stop(), metStop);
  FController.RunFor(500);
  EXPECT_FALSE(Machine().Snapshot().Moving());
  EXPECT_NE(Machine().Rack().HeadNozzle(), 0);
}

}  // namespace
}  // namespace ixocamglue::test
