// The host's side of the gas calibration on the simulated valves: its protections, and the commands.
#include <filesystem>
#include <fstream>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "commandline/Table.h"
#include "controller/gas/GasCalibration.h"
#include "controller/procedures/Procedures.h"
#include "fixture/Faults.h"
#include "fixture/Program.h"
#include "machines/simulated/Machine.h"

namespace ixocamglue::test {
using namespace ixocontroller;
using namespace ixocommandline;
namespace {

using testing::HasSubstr;

constexpr const char* kOld = "<DAAdjustTable><Item Press='1' Volt='1'/><Item Press='7' Volt='9'/></DAAdjustTable>";

class GasCalibration : public testing::Test {
 protected:
  GasCalibration() {
    std::string machine = "<MachineConfig><GasBranches>";
    for (int gas = 1; gas <= 3; ++gas)
      machine += "<GasBranch GasType='" + std::to_string(gas) + "' DAPort='" + std::to_string(32 + gas) +
                 "' MaxPressure='" + (gas == 3 ? "25" : "12") + "'>" + kOld + "</GasBranch>";
    std::ofstream(File())
        << machine << "<GasBranch GasType='4'/><GasBranch GasType='5' DAPort='37'/></GasBranches></MachineConfig>";
    FController.emplace(TControllerOptions{.Machines = {SimulatedMachine()}, .MachineFile = File()});
    FController->RunPass();
    FController->RunPass();
  }
  std::filesystem::path File() const { return FDir.Path() / "machine.xml"; }
  // The result of one gas; fails the test when it takes more than five minutes of machine time.
  TGasResult Run(std::int32_t gas) {
    TGasCalibration calibration(*FController, {gas}, {"S", 1.5});
    calibration.Start().OrThrow(pbRefused);
    const std::uint64_t end = Clock().MonotonicMs() + 300'000;
    while (calibration.Running() && Clock().MonotonicMs() < end) FController->RunPass();
    EXPECT_FALSE(calibration.Running());
    FCompleted = calibration.Completed();
    if (!FCompleted) calibration.Conclude();
    FMessages.clear();
    for (std::string text; calibration.GetMsg(text);) FMessages += text + "\n";
    return calibration.Results().front();
  }

