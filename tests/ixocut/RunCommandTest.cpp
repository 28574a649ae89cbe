// Procedures as a user runs them: the real binary, what it prints and the files that it leaves.
#include <set>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <pugixml.hpp>

#include "controller/procedures/Procedures.h"
#include "controller/procedures/SequenceFile.h"
#include "controller/process/StateFolder.h"
#include "fixture/Faults.h"
#include "fixture/Program.h"
#include "ixocamglue/motion/Ustatemotion.h"
#include "ixocut/ControllerSettings.h"

namespace ixocamglue::test {
using namespace ixocontroller;
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

class RunCommand : public TProgramTest {
 protected:
  RunCommand() { FLanguage = "en"; }
  static TMachineLimits Example() {
    return ixocut::TControllerSettings{.Machine = ShareFolder() / "machines" / "machine.xml", .State = {}}.Limits();
  }
};

// A row whose parameter names a field of another class would throw here; one that names another field is found too.
TEST(ProcedureTable, EveryCommandOfTheFactoryHasARowWhoseParametersFitItsStep) {
  for (const TMotionCommand& command : MotionCommands())
    EXPECT_NE(FindProcedure(command.Command), nullptr) << command.Command;
  const TMachineBounds machine;
  std::set<std::string> names;
  for (const TProcedure* row : Procedures()) {
    SCOPED_TRACE(row->Name);
    TMotionCall call{row, TMotionValues(row->Params.size()), {}};
    for (std::size_t i = 0; i < row->Params.size(); ++i) {
      const TMotionParam& param = row->Params[i];
      const TLimits range = call.LimitsOf(param, machine);
      const bool isSwitch = param.At.Kind == pkSwitch;
      // No two of a row's values are alike, except where there is only one.
      call.Values[i] = isSwitch ? 1.0 : range.IsChoice ? range.Numbers.back() : range.Highest - static_cast<double>(i);
      if (!isSwitch && *call.Values[i] < range.Lowest) call.Values[i] = range.Highest;
      EXPECT_TRUE(call.Check(param, machine).Ok()) << param.Name;
      TMotionCall wild = call;
      wild.Values[i] = 1e7;
      EXPECT_EQ(wild.Check(param, machine).Ok(), isSwitch) << param.Name;
    }
    if (row->Command > 0) {
      const TStepPtr step = call.Make(nullptr);
      for (std::size_t i = 0; i < row->Params.size(); ++i)
        EXPECT_EQ(row->Params[i].At.Get(*step), call.Values[i]) << row->Params[i].Name;
    }
    EXPECT_TRUE(names.insert(row->Name).second);
    for (const std::string_view was : row->Was) EXPECT_EQ(FindProcedure(was), nullptr) << was;
    for (const TMotionParam& param : row->Params) EXPECT_TRUE(*param.Summary) << param.Name;
  }
}

TEST(ProcedureTable, ParametersReachTheStep) {
  const TMotionCall call{FindProcedure(422), {10.0, 20.0, 30.0, -2.5, 400.0}, {}};
  const TStepPtr step = call.Make(nullptr);
  const auto& move = dynamic_cast<TSmtSafeMoveToXYZF&>(*step);
  EXPECT_EQ(move.FTarget, (TPoint2{10.0, 20.0}));
  EXPECT_EQ(move.FTargetZ, 30.0);
  EXPECT_EQ(move.FFocus, -2.5);
  EXPECT_EQ(move.FSpeed, 400.0);
  EXPECT_EQ(call.Text(), "safe-move-xyzf --x 10 --y 20 --z 30 --focus -2.5 --speed 400");
}

TEST_F(RunCommand, EveryCommandRunsFromTheCommandLine) {
  const struct {
    const char* Arguments;
    int ExitCode;
    const char* Text;
  } cases[] = {
      {"move-xy --x 100 --y 50", 0, "X 100.00 Y 50.00 Z 0.00"},
      {"clean-curve", 0, "1/1: Brush the nozzle"},
      {"safe-z", 0, "1/1: Raise Z to the safe height"},
      {"move-z --z 40 --speed 100", 0, "Path: XY 0.00 mm, Z 40.00 mm"},
      {"move-work --x 10 --y 10", 0, "(138)"},
      {"gas-on --branch O2 --pressure 1.5", 0, "Still on: Gas O2"},
      {"auto-calibrate", 0, "3/5: Calibrate the height sensor"},
      {"calibrate-head", 0, "2/2: Raise Z to the safe height (134)"},
      {"follow --height 2", 0, "Still on: Following"},
      {"uninstall-nozzle --row 0 --column 0", 1,
       "; at: uninstall-nozzle, 1/1 Leave the nozzle in its slot; why: the cap of the nozzle rack is not open; what "
       "to do: open the cap"},
      {"output-on --port 5", 0, "Still on: Output 5 (Extraction)"},
      {"wait-input --input 4 --output 4 --switch-output true --time 50", 0, "(176)"},
      {"safe-move-xyz --x 10 --y 10 --z 20", 0, "3/3: "},
      {"lubricate --min-x 100 --min-y 100 --max-x 200 --max-y 150", 0, "Path: XY 765.03 mm"},
      {"focus --focus -3", 0, "F -3.00"},
      {"wait-emission --limit 500", 1, "Did not end within its time limit"},
      {"clean-nozzle-auto", 0, "7/7: "},
      {"change-nozzle --from 1 --to 2", 0, "25/25: "},
      {"go-maintenance", 0, "4/4: "},
      {"go-blanking", 0, "X 1500.00 Y 1400.00"},
      {"shot --ms 60", 0, "5/5: Laser off (517)"},
      {"pierce", 0, "  1/5: open shutter (518)"},
      {"safe-move --x 100 --y 50 --stop-at 50", 1, "Stopped after "},
      {"safe-move --x 100 --y 50 --alarm-at 50", 1, "Ended by an alarm after "},
      {"calibrate-head --fault follower.no-plate", 1,
       "Failed after 2450 ms; at: Calibrate the height sensor here, 1/2 Calibrate the height sensor; "
       "why: the calibration failed: no plate found; what to do: look at plate, nozzle and sensor"},
  };
  for (const auto& c : cases) {
    const TRun run = Ixocut("run " + std::string(c.Arguments) + " --lang en");
    EXPECT_EQ(run.ExitCode, c.ExitCode) << c.Arguments << run.Out << run.Err;
    EXPECT_THAT(run.Out, HasSubstr(c.Text)) << c.Arguments;
  }
}

TEST_F(RunCommand, AWrongCommandLineIsToldAndNothingRuns) {
  const std::pair<const char*, const char*> cases[] = {
      {"", "a procedure or a file is needed"},
      {"lubricat", "\"lubricat\" is neither a procedure nor a file; did you mean lubricate?"},
      {"move-xz --x 1", "did you mean move-xy?"},
      {"safe-move --x 1", "safe-move: --y is missing"},
      {"safe-move --x 4000 --y 1", "--x: 4000 is not in 0..3050 mm"},
      {"safe-move --x nan --y 1", "--x: \"nan\" is not a number"},
      {"safe-move --x 1,5 --y 1", "--x: \"1,5\" is not a number"},
      {"safe-move --xx 1 --y 2", "--xx was not expected; did you mean --x?"},
      {"safe-move --x 1 --y 2 more", "more was not expected"},
      {"output-on --port 99", "--port: 99 is not one of -1, 1..9"},
      {"wait-input --input 4 --level maybe", "--level: \"maybe\" is neither true nor false"},
      {"lubricate --min-x 3", "--min-x, --min-y, --max-x, --max-y belong together"},
      {"gas-on --branch 2 --pressure 11", "--pressure: 11 is not in 0..10 bar"},
      {"gas-off --branch 2", "gas-off: --branch was not expected"},
      {"shot --ms 60001", "--ms: 60001 is not in 0..60000 ms"},
      {"change-nozzle --from 1 --to 99", "there is no nozzle 99"},
      {"safe-z --plot picture.png", "--plot: \"picture.png\" does not end in .svg"},
      {"safe-z --fault rack.stag-stuck",
       "--fault: the machine has no fault \"rack.stag-stuck\"; did you mean rack.stage-stuck?"},
  };
  for (const auto& [arguments, text] : cases) {
    const TRun run = Ixocut("run " + std::string(arguments));
    EXPECT_EQ(run.ExitCode, 2) << arguments;
    EXPECT_THAT(run.Err, HasSubstr(text)) << arguments;
    EXPECT_THAT(run.Out, Not(HasSubstr("1/"))) << arguments;
  }
  EXPECT_EQ(nlohmann::json::parse(Ixocut("run safe-move --xx 1 --y 2 --json").Out)["command"], "run");
}

TEST_F(RunCommand, AFileIsCheckedAsAWholeBeforeAnythingMoves) {
  const std::pair<const char*, const char*> cases[] = {
      {"[1]", "f.json:1: is no object"},
      {"{\"commands\": []}", "commands: \"commands\" is a list of at least one command"},
      {"{\"commands\": [\n{\"command\": 131,", "f.json:2:17: is not valid JSON here"},
      {"{\"commands\": [{\"command\": 131, \"x\": 1e999}]}", "f.json:1:41: the number is too large"},
      {"{\"commands\": [\n{\"command\": 612, \"ms\": 1},\n{\"command\": 132}]}",
       "f.json:3: commands[2].command: 132 is no command"},
      {"{\"commands\": [{\"command\": \"gas_on\"}]}", "\"gas_on\" is no procedure; did you mean gas-on?"},
      {"{\"commands\": [{\"x\": 1}]}", "commands[1]: \"command\" is missing"},
      {"{\"commands\": [17]}", "commands[1]: is no object"},
      {"{\"comands\": 1,\n\"commands\": [{\"command\": 142}]}", "f.json:1: comands: unknown name"},
      {"{\"commands\": [{\"command\": 131, \"y\": 1,\n\"x\": 5000\n}]}",
       "f.json:2: commands[1].x: 5000 is not in 0..3050 mm"},
      {"{\"commands\": [{\"command\": 131, \"x\": 1, \"y\": \"2\"}]}", "commands[1].y: is no number (mm)"},
      {"{\"commands\": [{\"command\": 131, \"x\": 1, \"y\": 2, \"sped\": 1}]}",
       "commands[1].sped: is no parameter of move-xy; did you mean speed?"},
      {"{\"commands\": [{\"command\": 131, \"x\": 1}]}", "commands[1]: move-xy: y is missing"},
      {"{\"commands\": [{\"command\": 131, \"x\": 1, \"y\": 2,\n\"x\": 3}]}",
       "f.json:2: commands[1].x: is there twice"},
      {"{\"commands\": [{\"command\": 134, \"only-up\": 1}]}", "commands[1].only-up: is neither true nor false"},
      {"{\"commands\": [{\"command\": 516}, {\"command\": 612, \"ms\": 40000}, {\"command\": 612, \"ms\": 30000}]}",
       "commands[3]: the beam would be on for 75100 ms, which is more than 60000 ms"},
      {"{\"commands\": [{\"command\": [[[[[[[[[[1]]]]]]]]]]}]}", "lists within lists are no sequence"},
  };
  for (const auto& [file, text] : cases) {
    Write("f.json", file);
    EXPECT_THAT(Refusal("run f.json", 3), HasSubstr(text)) << file;
  }
  EXPECT_THAT(Ixocut("run none.json").Err, HasSubstr("none.json: is no file that can be read"));
}

// From the light to the dark nothing of unknown length, and a minute at most.
TEST_F(RunCommand, ABeamThatCouldStayOnIsRefusedBeforeItIsLit) {
  // empty: it runs
  const std::pair<const char*, const char*> cases[] = {
      {R"(518, 519, 520, ["lubricate", "count", 1000], 517)",
       "commands[4]: lubricate is not allowed while the beam is on (it takes the head away from the cut)"},
      {"518, 520, 519, 517", "commands[3]: wait-emission is not allowed"},
      {R"(516, [141, "branch", 2, "pressure", 1], 517)", "commands[2]: gas-on is not allowed"},
      {"516, 142", "commands[2]: gas-off is not allowed"},
      {R"(516, ["shot"], 517)", "commands[2]: shot is not allowed"},
      {R"(516, 518, [612, "ms", 54900], 522)", ""},
      {R"(516, [612, "ms", 54901], 522)", "commands[2]: the beam would be on for 60001 ms"},
      {R"(518, 520, [612, "ms", 60000], 522, [612, "ms", 9000], 520, [612, "ms", 60000])", ""},
      {R"(520, [176, "input", 4, "output", 4, "switch-output", true, "time", 60001])",
       "commands[2]: the beam would be on for 60001 ms"},
      {R"([131, "x", 0, "y", 0], 520, [131, "x", 300, "y", 400, "speed", 10], 517)", ""},
      {R"([131, "x", 0, "y", 0], 520, [131, "x", 600, "y", 400, "speed", 10], 517)", "on for 74111 ms"},
      // From wherever the head stands.
      {R"(520, [131, "x", 3050, "y", 1530, "speed", 100], 517)", ""},
      {R"([137, "x", 0, "y", 0], 138, 520, [131, "x", 10, "y", 0, "speed", 50], 517)", "on for 70066 ms"},
      {R"([136, "z", 60], 520, [136, "z", 70, "speed", 1], 517)", ""},
      {R"([134, "z", 60, "use-safe-z", false], 520, [136, "z", 70, "speed", 1], 517)", "on for 72000 ms"},
      {R"(520, [134, "speed", 2], 517)", "on for 62000 ms"},
      {R"([421, "focus", 5], 520, [421, "focus", -5, "speed", 0.2], 517)", ""},
      {R"(520, [421, "focus", -5, "speed", 0.4], 517)", "on for 64500 ms"},
      // Under the beam at the speed of a cut; a follow that began before goes on.
      {R"([154, "height", 1], 520, [131, "x", 5, "y", 5, "speed", 500], 517)", ""},
      {R"(520, [131, "x", 5, "y", 5, "speed", 501], 517)", "CutSpeedLimit is 500 mm/s"},
      {R"(520, [131, "x", 5, "y", 5], 517)", "move-xy at 1600 mm/s is not allowed while the beam is on"},
      {"516, 133", "clean-curve is not allowed"},
      {R"(516, [137, "x", 1, "y", 1])", "safe-move is not allowed"},
      {"516, 138", "move-work is not allowed"},
      {"516, 151", "calibrate-sensor is not allowed"},
      {"516, 154", "follow is not allowed"},
      {R"(516, [163, "row", 0, "column", 0])", "uninstall-nozzle is not allowed"},
      {"516, 514", "clean-nozzle-auto is not allowed"},
      // What would be struck, and what never comes.
      {R"([136, "z", 80])", ""},
      {R"([136, "z", 80.5])", "z 80.5 is below the table's surface (the nozzle would touch at Z 80)"},
      {R"([137, "x", 3010, "y", 40], [136, "z", 90])", ""},  // beside the table
      {R"([181, "x", 10, "y", 40, "z", 90])", "z 90 is below the table's surface"},
      {R"([136, "z", 20], 134, 350)", ""},
      {R"([136, "z", 20], 350)", "commands[2]: lubricate is not allowed with head 1 below its safe height"},
      {R"([176, "input", 4, "output", 4, "time", 50])", "input 4 never comes: it answers output 4, which nothing"},
      {R"([172, "port", 4], [176, "input", 4, "output", 4, "time", 50])", ""},
      {R"([176, "input", 4])", ""},  // without an output nothing is waited for
  };
  for (const auto& [items, text] : cases) {
    auto commands = nlohmann::json::array();
    for (const auto& item : nlohmann::json::parse(std::string("[") + items + "]")) {
      nlohmann::json command{{"command", item.is_array() ? item[0] : item}};
      for (std::size_t i = 1; item.is_array() && i + 1 < item.size(); i += 2)
        command[item[i].get<std::string>()] = item[i + 1];
      if (command["command"] == 138) command.update({{"x", 5}, {"y", 5}});
      commands.push_back(command);
    }
    Write("f.json", nlohmann::json{{"commands", commands}}.dump());
    const std::string why = Thrown<EProblem>([&] { (void)ReadSequenceFile(FDir.Path() / "f.json", Example()); });
    EXPECT_THAT(why, HasSubstr(text)) << items;
    EXPECT_EQ(why.empty(), *text == '\0') << items << why;
  }
}

TEST_F(RunCommand, TheReportTellsTheStoryOfTheRun) {
  Write("steps.json", R"({"name": "corner", "commands": [
    {"command": 137, "x": 100, "y": 50, "speed": 300},
    {"command": "gas-on", "branch": 2, "pressure": 1.5, "description": "purge"},
    {"command": "delay", "ms": 500}, {"command": 142},
    {"command": 516}, {"command": 612, "ms": 100}, {"command": "laser-off"}]})");
  const auto run = Json("run steps.json --seed 7 --lang en", 0);
  EXPECT_EQ(run.at("procedure"), "corner");
  EXPECT_EQ(run.at("outcome"), "success");
  EXPECT_TRUE(run.at("dark"));
  EXPECT_FALSE(run.at("gas"));
  EXPECT_NEAR(run.at("pathMm").at("xy").get<double>(), std::hypot(100, 50), 0.01);
  EXPECT_EQ(run.at("position").at("x"), 100);
  std::vector<std::string> steps;
  std::uint64_t topMs = 0;
  for (const auto& step : run.at("steps")) {
    steps.push_back(std::to_string(step.at("level").get<int>()) + " " + std::to_string(step.at("command").get<int>()) +
                    " " + step.at("description").get<std::string>());
    if (step.at("level") == 0) topMs += step.at("durationMs").get<std::uint64_t>();
  }
  EXPECT_THAT(steps, testing::ElementsAre("0 137 Raise Z, then move XY", "1 134 Raise Z to the safe height",
                                          "1 131 Move XY", "0 141 purge", "0 612 Delay", "0 142 Gas off",
                                          "0 516 Open shutter and switch laser on", "0 612 Delay", "0 517 Laser off"));
  // The steps fill the run, but for the ticks that enter and leave it.
  EXPECT_LE(topMs, run.at("durationMs").get<std::uint64_t>());
  EXPECT_NEAR(static_cast<double>(topMs), run.at("durationMs").get<double>(), 50);
  EXPECT_EQ(Json("run steps.json --seed 7 --lang en", 0), run);

  const TRun text = Ixocut("run steps.json --journal --lang en");
  for (const char* line : {"corner\n", "1/7: Raise Z, then move XY\n", "2/7: purge\n", "gas.SwitchOn", "state 204",
                           "Path: XY 111.80 mm, Z 0.00 mm\n", "Success after "})
    EXPECT_THAT(text.Out, HasSubstr(line));
}

