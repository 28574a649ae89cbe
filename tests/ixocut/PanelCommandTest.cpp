// `ixocut panel` and `ixocut knob` as a user meets them.
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "fixture/Program.h"

namespace ixocamglue::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;

class PanelCommand : public TProgramTest {};

TEST_F(PanelCommand, AScriptTellsCommandsLedsAndMasks) {
  Write("script",
        "show Work\n"
        "tap SHUTTER   # opens\nwait 1000\nleds\n"
        "press right\nwait 500\nrelease right\nwait 500\n"
        "show DlgShutDown\ntap laser\nhide DlgShutDown\n"
        "alarm TPLaser#3\nwait 100\ntap start\nclear\n");
  const TRun run = Ixocut("panel --lang en --script script");
  EXPECT_EQ(run.ExitCode, 0) << run.Err;
  std::size_t at = 0;
  for (const char* line :
       {"show Work", "machine: KeyDown 88 0", "machine: KeyUp 88 0", "● SHUTTER", "switched on: SHUTTER\n",
        "machine: KeyDown 34 0", "machine: state 4 (jogging)", "machine: KeyUp 34 0", "machine: state 0 (standby)",
        "tap laser", "! This key is not available in the current window", "! LASER: form DlgShutDown",
        "machine: KeyUp 67 0", "alarm TPLaser#3", "tap start", "! start refused: an alarm forbids the laser",
        "machine: KeyDown 1 0", "○ SHUTTER", "permitted by everything: all keys"}) {
    const std::size_t found = run.Out.find(line, at);
    ASSERT_NE(found, std::string::npos) << line << " is missing in:\n" << run.Out;
    at = found;
  }
  const auto json = Json("panel --script script", 0);
  EXPECT_EQ(json["events"].back()["masks"]["SofteKBPanelStatePermits"], "0x0FFFFFFF");
}

TEST_F(PanelCommand, EveryRefusalExplainsItself) {
  const struct {
    const char* Arguments;
    int ExitCode;
    std::vector<const char*> Says;
  } cases[] = {
      {"laser --form Work", 0, {"CK_LASER, command 67: sent\n"}},
      {"knob --form Work", 0, {"turns the knob"}},
      {"knob", 1, {"refused"}},
      {"laser", 1, {"client   REFUSES", "a form that permits the key", "Work"}},
      {"laser --form Work --alarm 101 --alarm 102",
       1,
       {"refused by the cutting system", "clear TPHost#101 Laser source fault\n"}},
      {"laser --form Work --alarm TPLaser#3",
       1,
       {"alarm    REFUSES", "machine  REFUSES    an alarm forbids the laser"}},
      {"start --form Work --alarm TPLaser#3",
       1,
       {"alarm    permits", "machine  REFUSES    an alarm forbids the laser"}},
      {"gas --form Work --alarm TPSupervisor#1 --alarm TPServo#1", 0, {"alarm    permits", "command 148: sent\n"}},
      {"laser --form Settings --alarm 101", 1, {"client   REFUSES", "alarm    against it"}},
      {"laser --form Work --alarm 101 --at 5",
       1,
       {"alarm    against it", "machine  REFUSES    the machine is in dry run"}},
      {"laser --form Work --at 5", 1, {"state 5 dry run", "needed", "standby, paused, jogging"}},
      {"return0 --form Work --warning", 1, {"maintenance warning is pending", "settle the maintenance warning"}},
      {"stop --at 204 --alarm 106", 0, {"a stop key is never refused"}},
      {"right --form Work --alarm 104", 1, {"TPHost#104 X axis at its positive limit"}},
      // What is on is switched off under any alarm.
      {"shutter --form Work --alarm 101 --script on", 0, {"alarm    against it", "sent and carried out"}},
  };
  Write("on", "show Work\ntap shutter\nwait 2000\n");
  for (const auto& c : cases) {
    const TRun run = Ixocut(std::string("panel why --lang en ") + c.Arguments);
    EXPECT_EQ(run.ExitCode, c.ExitCode) << c.Arguments << run.Out << run.Err;
    for (const char* text : c.Says) EXPECT_THAT(run.Out, HasSubstr(text)) << c.Arguments;
  }
}

