// Devices made of points: what a laser, gas and ports of any driver do, and what happens while one does not answer.
#include <fstream>

#include <gmock/gmock.h>

#include "controller/Controller.h"
#include "controller/config/MachineFile.h"
#include "controller/procedures/Procedures.h"
#include "fixture/BenchDriver.h"
#include "fixture/ComposedFile.h"
#include "fixture/Contracts.h"
#include "fixture/Faults.h"
#include "fixture/TempDir.h"
#include "ixocamglue/platform/ports/CutCommands.h"
#include "machines/composed/Laser.h"
#include "machines/composed/Machine.h"
#include "machines/modbus/Driver.h"
#include "machines/simulated/Driver.h"
#include "machines/simulated/Machine.h"

namespace ixocamglue::test {
namespace {

using namespace ixocontroller;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* kBench =
    R"(<Laser Driver="bench" EmissionRequest="emission" EmissionConfirmed="confirmed" Beam="beam" BeamOn="lit"
              Aiming="aiming" LatchOk="ok" Trip="trip" Rearm="rearm" Fault="in:fault"/>
       <Gas Driver="bench" Supply="!in:empty"><Branch GasType="1" Valve="v1" Pressure="bar1"/>
         <Branch GasType="2" Valve="v2" SetPoint="set2"/><Branch GasType="3" Valve="v3"/></Gas>
       <AnalogOut Number="33" Driver="bench" Address="da1"/>
       <Input Number="4" Driver="bench" Address="in:4"/><Output Number="5" Driver="bench" Address="o5"/>
       <Pallets Driver="bench" Docked1="in:p1" Docked2="!in:p2"/>)";

class ComposedMachineTest : public testing::Test {
 protected:
  ComposedMachineTest() {
    FOptions.Machines = {ComposedMachine({SimulatedDriver(), BenchDriver(FBench)})};
    FOptions.MachineFile = File(kBench);
    FOptions.Language = "en";
    FOptions.LocaleFolder = ShareFolder() / "locale";
  }
  std::filesystem::path File(const std::string& devices, const std::string& branches = {}) {
    const auto file = FDir.Path() / "machine.xml";
    std::ofstream(file) << "<MachineConfig><Machine Driver='composed'/><Laser EmissionOnDelay='1000'/><GasBranches>"
                        << (branches.empty() ? "<GasBranch GasType='1' DAPort='33' MaxPressure='8'/>"
                                               "<GasBranch GasType='2' DAPort='34' MaxPressure='10'/>"
                                               "<GasBranch GasType='3' DAPort='0'/>"
                                             : branches)
                        << "</GasBranches><Devices>" << devices << "</Devices></MachineConfig>";
    return file;
  }
  // With its latch set, as at the start of a day.
  TController& Ready() {
    FController.emplace(FOptions);
    FController->RunFor(100);
    EXPECT_THAT(std::string(FittedLaser()->LatchReason()), HasSubstr("own latch"));
    FController->ResetLatch().OrThrow(pbRefused);
    FController->RunFor(300);
    EXPECT_EQ(FittedLaser()->LatchReason(), nullptr);
    FController->Journal().Clear();
    return *FController;
  }
  std::string Run(const char* procedure, TMotionValues values = {}) {
    const TProcedure* const row = FindProcedure(procedure);
    values.resize(row->Params.size());
    FController->Start(ShareRoot(TMotionCall{row, values, {}}.Make(nullptr))).OrThrow(pbRefused);
    EXPECT_TRUE(FController->RunToEnd(30'000));
    const TMotionOutcome outcome = FController->MotionState().Outcome();
    return outcome.Type == metSuccess ? "success" : outcome.Why + outcome.Fault + outcome.Cause;
  }
  void StartShot() {
    FController->Start(ShareRoot(MakeShot(5000))).OrThrow(pbRefused);
    for (int i = 0; i < 500 && FBench.Value("lit") == 0.0; ++i) FController->RunPass();
    ASSERT_EQ(FBench.Value("lit"), 1.0);
  }
  std::vector<std::string> Findings(const std::string& devices) {
    TMachineFile file({ComposedMachine({SimulatedDriver(), BenchDriver(FBench)})});
    file.Load(File(devices), xdAll);
    std::vector<std::string> texts;
    for (const TConfigFinding& finding : file.Findings(file.Config().Document()))
      texts.push_back(finding.Path + ": " + finding.Text);
    return texts;
  }

  TTempDir FDir;
  TBench FBench;
  TControllerOptions FOptions;
  std::optional<TController> FController;
  TFaultWatch Faults;
};

TEST_F(ComposedMachineTest, KeepsThePortsContractsWithItsWireCutAndHealed) {
  FBench.SetLag(30);
  ExpectPortContracts({.Options = FOptions, .Cut = [this] { FBench.Cut(); }, .Heal = [this] { FBench.Heal(); }});
}

TEST_F(ComposedMachineTest, OfTheSimulatedDevicesKeepsThePortsContracts) {
  for (const std::string_view devices : {kOwnDevices, kPointDevices}) {
    FOptions.MachineFile = WriteMachine(FDir.Path() / "whole.xml", std::string(devices) + PortDevices());
    ExpectPortContracts({.Options = FOptions});
  }
}

TEST_F(ComposedMachineTest, AShotIsLitByItsPointsAndOffOnlyWhenItIsReadBack) {
  Ready();
  EXPECT_EQ(Run("shot", {60}), "success");
  EXPECT_THAT(FController->Journal().Signals().Texts(),
              ElementsAre("state 204", "emission on", "laser on", "laser off", "emission off", "state 0"));
  // The outputs stay on for as long as the wire takes.
  StartShot();
  FBench.SetLag(400);
  FController->Framework().Stop();
  FController->RunFor(100);
  EXPECT_TRUE(FController->Framework().SafePending());
  EXPECT_TRUE(FController->Machine().Snapshot().Laser);
  FController->RunFor(500);
  EXPECT_FALSE(FController->Framework().SafePending());
  EXPECT_FALSE(FController->Machine().Snapshot().Laser);
}

TEST_F(ComposedMachineTest, ALostWireDarkensEndsWhatRunsAndLightsNothingWhenItIsBack) {
  TController& controller = Ready();
  StartShot();
  FBench.Cut();
  EXPECT_FALSE(controller.Alarms().AllowLaser());
  EXPECT_TRUE(controller.Alarms().RequireStop());
  controller.RunFor(200);
  EXPECT_FALSE(controller.Running());
  const auto standing = controller.Alarms().Standing();
  EXPECT_TRUE(std::ranges::any_of(standing, [](const TNcAlarmRecord& alarm) {
    return alarm.IdPrefix == "TPDriver" && alarm.Desc.find("the wire is cut") != std::string::npos;
  }));
  EXPECT_TRUE(controller.Framework().SafePending()) << "nobody knows whether it is dark";
  EXPECT_THAT(std::string(FittedLaser()->LatchReason()), HasSubstr("did not answer"));
  FBench.Heal();
  controller.RunFor(500);
  EXPECT_TRUE(controller.Alarms().AllowLaser());
  EXPECT_EQ(FBench.Value("beam") + FBench.Value("emission"), 0.0);
  EXPECT_FALSE(controller.Framework().SafePending());
  controller.ResetLatch().OrThrow(pbRefused);
  controller.RunFor(300);
  EXPECT_EQ(Run("shot", {60}), "success");
}

TEST_F(ComposedMachineTest, LostEmissionAFaultAndAFallenLatchEachEndTheBeam) {
  Ready();
  StartShot();
  FBench.Set("in:lost", 1.0);
  FController->RunFor(200);
  EXPECT_FALSE(FController->Running());
  EXPECT_EQ(FBench.Value("beam"), 0.0);
  FBench.Set("in:lost", 0.0);
  FController->RunFor(200);
  EXPECT_EQ(FBench.Value("emission"), 0.0) << "it has to be asked for again";

  StartShot();
  FBench.Set("in:fault", 1.0);
  FController->RunFor(200);
  EXPECT_FALSE(FController->Running());
  EXPECT_FALSE(FController->Alarms().AllowLaser());
  FBench.Set("in:fault", 0.0);
  FController->RunFor(200);

  if (FittedLaser()->LatchReason()) FController->ResetLatch().OrThrow(pbRefused);
  FController->RunFor(300);
  StartShot();
  FBench.Write("trip", 1.0);  // by somebody else
  FController->RunFor(200);
  EXPECT_FALSE(FController->Running());
  EXPECT_EQ(FBench.Value("beam"), 0.0);
  EXPECT_THAT(std::string(FittedLaser()->LatchReason()), HasSubstr("own latch"));
}

TEST_F(ComposedMachineTest, LightThatNobodyAsksForIsLatchedAndToldToGoOffInStandbyToo) {
  FOptions.MachineFile = File(R"(<Laser Driver="bench" EmissionRequest="emission" EmissionConfirmed="confirmed"
                                        Beam="beam" BeamOn="in:lit" LatchOk="ok" Trip="trip" Rearm="rearm"/>)");
  TController& controller = Ready();
  // By a key, and dark only some time after it.
  controller.Forbidden().RegistForbidKey("none", {});
  controller.Forbidden().SetForbiddenKey("none");
  controller.Keys().KeyDown(kcJogLaser);
  FBench.Set("in:lit", 1.0);
  controller.RunFor(3000);
  EXPECT_TRUE(controller.Framework().Watch().LaserAsked.Runs());
  controller.Keys().KeyUp(kcJogLaser);
  controller.RunFor(900);
  FBench.Set("in:lit", 0.0);
  controller.RunFor(100);
  EXPECT_EQ(FittedLaser()->LatchReason(), nullptr);
  // By itself.
  FBench.Set("in:lit", 1.0);
  controller.RunFor(900);
  EXPECT_EQ(FittedLaser()->LatchReason(), nullptr);
  controller.RunFor(200);
  EXPECT_STREQ(FittedLaser()->LatchReason(), "supervisor");
  EXPECT_EQ(FBench.Value("trip"), 1.0);
  EXPECT_TRUE(controller.Framework().SafePending()) << "it is told again until it is dark";
  FBench.Set("in:lit", 0.0);
  controller.RunFor(100);
  EXPECT_FALSE(controller.Framework().SafePending());
  controller.ResetLatch().OrThrow(pbRefused);
  controller.RunFor(300);
  EXPECT_EQ(FittedLaser()->LatchReason(), nullptr);
}

// As the one in HAL with a source on Modbus: the beam does not pass it.
TEST_F(ComposedMachineTest, AFurtherLatchDarkensTripsTheSourcesOwnAndIsSetWithIt) {
  std::string devices = kBench;
  devices.replace(devices.find("/>"), 2, "><Latch Ok=\"bench@in:other\" Rearm=\"bench@other-rearm\"/></Laser>");
  FOptions.MachineFile = File(devices);
  FBench.Set("in:other", 1.0);
  Ready();
  StartShot();
  FBench.Set("in:other", 0.0);
  FController->RunFor(200);
  EXPECT_FALSE(FController->Running());
  EXPECT_EQ(FBench.Value("beam") + FBench.Value("emission") + FBench.Value("ok"), 0.0);
  EXPECT_THAT(std::string(FittedLaser()->LatchReason()), HasSubstr("beside the laser's own"));

  FController->ResetLatch().OrThrow(pbRefused);
  FController->RunFor(50);
  EXPECT_EQ(FBench.Value("rearm") * FBench.Value("other-rearm"), 1.0);
  FController->RunFor(3000);
  EXPECT_NE(FittedLaser()->LatchReason(), nullptr) << "it is still down";
  EXPECT_EQ(FBench.Value("rearm") + FBench.Value("other-rearm"), 0.0);

  FBench.Set("in:other", 1.0);
  FController->ResetLatch().OrThrow(pbRefused);
  FController->RunFor(300);
  EXPECT_EQ(Run("shot", {60}), "success");
}

TEST_F(ComposedMachineTest, PressuresGoOutAsBarByTheTableOrNotAtAll) {
  Ready();
  EXPECT_EQ(Run("gas-on", {2, 3.5}), "success");
  EXPECT_EQ(FBench.Value("v2"), 1.0);
  EXPECT_EQ(FBench.Value("set2"), 3.5);
  EXPECT_THAT(FController->Journal().Signals().Texts(), testing::Contains("gas on 2 3.50"));
  EXPECT_EQ(Run("gas-on", {3, 2}), "success") << "set by hand";
  EXPECT_EQ(FBench.Value("v2") + FBench.Value("set2"), 0.0) << "what is left is shut";
  EXPECT_EQ(FBench.Value("v3"), 1.0);
  EXPECT_NE(Run("gas-on", {1, 2}), "success") << "its valve has no table";
  TGasBranchConfig& branch = *MachineConfig()->GetGasBranch(1);
  branch.DAAdjustEnabled = true;
  branch.DAAdjustTable.Add(0, 1);
  branch.DAAdjustTable.Add(8, 9);
  EXPECT_EQ(Run("gas-on", {1, 2}), "success");
  EXPECT_EQ(FBench.Value("da1"), 3.0);
  EXPECT_TRUE(FittedGas()->SupplyGood());
  FBench.Set("in:empty", 1.0);
  FController->RunFor(20);
  EXPECT_FALSE(FittedGas()->SupplyGood());
  EXPECT_EQ(Run("gas-off"), "success");
  EXPECT_EQ(FBench.Value("v1") + FBench.Value("da1"), 0.0);
}

TEST_F(ComposedMachineTest, APressureThatStaysTooLowIsAnAlarmUntilItIsEnough) {
  Ready();
  TGasBranchConfig& branch = *MachineConfig()->GetGasBranch(1);
  branch.DAAdjustEnabled = true;
  branch.DAAdjustTable.Add(0, 1);
  branch.DAAdjustTable.Add(8, 9);
  const auto stands = [&](std::uint64_t afterMs) {
    FController->RunFor(afterMs);
    return std::ranges::any_of(FController->Alarms().Standing(),
                               [](const auto& alarm) { return alarm.IdPrefix == "TPGas"; });
  };
  FBench.Set("bar1", 1.0);
  EXPECT_EQ(Run("gas-on", {1, 4}), "success");
  EXPECT_FALSE(stands(1000)) << "it has not had its time";
  EXPECT_TRUE(stands(2000));
  FBench.Set("bar1", 3.9);
  EXPECT_FALSE(stands(500));
  FBench.Set("bar1", 1.0);
  EXPECT_TRUE(stands(3000));
  EXPECT_EQ(Run("gas-off"), "success");
  EXPECT_FALSE(stands(500));
}

TEST_F(ComposedMachineTest, PortsAndPalletsAreThePointsThatTheFileNames) {
  Ready();
  EXPECT_EQ(CutSystem()->SwitchTable()->GetValue("DockedTable", 7), 2);
  FBench.Set("in:p1", 1.0);
  EXPECT_EQ(CutSystem()->SwitchTable()->GetValue("DockedTable", 7), 0) << "both at once";
  EXPECT_EQ(Run("output-on", {5}), "success");
  EXPECT_EQ(FBench.Value("o5"), 1.0);
  EXPECT_THAT(FController->Machine().Snapshot().OutputsOn, ElementsAre(5));
  FBench.Set("in:4", 1.0);
  EXPECT_TRUE(DeviceManager()->InputGroup()->GetInput(4));
  EXPECT_EQ(MotionDriver(), nullptr);
  EXPECT_EQ(GFollower(), nullptr);
  const TMachineLimits& limits = FController->Limits();
  ASSERT_EQ(limits.Bounds.Inports.size(), 1U);
  EXPECT_EQ(limits.Bounds.Inports.front().Number, 4);
  const auto ports = FController->Machine().PortFacts();
  const auto input = std::ranges::find(ports, "in:4", [](const TMachinePort& port) { return port.Facts.Port; });
  ASSERT_NE(input, ports.end());
  EXPECT_TRUE(input->Facts.Readable);
  EXPECT_EQ(input->Facts.Value, "1");
}

TEST_F(ComposedMachineTest, WhatTheFileNamesWronglyIsToldWithItsPlaceAndWhatWouldBeRight) {
  EXPECT_THAT(Findings(kBench), IsEmpty());
  EXPECT_THAT(Findings(R"(<Axes Driver="simulatd"/>)"),
              ElementsAre(testing::AllOf(HasSubstr("Devices/Axes/Driver"), HasSubstr("did you mean simulated?"))));
  EXPECT_THAT(Findings(R"(<Axes Driver="bench"/>)"), ElementsAre(HasSubstr("has no Axes of its own")));
  EXPECT_THAT(Findings(R"(<Laser Driver="bench" Beam="!b"/>)"),
              ElementsAre(HasSubstr("EmissionRequest: an address is needed"), HasSubstr("cannot be turned round")));
  EXPECT_THAT(Findings(R"(<Laser Driver="bench" EmissionRequest="e" Beam="b"><Latch Rearm="no"/></Laser>)"),
              ElementsAre(HasSubstr("Latch[1]/Ok: an address is needed"), HasSubstr("the bench has no such point")));
  EXPECT_THAT(Findings(R"(<Input Number="4" Driver="simulated" Address="bench@no"/>)"),
              ElementsAre(HasSubstr("the bench has no such point")));
  EXPECT_THAT(Findings(R"(<Input Number="4" Driver="simulated" Address="out:1"/>)"),
              ElementsAre(testing::AllOf(HasSubstr("Devices/Input"), HasSubstr("like in:1"))));
  EXPECT_THAT(Findings(R"(<Gas Driver="bench"><Branch GasType="1" Valve="v"/></Gas>)"),
              ElementsAre(HasSubstr("no AnalogOut has the number 33")));
  EXPECT_THAT(Findings(R"(<Laser Driver="bench" EmissionRequest="b" Beam="b"><Latch Ok="k" Rearm="r"/></Laser>
                          <Output Number="5" Driver="simulated" Address="bench@r"/>)"),
              ElementsAre(HasSubstr("the laser has this output already, as EmissionRequest"),
                          HasSubstr("the laser has this output already, as Rearm")));
  FOptions.MachineFile = File(R"(<Focus Driver="bench"/>)");
  EXPECT_THROW(FController.emplace(FOptions), EProblem);
}

TEST_F(ComposedMachineTest, ATripWhileTheLatchIsBeingResetIsNotLost) {
  FOptions.MachineFile = File(R"(<Laser Driver="bench" EmissionRequest="emission" Beam="beam" Rearm="rearm"/>)");
  FController.emplace(FOptions);
  FController->RunFor(100);
  for (const std::uint64_t ms : {0U, 50U, 99U}) {
    FittedLaser()->Trip("by hand");
    FController->RunFor(50);
    ASSERT_TRUE(FController->ResetLatch());
    FController->RunFor(ms);
    FittedLaser()->Trip("once more");
    FController->RunFor(3000);
    EXPECT_STREQ(FittedLaser()->LatchReason(), "once more") << ms;
    ASSERT_TRUE(FController->ResetLatch());
    FController->RunFor(3000);
    EXPECT_EQ(FittedLaser()->LatchReason(), nullptr);
  }
}

TEST_F(ComposedMachineTest, ATripWithinTheCallThatResetsTheLatchIsNotLost) {
  struct TLine final : IMachinePoint {
    double Read() override { return Value; }
    void Write(double value) override {
      Value = value;
      if (const auto beside = std::exchange(Beside, nullptr)) beside();
    }
    bool Settled() override { return true; }
    std::optional<std::uint64_t> AgeMs() override { return 0; }
    double Value = 0.0;
    std::function<void()> Beside;
  } emission, beam;
  FController.emplace(FOptions);
  TMachineConfig config;
  TComposedCore core({FController->Framework(), config, FController->Alarms(), FController->Journal()});
  TPointLaser laser(core, {.EmissionRequest = &emission, .Beam = &beam});
  laser.Trip("by hand");
  emission.Beside = [&] { laser.Trip("once more"); };
  laser.ResetLatch();
  EXPECT_STREQ(laser.LatchReason(), "once more");
  laser.ResetLatch();
  EXPECT_EQ(laser.LatchReason(), nullptr);
}

TEST(ComposedOutputs, OneOfTheLasersIsFoundByWhateverNameItHas) {
  TTempDir dir;
  const auto file = dir.Path() / "machine.xml";
  std::ofstream(file)
      << R"(<MachineConfig><Machine Driver="composed"/><Modbus><Station Name="io" Host="127.0.0.1"/></Modbus>
      <Devices><Laser Driver="modbus" EmissionRequest="io:coil:1" Beam="io:coil:2"/>
        <Output Number="5" Driver="modbus" Address="io:coil:02"/></Devices></MachineConfig>)";
  const auto make = [&] {
    TController({.Machines = {ComposedMachine({ModbusDriver()})}, .MachineFile = file, .Realtime = true});
  };
  EXPECT_THAT(Thrown<EProblem>(make), HasSubstr("io:coil:02")) << "an output lights the beam";
}

}  // namespace
}  // namespace ixocamglue::test
