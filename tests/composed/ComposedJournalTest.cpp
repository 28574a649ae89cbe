// A machine that is put together of the simulated one's devices tells the same story as the simulated machine.
#include <gtest/gtest.h>

#include "controller/gas/GasCalibration.h"
#include "controller/procedures/Procedures.h"
#include "controller/runs/ProcedureRun.h"
#include "fixture/ComposedFile.h"
#include "fixture/Faults.h"
#include "fixture/TempDir.h"
#include "ixocamglue/support/ValueText.h"
#include "machines/composed/Machine.h"
#include "machines/simulated/Driver.h"
#include "machines/simulated/Machine.h"

namespace ixocamglue::test {
namespace {

using namespace ixocontroller;
struct TStory {
  TTexts Commands, Lines, Signals;
  std::string End;
};

class ComposedJournal : public testing::Test {
 protected:
  TControllerOptions Options(const std::string& devices) {
    return {.Machines = {SimulatedMachine(), ComposedMachine({SimulatedDriver()})},
            .MachineFile = WriteMachine(FDir.Path() / "machine.xml", devices),
            .LocaleFolder = ShareFolder() / "locale",
            .Language = "en"};
  }
  static TStory Told(TController& controller) {
    TStory story;
    for (const TJournalEntry& entry : controller.Journal().Entries()) {
      story.Lines.push_back(entry.Line());
      if (entry.IsCommand()) story.Commands.push_back(entry.Line().substr(9));
    }
    story.Signals = controller.Journal().Signals().Texts();
    return story;
  }
  TStory Run(const std::string& devices, const char* procedure) {
    const TProcedure* const row = FindProcedure(procedure);
    TProcedureRun run(Options(devices));
    const auto make = [&] { return TMotionCall{row, row->SampleValues(), {}}.Make(nullptr); };
    const TRunReport report = run.Run(make, 300'000);
    TStory story = Told(run.Controller());
    story.End = report.Success() ? "success" : report.Path + " " + report.Fault + " " + report.Cause;
    if (report.Problem) story.End += report.Problem->Text();
    return story;
  }
  // The gas's table after its calibration.
  TTexts Calibrate(const std::string& devices, TStory& story) {
    TControllerOptions options = Options(devices);
    options.SavesMachineFile = true;
    TController controller(options);
    controller.RunFor(100);
    TGasCalibration calibration(controller, {2}, {"S", 1.5});
    calibration.Start().OrThrow(pbRefused);
    calibration.RunToEnd();
    story = Told(controller);
    TTexts table;
    const TDAAdjustTable& items = MachineConfig()->GetGasBranch(2)->DAAdjustTable;
    for (std::int32_t i = 0; i < items.GetCount(); ++i)
      table.push_back(ValueText(items.GetItem(i)->Press) + " " + ValueText(items.GetItem(i)->Volt));
    return table;
  }

  TTempDir FDir;
  TFaultWatch Faults;
};

constexpr const char* kProcedures[] = {"shot",           "safe-move", "square", "change-nozzle", "clean-nozzle-manual",
                                       "auto-calibrate", "cover"};

TEST_F(ComposedJournal, OfTheSimulatedDevicesIsTheSimulatedMachinesLineByLine) {
  for (const char* const procedure : kProcedures) {
    SCOPED_TRACE(procedure);
    const TStory simulated = Run({}, procedure);
    const TStory composed = Run(std::string(kOwnDevices) + PortDevices(), procedure);
    EXPECT_EQ(simulated.End, "success");
    EXPECT_EQ(composed.End, simulated.End);
    EXPECT_EQ(composed.Lines, simulated.Lines);
    EXPECT_EQ(composed.Signals, simulated.Signals);
  }
}

TEST_F(ComposedJournal, OfALaserAndAGasOfPointsHasTheSameCommandsAndSignals) {
  for (const char* const procedure : kProcedures) {
    SCOPED_TRACE(procedure);
    const TStory simulated = Run({}, procedure);
    const TStory composed = Run(std::string(kPointDevices) + PortDevices(), procedure);
    EXPECT_EQ(composed.End, simulated.End);
    EXPECT_EQ(composed.Commands, simulated.Commands);
    EXPECT_EQ(composed.Signals, simulated.Signals);
  }
}

TEST_F(ComposedJournal, AGasCalibrationGivesTheSameTable) {
  TStory simulated, own, points;
  const TTexts table = Calibrate({}, simulated);
  ASSERT_GT(table.size(), 3U);
  EXPECT_EQ(Calibrate(std::string(kOwnDevices) + PortDevices(), own), table);
  EXPECT_EQ(own.Lines, simulated.Lines);
  EXPECT_EQ(Calibrate(std::string(kPointDevices) + PortDevices(), points).size(), table.size());
  EXPECT_EQ(points.Commands, simulated.Commands);
}

}  // namespace
}  // namespace ixocamglue::test
