// Nozzles in and out of the rack: 163 and 164 with every check.
#include "fixture/ConfiguredMachine.h"

namespace ixocamglue::test {
namespace {

// Cap open, stage up, the head with nozzle 1 over its free slot 0/0; nozzle 2 lies in slot 0/1.
class NozzleSteps : public TConfiguredMachine {
 protected:
  NozzleSteps() {
    Machine().Ports().SwitchOutport(FNozzleChangeCfg->OutCapOpen, true);
    Machine().Ports().SwitchOutport(FNozzleChangeCfg->OutStageUp, true);
    FSession.RunFor(1000);
    GoOver(0, 0);
  }
  void GoOver(std::int32_t row, std::int32_t col) {
    const TNozzlePosItem& slot = Slot(row, col);
    const TPoint2 place{static_cast<double>(slot.X), static_cast<double>(slot.Y)};
    StoryOf<TSmtSafeMoveToAssistXY>(139, [&](auto& s) { s.FTarget = place; });
  }
  static TNozzlePosItem& Slot(std::int32_t row, std::int32_t col) {
    return *FNozzleChangeCfg->TryGetNozzlePosItem(row, col);
  }
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
  GoOver(0, 1);
  EXPECT_EQ(Nozzle(164, 0, 1),
            Lines("follower.MoveZ 50.000 50.0 -> 20001 follower", "follower.MoveZ 70.000 5.0 -> 20001 follower",
                  "axes.TurnAxis 3 1.000 1.000 -> 20001 motion", "axes.TurnAxis 3 3.000 2.000 -> 20001 motion",
                  "follower.MoveZ 10.000 5.0 -> 20001 follower", "-> 100 ensure"));
  EXPECT_EQ(Machine().Rack().HeadNozzle(), 2);
  EXPECT_EQ(Refusals(), TTexts{});
}

TEST_F(NozzleSteps, EveryCheckComesBeforeAnythingMoves) {
  struct TCase {
    std::int32_t Command;
    void (*Break)(TNozzleChangeConfig&, TNozzlePosItem&);
    const char* Line;
  };
  const TCase cases[] = {
      {163, [](auto& c, auto&) { c.ChangeNozzleEnabled = false; }, "nozzle change is not enabled"},
      {163, [](auto& c, auto&) { c.NozzlePosItems.SetRowCount(0); }, "no slot in row 0, column 0"},
      {163, [](auto&, auto& s) { s.X = s.Y = s.Z = s.UninstZ = 0; }, "row 0, column 0 was never configured"},
      {163, [](auto& c, auto&) { c.InCapOpenOK.Level = 0; }, "the cap of the nozzle rack is not open"},
      {163, [](auto& c, auto&) { c.InStageUpOK.Port = 9; }, "the stage of the nozzle rack is not up"},
      {163, [](auto&, auto& s) { s.InReady.Level = 0; }, "the slot in row 0, column 0 holds a nozzle already"},
      {164, [](auto&, auto&) {}, "there is no nozzle in the slot in row 0, column 0"},
      {163, [](auto&, auto& s) { s.X += 0.2; }, "the head is not over the slot"},
      {163, [](auto&, auto& s) { s.UnInstCnt = 0; }, "turns = 0.000"},
      {163, [](auto&, auto& s) { s.UnInstSpeed = -1; }, "turning speed = -1.000"},
      {163, [](auto& c, auto&) { c.ZDis = -1; }, "approach distance (ZDis) = -1.000"},
      {163, [](auto& c, auto&) { c.ZDis = 69; }, "Z = -1.000"},
      {163, [](auto&, auto& s) { s.UseDiffZ = false, s.Z = 200; }, "Z = 200.000"},
      {163, [](auto& c, auto&) { c.LiftHeightAfterUn = 70; }, "Z = -2.000"},
      {163, [](auto& c, auto&) { c.LiftHeightAfterUn = -5; }, "Z after lifting = 73.000"},
      {163, [](auto& c, auto&) { c.ZMoveLowSpeed = -1; }, "speed = -1.000"},
      {163, [](auto& c, auto&) { c.MotorAxis = 1; }, "nozzle motor axis (MotorAxis) = 1.000"},
      {164, [](auto&, auto& s) { s.InReady.Port = 0, s.AlignCnt = 0; }, "turns = 0.000"},
      {164, [](auto&, auto& s) { s.InReady.Port = 0, s.InstCnt = -2; }, "turns = -2.000"},
  };
  Journal().Clear();
  for (const auto& [command, breaks, line] : cases) {
    ASSERT_EQ(MachineConfig()->Load(MachineFile()), "");
    breaks(*FNozzleChangeCfg, Slot(0, 0));
    EXPECT_EQ(Nozzle(command, 0, 0), Lines("-> -2")) << line;
    EXPECT_THAT(Refusals(), testing::ElementsAre(testing::HasSubstr(line)));
  }
  EXPECT_THAT(AllCommands(), testing::Each(testing::HasSubstr("SaveFlagPos")));  // of loading the configuration
}

TEST_F(NozzleSteps, InputsThatAreNotFittedCountAsMet) {
  FNozzleChangeCfg->InCapOpenOK.Port = FNozzleChangeCfg->InStageUpOK.Port = Slot(0, 0).InReady.Port = 0;
  EXPECT_EQ(Nozzle(163, 0, 0).back(), "-> 100 ensure");
}

TEST_F(NozzleSteps, ASlotWhoseInputDidNotChangeFailsTheStep) {
  Machine().Rack().SetJammed(true);
  EXPECT_EQ(Nozzle(163, 0, 0).back(), "-> -2");
  EXPECT_THAT(Refusals(), testing::ElementsAre(testing::HasSubstr("the nozzle is not in the slot in row 0, column 0")));
}

TEST_F(NozzleSteps, AStopWhileItTurnsStopsTheTurningAxis) {
  StartSequence({{163, "leave", [](TStateMotion& step) {
                    auto& s = dynamic_cast<TSmtNozzleStep&>(step);
                    s.FRow = s.FCol = 0;
                  }}});
  for (int i = 0; i < 2000 && Commands("axes").back().find("TurnAxis") == std::string::npos; ++i) FSession.RunPass();
  EXPECT_EQ(Stop(), metStop);
  FSession.RunFor(500);
  EXPECT_FALSE(Machine().Snapshot().Moving());
  EXPECT_NE(Machine().Rack().HeadNozzle(), 0);
}

}  // namespace
}  // namespace ixocamglue::test
