#include <algorithm>
#include <chrono>
#include <fstream>
#include <future>
#include <sstream>
#include <unistd.h>

#include <gtest/gtest.h>

#include "controller/process/StateFolder.h"
#include "fixture/Allocations.h"
#include "fixture/Program.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Problem.h"
#include "ixocut/Commands.h"
#include "ixocut/ControllerSettings.h"
#include "ixocut/Machines.h"
#include "ixocut/config/ConfigCommand.h"

namespace ixocamglue::test {
using namespace ixocontroller;
using namespace ixocut;
namespace {

namespace fs = std::filesystem;

class ConfigCommand : public TProgramTest {
 protected:
  ConfigCommand() { fs::copy_file(ShareFolder() / "machines/machine.xml", File); }

  std::string Bytes() const { return Read("machine.xml"); }
  void Replace(std::string_view from, std::string_view to) const {
    std::string text = Bytes();
    const auto at = text.find(from);
    ASSERT_NE(at, std::string::npos) << from;
    std::ofstream(File, std::ios::binary) << text.replace(at, from.size(), to);
  }
  int Check(bool all = false) {
    Out.str({});
    return RunConfigCheck(File, all, Console);
  }
  // With what ended the command in Why.
  template <class Run>
  int ExitCode(Run run) {
    Why.clear();
    try {
      return run();
    } catch (const EProblem& e) {
      Why = e.what();
      return ExitCodeOf(e.Blame);
    }
  }
  int Set(const std::string& path, const std::string& value, bool force = false) {
    return ExitCode([&] { return RunConfigSet(File, path, value, force, Console); });
  }
  int Info() {
    TControllerSettings settings;
    settings.Machine = File;
    return RunInfo(settings, Console);
  }

  // The exit code of the program itself on this file.
  int Program(const std::string& arguments) const {
    return Ixocut(arguments + " --machine '" + File.string() + "' --state .").ExitCode;
  }

