// The program as a user meets it: the real binary, with a state folder of its own.
#include <fstream>
#include <iterator>
#include <map>
#include <regex>
#include <sstream>
#include <unistd.h>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "controller/process/StateFolder.h"
#include "fixture/Program.h"

namespace ixocamglue::test {
using namespace ixocontroller;
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

class CommandLine : public TProgramTest {
 protected:
  CommandLine() { FLanguage = "en"; }
  fs::path Copy() const { return FDir.Path() / "ixocut" / "machine.xml"; }
};

TEST_F(CommandLine, AnOperatorCanFollowAShotInBothLanguages) {
  const TRun chinese = Ixocut("shot --ms 500", "IXOCUT_LANG=zh");
  EXPECT_EQ(chinese.ExitCode, 0) << chinese.Err;
  std::size_t at = 0;
  for (const char* line : {"1/5: 开光闸\n", "2/5: 等开光闸完毕\n", "3/5: 开激光\n", "4/5: 延时\n", "5/5: 关激光\n",
                           "激光", "执行成功，用时 "}) {
    at = chinese.Out.find(line, at);
    ASSERT_NE(at, std::string::npos) << line << " is missing in:\n" << chinese.Out;
  }
  EXPECT_EQ(chinese.Out.find("FStep = "), std::string::npos) << "that belongs to --trace";
  EXPECT_THAT(Ixocut("shot --ms 500 --lang en").Out, HasSubstr("2/5: Wait until the shutter is open\n"));
  const auto speaks = [&](const char* environment, const char* options = "") {
    return Ixocut(std::string("shot --ms 500 ") + options, environment).Out.find("shutter") != std::string::npos;
  };
  EXPECT_TRUE(speaks("IXOCUT_LANG=en LC_ALL=zh_CN.UTF-8"));
  EXPECT_TRUE(speaks("IXOCUT_LANG= LC_ALL=C LC_MESSAGES=fr_FR LANG=en_GB.UTF-8"));
  EXPECT_FALSE(speaks("IXOCUT_LANG= LC_ALL=POSIX LC_MESSAGES= LANG=C.UTF-8"));
  EXPECT_FALSE(speaks("IXOCUT_LANG=en", "--lang zh"));
  EXPECT_THAT(Ixocut("shot --ms 500 --trace").Out, HasSubstr("FStep = "));
  EXPECT_THAT(Ixocut("gas study --valves 1").Out, HasSubstr(" Oxygen "));
}

TEST_F(CommandLine, HowAShotEndedIsSaidAndIsTheExitCode) {
  const auto machine = [&](const char* delayMs) {
    return " --machine " +
           Write(std::string(delayMs) + ".xml",
                 std::string("<MachineConfig><Simulator EmissionDelayMs=\"") + delayMs + "\"/></MachineConfig>")
               .string();
  };
  const struct {
    std::string Arguments;
    int ExitCode;
    const char* Outcome;
  } cases[] = {
      {"shot --ms 500", 0, "success"},
      {"shot --ms 0", 0, "success"},
      {"shot --ms 500 --stop-at 1200", 1, "stopped"},
      {"shot --ms 500 --alarm-at 1200", 1, "alarm"},
      {"shot --ms 500 --stop-at 0", 1, "stopped"},
      {"shot --ms 63000 --longest 64000", 1, "alarm"},   // the supervisor's LaserOnLimitMs
      {"shot --ms 500" + machine("20000"), 1, "alarm"},  // emission asked for and absent
      {"shot --ms 200 --realtime" + machine("100"), 0, "success"},
      {"shot --ms 5000 --realtime --stop-at 300" + machine("100"), 1, "stopped"},
  };
  for (const auto& c : cases) {
    const auto shot = Json(c.Arguments, c.ExitCode);
    EXPECT_EQ(shot.at("outcome"), c.Outcome) << c.Arguments;
    EXPECT_EQ(shot.at("execOK"), c.ExitCode == 0) << c.Arguments;
    EXPECT_EQ(shot.at("dark"), true) << c.Arguments;
  }
}

TEST_F(CommandLine, TheSameSeedGivesTheSameRunWhateverIsTraced) {
  const auto journal = [&](const char* arguments) { return Json(arguments, 0).at("journal"); };
  EXPECT_EQ(Ixocut("shot --seed 7 --json").Out, Ixocut("shot --seed 7 --json").Out);
  EXPECT_EQ(journal("shot --seed 7"), journal("shot --seed 7 --trace --lang en"));
  EXPECT_NE(journal("shot --seed 7"), journal("shot --seed 8"));
}

TEST_F(CommandLine, AWrongCommandLineIsToldInOneLineAndDoesNothing) {
  const std::pair<const char*, const char*> cases[] = {
      {"", "a command is needed"},
      {"cut", "\"cut\" is no command; did you mean run?"},
      {"bogus", "\"bogus\" is no command; the commands are serve, runs, "},
      {"modbus rea", "\"rea\" is no command; did you mean read?"},
      {"modbus", "ixocut modbus: a command is needed: read, write"},
      {"shot --bogus", "--bogus"},
      {"shot extra", "extra"},
      {"shot --ms", "--ms"},
      {"shot --ms 60001", "--ms: 60001 is not in 0..60000 ms; --longest raises the upper bound to at most 64000 ms"},
      {"shot --ms 99999999999999999999", "--ms: 99999999999999999999 is not in 0..60000 ms"},
      {"shot --ms 1.5", "--ms: \"1.5\" is not a whole number"},
      {"shot --ms 5x", "--ms: \"5x\" is not a whole number"},
      {"shot --longest 65000", "--longest: 65000 is not in 1..64000 ms"},
      {"shot --lang fr", "--lang: \"fr\" is not a known language (en, zh)"},
      {"shot --machine ''", "--machine: the name is empty"},
      {"tree", "NAME is missing; the procedures are: move-xy, "},
      {"tree nix", "\"nix\" is no procedure; the procedures are: move-xy, "},
      {"sweep --procedure nix", "--procedure: \"nix\" is no procedure"},
      {"modbus read --addr 0", "one of --tcp HOST[:PORT], --serial DEVICE and --link NAME is needed"},
      {"modbus read --tcp h --serial d --addr 0", "--tcp excludes --serial"},
      {"modbus read --tcp h", "--addr is required"},
      {"modbus read --tcp h:0 --addr 0", "--tcp h:0: the port is a number from 1 to 65535"},
      {"modbus read --tcp [::1 --addr 0", "the \"]\" is missing"},
      {"modbus read --tcp h --addr 65535 --count 2", "beyond address 65535"},
      {"modbus read --serial /dev/null,9600,x,8,1 --addr 0", "the parity is n, o, e, m or s"},
      {"modbus write --tcp h --addr 0 --values 1,70000", "\"70000\" is no such value (uint16 is 0 to 65535"},
      {"link doctor", "one of --tcp HOST[:PORT], --serial DEVICE and --link NAME is needed"},
      {"simulate plc", "one of --tcp PORT and --serial DEVICE is needed"},
  };
  for (const auto& [arguments, text] : cases) {
    const std::string said = Refusal(arguments, 2);
    EXPECT_THAT(said, HasSubstr(text)) << arguments;
    EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1) << said;
  }
  EXPECT_FALSE(fs::exists(Copy())) << "a wrong command line must leave nothing behind";
}