// One name for each, wherever it is met; what it was called is refused with that name.
TEST_F(RunCommand, AProcedureHasOneNameAndItsOldOnesAreRefusedWithIt) {
  std::vector<std::pair<std::string, std::string>> names;
  for (const TProcedure* row : Procedures())
    for (const std::string_view was : row->Was) names.emplace_back(was, row->Name);
  EXPECT_GE(names.size(), 17U);
  for (const auto& [was, is] : names) {
    Write("f.json", std::string(R"({"commands": [{"command": ")") + was + "\"}]}");
    for (const std::string& command :
         {"run " + was, "tree " + was, "procedures " + was, "record --out a --procedure " + was,
          "sweep --procedure " + was, std::string("run f.json")})
      EXPECT_THAT(Refusal(command, 2), HasSubstr("\"" + is + "\"")) << command;
    EXPECT_EQ(Ixocut("tree " + is).ExitCode, 0) << is;
  }
}

TEST_F(RunCommand, ATreeShowsTheMachineThatRunsAndTheParametersOfEveryStep) {
  const auto shown = [&](const char* arguments) { return Json(arguments, 0).at("tree"); };
  const auto move = shown("tree safe-move --x 7 --speed 100");
  EXPECT_EQ(move.at("parameters"), nlohmann::json({{"x", 7.0}, {"y", 30.0}, {"speed", 100.0}}));
  EXPECT_EQ(move.at("children")[0].at("parameters").at("only-up"), true);
  EXPECT_EQ(move.at("children")[1].at("parameters"), nlohmann::json({{"x", 7.0}, {"y", 30.0}, {"speed", 100.0}}));
  EXPECT_EQ(Ixocut("tree safe-move --x 4000").ExitCode, 2);
  EXPECT_EQ(Ixocut("tree safe-move --z 1").ExitCode, 2);
  EXPECT_EQ(Ixocut("tree lubricate --min-x 1").ExitCode, 2);
  EXPECT_FALSE(shown("tree lubricate").at("children")[0].at("parameters").contains("min-x")) << "the limits, as run";

  std::string machine = Read("ixocut/machine.xml");
  const std::string place = "<MaintainCutHead Enabled=\"True\" PosX=\"";
  const std::size_t at = machine.find(place);
  ASSERT_NE(at, std::string::npos);
  machine.replace(at + place.size(), 3, "123");
  Write("ixocut/machine.xml", machine);
  EXPECT_EQ(shown("tree go-maintenance").at("parameters").at("x"), 123.0);
}

