// Commissioning as a user meets it: what a machine's ports are, and each of them tried.
#include <filesystem>
#include <fstream>
#include <map>

#include <gmock/gmock.h>

#include "controller/process/StateFolder.h"
#include "fixture/ComposedFile.h"
#include "fixture/Program.h"
#include "ixocamglue/platform/xml/MachineConfig.h"

namespace ixocamglue::test {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;

class MachineCommand : public TProgramTest {
 protected:
  MachineCommand() {
    FLanguage = "en";
    WriteMachine(FDir.Path() / "composed.xml", std::string(kPointDevices) + PortDevices());
  }
};

TEST_F(MachineCommand, CheckListsEveryPortOfAMachineAndMovesNothing) {
  const auto simulated = Json("machine check --json", 0).at("ports");
  EXPECT_EQ(simulated.at(0).at("device"), "axis X");
  EXPECT_EQ(simulated.at(0).at("limits"), "0..3050 mm");
  const auto composed = Json("machine check --machine composed.xml --json", 0).at("ports");
  std::vector<std::string> devices;
  std::map<std::string, std::string> values;
  for (const auto& port : composed) {
    EXPECT_TRUE(port.at("readable").get<bool>()) << port;
    devices.push_back(port.at("device").get<std::string>() + " = " + port.at("address").get<std::string>());
    values[port.at("device")] = port.at("value");
  }
  EXPECT_THAT(devices, AllOf(Contains("laser Beam = laser:beam"), Contains("input 4 Nozzle cover open = in:4"),
                             Contains("gas 2 SetPoint = set:2"), Contains("analogue output 34 = da:34")));
  EXPECT_THAT(values.at("gas 2 Pressure"), HasSubstr(" bar"));
  EXPECT_EQ(values.at("analogue output 34"), "0.000 V");
  EXPECT_THAT(Ixocut("machine check --machine composed.xml").Out, HasSubstr("laser:confirmed"));
}

TEST_F(MachineCommand, TryDoesOnePortAfterTheOtherAndKeepsAProtocol) {
  const TRun run = Ixocut(
      "machine try x z focus input:4 output:5 gas:2 pilot --yes --pulse 50 --protocol tried.tsv "
      "--machine composed.xml");
  EXPECT_EQ(run.ExitCode, 0) << run.All();
  EXPECT_THAT(run.Out, HasSubstr("good  x: moved from 0.000 to 1.000 mm and back; 1.000, 0.000 mm"));
  const std::string protocol = Read("tried.tsv");
  for (const char* const port :
       {"\tx\t", "\tz\t", "\tfocus\t", "\tinput:4\t", "\toutput:5\t", "\tgas:2\t", "\tpilot\t"})
    EXPECT_THAT(protocol, HasSubstr(port));
  EXPECT_THAT(protocol, HasSubstr("output:5\ton for 50 ms, then off\t1, 0\tyes"));
  EXPECT_THAT(protocol, HasSubstr("pilot\ton for 50 ms, then off\t1, 0\tyes"));
  EXPECT_EQ(Ixocut("machine try x --yes --protocol tried.tsv").ExitCode, 2) << "it is not written over";
}

TEST_F(MachineCommand, TryIsRefusedWithoutATerminalAndWithoutSuchAPort) {
  const TRun unasked = Ixocut("machine try x");
  EXPECT_EQ(unasked.ExitCode, 1);
  EXPECT_THAT(unasked.Err, HasSubstr("there is no terminal"));
  EXPECT_THAT(Refusal("machine try focsu --yes", 2), HasSubstr("did you mean focus?"));
}

TEST_F(MachineCommand, GasTablesAreShownWithoutTheMachinesDevices) {
  std::filesystem::copy_file(ixocontroller::ShareFolder() / "machines" / "modbus.xml", FDir.Path() / "modbus.xml");
  const TRun shown = Ixocut("gas show --machine modbus.xml");
  EXPECT_EQ(shown.ExitCode, 1) << shown.All();
  EXPECT_THAT(shown.All(), HasSubstr("no such table"));
}

TEST_F(MachineCommand, EveryExampleIsRightAndALatchThatNobodySetsIsFound) {
  const auto folder = ixocontroller::ShareFolder() / "machines";
  for (const auto& entry : std::filesystem::directory_iterator(folder))
    if (entry.path().extension() == ".xml") {
      EXPECT_EQ(Ixocut("config check " + entry.path().string()).ExitCode, 0) << entry.path();
    }
  std::string text = ReadFile(folder / "linuxcnc-modbus.xml").OrThrow(pbUnusable);
  const auto at = text.find("<Latch ");
  ASSERT_NE(at, std::string::npos);
  text.erase(at, text.find("/>", at) + 2 - at);
  std::ofstream(FDir.Path() / "forgotten.xml") << text;
  EXPECT_THAT(Ixocut("config check forgotten.xml").All(),
              AllOf(HasSubstr("holds LinuxCNC's axes"), HasSubstr("<Latch Ok=\"linuxcnc@hal:latch\"")));
}

}  // namespace
}  // namespace ixocamglue::test
