// The oracle on journals that were made by hand: each unsafe one in journals/ is refused by its rule, and the good one
// beside it passes.
#include <filesystem>
#include <sstream>

#include <gmock/gmock.h>

#include "fixture/Paths.h"
#include "ixocamglue/support/Files.h"
#include "verify/JournalFile.h"

namespace ixocamglue::test {
using namespace ixoverify;
namespace {

namespace fs = std::filesystem;
using testing::Contains;
using testing::HasSubstr;

constexpr const char* kUnsafe[] = {
    "dark-late",          "axes-run-on",     "shot-too-long",          "head-down-fast",
    "calibrate-lit",      "lit-under-alarm", "pallet-leaves-follower", "aiming-left-on",
    "lit-after-callback", "numbers-asked",   "target-outside",         "gas-held",
    "saved-by-latch",     "gas-read-fails",  "wait-output-left",
};

std::string TextOf(const std::string& name) {
  return ReadFile(fs::path(TestSources()) / "verify" / "journals" / name).OrThrow(pbUnusable);
}

std::vector<std::string> Judged(const std::string& text) {
  const TJournalFile journal = ReadJournal(text).OrThrow(pbUnusable);
  std::vector<std::string> lines;
  for (const TFinding& finding : CheckRun(journal.Entries, journal.Samples, journal.Expected, TSimConfig()))
    lines.push_back(finding.Line());
  return lines;
}

class OracleJournal : public testing::TestWithParam<const char*> {};

TEST_P(OracleJournal, TheUnsafeOneIsRefusedByItsRuleAndTheGoodOnePasses) {
  constexpr std::string_view kRefused = "# refused: ";
  const std::string bad = TextOf(GetParam() + std::string(".bad"));
  const std::size_t at = bad.find(kRefused) + kRefused.size();
  const std::string rule = bad.substr(at, bad.find('\n', at) - at);
  EXPECT_THAT(OracleRules(), Contains(rule));
  EXPECT_THAT(Judged(bad), Contains(testing::StartsWith(rule + ": ")));
  EXPECT_THAT(Judged(TextOf(GetParam() + std::string(".good"))), testing::IsEmpty());
}

TEST_P(OracleJournal, IsWrittenAsItWasRead) {
  const TJournalFile read = ReadJournal(TextOf(GetParam() + std::string(".bad"))).OrThrow(pbUnusable);
  std::ostringstream once;
  WriteJournal(once, read);
  std::ostringstream twice;
  WriteJournal(twice, ReadJournal(once.str()).OrThrow(pbUnusable));
  EXPECT_EQ(once.str(), twice.str());
  EXPECT_EQ(Judged(once.str()), Judged(TextOf(GetParam() + std::string(".bad"))));
}

INSTANTIATE_TEST_SUITE_P(Journals, OracleJournal, testing::ValuesIn(kUnsafe), [](const auto& journal) {
  std::string name = journal.param;
  std::erase(name, '-');
  return name;
});

// Two runs that end well in words, with a latch that tripped in one and a device call that hangs in the other.
TEST(Oracle, BelievesNeitherASuccessNorALatchThatSavedIt) {
  const std::string head =
      "expect success=1\n100 sample docked=1\n100 state 204\n100 start laser.EmissionOn\n"
      "110 sample state=204 emission=1\n110 start laser.SwitchLaser on\n110 sample light=1\n";
  const std::string tail =
      "600 off laser.SwitchLaser off\n600 off laser.EmissionOff\n600 state 0\n"
      "610 sample state=0 emission=0 light=0\n900 sample\n";
  EXPECT_THAT(Judged(head + "150 hang 300\n350 sample light=0 emission=0 latch=1\n" + tail),
              testing::ElementsAre("latched-success: success with a latch that has tripped"));
  EXPECT_THAT(Judged(head + "150 hang 300\n500 sample\n" + tail),
              Contains("light-after-cause: light 350 ms into a hang"));
  EXPECT_THAT(Judged(head + tail), testing::IsEmpty());
}

TEST(Oracle, OnlyAHangThatStillLastsAtTheCauseIsAnExcuse) {
  const auto hung = [](const std::string& early, const std::string& late) {
    return Judged("100 sample docked=1\n100 state 204\n100 start laser.EmissionOn\n" + early +
                  "210 sample state=204 emission=1\n210 start laser.SwitchLaser on\n210 sample light=1\n" + late +
                  "600 cause stop\n670 sample\n680 off laser.SwitchLaser off\n680 off laser.EmissionOff\n680 state 0\n"
                  "690 sample state=0 emission=0 light=0\n900 sample\n");
  };
  EXPECT_THAT(hung("100 hang 100\n", ""), testing::ElementsAre("light-after-cause: light 70 ms after the cause"));
  EXPECT_THAT(hung("", "550 hang 130\n"), testing::IsEmpty());
}

TEST(Oracle, WhatALatchEndsInTheWaitForEmissionIsTakenBackWhenThatIsOver) {
  const auto taken = [](const std::string& ms) {
    return Judged("100 sample docked=1 leaf=516\n100 state 204\n110 sample state=204\n110 start laser.EmissionOn\n" +
                  ("200 sample latch=1\n" + ms + " off laser.SwitchLaser off\n") + ms + " off laser.EmissionOff\n" +
                  ms + " state 0\n9000 sample state=0\n");
  };
  EXPECT_THAT(taken("5120"), testing::IsEmpty());
  EXPECT_THAT(taken("8000"), testing::ElementsAre("latch: dark at 200 ms by the latch only"));
}

TEST(Oracle, OnlyTheVerbThatFailedIsExcused) {
  const auto with = [](const std::string& verb, const std::string& end) {
    return Judged(
        "100 sample branch=1\n100 state 204\n100 start gas.SwitchOn\n110 sample state=204 gas=1\n"
        "500 cause stop\n500 off gas." +
        verb + " -> failed\n510 state 0\n520 sample state=0\n3000 sample" + end);
  };
  EXPECT_THAT(with("SwitchOff", "\n3000 mended\n3050 sample gas=0"), testing::IsEmpty());
  EXPECT_THAT(with("SwitchOff", "\n3000 mended\n3050 sample"),
              testing::ElementsAre("gas-after-end: gas is open though its device is mended"));
  EXPECT_THAT(with("SetPressure", "\n3000 mended\n3050 sample gas=0"), Contains(HasSubstr("gas-after-end")));
}

TEST(JournalFile, SaysWhatIsWrongAndWhere) {
  const std::pair<const char*, const char*> rows[] = {
      {"# none\nsoon sample", "line 2: \"soon\" is no time in ms"},
      {"100 sample glow=1", "line 1: unknown quantity \"glow\""},
      {"100 sample x=far", "line 1: \"far\" is no number"},
      {"100 start laser", "line 1: a command is \"device.Verb\""},
      {"100 maybe laser.EmissionOn", "line 1: unknown word \"maybe\""},
      {"expect luck=1", "line 1: unknown quantity \"luck\""},
  };
  for (const auto& [text, problem] : rows) {
    const auto read = ReadJournal(text);
    ASSERT_FALSE(read.Ok()) << text;
    EXPECT_EQ(read.Problem().Text(), problem);
  }
}

}  // namespace
}  // namespace ixocamglue::test
