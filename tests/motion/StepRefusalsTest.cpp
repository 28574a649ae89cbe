// What each command refuses, with one error line, before it commands anything.
#include <cmath>

#include "fixture/ConfiguredMachine.h"

namespace ixocamglue::test {
namespace {

using M = TRig;
using S = TStateMotion;

template <class Step>
Step& As(TStateMotion& step) {
  return dynamic_cast<Step&>(step);
}
constexpr TRange2 kTooWide{{5, 5}, {9000, 90}};
TNozzlePosItem& Slot() { return *FNozzleChangeCfg->TryGetNozzlePosItem(0, 0); }

// In what is otherwise a machine that could carry the command out.
TEST(StepRefusals, AreOneLineEachAndNothingIsCommanded) {
  struct TCase {
    std::int32_t Command;
    void (*Break)(M&, S&);
    const char* Line;
  };
  const TCase cases[] = {
      {131, [](M&, S& s) { As<TSmtMoveToXY>(s).FTarget.X = 4000; }, "Move XY(131): X = 4000.000 is outside 0.000"},
      {131, [](M&, S& s) { As<TSmtMoveToXY>(s).FTarget.Y = NAN; }, "Y = nan is outside"},
      {131, [](M&, S& s) { As<TSmtMoveToXY>(s).FTarget.Y = 1600; }, "Y = 1600.000 is outside"},
      {131, [](M&, S& s) { As<TSmtMoveToXY>(s).FSpeed = -1; }, "speed = -1.000"},
      {134, [](M&, S& s) { As<TSmtSafeMoveToZ>(s).FFollowerIndex = 2; }, "safe height(134): no Z axis"},
      {136, [](M&, S& s) { As<TSmtSafeMoveToZ>(s).FTargetZ = 500; }, "Move Z(136): Z = 500.000 is outside"},
      {136, [](M&, S& s) { As<TSmtSafeMoveToZ>(s).FTargetZ = -0.5; }, "Z = -0.500 is outside"},
      {138, [](M&, S& s) { As<TSmtSafeMoveToWorkXY>(s).FTarget.X = 2960; }, "X in the work area = 2985.000"},
      {138, [](M&, S& s) { As<TSmtSafeMoveToWorkXY>(s).FTarget.Y = 1600; }, "Y in the work area = 1620.000"},
      {138, [](M& m, S&) { m.Machine().Motion().SetWorkOrigin(std::nullopt); }, "no valid work origin"},
      {139, [](M&, S& s) { As<TSmtSafeMoveToAssistXY>(s).FTarget.Y = -1; }, "Y = -1.000 is outside"},
      {139, [](M& m, S&) { m.LaserOn(); }, "the laser is on"},
      {421, [](M&, S& s) { As<TSmtMoveToF>(s).FFocus = 99; }, "focus = 99.000 is outside"},
      {154, [](M&, S& s) { As<TSmtFollow>(s).FHeight = 0; }, "follow height = 0.000"},
      {154, [](M&, S& s) { As<TSmtFollow>(s).FFollowerIndex = 1; }, "no follower"},
      {154, [](M& m, S&) { m.ForbidFollower(); }, "an alarm forbids the follower"},
      {151, [](M& m, S&) { m.ForbidFollower(); }, "an alarm forbids the follower"},
      {151, [](M&, S& s) { As<TSmtCapCaliMotion>(s).FFollowerIndex = 1; }, "no follower"},
      {172, [](M&, S& s) { As<TSmtOpenOutport>(s).FPort = -2; }, "output port = -2.000"},
      {350, [](M&, S& s) { As<TSmtLubricateCurve>(s).FRange.emplace(); }, "the range is empty"},
      {350, [](M&, S& s) { As<TSmtLubricateCurve>(s).FRange = kTooWide; }, "X = 9000.000"},
      {350, [](M&, S& s) { As<TSmtLubricateCurve>(s).FCount = 0; }, "count = 0.000"},
      {350, [](M& m, S&) { m.Lower(30); }, "head 1 is below the safe height"},
      {133, [](M&, S&) { FNozzleCleanCfg->CleanCurveWidth = -1; }, "width = -1.000"},
      {133, [](M&, S&) { FNozzleCleanCfg->CleanCurveLength = 100; }, "X = 3060.000 is outside"},
      {133, [](M&, S&) { FNozzleCleanCfg->CleanCount = 0; }, "count = 0.000"},
      {133, [](M&, S&) { FNozzleCleanCfg->SetCleanPos({}); }, "the brush position was never configured"},
      {513, [](M&, S&) { FNozzleCleanCfg->SetCleanPos({}); }, "the brush position was never configured"},
      {513, [](M&, S&) { FNozzleCleanCfg->Initialized = false; }, "the brush has not been set up"},
      {513, [](M& m, S&) { m.Machine().Table().SetDocked(0); }, "no table is docked"},
      {152, [](M&, S&) { FFloatCailCfg->FinishFirstCali = false; }, "the first calibration has not been done"},
      {152, [](M&, S&) { FFloatCailCfg->SetFloatCaliPos({}); }, "the calibration position was never configured"},
      {163, [](M&, S&) { FNozzleChangeCfg->ChangeNozzleEnabled = false; }, "nozzle change is not enabled"},
      {163, [](M&, S&) { FNozzleChangeCfg->NozzlePosItems.SetRowCount(0); }, "no slot in row 1, column 1"},
      {163, [](M&, S&) { Slot().X = Slot().Y = Slot().UninstZ = 0; }, "row 1, column 1 was never configured"},
      {163, [](M&, S&) { FNozzleChangeCfg->InCapOpenOK.Level = 0; }, "the cap of the nozzle rack is not open"},
      {163, [](M&, S&) { FNozzleChangeCfg->InStageUpOK.Port = 9; }, "the stage of the nozzle rack is not up"},
      {163, [](M&, S&) { Slot().InReady.Level = 0; }, "the slot in row 1, column 1 holds a nozzle already"},
      {164, [](M&, S&) {}, "there is no nozzle in the slot in row 1, column 1"},
      {163, [](M&, S&) { Slot().X += 0.2L; }, "the head is not over the slot"},
      {163, [](M&, S&) { Slot().UnInstCnt = 0; }, "turns = 0.000"},
      {163, [](M&, S&) { Slot().UnInstSpeed = -1; }, "turning speed = -1.000"},
      {163, [](M&, S&) { FNozzleChangeCfg->ZDis = -1; }, "approach distance (ZDis) = -1.000"},
      {163, [](M&, S&) { FNozzleChangeCfg->ZDis = 69; }, "Z = -1.000"},
      {163, [](M&, S&) { Slot().UseDiffZ = false, Slot().Z = 200; }, "Z = 200.000"},
      {163, [](M&, S&) { FNozzleChangeCfg->LiftHeightAfterUn = 70; }, "Z = -2.000"},
      {163, [](M&, S&) { FNozzleChangeCfg->LiftHeightAfterUn = -5; }, "Z after lifting = 73.000"},
      {163, [](M&, S&) { FNozzleChangeCfg->ZMoveLowSpeed = -1; }, "speed = -1.000"},
      {163, [](M&, S&) { FNozzleChangeCfg->MotorAxis = 1; }, "nozzle motor axis (MotorAxis) = 1.000"},
      {164, [](M&, S&) { Slot().InReady.Port = 0, Slot().AlignCnt = 0; }, "turns = 0.000"},
      {164, [](M&, S&) { Slot().InReady.Port = 0, Slot().InstCnt = -2; }, "turns = -2.000"},
  };
  for (const auto& [command, breaks, line] : cases) {
    TRig rig;
    const auto step = rig.Make(command);
    if (auto* nozzle = dynamic_cast<TSmtNozzleStep*>(step.get())) {
      rig.PrepareRack();
      nozzle->FRow = nozzle->FCol = 0;
    }
    breaks(rig, *step);
    rig.Journal().Clear();
    EXPECT_EQ(rig.Story(*step), Lines("-> -2")) << line;
    EXPECT_THAT(rig.Refusals(), testing::ElementsAre(testing::HasSubstr(line)));
  }
}

TEST(StepRefusals, AskedToStopNoCommandStartsAnything) {
  TRig rig;
  for (const TMotionCommand& row : MotionCommands()) {
    if (row.Command == 141 || row.Command == 142 || row.Command == 176 || row.Command >= 515) continue;
    const auto step = rig.Make(row.Command);
    step->StopExec();
    EXPECT_EQ(rig.Story(*step), Lines("-> -2")) << row.Command;
    EXPECT_THAT(rig.Refusals(), testing::ElementsAre(testing::HasSubstr("a stop has been asked for"))) << row.Command;
  }
}

// Nobody would wait for it.
TEST(StepRefusals, WithoutAControllerNothingIsStarted) {
  TRig rig;
  for (const TMotionCommand& row : MotionCommands()) {
    const auto step = rig.Make(row.Command);
    const bool off = row.Command == 142 || row.Command == 517 || row.Command == 522;  // off is told all the same
    if (!step->IsAtomic() || off) continue;
    if (auto* wait = dynamic_cast<TSmtWaitInport*>(step.get())) wait->FOutport = 4, wait->FNeedOutport = true;
    step->SetStateCtrl(nullptr);
    rig.Journal().Clear();
    EXPECT_EQ(step->Motion(srDone), mstpError) << row.Command;
    for (const TJournalEntry& entry : rig.Journal().Entries())
      EXPECT_TRUE(!entry.IsCommand() || entry.Args.ends_with("off")) << row.Command << " " << entry.Verb;
  }
}

TEST(StepRefusals, EachMissingDeviceIsNamed) {
  TRig rig({.CutHead = false,
            .MultiFollower = false,
            .Follower = false,
            .MotionDriver = false,
            .MotionCard = false,
            .DeviceManager = false});
  const auto refusal = [&](std::int32_t command) {
    const auto step = rig.Make(command);
    if (auto* output = dynamic_cast<TSmtSwitchOutport*>(step.get())) output->FPort = 4;
    EXPECT_EQ(rig.Story(*step), Lines("-> -2")) << command;
    const TTexts lines = rig.Refusals();
    return lines.size() == 1 ? lines.front() : std::string();
  };
  for (const std::int32_t c : {131, 133, 138, 139, 152, 163, 164, 350, 513})
    EXPECT_THAT(refusal(c), testing::HasSubstr("no motion driver"));
  for (const std::int32_t c : {134, 136}) EXPECT_THAT(refusal(c), testing::HasSubstr("no Z axis"));
  for (const std::int32_t c : {151, 154}) EXPECT_THAT(refusal(c), testing::HasSubstr("no follower"));
  for (const std::int32_t c : {172, 173}) EXPECT_THAT(refusal(c), testing::HasSubstr("no motion card"));
  EXPECT_THAT(refusal(421), testing::HasSubstr("no cutting head controller"));
  EXPECT_EQ(rig.StoryOf(173), Lines("-> 100 ensure"));  // port -1 needs no card
}

}  // namespace
}  // namespace ixocamglue::test