TEST_F(CommandLine, WithJsonEachAnswerIsOneDocumentOfItsCommand) {
  const std::string text = ReadFile(ShareFolder() / "machines" / "machine.xml").OrThrow(pbUnusable);
  Write("a.xml", text);
  Write("b.xml",
        std::regex_replace(text, std::regex("<Laser EmissionOnDelay=.5000."), "<Laser EmissionOnDelay='4000'"));
  const struct {
    const char *Command, *Arguments, *Member;
    int ExitCode = 0;
  } rows[] = {
      {"config check", "a.xml", "findings"},
      {"config get", "FloatCalibration/PosX", "value"},
      {"config set", "FloatCalibration/PosX 31.5", "value"},
      {"config restore", "", "restored"},
      {"config diff", "a.xml b.xml", "differences", 1},
      {"alarms lookup", "TPLatch#1", "known"},
      {"alarms check", "a.xml", "problems"},
      {"machine try", "input:4 --yes --pulse 50", "tries"},
      {"sweep", "--points 2 --procedure delay", "run"},
      {"shot", "--ms 100", "outcome"},
  };
  for (const auto& row : rows) {
    const TRun run = Ixocut(std::string(row.Command) + " " + row.Arguments + " --json");
    EXPECT_EQ(run.ExitCode, row.ExitCode) << row.Command << run.Err;
    const auto document = nlohmann::json::parse(run.Out);
    EXPECT_EQ(document.at("command"), row.Command);
    EXPECT_EQ(document.at("ok"), row.ExitCode == 0) << row.Command;
    EXPECT_EQ(document.at("problem").is_null(), row.ExitCode == 0) << row.Command;
    EXPECT_TRUE(document.at("result").contains(row.Member)) << run.Out;
  }
}

