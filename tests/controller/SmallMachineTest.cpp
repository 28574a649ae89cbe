// The controller on a machine that is not the simulated one: a laser, and nothing else.
#include <fstream>

#include <gmock/gmock.h>

#include "controller/Controller.h"
#include "examples/machine/SmallMachine.h"
#include "fixture/Faults.h"
#include "fixture/TempDir.h"
#include "ixocamglue/motion/Usequence.h"
#include "ixocamglue/motion/Ustatemotion.h"
#include "ixocamglue/panel/Kbpmngr.h"
#include "ixocamglue/platform/ports/CutCommands.h"

namespace ixocamglue::test {
namespace {

using namespace ixocontroller;
using testing::ElementsAre;
using testing::HasSubstr;

class SmallMachine : public testing::Test {
 protected:
  SmallMachine() {
    KBPManager()->SetCPMByForm("Work", true);
    FController.RunFor(100);
  }

  template <class Step>
  TMotionOutcome Run(const std::function<void(Step&)>& configure) {
    FController.Journal().Clear();
    auto step = MakeStepOf<Step>(nullptr);
    configure(*step);
    FController.Start(std::shared_ptr<TStateMotion>(std::move(step))).OrThrow(pbRefused);
    EXPECT_TRUE(FController.RunToEnd(60'000));
    FController.RunFor(100);
    const TMachineSnapshot now = FController.Machine().Snapshot();
    EXPECT_FALSE(now.Laser || now.Emission || now.State != nsStandby);
    return FController.MotionState().Outcome();
  }
  std::string LastNote() {
    std::string text;
    for (const TJournalEntry& entry : FController.Journal().Entries())
      if (entry.Device == "cut") text = entry.Verb;
    return text;
  }

  TController FController{{.Machines = {example::SmallMachine()}}};
  TFaultWatch Faults;
};

TEST_F(SmallMachine, ATimedShotRunsOnIt) {
  const auto outcome = Run<TSmtLaserOnTimeState>([](auto& shot) { shot.SetDuration(300); });
  EXPECT_EQ(outcome.Type, metSuccess) << outcome.Path << outcome.Fault;
  const auto signals = FController.Journal().Signals();
  EXPECT_THAT(signals.Texts(),
              ElementsAre("state 204", "emission on", "laser on", "laser off", "emission off", "state 0"));
  EXPECT_NEAR(static_cast<double>(signals.Items()[3].Ms - signals.Items()[2].Ms), 300, 30);
}

TEST_F(SmallMachine, WhatIsNotFittedIsRefusedAndLeavesItReady) {
  EXPECT_NE(Run<TSmtMoveToXY>([](auto& step) { step.FTarget = {10, 10}; }).Type, metSuccess);
  EXPECT_NE(Run<TSmtGasOnState>([](auto& step) { step.FGasBranch = 1; }).Type, metSuccess);
  EXPECT_NE(Run<TSmtFollow>([](auto& step) { step.FHeight = 1; }).Type, metSuccess);
  for (const std::int32_t command : {kcFollow, kcGas}) {
    CutSystem()->KeyDown(command, 0, true);
    EXPECT_THAT(LastNote(), HasSubstr("the machine has no such device"));
  }
  for (const std::int32_t command : {kcJogRight, kcJogZDown, kcStart, kcReturnOrg, kcCalibration}) {
    CutSystem()->KeyDown(command, 0, true);
    FController.RunFor(200);
    EXPECT_EQ(FController.Framework().CurrentState(), nsStandby) << command;
    CutSystem()->KeyUp(command, 0);
  }
  EXPECT_FALSE(FController.Machine().Inject("rack.jammed"));
  EXPECT_EQ(Run<TSmtLaserOnTimeState>([](auto& shot) { shot.SetDuration(10); }).Type, metSuccess);
}

TEST_F(SmallMachine, AnEmergencyStopIsDarkWithoutALatch) {
  CutSystem()->KeyDown(kcShutter, 0, true);
  CutSystem()->KeyDown(kcLaser, 0, true);
  EXPECT_TRUE(FController.Machine().Snapshot().Laser && FController.Machine().Snapshot().Emission);
  FController.Supervisor()->EmergencyStop();
  EXPECT_FALSE(FController.Machine().Snapshot().Laser || FController.Machine().Snapshot().Emission);
}

// A laser that cannot be reached.
struct TLostCutSystem final : TNcCutSystem {
  std::int32_t GetState() override { return nsCustomMotion; }
  TNcLaser* Laser() override { throw std::runtime_error("laser"); }
  void Lock() override {}
  void Unlock() override {}
  void SwitchLaser(bool) override { throw std::runtime_error("laser"); }
};

TEST_F(SmallMachine, AnEmergencyStopEndsTheProcedureAlsoWhenTheLaserCannotBeReached) {
  auto step = MakeStepOf<TSmtLaserOnTimeState>(nullptr);
  step->SetDuration(10'000);
  ASSERT_TRUE(FController.Start(std::shared_ptr<TStateMotion>(std::move(step))));
  FController.RunFor(500);
  {
    TLostCutSystem lost;
    const TInstalled<TNcCutSystem> installed(lost);
    EXPECT_NO_THROW(FController.Keys().SetEmergencyStop(true));
  }
  EXPECT_TRUE(FController.RunToEnd(1000));
  EXPECT_EQ(FController.MotionState().Outcome().Type, metStop);
  FController.RunFor(100);
  EXPECT_FALSE(FController.Machine().Snapshot().Laser || FController.Machine().Snapshot().Emission);
}

TEST(MachineDriver, TheMachineFileSaysWhichAndAnUnknownOneIsRefusedWithThoseThereAre) {
  const TTempDir folder;
  const auto make = [&](const char* driver) {
    std::ofstream(folder.Path() / "machine.xml")
        << "<MachineConfig><Machine Driver=\"" << driver << "\"/></MachineConfig>";
    TMachineFactory other = example::SmallMachine();
    other.Name = "other";
    other.Make = [](const TMachineContext&) -> TResult<std::unique_ptr<IMachine>> {
      return TProblem{.What = "no answer"};
    };
    TController({.Machines = {other, example::SmallMachine()}, .MachineFile = folder.Path() / "machine.xml"});
  };
  const auto problem = [&](const char* driver) { return Thrown<EProblem>([&] { make(driver); }); };
  EXPECT_EQ(problem("small"), "");
  EXPECT_THAT(problem(""), HasSubstr("no answer"));
  EXPECT_THAT(problem("smal"), HasSubstr("\"smal\" is no machine driver; there are: other, small"));
  EXPECT_EQ(CutSystem(), nullptr);
}

}  // namespace
}  // namespace ixocamglue::test