  const fs::path File = FDir.Path() / "machine.xml";
  std::ostringstream Out;
  TConsole Console{Out, "config", {.Language = "en"}};
  std::string Why;
};

TEST_F(ConfigCommand, TheExampleIsCompleteAndASaveOfItWritesNothing) {
  EXPECT_EQ(Check(), 0) << Out.str();
  const std::string before = Bytes();
  EXPECT_EQ(Set("autocleanhead/cleancount", "3"), 0);
  EXPECT_EQ(Bytes(), before);
}

TEST_F(ConfigCommand, CheckNamesEachFaultWithItsPlace) {
  const struct {
    const char *From, *To, *Text;
  } cases[] = {
      {"<AutoCailEnabled>False</AutoCailEnabled>", "<AutoCalEnabled>False</AutoCalEnabled>",
       "FloatCalibration/AutoCalEnabled: unknown name; did you mean AutoCailEnabled?"},
      {"<Blanking ", "<Blankin ", "Blankin: unknown section; did you mean Blanking?"},
      {"PosX=\"200\"", "PosX=\"200mm\"",
       "MaintainCutHead/PosX: \"200mm\" is no Double; the default 0 is in force (X of the place where"},
      {"<CaliResults2 MaxCnt=\"20\"", "<CaliResults2 MaxCnt=\"0\"",
       "Follower/CaliResults2/MaxCnt: \"0\" is outside 1..1000; the default 20 is in force"},
      {"<CleanCount>3</CleanCount>", "<CleanCount>3</CleanCount><CleanCount>4</CleanCount>",
       "AutoCleanHead/CleanCount[2]: is there already"},
      {"<CloudCut ", "<CloudCut/><CloudCut ", "there already"},
      {"Row=\"0\" Col=\"1\"", "Row=\"0\" Col=\"7\"",
       "7 is outside the grid (ColCount is 2, and the file counts from 0)"},
      {"<XPositiveRange>3050<", "<XPositiveRange>3049.9<",
       "StrokeMeasurement/XPositiveRange: \"3049.9\", 3049.9 mm was"},
      {"StepMs=\"1000\"", "StepMs=\"5\"",
       "Supervisor/StepMs: \"5\", outside 20 to 60000 ms; the default 1000 is in force"},
      {"MoveLimitMs=\"600000\"", "MoveLimitMs=\"99\"",
       "Supervisor/MoveLimitMs: \"99\", outside 100 to 86400000 ms; the default 600000 is in force"},
      {"EmissionJitterMs=", "EmisionJitterMs=", "unknown name; did you mean EmissionJitterMs?"},
      {"HighJogSpeed=\"200\"", "HighJogSped=\"200\"", "JogXY/HighJogSped: unknown name; did you mean HighJogSpeed?"},
      {"KeyDef14=\"5\"", "KeyDef14=\"five\"", "KeyDefinition/KeyDef14: \"five\" is no Integer"},
      {"MaxSpeed=\"300\"", "MaxSpeed=\"0\"", "Axes/Axis[3]/MaxSpeed: \"0\", outside 0.1 to 100000 mm/s"},
      {"GasType=\"6\" Name=\"H-N2\"", "GasType=\"3\" Name=\"H-N2\"",
       "GasBranches/GasBranch[4]/GasType: \"3\", given twice"},
      // What only another value makes wrong.
      {"Name=\"H-N2\" Value=\"6\"", "Name=\"H-N2\" Value=\"5\"", "GasList/Gas[4]/Value: \"5\", not one of 1 to 3, 6"},
      {"Name=\"N2\" Value=\"3\"", "Name=\"N2\" Value=\"three\"", "GasList/Gas[3]/Value: \"three\", not a whole number"},
      {"XAxis=\"1\"", "XAxis=\"5\"", "Gantry/XAxis: \"5\", there are 4 axes"},
      {"<TcpPort>502<", "<TcpPort>70000<", "DataTransConfig/TcpPort: \"70000\", outside 1 to 65535"},
      {"<CommSettings>9600,n,8,1<", "<CommSettings>9600,n,8<", "CommSettings: four fields are needed"},
      {"<CleanCurveLength>40<", "<CleanCurveLength>400<",
       "AutoCleanHead/CleanRefPtX: \"3010\", the way over the brush leads from 2810 to 3210 mm"},
      {"Row=\"1\" Col=\"1\" X=\"3030\"", "Row=\"1\" Col=\"0\" X=\"3030\"",
       "PosItem[4]/Row: row 2, column 1 (counted from 1) is the cell of NozzleChange/"},
      {"<ZDis>20<", "<ZDis>80<", "PosItem[1]/Z: \"70\", with ZDis the head would have to go to Z -10 mm"},
      {"Name=\"H-N2\" DAPort=\"36\"", "Name=\"H-N2\" DAPort=\"34\"",
       "GasBranch[4]/DAPort: \"34\", given by GasBranches/GasBranch[2] already"},
      {"PosRow=\"1\" PosCol=\"0\"", "PosRow=\"2\" PosCol=\"0\"",
       "PosRow: \"2\", the rack has no such slot (RowCount is 2, and"},
      {"<NozzleItem ID=\"3\" Name=\"S", "<NozzleItem ID=\"2\" Name=\"S",
       "NozzleItem[3]/ID: \"2\", given by NozzleChange/NozzleItems/"},
      {"<InstallID>2<", "<InstallID>7<", "NozzleChange/InstallID: \"7\", the machine has no such nozzle"},
      {"LastUCSOrg=\"0\"", "LastUCSOrg=\"3\"", "UCSOrgName/LastUCSOrg: \"3\", there are 3 coordinate origins"},
      {"<UserAlarm Number=\"2\" Description=\"割", "<UserAlarm Number=\"1\" Description=\"割",
       "Alarms/UserAlarm[2]/Number: \"1\", given by Alarms/UserAlarm[1]"},
      {"<Item Value=\"3\"", "<Item Value=\"4\"", "Item[3]/Value: \"4\", 2 bits never read more than 3"},
  };
  const std::string whole = Bytes();
  for (const auto& c : cases) {
    std::ofstream(File, std::ios::binary) << whole;
    Replace(c.From, c.To);
    EXPECT_EQ(Check(), 1) << c.To;
    EXPECT_NE(Out.str().find(c.Text), std::string::npos) << Out.str();
    // The line is the one that was changed, or that of the value which it made wrong.
    const std::string text = Bytes();
    const std::string_view wrong = std::string_view(c.To).starts_with("<CleanCurve") ? "<CleanRefPtX>"
                                   : std::string_view(c.To).starts_with("<ZDis")     ? "<PosItem "
                                                                                     : std::string_view(c.To);
    const auto line = std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(text.find(wrong)), '\n') + 1;
    EXPECT_NE(Out.str().find(File.string() + Format(":%td:", line)), std::string::npos) << Out.str();
  }
  // An item that is not used is not judged either.
  std::ofstream(File, std::ios::binary) << whole;
  Replace("Row=\"1\" Col=\"1\" X=\"3030\" Y=\"770\" Z=\"70\"", "Row=\"1\" Col=\"9\" X=\"3030\" Y=\"770\" Z=\"10\"");
  EXPECT_EQ(Check(), 1);
  EXPECT_EQ(Out.str().find("ZDis"), std::string::npos) << Out.str();
  std::ofstream(File, std::ios::binary) << whole;
  Replace("<ScanCode ", "<SomethingElse/><ScanCode ");
  EXPECT_EQ(Check(), 0);
  EXPECT_EQ(Out.str().find("SomethingElse"), std::string::npos);
  EXPECT_EQ(Check(true), 0);
  EXPECT_NE(Out.str().find("SomethingElse: unknown section"), std::string::npos);
}

TEST_F(ConfigCommand, AValueOfTheSupervisorThatIsAbsentOrTooShortHasItsDefault) {
  EXPECT_EQ(Check(), 0);
  EXPECT_EQ(Out.str().find("default"), std::string::npos) << Out.str();
  Replace("FollowerLimitMs=\"60000\"", "");
  for (const auto& [from, to] : {std::pair{"CalibrationLimitMs=\"60000\"", "CalibrationLimitMs=\"99\""},
                                 {"BusyLimitMs=\"600000\"", "BusyLimitMs=\"500\""},
                                 {"HeartbeatLimitMs=\"1000\"", "HeartbeatLimitMs=\"150\""},
                                 {"StepMs=\"1000\"", "StepMs=\"-5\""}})
    Replace(from, to);
  EXPECT_EQ(Check(), 1);
  EXPECT_NE(Out.str().find("Supervisor: not given, the default is in force: FollowerLimitMs 60000\n"),
            std::string::npos)
      << Out.str();
  EXPECT_EQ(Program("run delay --ms 200"), 0);  // no reason to refuse the machine
  TMachineFile machine(Machines());
  machine.Load(File);
  TSupervisorConfig limits;
  machine.Config().Section("Supervisor").Load(limits);
  limits = limits.InForce();
  EXPECT_EQ(limits.CalibrationLimitMs, 60'000);
  EXPECT_EQ(limits.BusyLimitMs, 600'000);
  EXPECT_EQ(limits.HeartbeatLimitMs, 1000);
  EXPECT_EQ(limits.StepMs, 1000);
  EXPECT_EQ(Set("Supervisor/StepMs", "10"), 2);
}

TEST_F(ConfigCommand, EachPropertyHasItsSentenceInBothLanguagesAndEachNumberItsRange) {
  std::ifstream in(ShareFolder() / "locale/zh.json");
  const auto chinese = nlohmann::json::parse(in).at("Messages");
  TMachineFile machine(Machines());
  const auto schema = ViewProperties(machine.Config(), true);
  EXPECT_GT(schema.size(), 400u);
  for (const TPropertyView& view : schema) {
    ASSERT_TRUE(view.Facts.Text) << view.Path;
    EXPECT_GT(view.Text().size(), 15u) << view.Path;
    EXPECT_TRUE(chinese.contains(view.Text())) << view.Path;
    EXPECT_EQ(view.RangeText().empty(), view.Type == "string" ? view.Facts.Bound.Kind == bkAny : view.Type == "Boolean")
        << view.Path;
  }
}

TEST_F(ConfigCommand, AWrongPathIsRefusedWithWhatWasMeantAndASectionWithWhatItHolds) {
  const std::pair<const char*, const char*> cases[] = {
      {"FloatCalibration", "\"FloatCalibration\" is a section; it holds AutoCailEnabled, AdjustCapPermitHeight, "},
      {"MarkPoints", "is a section; it holds MarkPoint[1]/, MarkPoint[2]/"},
      {"AutoCleanHead/CleanCoun", "is no property of the configuration; did you mean AutoCleanHead/CleanCount?"},
      {"cleancount", "did you mean AutoCleanHead/CleanCount?"},
      {"CleanCoumt", "did you mean AutoCleanHead/CleanCount?"},
      {"Blankin/PosX", "did you mean Blanking/PosX?"},
      {"MarkPoints/MarkPoint[3]/Enabled", "there is no MarkPoints/MarkPoint[3]: the list has 2, counted from 1"},
      {"", "is no property of the configuration; \"ixocut config schema\" lists"},
  };
  for (const auto& [path, text] : cases) {
    EXPECT_EQ(ExitCode([&, wrong = path] { return RunConfigGet(File, wrong, Console); }), 2) << path;
    EXPECT_NE(Why.find(text), std::string::npos) << Why;
    EXPECT_EQ(Set(path, "1"), 2) << path;
    EXPECT_NE(Why.find(text), std::string::npos) << Why;
  }
  EXPECT_EQ(ExitCode([&] { return RunConfigShow(File, "NozzelChange", Console); }), 2);
  EXPECT_NE(Why.find("did you mean NozzleChange?"), std::string::npos) << Why;
}

TEST_F(ConfigCommand, WhatTheFileHasWrongIsToldBesideTheValueThatIsInForce) {
  Replace("<CleanCount>3<", "<CleanCount>three<");
  Replace("DAPort=\"34\"", "DAPort=\"x\"");
  testing::internal::CaptureStderr();
  EXPECT_EQ(RunConfigGet(File, "AutoCleanHead/CleanSpeed", Console), 0);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  testing::internal::CaptureStderr();
  EXPECT_EQ(RunConfigGet(File, "AutoCleanHead/CleanCount", Console), 0);
  EXPECT_EQ(Out.str(), "150\n0\n");
  EXPECT_EQ(Info(), 0);
  const std::string told = testing::internal::GetCapturedStderr();
  EXPECT_NE(told.find("AutoCleanHead/CleanCount: \"three\" is no Integer; the default 0 is in force"),
            std::string::npos)
      << told;
  EXPECT_NE(told.find("GasBranches/GasBranch[2]/DAPort: \"x\" is no Integer"), std::string::npos) << told;
}

TEST_F(ConfigCommand, ABranchThatStatesNoLimitOrZeroHas16BarEverywhereAndItsFileStays) {
  Replace(" MaxPressure=\"12\"", "");                  // Air
  Replace("MaxPressure=\"10\"", "MaxPressure=\"0\"");  // O2
  const std::string before = Bytes();
  EXPECT_EQ(Check(), 0) << Out.str();
  for (const char* const gas : {"Air", "O2"}) {
    EXPECT_EQ(Program(Format("gas pressure --gas %s --bar 16.1", gas)), 2) << gas;
    EXPECT_EQ(Program(Format("gas pressure --gas %s --bar 16", gas)), 1) << gas;  // no table is in use
  }
  const TRun english =
      Ixocut("gas pressure --gas O2 --bar 99 --state . --machine '" + File.string() + "'", "IXOCUT_LANG=en");
  EXPECT_NE(english.Err.find("the branch of Oxygen"), std::string::npos) << english.Err;
  for (const char* const branch : {"2", "1"}) {
    EXPECT_EQ(Set("AutoCleanHead/CleanGasBranch", branch), 0);
    EXPECT_EQ(Set("AutoCleanHead/CleanGasPressure", "16.1"), 2);
    EXPECT_EQ(Set("AutoCleanHead/CleanGasPressure", "16"), 0);
  }
  EXPECT_EQ(Set("AutoCleanHead/CleanGasPressure", "2.5"), 0);
  EXPECT_EQ(Bytes(), before);
}

TEST_F(ConfigCommand, AValueThatAnotherSectionBoundsIsHeldToItByCheckAndSetAndStillLoads) {
  const struct {
    const char *Path, *Good, *Bad, *Text;
  } cases[] = {
      {"AutoCleanHead/CleanReturnXPos", "3050", "3050.5", "outside 0 to 3050"},
      {"MaintainCutHead/Focus", "-25", "-26", "outside -25 to 20"},
      {"FloatCalibration/PosZ", "120", "121", "outside 0 to 120"},
      {"NozzleChange/OutCapOpen", "0", "10", "not one of 0 to 9"},
      {"NozzleChange/InCapOpenOK/Port", "14", "10", "not one of 0 to 9, 11 to 14"},
      {"NozzleChange/NozzlePosItems/PosItem[4]/Y", "1530", "1531", "outside 0 to 1530"},
      {"AutoCleanHead/CleanGasPressure", "12", "12.5", "outside 0 to 12"},
      {"AutoCleanHead/CleanGasBranch", "6", "4", "not one of 0 to 3, 6"},
      {"JogZ[1]/HighJogSpeed", "300", "301", "outside 0 to 300"},
      {"Simulator/PlateZ", "120", "121", "outside 0 to 120 mm (Z at which the nozzle would touch"},
      {"ModbusStore/DataTransConfig/TcpPort", "65535", "65536", "outside 1 to 65535"},
      {"NozzleChange/UninstallID", "3", "4", "the machine has no such nozzle"},
      {"IxoCutParams/ClientWork/AutoCleanHeadConfig/PresetPierceCount", "0", "-1", "below 0"},
      {"Slaves/Slave[1]/DACount", "32", "33", "outside 0 to 32"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(Set(c.Path, c.Good), 0) << c.Path;
    EXPECT_EQ(Check(), 0) << Out.str();
    EXPECT_EQ(Set(c.Path, c.Bad), 2) << c.Path;
    EXPECT_NE(Why.find(Format("\"%s\", %s", c.Bad, c.Text)), std::string::npos) << Why;
    EXPECT_EQ(Set(c.Path, c.Bad, true), 0) << c.Path;
    EXPECT_EQ(Check(), 1) << c.Path;
    EXPECT_NE(Out.str().find(Format("\"%s\", %s", c.Bad, c.Text)), std::string::npos) << Out.str();
    Out.str({});
    EXPECT_EQ(RunConfigGet(File, c.Path, Console), 0);
    EXPECT_EQ(Out.str(), std::string(c.Bad) + "\n");
    EXPECT_EQ(RunConfigRestore(File, Console), 0);
  }
}

TEST_F(ConfigCommand, WhatCannotBeDoneHasItsExitCodeAndChangesNothing) {
  const std::string before = Bytes();
  for (const auto& [path, value] : {std::pair{"AutoCleanHead/CleanCount", "x"},
                                    {"Follower/CaliResults/MaxCnt", "1001"},
                                    {"AutoCleanHead/CleanCoun", "3"},
                                    {"Healths/Health[9]/Key", "k"},
                                    {"Laser/EmissionOnDelay", "-1"},
                                    {"Axes/Axis[2]/MaxSpeed", "0"},
                                    {"Axes/Axis[1]/SoftLimitPos", "3000"},  // brush, slots and strokes lie beyond
                                    {"NozzleChange/NozzlePosItems/PosItem[2]/Col", "0"},
                                    {"NozzleChange/NozzlePosItems/RowCount", "1"},
                                    {"DHMode", "3"},
                                    {"UCSOrgName/UCSName1", "a\x0B"},
                                    {"NozzleChange/NozzlePosItems/PosItem[1]/Row", "1"},
                                    {"", ""}})
    EXPECT_EQ(Set(path, value), 2) << path;
  EXPECT_EQ(ExitCode([&] { return RunConfigGet(File, "Laser/Absent", Console); }), 2);
  EXPECT_EQ(ExitCode([&] { return RunConfigRestore(File, Console); }), 3);
  EXPECT_EQ(Bytes(), before);
  EXPECT_EQ(ExitCode([&] { return RunConfigCheck(FDir.Path() / "absent.xml", false, Console); }), 3);
  std::ofstream(File) << "<MachineConfig>";
  EXPECT_EQ(Set("AutoCleanHead/CleanCount", "4"), 3);
  EXPECT_EQ(Bytes(), "<MachineConfig>");
}

// Counted in allocations: to check, load and save a file with so many unknown attributes or sections.
TEST_F(ConfigCommand, UnknownNamesCostInProportionToTheirNumber) {
  const std::string whole = Bytes();
  const auto effort = [&](int count, bool attributes) {
    std::string more = "";
    for (int i = 0; i < count; ++i) more += attributes ? Format(" u%d='1'", i) : Format("<Own%d a='1'/>\n", i);
    std::ofstream(File, std::ios::binary) << whole;
    Replace(attributes ? "<Blanking" : "<Blanking ", (attributes ? "<Blanking" + more : more + "<Blanking "));
    const std::uint64_t before = AllocationsSoFar();
    EXPECT_EQ(Check(), 0);
    EXPECT_EQ(RunConfigSet(File, "AutoCleanHead/CleanCount", "4", false, Console), 0);
    EXPECT_EQ(Bytes().size(), whole.size() + more.size());
    return AllocationsSoFar() - before;
  };
  for (const bool attributes : {true, false})
    EXPECT_LT(effort(100'000, attributes), 11 * effort(10'000, attributes)) << attributes;
}

TEST_F(ConfigCommand, WhoSetsIsToldWhoKeepsTheFile) {
  const std::string before = Bytes();
  TFileLock lock;
  ASSERT_EQ(lock.Take(File.string(), 0), lsHeld);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(Set("AutoCleanHead/CleanCount", "4"), 1);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
  EXPECT_NE(Why.find(Format("process %d", ::getpid())), std::string::npos) << Why;
  EXPECT_EQ(Bytes(), before);
  EXPECT_EQ(Program("shot --ms 100"), 0);  // it saves nothing

  // Who waited for a lock file that was replaced meanwhile holds nothing.
  const fs::path lockFile = File.string() + ".lock";
  const auto handles = [&] {
    std::error_code error;
    return std::ranges::count_if(fs::directory_iterator("/proc/self/fd"),
                                 [&](const auto& handle) { return fs::read_symlink(handle, error) == lockFile; });
  };
  auto waiting = std::async(std::launch::async, [&] { return TFileLock().Take(File.string(), 400); });
  while (handles() < 2 && waiting.wait_for(std::chrono::milliseconds(1)) != std::future_status::ready) continue;
  fs::remove(lockFile);
  TFileLock newer;
  EXPECT_EQ(newer.Take(File.string(), 0), lsHeld);
  lock.Release();
  EXPECT_EQ(waiting.get(), lsBusy);
  newer.Release();
  EXPECT_EQ(RunConfigSet(File, "AutoCleanHead/CleanCount", "4", false, Console), 0);
}

TEST_F(ConfigCommand, AValueThatWasSetIsShownDiffersAndComesBack) {
  const fs::path old = FDir.Path() / "old.xml";
  fs::copy_file(File, old);
  EXPECT_EQ(Set("UCSOrgName/UCSName7", "a \"b\""), 0);
  EXPECT_EQ(Set("Healths/Health[2]/PromptTime", "1.5"), 0);
  EXPECT_EQ(Set("JogZ[1]/HighJogSpeed", "99.9"), 0);
  Out.str({});
  EXPECT_EQ(RunConfigDiff(old, File, Console), 1);
  EXPECT_EQ(Out.str(),
            "JogZ[1]/HighJogSpeed: 100 mm/s -> 99.9 mm/s\nHealths/Health[2]/PromptTime: 250 h -> 1.5 h\n"
            "UCSOrgName/UCSName7: (missing) -> \"a \\\"b\\\"\"\n");
  Out.str({});
  TConsole json(Out, "config show", {.Json = true});
  EXPECT_EQ(RunConfigGet(File, "laser/maxpower", Console), 0);
  EXPECT_EQ(RunConfigShow(File, "ucsorgname", json), 0);
  EXPECT_TRUE(Out.str().starts_with("3000\n{\n"));
  EXPECT_NE(Out.str().find("\"UCSOrgName/UCSName7\": \"a \\\"b\\\"\""), std::string::npos);
  EXPECT_EQ(RunConfigRestore(File, Console), 0);
  EXPECT_EQ(RunConfigRestore(File, Console), 0);
  Out.str({});
  EXPECT_EQ(Info(), 0);
  EXPECT_NE(Out.str().find("6  High-pressure nitrogen  (DA port 36)"), std::string::npos) << Out.str();

  // A file that is gone comes back, and no example takes its place before.
  EXPECT_EQ(Set("AutoCleanHead/CleanCount", "4"), 0);
  EXPECT_EQ(Set("AutoCleanHead/CleanCount", "5"), 0);
  fs::remove(File);
  EXPECT_EQ(ExitCode([&] { return MachineFile({}, FDir.Path()).empty() ? 0 : 1; }), 3);
  EXPECT_NE(Why.find(File.string() + ".bak; \"ixocut config restore\" puts it back"), std::string::npos) << Why;
  EXPECT_FALSE(fs::exists(File));
  EXPECT_EQ(Program("config restore"), 0);
  fs::remove(File);
  Out.str({});
  EXPECT_EQ(RunConfigRestore(File, Console), 0);
  EXPECT_EQ(Out.str(), File.string() + ": was gone; the previous version is back\n");
  EXPECT_EQ(Set("AutoCleanHead/CleanCount", "4"), 0);
  EXPECT_EQ(Check(), 0);
}

TEST_F(ConfigCommand, AValueIsSetInAFileThatIsInUtf16) {
  std::string text = Bytes();
  text.replace(text.find("utf-8"), 5, "utf-16");
  const std::u16string units = u'\uFEFF' + fs::path(text).u16string();
  std::ofstream(File, std::ios::binary)
      .write(reinterpret_cast<const char*>(units.data()), static_cast<std::streamsize>(2 * units.size()));
  EXPECT_EQ(Check(), 0) << Out.str();
  EXPECT_EQ(Set("AutoCleanHead/CleanCount", "4"), 0) << Why;
  EXPECT_EQ(Bytes().size(), 2 * units.size());
  EXPECT_EQ(Set("Axes/Axis[1]/SoftLimitPos", "3000"), 2);
}

}  // namespace
}  // namespace ixocamglue::test