TEST_F(CommandLine, AMachineFileThatCannotBeUsedIsNamedWithItsPlace) {
  const std::pair<fs::path, const char*> cases[] = {
      {FDir.Path() / "absent.xml", "absent.xml: the machine file cannot be read"},
      {FDir.Path(), FDir.Path().c_str()},
      {Write("broken.xml", "<MachineConfig>\n  <Laser\n</MachineConfig>"), "broken.xml:"},
      {Write("other.xml", "<Other/>"), "\"Other\", expected \"MachineConfig\""},
      {Write("empty.xml", ""), "empty.xml"},
      {Write("range.xml", "<MachineConfig><Laser EmissionOnDelay=\"-1\"/></MachineConfig>"), "EmissionOnDelay"},
  };
  for (const auto& [file, text] : cases)
    EXPECT_THAT(Refusal("shot --machine '" + file.string() + "'", 3), HasSubstr(text)) << file;
  EXPECT_EQ(Read(FDir.Path() / "other.xml"), "<Other/>");
}

TEST_F(CommandLine, TheUsersMachineFileIsMadeOnceAndTheExampleStaysUntouched) {
  const fs::path example = ShareFolder() / "machines" / "machine.xml";
  const auto written = fs::last_write_time(example);
  EXPECT_EQ(Ixocut("shot").ExitCode, 0);
  EXPECT_EQ(Read(Copy()), Read(example));

  const std::string own = "<MachineConfig><Simulator EmissionDelayMs=\"50\"/></MachineConfig>";
  std::ofstream(Copy()) << own;
  EXPECT_EQ(Ixocut("shot").ExitCode, 0);
  EXPECT_EQ(Read(Copy()), own) << "the user's file was overwritten";
  EXPECT_EQ(fs::last_write_time(example), written);
  EXPECT_EQ(std::distance(fs::directory_iterator(Copy().parent_path()), {}), 1) << "a temporary file was left";

  EXPECT_EQ(Ixocut("shot --state '" + (FDir.Path() / "elsewhere").string() + "'").ExitCode, 0);
  EXPECT_TRUE(fs::exists(FDir.Path() / "elsewhere" / "machine.xml"));
}

TEST_F(CommandLine, AStateFolderThatCannotBeUsedIsNamed) {
  Write("file", "");
  EXPECT_THAT(Refusal("shot --state '" + (FDir.Path() / "file" / "state").string() + "'", 3),
              HasSubstr("file/state: the folder cannot be created"));
  EXPECT_THAT(Refusal("shot", 3, "IXOCUT_DATA=/nonexistent"),
              HasSubstr("/nonexistent/machines/machine.xml: the example cannot be read"));
  if (::geteuid() == 0) GTEST_SKIP() << "root may write everywhere";
  fs::create_directory(FDir.Path() / "locked");
  fs::permissions(FDir.Path() / "locked", fs::perms::owner_read | fs::perms::owner_exec);
  EXPECT_EQ(Ixocut("shot --state '" + (FDir.Path() / "locked").string() + "'").ExitCode, 3);
}