TEST_F(RunCommand, ARecordingShowsTheFirstStepAndRunsWhatRunRuns) {
  const auto log = [&](const std::string& arguments) {
    std::string lines;
    const auto document = Json(arguments + " --lang en", 0);
    for (const auto& line : document.at("log")) lines += line.at("text").get<std::string>() + "\n";
    return lines;
  };
  EXPECT_THAT(log("record --procedure shot --out a.csv"), HasSubstr("1/5: Open shutter\n2/5: "));
  EXPECT_EQ(log("record --procedure shot --out a.csv"), log("run shot"));
  EXPECT_EQ(log("record --procedure safe-move --x 50 --y 20 --out a.csv"), log("run safe-move --x 50 --y 20"));
  EXPECT_THAT(Refusal("record --procedure safe-move --x 50 --out a.csv", 2), HasSubstr("safe-move: --y is missing"));
}

TEST_F(RunCommand, AFailureNamesTheWayToItsLeafAndWhatIsStillOn) {
  const auto run = Json("run change-nozzle --from 1 --to 2 --fault rack.stage-stuck --lang en", 1);
  EXPECT_EQ(run.at("outcome"), "error");
  EXPECT_THAT(run.at("path").get<std::string>(), HasSubstr("->Nozzle change("));
  EXPECT_FALSE(run.at("outputsOn").empty());
  EXPECT_EQ(run.at("steps").back().at("number"), 9);
}

