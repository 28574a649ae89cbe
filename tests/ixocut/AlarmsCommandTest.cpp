// `ixocut alarms` as a user meets it, and a live machine that is killed in mid-run.
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "fixture/Paths.h"
#include "fixture/Program.h"
#include "ixocamglue/alarms/store/AlarmHistory.h"

namespace ixocamglue::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

class AlarmsCommand : public TProgramTest {
 protected:
  // Exit code and output, errors behind it.
  std::pair<int, std::string> Program(const std::string& arguments) {
    const TRun run = Ixocut(arguments);
    return {run.ExitCode, run.All()};
  }
  std::pair<int, std::string> Alarms(const std::string& arguments) { return Program("alarms " + arguments); }
  nlohmann::json List(const std::string& arguments) {
    const auto [code, text] = Alarms("list --db '" + Db + "' --json " + arguments);
    EXPECT_EQ(code, 0) << text;
    return nlohmann::json::parse(text).at("result");
  }

  const std::string Db = (FDir.Path() / "a.db").string();
};

TEST_F(AlarmsCommand, AScriptedMachineFillsAStoreThatEveryCommandReads) {
  const std::string script = (FDir.Path() / "script").string();
  std::ofstream(script)
      << "raise TPMaint#1\nraise TPMaint#1\nclear TPMaint#1\nfault axis\nfault emission\nwait 60\n"
         "suppress TPMaint#1 5 known\nsuppress TPLaser#1 5 no\nack TPLaser#1\nclear TPLaser#1\nmend axis\n"
         "fault device\nwait 40\nraise TPMaint#2";
  const auto [code, text] = Alarms("live --lang en --script '" + script + "' --db '" + Db + "'");
  EXPECT_EQ(code, 1);
  EXPECT_THAT(text, HasSubstr("TPLaser#1  L101  | Laser  | emission lost  | An internal alarm"));
  EXPECT_THAT(text, HasSubstr("line 8: TPLaser#1 stands with level 1, which is never suppressed"));
  EXPECT_THAT(text, HasSubstr("line 10: TPLaser#1 was raised by the machine, not by hand"));
  EXPECT_THAT(text, testing::ContainsRegex("  \\| first(  \\| not stored yet)?\n"));

  EXPECT_EQ(List("--suppressed").size(), 6U);
  EXPECT_EQ(List("").size(), 4U) << "the suppressed one is hidden";
  EXPECT_EQ(List("--active --level 1").size(), 1U);
  const auto lost = List("--id TPLaser#1 --lang zh").at(0);
  EXPECT_EQ(lost["module"], "激光器");
  EXPECT_EQ(lost["byWhom"], "live");
  EXPECT_THAT(std::string(lost["description"]), testing::EndsWith(" (emission lost)")) << "with the message's own";
  EXPECT_THAT(std::string(lost["description"]), HasSubstr("光"));
  EXPECT_EQ(List("--history --suppressed").size(), 2U) << "one clear, and the axis that came back";
  EXPECT_EQ(List("--since 2999-01-01").size(), 0U);
  EXPECT_THAT(Alarms("list --csv --id TPDevice#2 --db '" + Db + "'").second,
              HasSubstr(" (device \"\"gas\"\" does not answer)\","));
  EXPECT_EQ(Alarms("list --since soon --db '" + Db + "'").first, 2);
  EXPECT_EQ(Alarms("list --db '" + Db + ".none'").first, 3);
  EXPECT_THAT(Alarms("stats --lang en --db '" + Db + "'").second, HasSubstr("raises           6, 4 of them active"));
  EXPECT_EQ(Alarms("ack TPMaint#2 --who Li --db '" + Db + "'").first, 0);
  EXPECT_EQ(Alarms("ack TPAxis#2 --who Li --db '" + Db + "'").first, 1);
  EXPECT_THAT(Alarms("watch --for 50 --lang en --db '" + Db + "'").second,
              HasSubstr("[active, by hand, acknowledged by Li]  0  TPMaint#2"));
  EXPECT_EQ(Alarms("lookup TPGas#3").first, 0);
  EXPECT_EQ(Alarms("lookup TPGas#99").first, 1);
  EXPECT_EQ(Alarms("check '" + script + "'").first, 1);
  for (const char* const wrong : {"raise X#99999999999", "raise X", "rise X#1", "suppress X#1 0 why", "fault door"}) {
    std::ofstream(script) << "raise TPMaint#3\n" << wrong << "\n";
    const auto [ended, said] = Alarms("live --script '" + script + "' --db '" + Db + "'");
    EXPECT_EQ(ended, 2) << wrong;
    EXPECT_THAT(said, HasSubstr("script:2: "));
  }
  EXPECT_EQ(List("--id TPMaint#3").size(), 0U) << "a script is read whole before its first line runs";
  EXPECT_EQ(Alarms("check '" + Db + ".none'").first, 3);

  std::ofstream(script) << "raise TPMaint#4\nfault gas\n";
  const auto [refused, told] = Alarms("live --lang en --script '" + script + "' --db '" + Db + "' --machine '" +
                                      TestSources() + "/../share/machines/composed.xml'");
  EXPECT_EQ(refused, 1);
  EXPECT_THAT(told, HasSubstr("line 2: nothing fails on request on this machine: gas; take a machine file"));
  EXPECT_EQ(List("--id TPMaint#4").size(), 1U) << "what is raised by hand needs no simulated machine";
}

