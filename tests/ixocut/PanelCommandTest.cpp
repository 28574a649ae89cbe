// `ixocut panel` and `ixocut knob` as a user meets them.
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sys/wait.h>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "fixture/Program.h"

namespace ixocamglue::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;

class PanelCommand : public TProgramTest {
 protected:
  std::string Script(const std::string& text) {
    std::ofstream(FDir.Path() / "script") << text;
    return "'" + (FDir.Path() / "script").string() + "'";
  }
};

TEST_F(PanelCommand, AScriptTellsCommandsLedsAndMasks) {
  const std::string script = Script(
      "show Work\n"
      "tap SHUTTER   # opens\nwait 1000\nleds\n"
      "press right\nwait 500\nrelease right\nwait 500\n"
      "show DlgShutDown\ntap laser\nhide DlgShutDown\n"
      "alarm 101\nwait 100\ntap start\nclear\n");
  const TRun run = Ixocut("panel --lang en --script " + script);
  EXPECT_EQ(run.ExitCode, 0) << run.Err;
  std::size_t at = 0;
  for (const char* line :
       {"show Work", "machine: KeyDown 88 0", "machine: KeyUp 88 0", "● SHUTTER", "SofteKBPanelRepKeys      0x00000001",
        "machine: KeyDown 34 0", "machine: state 4 (jogging)", "machine: KeyUp 34 0", "machine: state 0 (standby)",
        "tap laser", "! This key is not available in the current window", "machine: KeyUp 67 0", "alarm 101",
        "! An alarm is active", "machine: KeyDown 1 0", "command 1 refused", "○ SHUTTER",
        "SofteKBPanelAllowKeys    0x0FFFFFFF"}) {
    const std::size_t found = run.Out.find(line, at);
    ASSERT_NE(found, std::string::npos) << line << " is missing in:\n" << run.Out;
    at = found;
  }
  const auto json = Json("panel --script " + script, 0);
  EXPECT_EQ(json["events"].back()["masks"]["SofteKBPanelStatePermits"], "0x0FFFFFFF");
}

TEST_F(PanelCommand, EveryRefusalExplainsItself) {
  const struct {
    const char* Arguments;
    int ExitCode;
    std::vector<const char*> Says;
  } cases[] = {
      {"laser --form Work", 0, {"CK_LASER, command 67: sent"}},
      {"laser", 1, {"client", "REFUSES", "a form that permits the key", "Work"}},
      {"laser --form Work --alarm 101 --alarm 102", 1, {"reported and sent", "clear 101 Laser source fault\n"}},
      {"laser --form Work --state 5", 1, {"state 5 dry run", "needed", "standby, paused, jogging"}},
      {"return0 --form Work --warning", 1, {"maintenance warning is pending", "settle the maintenance warning"}},
      {"stop --state 204 --alarm 106", 0, {"a stop key is never refused"}},
      {"right --form Work --alarm 104", 1, {"104 X axis at its positive limit"}},
  };
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
      {"panel why laser --alarm 7", 2, "no alarm \"7\""},
      {"panel why laser --state up", 2, "no number or name of a state"},
      {"panel forms dlgedgeseek", 1, "case counts"},
      {"panel --script /nonexistent", 3, "/nonexistent: the file cannot be read"},
      {"panel --script " + Script("wait 10\npress FOO\n"), 2, "script:2: \"FOO\" is no key of the panel"},
      {"knob state fast", 2, "is not one of low, normal, high"},
      {"knob speed low --xy 1e9", 1, "低速 <= "},
      {"knob speed high --xy nan", 2, "not a number"},
      {"knob speed high", 2, "--xy or --z is needed"},
  };
  for (const auto& c : cases) {
    const TRun run = Ixocut(c.Arguments);
    EXPECT_EQ(run.ExitCode, c.ExitCode) << c.Arguments << "\n" << run.Err;
    EXPECT_THAT(run.Err, HasSubstr(c.Says)) << c.Arguments;
  }
  EXPECT_THAT(Ixocut("panel forms DlgManualLubr").Out, AllOf(HasSubstr("0x00075F80"), HasSubstr("CK_FORWARD CK_Z_UP")));
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
}

}  // namespace
}  // namespace ixocamglue::test