// What an operator reads without asking for the log has no inner names, and nothing of the other language.
TEST_F(RunCommand, AnEndingIsToldInTheOperatorsLanguageWithoutInnerNames) {
  const char* const runs[] = {"run calibrate-head --fault follower.no-plate",
                              "run change-nozzle --from 1 --to 2 --fault rack.stage-stuck",
                              "run gas-purge --stop-at 100",
                              "run safe-move --x 10 --y 10 --fault axes.limit",
                              "run laser-test --fault laser.interlock-opens",
                              "shot --fault laser.no-emission",
                              "shot --fault laser.emission-drops",
                              "shot --alarm-at 50"};
  for (const char* const line : runs) {
    SCOPED_TRACE(line);
    const TRun english = Ixocut(line);
    const TRun chinese = Ixocut(line, "IXOCUT_LANG=zh");
    for (const TRun* run : {&english, &chinese})
      for (const char* const inner :
           {"FStep", "mstp", "TStateMotion", "CustomMotionState", "Exec ", "error type", "->"})
        EXPECT_THAT(run->Out, Not(HasSubstr(inner)));
    EXPECT_FALSE(std::ranges::any_of(english.Out, [](char c) { return c >= '\xE4' && c <= '\xE9'; })) << english.Out;
    EXPECT_THAT(english.Out, HasSubstr("; at: "));
    EXPECT_THAT(chinese.Out, HasSubstr("；步骤："));
    for (const char* const word : {" the ", " is ", " not "}) EXPECT_THAT(chinese.Out, Not(HasSubstr(word)));
  }
  const TRun rack = Ixocut(runs[1]);
  EXPECT_THAT(rack.Out, HasSubstr("; at: Nozzle change, 9/25 Check: "));
  EXPECT_THAT(rack.Out,
              HasSubstr("why: input \"Nozzle rack: stage up\" (number 8) is not where it should be; what to do"));
  EXPECT_THAT(Ixocut(std::string(runs[1]) + " --trace").Out, HasSubstr("Exec error(->"));
}

