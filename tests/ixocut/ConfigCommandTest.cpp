#include <chrono>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "controller/StateFolder.h"
#include "fixture/Allocations.h"
#include "fixture/Paths.h"
#include "fixture/TempDir.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Problem.h"
#include "ixocut/CommandLine.h"
#include "ixocut/config/ConfigCommand.h"

namespace ixocamglue::test {
using namespace ixocontroller;
using namespace ixocut;
namespace {

namespace fs = std::filesystem;

class ConfigCommand : public testing::Test {
 protected:
  ConfigCommand() { fs::copy_file(ShareFolder() / "machines/machine.xml", File); }

  std::string Bytes() const {
    std::ifstream in(File, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  void Replace(std::string_view from, std::string_view to) const {
    std::string text = Bytes();
    const auto at = text.find(from);
    ASSERT_NE(at, std::string::npos) << from;
    std::ofstream(File, std::ios::binary) << text.replace(at, from.size(), to);
  }
  int Check(bool all = false) {
    Out.str({});
    return RunConfigCheck(File, all, Out);
  }
  template <class Run>
  static int ExitCode(Run run) {
    try {
      return run();
    } catch (const EProblem& e) {
      return ExitCodeOf(e.Blame);
    }
  }

  // The exit code of the program itself on this file.
  int Ixocut(const std::string& arguments) const {
    const int status = std::system(("'" + IxocutBinary() + "' " + arguments + " --machine '" + File.string() +
                                    "' --state '" + Dir.Path().string() + "' >/dev/null 2>&1")
                                       .c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  TTempDir Dir;
  fs::path File = Dir.Path() / "machine.xml";
  std::ostringstream Out;
};

TEST_F(ConfigCommand, TheExampleIsCompleteAndASaveOfItWritesNothing) {
  EXPECT_EQ(Check(), 0) << Out.str();
  const std::string before = Bytes();
  EXPECT_EQ(RunConfigSet(File, "autocleanhead/cleancount", "3", Out), 0);
  EXPECT_EQ(Bytes(), before);
}

TEST_F(ConfigCommand, CheckNamesEachFaultWithItsPlace) {
  struct TCase {
    const char *From, *To, *Text;
  };
  const TCase cases[] = {
      {"<AutoCailEnabled>False</AutoCailEnabled>", "<AutoCalEnabled>False</AutoCalEnabled>",
       "FloatCalibration/AutoCalEnabled: unknown name; did you mean AutoCailEnabled?"},
      {"<Blanking ", "<Blankin ", "Blankin: unknown section; did you mean Blanking?"},
      {"PosX=\"200\"", "PosX=\"200mm\"", "MaintainCutHead/PosX: \"200mm\" is no Double; the default is used"},
      {"<CaliResults2 MaxCnt=\"20\"", "<CaliResults2 MaxCnt=\"0\"",
       "Follower/CaliResults2/MaxCnt: 0 is outside 1..1000"},
      {"<CleanCount>3</CleanCount>", "<CleanCount>3</CleanCount><CleanCount>4</CleanCount>",
       "AutoCleanHead/CleanCount[2]/CleanCount"},
      {"<CloudCut ", "<CloudCut/><CloudCut ", "there already"},
      {"Row=\"0\" Col=\"1\"", "Row=\"0\" Col=\"7\"", "7 is outside the grid (ColCount is 2)"},
      {"Row=\"0\" Col=\"1\"", "Row=\"0\" Col=\"00\"",
       "the cell of row 0, column 0 is NozzleChange/NozzlePosItems/PosItem[1]'s already"},
      {"<XPositiveRange>3050<", "<XPositiveRange>3049.9<", "StrokeMeasurement/XPositiveRange: 3049.9 mm was measured"},
      {"StepMs=\"1000\"", "StepMs=\"5\"", "Supervisor/StepMs: \"5\", outside 20 to 60000"},
      {"MoveLimitMs=\"600000\"", "MoveLimitMs=\"99\"", "Supervisor/MoveLimitMs: \"99\", outside 100 to 86400000"},
      {"EmissionJitterMs=", "EmisionJitterMs=", "unknown name; did you mean EmissionJitterMs?"},
      {"HighJogSpeed=\"200\"", "HighJogSped=\"200\"", "JogXY/HighJogSped: unknown name; did you mean HighJogSpeed?"},
      {"KeyDef14=\"5\"", "KeyDef14=\"five\"", "KeyDefinition/KeyDef14: \"five\" is no Integer"},
      {"MaxSpeed=\"300\"", "MaxSpeed=\"0\"", "Axes/Axis[3]/MaxSpeed: \"0\", outside 0.1 to 100000"},
      {"GasType=\"6\" Name=\"H-N2\"", "GasType=\"3\" Name=\"H-N2\"",
       "GasBranches/GasBranch[4]/GasType: \"3\", given twice"},
  };
  const std::string whole = Bytes();
  for (const TCase& c : cases) {
    std::ofstream(File, std::ios::binary) << whole;
    Replace(c.From, c.To);
    EXPECT_EQ(Check(), 1) << c.To;
    const std::string expected = std::string(c.Text).find("[2]") == std::string::npos ? c.Text : "is there already";
    EXPECT_NE(Out.str().find(expected), std::string::npos) << Out.str();
    // The line is the one that was changed.
    const std::string text = Bytes();
    const auto line = std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(text.find(c.To)), '\n') + 1;
    EXPECT_NE(Out.str().find(File.string() + Format(":%td:", line)), std::string::npos) << Out.str();
  }
  std::ofstream(File, std::ios::binary) << whole;
  Replace("<ScanCode ", "<SomethingElse/><ScanCode ");
  EXPECT_EQ(Check(), 0);
  EXPECT_EQ(Out.str().find("SomethingElse"), std::string::npos);
  EXPECT_EQ(Check(true), 0);
  EXPECT_NE(Out.str().find("SomethingElse: unknown section"), std::string::npos);
}

TEST_F(ConfigCommand, ALimitOfTheSupervisorThatIsAbsentOrTooShortHasItsDefault) {
  EXPECT_EQ(Check(), 0);
  EXPECT_EQ(Out.str().find("default"), std::string::npos) << Out.str();
  Replace("FollowerLimitMs=\"60000\"", "");
  Replace("CalibrationLimitMs=\"60000\"", "CalibrationLimitMs=\"99\"");
  EXPECT_EQ(Check(), 1);
  EXPECT_NE(Out.str().find("Supervisor: not given, the default is in force: FollowerLimitMs 60000\n"),
            std::string::npos)
      << Out.str();
  EXPECT_EQ(Ixocut("run delay --ms 200"), 0);  // no reason to refuse the machine
}

TEST_F(ConfigCommand, ABranchThatStatesNoLimitOrZeroHas16BarEverywhereAndItsFileStays) {
  Replace(" MaxPressure=\"12\"", "");                  // Air
  Replace("MaxPressure=\"10\"", "MaxPressure=\"0\"");  // O2
  const std::string before = Bytes();
  EXPECT_EQ(Check(), 0) << Out.str();
  for (const char* const gas : {"Air", "O2"}) {
    EXPECT_EQ(Ixocut(Format("gas pressure --gas %s --bar 16.1", gas)), 2) << gas;
    EXPECT_EQ(Ixocut(Format("gas pressure --gas %s --bar 16", gas)), 1) << gas;  // no table is in use
  }
  for (const char* const branch : {"2", "1"}) {
    EXPECT_EQ(RunConfigSet(File, "AutoCleanHead/CleanGasBranch", branch, Out), 0);
    EXPECT_EQ(ExitCode([&] { return RunConfigSet(File, "AutoCleanHead/CleanGasPressure", "16.1", Out); }), 2);
    EXPECT_EQ(RunConfigSet(File, "AutoCleanHead/CleanGasPressure", "16", Out), 0);
  }
  EXPECT_EQ(RunConfigSet(File, "AutoCleanHead/CleanGasPressure", "2.5", Out), 0);
  EXPECT_EQ(Bytes(), before);
}

TEST_F(ConfigCommand, AValueThatAnotherSectionBoundsIsHeldToItByCheckAndSetAndStillLoads) {
  struct TCase {
    const char *Path, *Good, *Bad, *Text;
  };
  const TCase cases[] = {
      {"AutoCleanHead/CleanRefPtX", "3050", "3050.5", "outside 0 to 3050"},
      {"MaintainCutHead/Focus", "-25", "-26", "outside -25 to 20"},
      {"FloatCalibration/PosZ", "120", "121", "outside 0 to 120"},
      {"NozzleChange/OutCapOpen", "0", "10", "not one of 0 to 9"},
      {"NozzleChange/InCapOpenOK/Port", "14", "10", "not one of 0 to 9, 11 to 14"},
      {"NozzleChange/NozzlePosItems/PosItem[4]/Y", "1530", "1531", "outside 0 to 1530"},
      {"AutoCleanHead/CleanGasPressure", "12", "12.5", "outside 0 to 12"},
      {"AutoCleanHead/CleanGasBranch", "6", "4", "not one of 0 to 3, 6"},
      {"JogZ[1]/HighJogSpeed", "300", "301", "outside 0 to 300"},
      {"Simulator/PlateZ", "120", "121", "outside 0 to 120"},
      {"Slaves/Slave[1]/DACount", "32", "33", "outside 0 to 32"},
  };
  for (const TCase& c : cases) {
    EXPECT_EQ(RunConfigSet(File, c.Path, c.Good, Out), 0) << c.Path;
    EXPECT_EQ(Check(), 0) << Out.str();
    EXPECT_EQ(ExitCode([&] { return RunConfigSet(File, c.Path, c.Bad, Out); }), 2) << c.Path;
    {
      TMachineFile machine;
      machine.Load(File);
      ASSERT_TRUE(SetProperty(machine.Config(), c.Path, c.Bad));
      ASSERT_TRUE(machine.Config().Save());
    }
    EXPECT_EQ(Check(), 1) << c.Path;
    EXPECT_NE(Out.str().find(Format("\"%s\", %s\n", c.Bad, c.Text)), std::string::npos) << Out.str();
    Out.str({});
    EXPECT_EQ(RunConfigGet(File, c.Path, Out), 0);
    EXPECT_EQ(Out.str(), std::string(c.Bad) + "\n");
    EXPECT_EQ(RunConfigRestore(File, Out), 0);
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
                                    {"DHMode", "3"},
                                    {"UCSOrgName/UCSName1", "a\x0B"},
                                    {"NozzleChange/NozzlePosItems/PosItem[1]/Row", "1"},
                                    {"", ""}})
    EXPECT_EQ(ExitCode([&, p = path, v = value] { return RunConfigSet(File, p, v, Out); }), 2) << path;
  EXPECT_EQ(ExitCode([&] { return RunConfigGet(File, "Laser/Absent", Out); }), 2);
  EXPECT_EQ(ExitCode([&] { return RunConfigRestore(File, Out); }), 3);
  EXPECT_EQ(Bytes(), before);
  EXPECT_EQ(ExitCode([&] { return RunConfigCheck(Dir.Path() / "absent.xml", false, Out); }), 3);
  std::ofstream(File) << "<MachineConfig>";
  EXPECT_EQ(ExitCode([&] { return RunConfigSet(File, "AutoCleanHead/CleanCount", "4", Out); }), 3);
  EXPECT_EQ(Bytes(), "<MachineConfig>");
}

TEST_F(ConfigCommand, ACutFileIsNamedWithItsPlaceAndNeverSaved) {
  const std::string whole = Bytes();
  for (std::size_t size = 0; size < whole.size() - 1; size += 97) {
    std::ofstream(File, std::ios::binary) << whole.substr(0, size);
    TMachineFile machine;
    EXPECT_TRUE(machine.Config().Load(File).Problem().Text().starts_with(File.string() + ":")) << size;
    EXPECT_FALSE(machine.Config().Save());
    EXPECT_EQ(Bytes().size(), size);
  }
}

// What it takes to check, load and save a file with this many unknown attributes or sections.
struct TEffort {
  std::uint64_t Allocations;
  double Seconds;
};

TEST_F(ConfigCommand, UnknownNamesCostInProportionToTheirNumber) {
  const std::string whole = Bytes();
  const auto effort = [&](int count, bool attributes) {
    std::string more = "";
    for (int i = 0; i < count; ++i) more += attributes ? Format(" u%d='1'", i) : Format("<Own%d a='1'/>\n", i);
    std::ofstream(File, std::ios::binary) << whole;
    Replace(attributes ? "<Blanking" : "<Blanking ", (attributes ? "<Blanking" + more : more + "<Blanking "));
    const auto start = std::chrono::steady_clock::now();
    const std::uint64_t before = AllocationsSoFar();
    EXPECT_EQ(Check(), 0);
    EXPECT_EQ(RunConfigSet(File, "AutoCleanHead/CleanCount", "4", Out), 0);
    EXPECT_EQ(Bytes().size(), whole.size() + more.size());
    return TEffort{AllocationsSoFar() - before,
                   std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count()};
  };
  for (const bool attributes : {true, false}) {
    const TEffort few = effort(10'000, attributes);
    TEffort many = effort(100'000, attributes);
    EXPECT_LT(many.Allocations, 11 * few.Allocations) << attributes;
    if (many.Seconds > 3.0) many = effort(100'000, attributes);
    EXPECT_LT(many.Seconds, 3.0) << attributes;  // at most 1 s
  }
}

TEST_F(ConfigCommand, WhoSetsIsToldWhoKeepsTheFile) {
  const std::string before = Bytes();
  TFileLock lock;
  ASSERT_EQ(lock.Take(File.string(), 0), lsHeld);
  std::string why;
  const auto start = std::chrono::steady_clock::now();
  try {
    (void)RunConfigSet(File, "AutoCleanHead/CleanCount", "4", Out);
  } catch (const EProblem& e) {
    EXPECT_EQ(ExitCodeOf(e.Blame), 1);
    why = e.what();
  }
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
  EXPECT_NE(why.find(Format("process %d", ::getpid())), std::string::npos) << why;
  EXPECT_EQ(Bytes(), before);
  EXPECT_EQ(Ixocut("shot --ms 100"), 0);  // it saves nothing
  lock.Release();
  EXPECT_EQ(RunConfigSet(File, "AutoCleanHead/CleanCount", "4", Out), 0);
}

TEST_F(ConfigCommand, AValueThatWasSetIsShownDiffersAndComesBack) {
  const fs::path old = Dir.Path() / "old.xml";
  fs::copy_file(File, old);
  EXPECT_EQ(RunConfigSet(File, "UCSOrgName/UCSName7", "a \"b\"", Out), 0);
  EXPECT_EQ(RunConfigSet(File, "Healths/Health[2]/PromptTime", "1.5", Out), 0);
  EXPECT_EQ(RunConfigSet(File, "JogZ[1]/HighJogSpeed", "99.9", Out), 0);
  Out.str({});
  EXPECT_EQ(RunConfigDiff(old, File, Out), 1);
  EXPECT_EQ(Out.str(),
            "JogZ[1]/HighJogSpeed: 100 -> 99.9\nHealths/Health[2]/PromptTime: 250 -> 1.5\nUCSOrgName/UCSName7: "
            "(missing) -> \"a \\\"b\\\"\"\n");
  Out.str({});
  EXPECT_EQ(RunConfigGet(File, "laser/maxpower", Out), 0);
  EXPECT_EQ(RunConfigShow(File, "ucsorgname", true, Out), 0);
  EXPECT_TRUE(Out.str().starts_with("3000\n{\n"));
  EXPECT_NE(Out.str().find("\"UCSOrgName/UCSName7\": \"a \\\"b\\\"\""), std::string::npos);
  EXPECT_EQ(RunConfigRestore(File, Out), 0);
  EXPECT_EQ(RunConfigRestore(File, Out), 0);
  Out.str({});
  EXPECT_EQ(RunInfo(File, "en", false, Out), 0);
  EXPECT_NE(Out.str().find("6  High-pressure nitrogen  (DA port 36)"), std::string::npos) << Out.str();
}

}  // namespace
}  // namespace ixocamglue::test