  TTempDir FDir;
  std::optional<TController> FController;
  bool FCompleted = false;
  std::string FMessages;
  TFaultWatch Faults;
};

TEST_F(GasCalibration, FaultsEndInTimeAndNeverStoreACurveThatIsNone) {
  // Stuck without a curve before it, and with one.
  const struct {
    TValveFault Fault;
    TGasEnd End;
    bool Completed;
  } rows[] = {{vfDeadSensor, TGasEnd::Restored, true},
              {vfNoSupply, TGasEnd::Restored, true},
              {vfStuck, TGasEnd::Restored, true},
              {vfNonFinite, TGasEnd::Restored, true},
              {vfNegativeOffset, TGasEnd::Restored, true},
              {vfSlowLine, TGasEnd::Restored, true},
              {vfNone, TGasEnd::Stored, true},
              {vfStuck, TGasEnd::Restored, true},
              {vfSlowUpdate, TGasEnd::Unfinished, false},
              {vfLowSupply, TGasEnd::Restored, true}};
  // The gas's table in memory, in the machine file, and its backup.
  const auto tables = [&] {
    TMachineConfig file;
    EXPECT_TRUE(file.Load(File()));
    TGasCaliConfig stored;
    stored.Open();
    std::string text;
    const auto add = [&](const TDAAdjustTable* table, bool enabled) {
      text += enabled ? "on" : "off";
      for (std::int32_t i = 0; table && i < table->GetCount(); ++i)
        text += Format(" %.4f:%.4f", table->GetItem(i)->Press, table->GetItem(i)->Volt);
      text += "\n";
    };
    for (TMachineConfig* const config : {MachineConfig(), &file})
      add(&config->GetGasBranch(2)->DAAdjustTable, config->GetGasBranch(2)->DAAdjustEnabled);
    add(stored.GetDAAdjustTable(2, "S", 1.5), false);
    return text;
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(ValveFaultName(row.Fault));
    ASSERT_TRUE(Simulated(FController->Machine()).Gas()->SetFault(2, row.Fault));
    MachineConfig()->GetGasBranch(2)->DAAdjustEnabled = false;  // the table before is not in use
    EXPECT_TRUE(MachineConfig()->Save());
    const std::string before = tables();
    const TGasResult result = Run(2);
    EXPECT_EQ(static_cast<int>(result.End), static_cast<int>(row.End)) << FMessages;
    EXPECT_EQ(FCompleted, row.Completed);
    EXPECT_FALSE(FController->Machine().Snapshot().Gas);
    EXPECT_FALSE(result.Stopped) << "nobody did but the protection";
    if (row.End == TGasEnd::Stored) continue;
    EXPECT_EQ(result.Why.empty(), !row.Completed);
    EXPECT_THAT(FMessages, HasSubstr(row.Completed ? result.Why : "未稳定"));
    EXPECT_EQ(tables(), before);
  }
}

TEST_F(GasCalibration, TwoPointsAreNoCurveAndThreeAreUnlessTheStateSaysOtherwise) {
  for (const auto& [points, gas] : {std::pair(0, 2), {2, 2}, {3, 2}, {2, 5}, {3, 5}})  // 5 has no stored tables
    for (const bool good : {false, true}) {
      const TGasCalibration calibration(*FController, {gas}, {"S", 1.5});
      TIncList measured;
      for (int i = 1; i <= points; ++i) measured.AddItem({1.0 * i, 1.0 * i});
      GZemGasAdjustModel()->Tell({.Kind = TGasAdjustEvent::TKind::Rebuilt,
                                  .Gas = gas,
                                  .Good = good,
                                  .Measured = &measured,
                                  .Curve = &measured});
      const TGasEnd full = good ? TGasEnd::Stored : TGasEnd::Failed;
      EXPECT_EQ(calibration.Results().front().End, points < 3 ? TGasEnd::Restored : full) << points;
    }
  const TGasResult result{.Points = {{.Settled = true, .Press = 3.0}, {.Settled = false, .Press = 9.0}}};
  EXPECT_EQ(result.MaxBar(), 3.0) << "where it has settled";
}

TEST_F(GasCalibration, GasThatSomebodyElseSwitchesOffStaysOff) {
  TGasCalibration calibration(*FController, {1}, {"S", 1.5});
  calibration.Start().OrThrow(pbRefused);
  FController->RunFor(2000);
  ASSERT_TRUE(FController->Machine().Snapshot().Gas);
  EXPECT_FALSE(FController->Start(ShareRoot(MakeShot(1)))) << "a calibration runs";
  auto& journal = FController->Journal();
  const std::size_t from = journal.Size();
  CutSystem()->Gas()->SwitchOff();
  FController->RunFor(500);
  EXPECT_FALSE(calibration.Running());
  EXPECT_FALSE(FController->Machine().Snapshot().Gas);
  const auto entries = journal.Entries();
  for (std::size_t i = from; i < entries.size(); ++i) EXPECT_NE(entries[i].Verb, "SwitchOn");
  std::string last;
  for (std::string text; calibration.GetMsg(text);) last = text;
  EXPECT_EQ(last, "停止校正！");
  calibration.Conclude();
  const auto& findings = calibration.Results().front().Findings;
  ASSERT_EQ(findings.size(), 1u);
  EXPECT_STREQ(findings[0].Kind, "stopped");
}

TEST_F(GasCalibration, IsRefusedWhereTheMachineIsNotReady) {
  TNcStateFramework& framework = FController->Framework();
  TCallGate& gate = Simulated(FController->Machine()).Gate();
  TGasCalibration calibration(*FController, {1}, {"S", 1.5});
  const auto refusal = [&] {
    const auto started = calibration.Start();
    return started ? std::string() : started.Problem().What;
  };
  ASSERT_TRUE(FController->Start(ShareRoot(MakeShot(1000))));
  FController->RunPass();
  EXPECT_EQ(refusal(), Tr("the machine is busy"));
  framework.Stop();
  FController->RunFor(500);
  // Which call asks the laser is found by trying each.
  for (std::uint64_t ahead = 1; ahead < 40 && !framework.SafePending(); ++ahead) {
    gate.PlanSet({.Call = gate.Calls() + ahead, .Fault = gfThrow, .Sticky = true, .HangMs = 0, .Callback = {}});
    framework.Stop();
    FController->RunPass();
  }
  EXPECT_EQ(refusal(), Tr("a device has not acknowledged switching off"));
  gate.PlanSet({});
  FController->RunFor(100);
  framework.Stop();  // not taken yet
  EXPECT_EQ(refusal(), Tr("the calibration cannot be started"));
  FController->RunFor(100);
  calibration.Start().OrThrow(pbRefused);
  calibration.Stop();
  FController->RunFor(100);
}

TEST_F(GasCalibration, AReadingThatFailsBeforeTheFirstVoltageLosesNoPoint) {
  const TGasCalibration calibration(*FController, {1, 2}, {"S", 1.5});
  TCallGate& gate = Simulated(FController->Machine()).Gate();
  for (const auto& [gas, fault] : {std::pair(1, gfThrow), {2, gfRefuse}}) {
    gate.PlanSet({.Call = gate.Calls() + 1, .Fault = fault, .Sticky = false, .HangMs = 0, .Callback = {}});
    GZemGasAdjustModel()->Tell({.Kind = TGasAdjustEvent::TKind::Voltage, .Gas = gas, .Volt = 2.0});
    EXPECT_TRUE(gate.Fired());
    const TGasResult& result = calibration.Results()[static_cast<std::size_t>(gas - 1)];
    EXPECT_FALSE(result.Zero);
    EXPECT_EQ(result.Points.size(), 1u);
  }
}

TEST_F(GasCalibration, WhatTheWayDownCondemnsOrNoFileTakesIsUndone) {
  const auto block = [&](const char* name) {
    std::filesystem::remove(FDir.Path() / name);
    std::filesystem::create_directory(FDir.Path() / name);
  };
  const auto isOld = [&] {
    TGasCaliConfig stored;
    stored.Open();
    const TDAAdjustTable& table = MachineConfig()->GetGasBranch(1)->DAAdjustTable;
    return table.GetCount() == 2 && table.GetItem(1)->Volt == 9.0 && !stored.GetDAAdjustTable(1, "S", 1.5);
  };
  for (const char* const blocked : {"", "GasCalibration.config", "machine.xml"}) {
    TGasCalibration calibration(*FController, {1}, {"S", 1.5});
    calibration.Start().OrThrow(pbRefused);
    calibration.RunToEnd();
    const TGasResult& result = calibration.Results().front();
    ASSERT_EQ(result.End, TGasEnd::Stored) << result.Why;
    std::vector<TGasPoint> downwards(result.Points.rbegin(), result.Points.rend());
    for (TGasPoint& point : downwards) point.Press += 2.0;
    calibration.Conclude(1, std::move(downwards));
    if (*blocked) block(blocked);
    calibration.Conclude();
    EXPECT_EQ(result.End, *blocked ? TGasEnd::Unsaved : TGasEnd::Restored) << blocked;
    EXPECT_EQ(calibration.Unsaved(), *blocked != 0);
    std::string messages;
    for (std::string text; calibration.GetMsg(text);) messages += text + "\n";
    EXPECT_THAT(messages, testing::AllOf(HasSubstr(result.Why), HasSubstr(blocked)));
    EXPECT_TRUE(isOld()) << blocked;
    std::filesystem::remove(FDir.Path() / "GasCalibration.config");
  }
  // The machine file is still blocked when the next one ends: one message for all its gases.
  TGasCalibration both(*FController, {1, 2}, {"S", 1.5});
  both.Start().OrThrow(pbRefused);
  both.RunToEnd();
  EXPECT_EQ(both.Results()[0].End, TGasEnd::Unsaved);
  EXPECT_EQ(both.Results()[1].End, TGasEnd::Unsaved);
  std::string text;
  while (both.GetMsg(text) && text.find("machine.xml") == std::string::npos) continue;
  EXPECT_THAT(text, HasSubstr(GasDesc(1) + ", " + GasDesc(2)));
  EXPECT_TRUE(isOld());
  // So are both, and it is said of the machine file apart from the gas.
  block("GasCalibration.config");
  EXPECT_EQ(Run(1).End, TGasEnd::Unsaved);
  EXPECT_THAT(FMessages, testing::AllOf(HasSubstr("machine.xml"), HasSubstr("GasCalibration.config")));
  EXPECT_TRUE(isOld());
}

TEST_F(GasCalibration, TheRefinedMethodUsesMorePointsAndIsNotTheDefault) {
  const TGasResult exact = Run(3);
  GZemGasAdjustModel()->SetRefined(true);
  const TGasResult refined = Run(3);
  EXPECT_EQ(exact.End, TGasEnd::Stored);
  EXPECT_EQ(refined.End, TGasEnd::Stored);
  EXPECT_LT(exact.Points.size(), 10u);
  EXPECT_GT(refined.Points.size(), exact.Points.size());
  EXPECT_LE(refined.Points.size(), 15u);
  ASSERT_TRUE(exact.Knee && refined.Knee);
  EXPECT_NEAR(*exact.Knee, 6.4, 0.8);
  for (const TGasPoint& point : refined.Points) EXPECT_TRUE(point.Settled && !point.Samples.empty());
  EXPECT_EQ(Run(4).End, TGasEnd::Skipped) << "no analogue output";
}

TEST(GasTableText, AlignsChineseByItsWidth) {
  EXPECT_THAT(DrawTable({{"气体", "V", "结果"}, {"N2", "10.5", "ok"}}),
              testing::ElementsAre("气体     V  结果", "N2    10.5  ok"));
}

// --- the program ---

class GasCommands : public TProgramTest {
 protected:
  int Gas(const std::string& arguments) {
    const TRun run = Ixocut("gas " + arguments + " --state st");
    FOut = run.All();
    return run.ExitCode;
  }