TEST_F(CommandLine, ABrokenLocaleFileIsReportedAndChineseIsShown) {
  Write("machines/machine.xml", "<MachineConfig/>");
  Write("locale/en.json", "{\"CamGlue\": ");
  const TRun run = Ixocut("shot --lang en", "IXOCUT_DATA='" + FDir.Path().string() + "'");
  EXPECT_EQ(run.ExitCode, 0) << run.Err;
  EXPECT_THAT(run.Out, HasSubstr("locale/en.json"));
  EXPECT_THAT(run.Out, HasSubstr("1/5: 开光闸"));
}

TEST_F(CommandLine, ATreeShowsCommandsClassesAndWhatIsBuiltLate) {
  const auto shot = Json("tree shot", 0).at("tree");
  EXPECT_EQ(shot.at("command"), 515);
  std::vector<int> commands;
  for (const auto& child : shot.at("children")) commands.push_back(child.at("command"));
  EXPECT_THAT(commands, testing::ElementsAre(518, 519, 520, 612, 517));
  EXPECT_EQ(shot.at("children")[3].at("parameters").at("ms"), 500);

  const TRun pierce = Ixocut("tree pierce");
  EXPECT_EQ(pierce.ExitCode, 0);
  EXPECT_THAT(pierce.Out, HasSubstr("TSmtSequence  beam  (built on entry)\n│  ├─ 518 TSmtEmissionOn"));
  EXPECT_THAT(pierce.Out, HasSubstr("pressure 1.5"));
}

// "ixocut", "ixocut shot", "ixocut gas calibrate": each command that a help page lists, and its page.
class HelpPages : public TProgramTest {
 protected:
  std::map<std::string, std::string> Pages(const std::string& language) {
    std::map<std::string, std::string> pages;
    const std::string heading = language == "en" ? "\nCommands:\n" : "\n命令:\n";
    for (std::vector<std::string> open{""}; !open.empty();) {
      const std::string command = open.back();
      open.pop_back();
      const TRun help = Ixocut(command + " --help", "IXOCUT_LANG=" + language);
      EXPECT_EQ(help.ExitCode, 0) << command;
      std::size_t at = help.Out.find(heading);
      at = at == std::string::npos ? help.Out.size() : at + heading.size();
      for (std::size_t end = 0; help.Out.substr(at, 2) == "  "; at = end + 1) {
        end = help.Out.find('\n', at);
        const std::string line = help.Out.substr(at + 2, end - at - 2);
        if (!line.starts_with(' ')) open.push_back(command + " " + line.substr(0, line.find(' ')));
      }
      pages["ixocut" + command] = help.Out;
    }
    return pages;
  }
};

TEST_F(HelpPages, EachHasExitCodesItsOwnExamplesAndTheWarning) {
  const auto pages = Pages("en");
  EXPECT_GT(pages.size(), 40U);
  for (const auto& [command, page] : pages)
    for (const std::string& part :
         {std::string("Exit codes: "), "Examples:\n  " + command, std::string("Software is not the emergency stop.")})
      EXPECT_THAT(page, HasSubstr(part)) << command;
}

TEST_F(HelpPages, EachIsOfOneLanguage) {
  const std::regex chinese("[\xe4-\xe9]"), names("^(用法: |  )ixocut .*"),
      sentence("\\b[a-z]{2,} [a-z]{2,} [a-z]{2,}\\b"), shell("<\\(ixocut [a-z ]+\\)");
  for (const auto& [command, page] : Pages("en")) EXPECT_FALSE(std::regex_search(page, chinese)) << page;
  for (const auto& [command, page] : Pages("zh")) {
    std::istringstream lines(page);
    for (std::string line; std::getline(lines, line);) {
      if (std::regex_match(line, names)) continue;
      // What a shell is to run may stand in a sentence.
      EXPECT_FALSE(std::regex_search(std::regex_replace(line, shell, ""), sentence)) << command << ": " << line;
    }
  }
}

}  // namespace
}  // namespace ixocamglue::test
