// The nozzle change, and the ways to the maintenance and blanking positions, on a copy of the example machine.
#include <filesystem>
#include <functional>

#include <gmock/gmock.h>

#include "controller/procedures/GoProcedures.h"
#include "controller/procedures/NozzleChange.h"
#include "controller/process/StateFolder.h"
#include "fixture/Machine.h"
#include "fixture/TempDir.h"
#include "ixocamglue/config/Uassistconfig.h"
#include "ixocamglue/support/Problem.h"
#include "machines/simulated/Faults.h"

namespace ixocamglue::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

struct TMachineCopy {
  TMachineCopy() { std::filesystem::copy_file(ShareFolder() / "machines/machine.xml", File); }
  TTempDir Dir;
  std::filesystem::path File = Dir.Path() / "machine.xml";
};

class NozzleChange : protected TMachineCopy, public TMachineTest {
 protected:
  NozzleChange() : TMachineTest({}, {.MachineFile = File}) {}

  // The outputs in the order in which they were switched.
  TTexts Outputs() {
    TTexts texts;
    for (const std::string& text : Signals().Texts())
      if (text.starts_with("output")) texts.push_back(text);
    return texts;
  }
  bool Told(std::string_view text) {
    for (const std::string& line : Journal().Lines())
      if (line.find(text) != std::string::npos) return true;
    return false;
  }
};