TEST_F(AlarmsCommand, ARunTellsWhatItsDevicesReportInTheLanguageOfTheSession) {
  const std::string file = (FDir.Path() / "gas.json").string();
  std::ofstream(file) << R"({"commands": [{"command": 141, "branch": 2, "pressure": 4},
                             {"command": 612, "ms": 3000}, {"command": 142}]})";
  const std::string run = "run '" + file + "' --fault gas.low-supply --lang en";
  EXPECT_THAT(
      Program(run).second,
      HasSubstr("  Alarm 1  TPGas#2  G102  | The oxygen pressure is below 80 % of its set value  | The bottle"));
  const auto [code, text] = Program(run + " --json");
  EXPECT_EQ(code, 0) << "what forbids a cut ends no gas";
  const auto alarms = nlohmann::json::parse(text).at("result").at("alarms");
  ASSERT_EQ(alarms.size(), 1U) << text;
  EXPECT_EQ(alarms[0].at("identifier"), "TPGas#2");
  EXPECT_EQ(alarms[0].at("solution"), "Change the bottle; check the reducer");
  EXPECT_GT(alarms[0].at("clearedMs"), alarms[0].at("atMs"));
  EXPECT_THAT(Program("shot --alarm-at 5").second, HasSubstr("  报警 1  TPHost#1  | "));
}

TEST_F(AlarmsCommand, AfterAKillEveryCommittedRowIsThereAndTheNextRunClosesIt) {
  int pipes[2];
  ASSERT_EQ(pipe(pipes), 0);
  const std::string state = FDir.Path().string();
  const pid_t child = fork();
  if (child == 0) {
    dup2(pipes[0], STDIN_FILENO);
    close(pipes[1]);
    const int quiet = open("/dev/null", O_WRONLY);
    dup2(quiet, STDOUT_FILENO);
    execl(IxocutBinary().c_str(), "ixocut", "alarms", "live", "--db", Db.c_str(), "--state", state.c_str(), nullptr);
    _exit(127);
  }
  close(pipes[0]);
  const std::string lines = "raise TPMaint#1\nraise TPMaint#2\n";
  ASSERT_EQ(write(pipes[1], lines.data(), lines.size()), static_cast<ssize_t>(lines.size()));
  const auto rows = [&] {
    try {
      return TAlarmHistory(Db).Rows({});
    } catch (const ESqlite&) {  // not made yet
      return std::vector<TAlarmRow>();
    }
  };
  for (int i = 0; i < 2000 && rows().size() < 2; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  const std::string holder = std::to_string(child);
  for (const char* const refused : {"live", "clear TPMaint#1"}) {
    const auto [code, text] = Alarms(std::string(refused) + " --db '" + Db + "'");
    EXPECT_EQ(code, 1) << refused;
    EXPECT_THAT(text, HasSubstr(holder)) << refused;
  }
  const auto [without, said] = Program("shot --ms 20 --realtime --lang en --state other --db '" + Db + "'");
  EXPECT_EQ(without, 3) << said;
  EXPECT_THAT(said, AllOf(HasSubstr("process " + holder), HasSubstr("not stored: raised TPAlarmStore#3")));
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  close(pipes[1]);
  ASSERT_EQ(rows().size(), 2U);
  EXPECT_TRUE(rows()[0].Active() && rows()[1].Active());
  EXPECT_EQ(List("--active").size(), 2U) << "reading closes no rows";
  EXPECT_EQ(Alarms("clear TPMaint#1 --db '" + Db + "'").first, 0);
  EXPECT_EQ(Alarms("clear TPMaint#1 --db '" + Db + "'").first, 1);
  EXPECT_EQ(Alarms("live --db '" + Db + "'").first, 0);
  EXPECT_EQ(List("--active").size(), 0U);
  EXPECT_EQ(rows()[1].Mark, kMarkRestart);
}

TEST_F(AlarmsCommand, AStoreThatCannotBeWrittenKeepsNothingFromStartingAndIsCountedAtTheEnd) {
  std::ofstream(Db) << "this is no database, and it is long enough to be looked at as one..........................";
  const std::string script = Write("script", "raise TPMaint#1\nclear TPMaint#1\nraise TPMaint#2\n").string();
  const TRun run = Ixocut("alarms live --lang en --script '" + script + "' --db '" + Db + "'");
  EXPECT_EQ(run.ExitCode, 3);
  EXPECT_THAT(run.Out, AllOf(HasSubstr("TPMaint#2  N102"), HasSubstr("TPAlarmStore#2"), HasSubstr("not stored yet")));
  EXPECT_THAT(run.Err, AllOf(HasSubstr("alarms cannot be stored; they are kept"), HasSubstr("cleared TPMaint#1"),
                             HasSubstr("4 entries of alarms are not in the alarm store")));
  EXPECT_THAT(Read("a.db"), StartsWith("this is no database"));
}

}  // namespace
}  // namespace ixocamglue::test