TEST_F(PanelCommand, BadInputIsNamed) {
  const struct {
    std::string Arguments;
    int ExitCode;
    const char* Says;
  } cases[] = {
      {"panel", 2, "needs a terminal"},
      {"panel why nokey", 2, "is no key"},
      {"panel why lasr", 2, "\"lasr\" is no key of the panel; did you mean LASER?"},
      {"panel why laser --alarm 7", 2, "no alarm \"7\"; the alarms are 101"},
      {"panel why laser --alarm TPLaser#99999999999", 2, "99999999999 is not in 0..2147483647"},
      {"panel why laser --alarm TPLasr#1", 2, "did you mean TPLaser#1?"},
      {"panel why laser --at pausd", 2, "no number or name of a state; did you mean paused?"},
      {"panel why laser --at 99999999999", 2, "no number or name of a state"},
      {"panel why laser --form work", 2, "did you mean Work?"},
      {"panel forms dlgedgeseek", 2, "did you mean DlgEdgeSeek?"},
      {"panel --form NoSuchForm", 2, "case counts"},
      {"panel --script /nonexistent", 3, "/nonexistent: the file cannot be read"},
      {"panel --script bad1", 2, "bad1:2: \"FOO\" is no key of the panel"},
      {"panel --script bad2", 2, "bad2:2: \"Wrok\" is no form of the panel; did you mean Work?"},
      {"panel --script bad3", 2, "bad3:2: no alarm \"TPLaser#8\""},
      {"panel --script bad4", 2, "bad4:2: 99999999999 is not in 0..2147483647"},
      {"knob state fast", 2, "is not one of low, normal, high"},
      {"knob speed low --xy 1e9", 1, "low <= "},
      {"knob speed high --xy nan", 2, "not a number"},
      {"knob speed high", 2, "--xy or --z is needed"},
  };
  int bad = 0;
  for (const char* line : {"press FOO", "show Wrok", "alarm TPLaser#8", "press gas 99999999999"})
    Write("bad" + std::to_string(++bad), std::string("tap gas\n") + line + "\n");
  for (const auto& c : cases)
    EXPECT_THAT(Refusal(c.Arguments + " --lang en", c.ExitCode), HasSubstr(c.Says)) << c.Arguments;
  // What is in force, which is more than the table says.
  EXPECT_THAT(Ixocut("panel forms DlgSimLocZPos").Out, AllOf(HasSubstr("0x00071F80"), HasSubstr("CK_STOP CK_EGYSTOP")));
}

TEST_F(PanelCommand, AKeyIsPressedOnAMachineOfTheCommandsOwn) {
  const TRun moved = Ixocut("panel press RIGHT --ms 300 --lang en");
  EXPECT_EQ(moved.ExitCode, 0) << moved.All();
  EXPECT_THAT(moved.Out, HasSubstr("machine: state 4 (jogging)"));
  EXPECT_EQ(Ixocut("panel press LASER --form Settings").ExitCode, 1);
  EXPECT_EQ(Ixocut("panel press LASR").ExitCode, 2);
}

TEST_F(PanelCommand, TheKnobsSpeedsAreKept) {
  EXPECT_EQ(Ixocut("knob speed normal --xy 120 --z 40").ExitCode, 0);
  const auto json = Json("knob show", 0);
  EXPECT_EQ(json["xy"]["normal"], 120);
  EXPECT_EQ(json["z"]["normal"], 40);
  EXPECT_EQ(json["xy"]["high"], 200);
  const auto high = Json("knob state high", 0);
  EXPECT_EQ(high["JogFast"], true);
  EXPECT_EQ(high["JogSpeed"], 200);
  EXPECT_THAT(Read("ixocut/machine.xml"), HasSubstr("NormalJogSpeed=\"120\""));
  // Each level writes the speed that it prints, also the one that the knob starts with.
  for (const auto& [level, speed, z] : {std::tuple{"normal", 120, 40}, {"low", 10, 10}}) {
    const auto applied = Json(std::string("knob state ") + level, 0);
    EXPECT_EQ(applied["JogSpeed"], speed);
    EXPECT_EQ(applied["zJogSpeed"], z);
    EXPECT_THAT(Read("ixocut/machine.xml"), HasSubstr(" JogSpeed=\"" + std::to_string(z) + "\""));
  }
}

}  // namespace
}  // namespace ixocamglue::test