TEST_F(NozzleChange, TheHeadEndsWithTheOtherNozzleAndTheRackClosed) {
  StartRoot(MakeNozzleChange(nullptr, 1, 3));
  EXPECT_EQ(Finish(120'000), metSuccess);
  EXPECT_TRUE(ExecOK(kNozzleChangeId));
  EXPECT_EQ(Machine().Rack().HeadNozzle(), 3);
  EXPECT_EQ(Machine().Rack().NozzleIn(0), 1);
  EXPECT_EQ(Machine().Rack().NozzleIn(2), 0);
  EXPECT_THAT(Outputs(), ElementsAre("output 6 on", "output 8 on", "output 8 off", "output 9 on", "output 6 off",
                                     "output 7 on", "output 9 off", "output 7 off"));
  EXPECT_TRUE(Told("rack: cap closed") && Told("rack: stage down") && Told("error 0 good"));
  EXPECT_FALSE(Told("struck"));
  EXPECT_EQ(FCaliRstCfg->Count(), 3);  // two came with the file
}

struct TNozzleCase {
  const char* What;
  std::function<void(TSimMachine&)> Arrange;
  const char* Step;   // that fails
  const char* Never;  // must not have happened
};

std::function<void(TSimMachine&)> Fault(const char* name) {
  return [name](TSimMachine& machine) { InjectSimFault(machine, name); };
}

const TNozzleCase kCases[] = {
    {"CapStuck", Fault("rack.cap-stuck"), "(922)", "output 8 on"},
    {"StageStuck", Fault("rack.stage-stuck"), "(922)", "TurnAxis"},
    {"SlotTaken", [](TSimMachine& m) { m.Rack().PutNozzle(0, 9); }, "(163)", "TurnAxis"},
    {"ThreadHolds", Fault("rack.jammed"), "(163)", "output 8 off"},
    {"SlotSwitchStuck", Fault("rack.slot-inputs-stuck"), "(163)", "output 8 off"},
    {"OtherSlotEmpty", [](TSimMachine& m) { m.Rack().PutNozzle(1, 0); }, "(164)", "output 8 off"},
    {"AtTheLimit", Fault("axes.limit"), "(139)", "output 6 on"},
    {"NoPlate", Fault("follower.no-plate"), "(151)", "error 0"},
};

class NozzleChangeFails : public NozzleChange, public testing::WithParamInterface<TNozzleCase> {};

TEST_P(NozzleChangeFails, WhereItIsNoticed) {
  GetParam().Arrange(Machine());
  StartRoot(MakeNozzleChange(nullptr, 1, 2));
  EXPECT_NE(Finish(120'000), metSuccess);
  EXPECT_FALSE(ExecOK(kNozzleChangeId));
  EXPECT_THAT(Controller().Outcome().Path, HasSubstr(GetParam().Step));
  EXPECT_FALSE(Told(GetParam().Never));
  EXPECT_FALSE(Told("struck"));
  FController.RunFor(500);
  const TMachineSnapshot now = Machine().Snapshot();
  EXPECT_FALSE(now.Moving() || now.Calibrating || now.RackMoving);
}

INSTANTIATE_TEST_SUITE_P(Rack, NozzleChangeFails, testing::ValuesIn(kCases),
                         [](const auto& row) { return row.param.What; });

TEST_F(NozzleChange, TheCapThatDoesNotCloseIsNoticedToo) {
  StartRoot(MakeNozzleChange(nullptr, 1, 2));
  while (FController.Running() && !Journal().HasSignal("output 9 on")) FController.RunPass();
  Machine().Rack().SetCapStuck(true);
  EXPECT_EQ(Finish(120'000), metError);
  EXPECT_THAT(Controller().Outcome().Path, HasSubstr("(922)"));
  EXPECT_FALSE(Told("calibrating"));
  FController.RunFor(500);
  EXPECT_THAT(Machine().Snapshot().OutputsOn, ElementsAre(7, 9));  // as they were: nothing moves by itself
}

// A rack without cap, stage and switches: nothing is switched, nothing waited for, nothing asked.
TEST_F(NozzleChange, WhatIsNotFittedIsLeftOut) {
  TNozzleChangeConfig& config = *FNozzleChangeCfg;
  config.OutCapOpen = config.OutCapClose = config.OutStageUp = config.OutStageDown = 0;
  for (TInportParamsConfig* in :
       {&config.InCapOpenOK, &config.InCapCloseOK, &config.InStageUpOK, &config.InStageDownOK})
    in->Port = 0;
  config.CapCaliAfterChange = false;
  Machine().Rack().Open();
  StartRoot(MakeNozzleChange(nullptr, 1, 2));
  EXPECT_EQ(Finish(120'000), metSuccess);
  EXPECT_EQ(Machine().Rack().HeadNozzle(), 2);
  EXPECT_THAT(Outputs(), testing::IsEmpty());
}

TEST_F(NozzleChange, WhatCannotBeDoneIsRefusedWithTheReason) {
  const auto change = [&](std::int32_t from, std::int32_t to) {
    return Thrown<EProblem>([&] { (void)MakeNozzleChange(nullptr, from, to); });
  };
  EXPECT_EQ(change(1, 2), "");
  EXPECT_EQ(change(7, 2), "there is no nozzle 7; the machine's nozzles: 1 (S 1.5), 2 (D 2.0), 3 (S 2.5)");
  EXPECT_THAT(change(2, 2), HasSubstr("the nozzle to take off is the one to install: 2"));
  FNozzleChangeCfg->NozzleItems.Search(3)->PosCol = 5;
  EXPECT_THAT(change(1, 3), HasSubstr("nozzle 3: the rack has no slot in row 2, column 6"));
  TNozzlePosItem& slot = *FNozzleChangeCfg->TryGetNozzlePosItem(0, 1);
  slot.X = slot.Y = slot.Z = 0.0L;
  EXPECT_THAT(change(1, 2), HasSubstr("row 1, column 2 was never configured"));
  FNozzleChangeCfg->ChangeNozzleEnabled = false;
  EXPECT_THAT(change(1, 2), HasSubstr("ChangeNozzleEnabled is false"));

  const auto maintenance = [&] { return Thrown<EProblem>([] { (void)MakeGoMaintenance(nullptr); }); };
  const auto blanking = [&] { return Thrown<EProblem>([] { (void)MakeGoBlanking(nullptr); }); };
  EXPECT_EQ(maintenance(), "");
  EXPECT_EQ(blanking(), "");
  FCHMaintainCfg->SetMaintainPos({});
  FBlankingCfg->PosX = FBlankingCfg->PosY = 0.0;
  EXPECT_THAT(maintenance(), HasSubstr("MaintainCutHead: the position was never configured"));
  EXPECT_THAT(blanking(), HasSubstr("Blanking: the position was never configured"));
  FBlankingCfg->SetEnabled(false);
  EXPECT_THAT(blanking(), HasSubstr("Blanking: Enabled is false"));
}

}  // namespace
}  // namespace ixocamglue::test