  std::string FOut;
};

TEST_F(GasCommands, CalibrateShowDiffAndLoadWorkOnTheSameTables) {
  ASSERT_EQ(Gas("calibrate --gas O2,Air --nozzle S --size 1.5 --json --record rec.json --descend"), 0) << FOut;
  const auto json = nlohmann::json::parse(FOut)["result"];
  EXPECT_TRUE(json["success"]);
  ASSERT_EQ(json["gases"].size(), 2u);
  EXPECT_EQ(json["gases"][0]["gas"], "O2");
  EXPECT_GE(json["gases"][0]["points"].size(), 7u);
  EXPECT_EQ(json["gases"][0]["curve"][0]["bar"], 0.0);
  const auto points = nlohmann::json::parse(Read("rec.json"))["gases"][1]["points"];
  EXPECT_EQ(points.size(), 2 * json["gases"][1]["points"].size()) << "up, and once more downwards";
  EXPECT_TRUE(points.back()["descending"]);
  for (std::size_t i = points.size() / 2 + 1; i < points.size(); ++i)
    EXPECT_LT(points[i]["volt"], points[i - 1]["volt"]);

  EXPECT_EQ(Gas("show --gas O2 --json"), 0);
  EXPECT_EQ(nlohmann::json::parse(FOut)["result"]["tables"][0]["points"], json["gases"][0]["curve"]);
  EXPECT_EQ(Gas("diff --gas O2 --nozzle S --size 1.5"), 0) << FOut;
  ASSERT_EQ(Gas("calibrate --gas O2 --nozzle D --size 2 --seed 7 --lang en --plot o2.svg"), 0) << FOut;
  EXPECT_THAT(FOut, testing::AllOf(HasSubstr("All calibrations ended!"), HasSubstr("100 %"), HasSubstr("Oxygen")));
  EXPECT_THAT(Read("o2.svg"), HasSubstr("</svg>"));
  EXPECT_EQ(Gas("diff --gas O2 --nozzle S --size 1.5 --lang en"), 1) << "another run's noise";
  EXPECT_THAT(FOut, HasSubstr("differ"));
  EXPECT_EQ(Gas("load --gas O2 --nozzle S --size 1.5"), 0) << FOut;
  EXPECT_EQ(Gas("diff --gas O2 --nozzle S --size 1.5"), 0) << FOut;
  EXPECT_EQ(Gas("calibrate --gas H-O2 --nozzle S --size 1.5"), 1) << "not fitted";
  EXPECT_EQ(Gas("load --gas N2 --nozzle S --size 1.5 --lang en"), 1);
  EXPECT_THAT(FOut, HasSubstr("No calibration data found for Nitrogen (S 1.5)!"));
}

TEST_F(GasCommands, WhatIsBadOrCannotBeSavedLeavesThePreviousTable) {
  const std::string calibrate = "calibrate --gas 2 --nozzle S --size 1.5 --lang en ";
  ASSERT_EQ(Gas(calibrate + "--record rec.json"), 0) << FOut;
  EXPECT_THAT(FOut, testing::AllOf(HasSubstr("Verdict on Oxygen:"), HasSubstr("ok zero")));
  EXPECT_EQ(Gas("pressure --gas O2 --bar 9.9 --lang en"), 1);
  EXPECT_THAT(FOut, HasSubstr("beyond the reach"));
  const std::string measured = Read("st/machine.xml");
  ASSERT_EQ(Ixocut("config set GasBranches/GasBranch[2]/DAAdjustTable/Item[1]/Press 0.2 --state st").ExitCode, 0);
  EXPECT_EQ(Gas("pressure --gas O2 --bar 0.1 --lang en"), 1);
  EXPECT_THAT(FOut, HasSubstr("which begins at"));
  Write("st/machine.xml", measured);
  const auto files = [&] { return Read("st/machine.xml") + Read("st/GasCalibration.config"); };
  const std::string before = files();
  EXPECT_EQ(Gas(calibrate + "--fault gas.weak-supply"), 1) << FOut;
  EXPECT_THAT(FOut, testing::AllOf(HasSubstr("!! supply"), HasSubstr("The previous calibration is back")));
  EXPECT_EQ(Gas(calibrate + "--fault gas.negative-offset"), 1) << FOut;
  EXPECT_THAT(FOut, HasSubstr("!! zero"));
  EXPECT_EQ(Gas("diff --gas O2 --nozzle S --size 1.5"), 0) << "both are back: " << FOut;

  Write("mine.svg", "not a picture");
  for (const std::string options : {"--plot mine.svg", "--record mine.svg", "--record no/such.json"})
    EXPECT_EQ(Gas(calibrate + options), 3) << options << FOut;
  EXPECT_EQ(Read("mine.svg"), "not a picture");
  EXPECT_EQ(files(), before);
  EXPECT_EQ(Gas(calibrate + "--record rec.json --keep --fault gas.weak-supply"), 0) << FOut;
  EXPECT_NE(files(), before);

  Write("st/GasCalibration.config", "<GasCalibration><GasO2>");
  for (const std::string command : {"show", "diff --nozzle S --size 1.5", "load --nozzle S --size 1.5"}) {
    EXPECT_EQ(Gas(command + " --lang en"), 3) << command;
    EXPECT_THAT(FOut, HasSubstr("GasCalibration.config.bak"));
  }
  EXPECT_EQ(Gas(calibrate), 0) << FOut;
  EXPECT_THAT(FOut, HasSubstr("is now st/GasCalibration.config.broken: "));

  const std::string machine = Read("st/machine.xml");
  std::filesystem::remove(FDir.Path() / "st/GasCalibration.config");
  std::filesystem::create_directory(FDir.Path() / "st/GasCalibration.config");
  EXPECT_EQ(Gas(calibrate), 3) << FOut;
  EXPECT_THAT(FOut, HasSubstr("not saved"));
  const std::string message = "the calibration could not be saved (st/GasCalibration.config: ";
  const std::size_t told = FOut.find(message);
  ASSERT_NE(told, std::string::npos) << FOut;
  const std::string reason = FOut.substr(told + message.size(), 20);
  EXPECT_EQ(FOut.find("ms  st/GasCalibration.config: " + reason), std::string::npos) << "told once: " << FOut;
  EXPECT_EQ(Read("st/machine.xml"), machine);
}

TEST_F(GasCommands, AWrongCommandLineIsNamedAndDoesNothing) {
  const std::pair<const char*, const char*> rows[] = {
      {"calibrate --gas Helium --nozzle S --size 1", "\"Helium\" is no gas"},
      {"calibrate --gas O2,O2 --nozzle S --size 1", "O2 is there twice"},
      {"calibrate --gas O2 --nozzle S --size -1", "\"-1\" is no diameter"},
      {"calibrate --gas O2 --size 1", "--nozzle is required"},
      {"calibrate --gas O2 --nozzle S --size 1 --plot o2.png", "does not end in .svg"},
      {"calibrate --gas O2 --nozzle S --size 1 --descend", "--record"},
      {"calibrate --gas O2 --nozzle S --size 1 --method quick", "quick"},
      {"load --gas H-O2 --nozzle S --size 1", "not for H-O2"},
  };
  for (const auto& [arguments, message] : rows) {
    EXPECT_EQ(Gas(std::string(arguments) + " --lang en"), 2) << arguments;
    EXPECT_THAT(FOut, HasSubstr(message));
  }
  EXPECT_FALSE(std::filesystem::exists(FDir.Path() / "st" / "GasCalibration.config"));
}

}  // namespace
}  // namespace ixocamglue::test
