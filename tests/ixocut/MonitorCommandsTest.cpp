// Recordings as a user meets them: the real binary, the files that it leaves.
#include <algorithm>
#include <cstdlib>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "controller/recordings/Recording.h"
#include "fixture/Program.h"
#include "ixocamglue/support/Format.h"
#include "tests/monitor/MonitorFiles.h"

namespace ixocamglue::test {
namespace {

using namespace ixocontroller;
using testing::HasSubstr;

class MonitorCommands : public TProgramTest {
 protected:
  MonitorCommands() { FLanguage = "en"; }
};

TEST_F(MonitorCommands, ARecordingShowsWhatTheProcedureDid) {
  const TRun record = Ixocut("record --procedure square --state s --out a.csv");
  ASSERT_EQ(record.ExitCode, 0) << record.Err;
  const auto document = Json("monitor show a.csv", 0);
  EXPECT_EQ(document.at("motors"), nlohmann::json({"X", "Y", "Z", "Focus"}));
  EXPECT_EQ(document.at("notes").size(), 0U);
  std::map<std::string, nlohmann::json> signals;
  for (const auto& signal : document.at("signals")) signals[signal.at("name")] = signal;
  EXPECT_EQ(signals.at("position.1").at("max"), 100);
  EXPECT_EQ(signals.at("position.2").at("max"), 70);
  EXPECT_NEAR(signals.at("speed.1").at("max").get<double>(), 716, 1);
  EXPECT_NEAR(signals.at("following-error.1").at("max").get<double>(), 1.43, 0.01);
  EXPECT_NEAR(signals.at("gas-pressure").at("max").get<double>(), 2.5, 0.01);
  EXPECT_EQ(signals.at("laser").at("max"), 1);
  EXPECT_EQ(signals.at("state").at("max"), 204);
  EXPECT_EQ(signals.at("speed.1").at("caption"), "Speed X (mm/s)");
  EXPECT_THAT(Ixocut("monitor show a.csv --lang zh").Out, HasSubstr("位置 焦点 (mm)"));

  // The same seed, the same bytes; another one's emission comes at another time.
  EXPECT_EQ(Ixocut("record --procedure square --state s --out b.csv").ExitCode, 0);
  EXPECT_EQ(Read("a.csv"), Read("b.csv"));
  EXPECT_EQ(Ixocut("monitor diff a.csv b.csv").ExitCode, 0);
  EXPECT_EQ(Ixocut("record --procedure square --state s --seed 5 --out c.csv").ExitCode, 0);
  const TRun diff = Ixocut("monitor diff a.csv c.csv");
  EXPECT_EQ(diff.ExitCode, 1);
  EXPECT_THAT(diff.Out, HasSubstr("the runs differ"));

  EXPECT_EQ(Ixocut("monitor convert a.csv --to columns --out t.csv").ExitCode, 0);
  EXPECT_THAT(Read("t.csv"), testing::StartsWith("time (ms),Position X (mm),Position Y (mm),"));
  EXPECT_THAT(Read("t.csv"), HasSubstr("\n0,0,0,0,0,"));
}

TEST_F(MonitorCommands, ADamagedFileIsShownRecoveredAndNeverOverwrittenUnread) {
  const std::string whole = kHead + "2,1,1,0,4294967290,2,2,0,0,0,0,0.5,x\n3,1,0\n";
  WriteFile(FDir.Path() / "cut.csv", whole + "2,1,1,0,0,1,2,0,0,0,0,0.5");
  const TRun show = Ixocut("monitor show cut.csv");
  EXPECT_EQ(show.ExitCode, 1);
  for (const char* part : {"line 5, field 13: no number, read as 0: \"x\"", "line 6: skipped", "line 7, field 13",
                           "the last line has no line end", "not whole"})
    EXPECT_THAT(show.Out, HasSubstr(part));
  EXPECT_THAT(Ixocut("monitor recover cut.csv --out whole.csv").Out, HasSubstr("dropped: 25 bytes"));
  EXPECT_EQ(Read("whole.csv"), whole);
  for (const char* command : {"recover cut.csv --out ./cut.csv", "convert cut.csv --to columns --out cut.csv"})
    EXPECT_EQ(Ixocut(std::string("monitor ") + command).ExitCode, 2) << command;
  // What a killed recording left is not written over by the recovery of it.
  WriteFile(FDir.Path() / "run.csv.part", whole + "cut");
  EXPECT_EQ(Ixocut("monitor recover run.csv.part --out run.csv").ExitCode, 0);
  EXPECT_EQ(Read("run.csv"), whole);
  EXPECT_EQ(Read("run.csv.part"), whole + "cut");
  EXPECT_EQ(Ixocut("monitor show run.csv").ExitCode, 0);
  WriteFile(FDir.Path() / "run.csv.part", whole);
  EXPECT_EQ(Ixocut("monitor show run.csv.part").ExitCode, 1);
  // The sample time wraps: 2,1 goes on where it was.
  for (int i = 0; i < 2; ++i) EXPECT_EQ(Ixocut("monitor convert cut.csv --to columns --out t.csv").ExitCode, 0);
  EXPECT_EQ(Read("t.csv"), "time (ms),Position 1 (mm)\n0,0.5\n2,0\n6,0.5\n7,0\n");

  for (const char* file : {"keep", "keep.svg"}) WriteFile(FDir.Path() / file, "precious");
  WriteFile(FDir.Path() / "empty", "");
  WriteFile(FDir.Path() / "old", "Version,1.0.0.0\n");
  WriteFile(FDir.Path() / "none", kHead);
  for (const char* command :
       {"convert absent --to columns --out keep", "convert cut.csv --to columns --out keep",
        "recover cut.csv --out keep", "recover empty --out keep", "convert old --to columns --out keep",
        "plot run.csv --out keep.svg", "plot none --out p.svg", "show .", "diff cut.csv empty",
        "convert empty --to columns --out keep"})
    EXPECT_THAT(Refusal(std::string("monitor ") + command, 3), HasSubstr("ixocut monitor ")) << command;
  for (const char* command : {"record --procedure cover --state s --out keep", "run safe-z --plot keep.svg"})
    EXPECT_EQ(Ixocut(command).ExitCode, 3) << command;
  for (const char* file : {"keep", "keep.svg"}) EXPECT_EQ(Read(file), "precious");
}

TEST_F(MonitorCommands, RunsAreComparedFromTheSameEventAndOnlyWhereBothHaveSamples) {
  const auto laser = [](const char* values) { return kHead + "3,1,0,0,0,1,5,0,0,0,0," + values + "\n"; };
  WriteFile(FDir.Path() / "a", laser("0,1,1,0,0"));
  WriteFile(FDir.Path() / "b", laser("0,0,1,1,0"));
  const auto diff = [&](const std::string& arguments) { return Ixocut("monitor diff " + arguments); };
  EXPECT_EQ(diff("a b").ExitCode, 0) << diff("a b").Out;
  EXPECT_THAT(diff("a b").Out, HasSubstr("0 ms is the first beam of each run"));
  EXPECT_EQ(diff("a b --align start").ExitCode, 1);
  EXPECT_EQ(diff("a b --align procedure").ExitCode, 3);
  EXPECT_EQ(diff("a b --align noon").ExitCode, 2);

  WriteFile(FDir.Path() / "x", kHead + "2,1,1,0,0,1,1,0,0,0,0,0.5\n");
  WriteFile(FDir.Path() / "y", kHead + "2,2,1,0,0,1,1,0,0,0,0,0.5\n");
  WriteFile(FDir.Path() / "none", kHead);
  for (const char* pair : {"x y", "none none"}) {
    EXPECT_EQ(diff(pair).ExitCode, 1) << pair;
    EXPECT_THAT(diff(pair).Out, HasSubstr("nothing was compared")) << pair;
  }
}

TEST_F(MonitorCommands, AValueThatIsNoNumberHidesNothingButItself) {
  WriteFile(FDir.Path() / "a", kHead + "2,1,1,0,0,1,3,0,0,0,0,nan,2.5,-1\n2,1,2,0,0,1,1,0,0,0,0,nan\n");
  const auto signals = Json("monitor show a", 0).at("signals");
  EXPECT_EQ(signals[0].at("min"), -1);
  EXPECT_EQ(signals[0].at("max"), 2.5);
  EXPECT_TRUE(signals[1].at("min").is_null());
  if (std::system("gnuplot --version >/dev/null 2>&1") != 0) GTEST_SKIP() << "gnuplot is not installed";
  const TRun plot = Ixocut("monitor plot a --out a.svg");
  EXPECT_EQ(plot.ExitCode, 0) << plot.Err;
  EXPECT_THAT(plot.Out, HasSubstr("left out, without a number: position.2"));
}

TEST_F(MonitorCommands, ALongFileIsAnOutlineThatKeepsItsExtremesAndTooManySignalsAreRefused) {
  constexpr std::size_t kFrames = kMostOutlineSamples / 32 + 1000;
  std::string text = kHead;
  for (std::size_t i = 0; i < kFrames; ++i) {
    text += Format("2,1,1,0,%zu,1,32,0,0,0,0", i * 32);
    for (int value = 0; value < 32; ++value) text += i == kFrames / 2 && value == 7 ? ",-5" : ",1";
    text += '\n';
  }
  WriteFile(FDir.Path() / "long", text);
  const TRecording outline = LoadRecording((FDir.Path() / "long").string(), TDetail::Outline);
  const TSeries& series = outline.Series.begin()->second;
  EXPECT_LE(series.Ms.size(), kMostOutlineSamples);
  const auto low = std::ranges::min_element(series.Values) - series.Values.begin();
  EXPECT_EQ(series.Values[static_cast<std::size_t>(low)], -5);
  EXPECT_EQ(series.Ms[static_cast<std::size_t>(low)], static_cast<std::int64_t>(kFrames / 2 * 32 + 7));

  text = kHead;
  for (std::size_t i = 0; i <= kMostSignals; ++i) text += Format("2,1,%zu,0,0,1,1,0,0,0,0,1\n", i);
  WriteFile(FDir.Path() / "wide", text);
  for (const char* command :
       {"show wide", "plot wide --out wide.svg", "diff wide wide", "convert wide --to columns --out w"})
    EXPECT_THAT(Refusal(std::string("monitor ") + command, 3), HasSubstr("more than 1000 signals")) << command;
}

TEST_F(MonitorCommands, APlotIsAPictureAndWithoutGnuplotAMessage) {
  WriteFile(FDir.Path() / "a.csv", kHead + "2,1,1,0,0,1,3,0,0,0,0,0.5,nan,2.5\n3,1,0,0,0,1,2,0,0,0,0,0,1\n");
  for (const char* command : {"monitor plot a.csv --out a.svg", "run safe-z --plot a.svg"})
    EXPECT_THAT(Refusal(command, 3, "PATH=/nowhere"), HasSubstr("gnuplot is not installed")) << command;
  if (std::system("gnuplot --version >/dev/null 2>&1") != 0) GTEST_SKIP() << "gnuplot is not installed";
  const TRun plot = Ixocut("monitor plot a.csv --out \"it's.svg\"");
  EXPECT_EQ(plot.ExitCode, 0) << plot.Err;
  EXPECT_THAT(Read("it's.svg"), testing::AllOf(HasSubstr("<svg"), HasSubstr("Position (mm)"), HasSubstr("Laser")));
}

TEST_F(MonitorCommands, AFailureThatWasRecordedSaysWhereAndWhy) {
  const TRun failed = Ixocut("record --procedure wait-emission --state s --out a.csv");
  EXPECT_EQ(failed.ExitCode, 1);
  EXPECT_THAT(failed.Out, HasSubstr("; at: wait-emission, 1/1 Wait until the shutter is open; why: step "));
}

TEST_F(MonitorCommands, AWrongCommandLineDoesNothing) {
  for (const char* command : {"record --out a.csv", "record --procedure nothing --out a.csv",
                              "record --procedure cover", "record --procedure cover --out a.csv --signals speed.9",
                              "monitor", "record --procedure cover --out a.csv --signals speed,",
                              "monitor plot x --out a.csv", "monitor convert x --to rows --out a.csv", "monitor show",
                              "record --procedure wait-input --input 5 --time 100 --output 1 --out a.csv"}) {
    const TRun run = Ixocut(command);
    EXPECT_EQ(run.ExitCode, 2) << command << run.Err;
    EXPECT_FALSE(std::filesystem::exists(FDir.Path() / "a.csv")) << command;
  }
  EXPECT_EQ(Ixocut("record --procedure cover --state s --out no/a.csv").ExitCode, 3);
}

}  // namespace
}  // namespace ixocamglue::test