TEST_F(RunCommand, ThePlotIsAPicture) {
  const TRun run = Ixocut("run clean-nozzle-manual --plot 'it is.svg' --lang en");
  ASSERT_EQ(run.ExitCode, 0) << run.Err;
  pugi::xml_document svg;
  ASSERT_TRUE(svg.load_file((FDir.Path() / "it is.svg").c_str()));
  EXPECT_STREQ(svg.document_element().name(), "svg");
  const std::string text = Read("it is.svg");
  for (const char* word : {"clean-nozzle-manual", "XY path (mm)", "Z (mm)", "Signals", "Emission"})
    EXPECT_THAT(text, HasSubstr(word));
  EXPECT_EQ(Ixocut("run safe-z --plot none/p.svg").ExitCode, 3);
}

TEST_F(RunCommand, CalibrationsAreSavedOnRequestOnly) {
  const auto machine = [&] { return Read("ixocut/machine.xml"); };
  ASSERT_EQ(Ixocut("run calibrate-head").ExitCode, 0);
  const std::string before = machine();
  ASSERT_EQ(Ixocut("run calibrate-head --save-calibration").ExitCode, 0);
  EXPECT_NE(machine(), before);
  EXPECT_THAT(machine(), HasSubstr("CaliResults"));
}

TEST_F(RunCommand, TheListShowsTheRangesOfTheMachineAtHand) {
  const auto list = Json("procedures move-xy --lang en", 0).at("procedures");
  ASSERT_EQ(list.size(), 1U);
  EXPECT_EQ(list[0].at("command"), 131);
  EXPECT_EQ(list[0].at("parameters")[0], nlohmann::json({{"name", "x"},
                                                         {"type", "number"},
                                                         {"unit", "mm"},
                                                         {"required", true},
                                                         {"lowest", 0.0},
                                                         {"highest", 3050.0},
                                                         {"summary", "target X, machine coordinates"}}));
  const TRun all = Ixocut("procedures");
  for (const char* line :
       {" 513  clean-nozzle-manual", "      go-maintenance", "--count           1..1000", "      square", "0..3050 mm"})
    EXPECT_THAT(all.Out, HasSubstr(line));
  EXPECT_THAT(Ixocut("procedures --faults").Out, HasSubstr("rack.stage-stuck "));
  EXPECT_EQ(Ixocut("procedures nix").ExitCode, 2);
}

}  // namespace
}  // namespace ixocamglue::test
