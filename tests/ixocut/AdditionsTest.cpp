// A program with rows of its own: they are met wherever the program's own are.
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>

#include <gmock/gmock.h>

#include "controller/procedures/ParamAccess.h"
#include "fixture/TempDir.h"
#include "ixocamglue/platform/ports/MotionDriver.h"
#include "ixocut/Main.h"

namespace ixocamglue::test {
using namespace ixocontroller;
using namespace ixocut;
namespace {

using testing::HasSubstr;

class TSmtMark : public TSmtAtomic {
 public:
  static constexpr std::int32_t Cmd = 701;
  static constexpr std::string_view kClassName = "TSmtMark";
  std::int32_t GetID() override { return Cmd; }
  std::string GetDesc() override { return "mark"; }
  TStepType DoMotion(std::int32_t) override {
    if (!MotionCard()) return Fail();
    MotionCard()->SwitchOutport(FPort, true);
    return Await(csbtEnsure);
  }
  std::int32_t FPort = 0;

 protected:
  using TSmtAtomic::TSmtAtomic;
};

const TProcedure kMark{"own-mark",
                       TSmtMark::Cmd,
                       "mark the plate",
                       {.Outputs = TProcedureFlags::otStay},
                       {{"port", uNone, "the marker's output", bdFittedOutport, 3.0, kAt<&TSmtMark::FPort>}},
                       {5},
                       [](TCustomMotionState* ctrl, const TMotionValues&) { return MakeStep<TSmtMark>(ctrl); }};
const TProcedure kRound{"own-round",
                        0,
                        "mark, and back",
                        {.MovesXY = true, .Outputs = TProcedureFlags::otStayAfterAbort},
                        {},
                        {},
                        [](TCustomMotionState*, const TMotionValues&) {
                          const TMotionCall calls[] = {{FindProcedure("own-mark"), {4.0}, {}},
                                                       {FindProcedure(131), {5.0, 5.0}, {}},
                                                       {FindProcedure(173), {4.0}, "marker off"}};
                          return MakeRoot("own-round", calls);
                        }};

// Waits for a follower, fitted or not.
class TSmtFollowerWait : public TSmtAtomic {
 public:
  static constexpr std::string_view kClassName = "TSmtFollowerWait";
  std::int32_t GetID() override { return 702; }
  std::string GetDesc() override { return "wait for the follower"; }
  TStepType DoMotion(std::int32_t) override { return Await(csbtFollower); }
};

const TProcedure kFollowerWait{
    "own-wait", 702, "wait for the follower", {}, {}, {}, [](TCustomMotionState* ctrl, const TMotionValues&) {
      return MakeStep<TSmtFollowerWait>(ctrl);
    }};

class Additions : public testing::Test {
 protected:
  Additions() { setenv("IXOCUT_LANG", "en", 1); }
  // In this process: what the program prints, errors behind the rest.
  std::string Ixocut(std::vector<std::string> words, int exitCode = 0, std::vector<TProcedure> rows = {kMark, kRound}) {
    words.insert(words.begin(), "ixocut");
    std::vector<const char*> arguments;
    for (const std::string& word : words) arguments.push_back(word.c_str());
    std::ostringstream printed;
    auto* const out = std::cout.rdbuf(printed.rdbuf());
    auto* const err = std::cerr.rdbuf(printed.rdbuf());
    EXPECT_EQ(IxocutMain(static_cast<int>(arguments.size()), arguments.data(), {std::move(rows)}), exitCode)
        << printed.str();
    std::cout.rdbuf(out);
    std::cerr.rdbuf(err);
    return printed.str();
  }
  std::string State() const { return FDir.Path().string(); }

  TTempDir FDir;
};

TEST_F(Additions, ARowOfOnesOwnIsMetEverywhere) {
  const std::string file = State() + "/f.json";
  std::ofstream(file) << R"({"commands": [{"command": "own-mark", "port": 4}, {"command": 701}, {"command": 142}]})";
  EXPECT_THAT(Ixocut({"run", "own-mark", "--port", "4", "--state", State(), "--lang", "en"}),
              HasSubstr("Still on: Output 4 (Nozzle cover)\n"));
  EXPECT_THAT(Ixocut({"run", "own-round", "--state", State(), "--lang", "en"}), HasSubstr("3/3: marker off (173)"));
  EXPECT_THAT(Ixocut({"run", file, "--state", State(), "--lang", "en"}),
              HasSubstr("Still on: Output 3 (Pallet clamp), Output 4 (Nozzle cover)\n"));
  EXPECT_THAT(Ixocut({"run", "own-mark", "--port", "99", "--state", State()}, 2),
              HasSubstr("--port: 99 is not one of"));
  EXPECT_THAT(Ixocut({"run", "own-mak", "--state", State()}, 2), HasSubstr("did you mean own-mark?"));
  EXPECT_THAT(Ixocut({"record", "--procedure", "own-mark", "--out", State() + "/a.csv", "--state", State()}),
              HasSubstr("1/1: mark"));
  EXPECT_THAT(Ixocut({"tree", "own-round", "--state", State(), "--lang", "zh"}),
              testing::AllOf(HasSubstr("own-round: mark, and back"), HasSubstr("701 TSmtMark  mark  [port 4]")));
  EXPECT_THAT(Ixocut({"procedures", "--state", State(), "--lang", "en"}),
              testing::AllOf(HasSubstr(" 701  own-mark "), HasSubstr("the marker's output")));
  for (const char* name : {"own-mark", "own-round"})
    EXPECT_THAT(Ixocut({"sweep", "--procedure", name, "--points", "40"}), HasSubstr("violations: 0\n"));
  EXPECT_THAT(Ixocut({"run", "--help"}), HasSubstr("mark the plate"));
  EXPECT_EQ(FindProcedure("own-mark"), nullptr) << "the rows end with the program";
}

TEST_F(Additions, AStepThatWaitsForAFollowerThatIsNotFittedIsStoppedAndSaysWhy) {
  const std::string file = State() + "/machine.xml";
  std::ofstream(file) << R"(<MachineConfig><Simulator Follower="False"/></MachineConfig>)";
  EXPECT_THAT(Ixocut({"run", "own-wait", "--machine", file, "--lang", "en"}, 1, {kFollowerWait}),
              testing::AllOf(HasSubstr("waits for nothing"), HasSubstr("Stopped after 2")));
}

TEST_F(Additions, ARowThatCannotBeIsRefused) {
  const auto row = [](const char* name, std::int32_t command) {
    TProcedure made = kMark;
    made.Name = name;
    made.Command = command;
    return made;
  };
  TProcedure noStep = row("own", 702);
  noStep.Make = nullptr;
  for (const TProcedure& wrong :
       {row("safe-move", 0), row("raise", 0), row("Own", 0), row("", 0), row("own", 131), row("own", -1), noStep})
    EXPECT_THAT(Ixocut({"procedures"}, 2, {kRound, wrong}), HasSubstr("ixocut: procedure "));
  EXPECT_EQ(FindProcedure("own-round"), nullptr);
}

}  // namespace
}  // namespace ixocamglue::test
