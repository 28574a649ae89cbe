#include <csignal>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>

#include "controller/history/RunArchive.h"
#include "controller/history/RunHistory.h"
#include "fixture/TempDir.h"
#include "fixture/Texts.h"
#include "fixture/Waiting.h"
#include "ixocamglue/platform/services/VirtualClock.h"

namespace ixocontroller {
namespace {

using ixocamglue::test::TTempDir;
using ixocamglue::test::TTexts;
THistoryRun Record(const std::string& name, std::int64_t ms = 0, const char* outcome = "") {
  THistoryRun run;
  run.Name = name;
  run.Params = R"({"from":1})";
  run.Who = "Li'; DROP TABLE runs; --";
  run.Started = "2026-01-01T08:00:00.000+00:00";
  run.Outcome = outcome;
  run.DurationMs = ms;
  if (*outcome) run.Ended = "2026-01-01T08:00:09.000+00:00";
  return run;
}

class RunHistory : public testing::Test {
 protected:
  TRunHistory& Open(TRunHistoryOptions options = {}) {
    FHistory.reset();
    FHistory.emplace(File, std::move(options));
    Opened = FHistory->Open().Ok();
    return *FHistory;
  }
  std::int64_t Do(THistoryRun run) {
    THistoryRun begun = run;
    begun.Outcome.clear();
    begun.Ended.clear();
    begun.Steps.clear();
    begun.Alarms.clear();
    run.Id = FHistory->Begin(std::move(begun));
    const std::int64_t id = run.Id;
    FHistory->End(std::move(run));
    return id;
  }
  TTexts Rows(const THistoryFilter& filter = {}) {
    TTexts rows;
    for (const THistoryRun& run : TRunArchive(File).List(filter))
      rows.push_back(std::to_string(run.Id) + " " + run.Name + " " + run.Outcome);
    return rows;
  }

  const TTempDir Folder;
  const std::filesystem::path File = Folder.Path() / "runs.db";
  TVirtualClock Clock;
  TInstalled<IClock> ClockInstalled{Clock};
  std::optional<TRunHistory> FHistory;
  bool Opened = false;
};

TEST_F(RunHistory, ARunIsOneRowThatARestartClosesAsLostAndNumbersGoOn) {
  Open();
  THistoryRun run = Record("change-nozzle", 900, "alarm");
  run.Detached = true;
  run.Path = "TSmtSequence/TSmtWaitInport";
  run.Language = "zh";
  run.Problem = TProblem{"it ended", "step 2", "an alarm", "look"};
  run.Alarms = {{300, 450, 0, "TPGas#2", "low"}, {880, {}, 1, "TPHost#1", "no motion"}};
  run.Steps = {{0, 1, 2, "go", 0, 400}, {1, 1, 1, "raise", 0, 100}, {0, 2, 2, "wait", 400, 500}};
  EXPECT_EQ(Do(run), 1);
  EXPECT_EQ(FHistory->Begin(Record("shot")), 2);
  EXPECT_EQ(FHistory->Running().front().Name, "shot");
  Open();
  ASSERT_TRUE(Opened);
  EXPECT_EQ(Do(Record("shot", 60, "success")), 3);
  FHistory->Close();
  EXPECT_EQ(Rows(), (TTexts{"3 shot success", "2 shot lost", "1 change-nozzle alarm"}));
  EXPECT_EQ(Rows({.Limit = 1, .Before = 3}), TTexts{"2 shot lost"});
  EXPECT_EQ(Rows({.Name = "change-nozzle"}), TTexts{"1 change-nozzle alarm"});

  const THistoryRun back = TRunArchive(File).Find(1).value();
  EXPECT_EQ(back.Who + back.Params + back.Path + back.Language + back.Started + back.Ended,
            run.Who + run.Params + run.Path + run.Language + run.Started + run.Ended);
  EXPECT_EQ(back.Problem, run.Problem);
  EXPECT_TRUE(back.Detached && back.Steps.size() == 3 && back.Steps[2].Desc == "wait" && back.Steps[2].Ms == 500);
  ASSERT_EQ(back.Alarms.size(), 2U);
  EXPECT_TRUE(back.Alarms[0].AtMs == 300 && back.Alarms[0].ClearedMs == 450 && back.Alarms[0].Desc == "low");
  EXPECT_TRUE(back.Alarms[1].AtMs == 880 && !back.Alarms[1].ClearedMs && back.Alarms[1].Identifier == "TPHost#1");
  EXPECT_FALSE(TRunArchive(File).Find(4));
  EXPECT_EQ(TRunArchive(File).Find(2)->Problem, std::nullopt);
}

TEST_F(RunHistory, AFileThatCannotBeWrittenIsToldOnceWaitsForNobodyAndGetsWhatWasKept) {
  int failed = 0;
  int written = 0;
  std::uint64_t lost = 0;
  Open({.OnFailed = [&](const TProblem&) { ++failed; },
        .OnWritten = [&] { ++written; },
        .OnLost = [&](std::uint64_t) { ++lost; },
        .QueueLimit = 4});
  ASSERT_TRUE(ixocamglue::test::Comes([&] { return FHistory->Waiting().empty(); }));
  {
    TSqliteDb other(File, TSqliteDb::TMode::ReadWrite, 0);
    other.Exec("BEGIN EXCLUSIVE");
    for (int i = 0; i < 3; ++i) Do(Record("shot", i, "success"));
    ASSERT_TRUE(ixocamglue::test::Comes([&] { return FHistory->Failing(); }));
    EXPECT_NE(FHistory->Trouble().What, "");
    for (int i = 3; i < 7; ++i) Do(Record("shot", i, "success"));
    const auto waiting = FHistory->Waiting();
    EXPECT_TRUE(waiting.size() <= 4 && waiting.back().Id == 7 && waiting.back().DurationMs == 6);
    other.Exec("ROLLBACK");
  }
  ASSERT_TRUE(ixocamglue::test::Comes([&] { return FHistory->Waiting().empty() && !FHistory->Failing(); }));
  EXPECT_EQ(Rows().front() + " of " + std::to_string(Rows().size()),
            "7 shot success of " + std::to_string(7 - FHistory->Lost()));
  std::filesystem::remove(File);  // made again with the next run
  Do(Record("after"));
  FHistory->Close();
  EXPECT_EQ(std::pair(failed, written), std::pair(1, 1));
  EXPECT_EQ(std::pair(lost, Rows()), std::pair(std::uint64_t{1}, TTexts{"8 after "}));

  TFileLock other;  // another program writes it
  ASSERT_EQ(other.Take(File.string(), 0), lsHeld);
  Open();
  EXPECT_FALSE(Opened);
  EXPECT_GT(Do(Record("kept", 1, "success")), 1'000'000'000'000);
  other.Release();
  ASSERT_TRUE(ixocamglue::test::Comes([&] { return FHistory->Waiting().empty(); }));
  EXPECT_EQ(Rows().size(), 2U);
}

TEST_F(RunHistory, OldRunsGoAndThoseThatAreLeftTellTrendSlowestStepAndEstimate) {
  Open({.Kept = 4});
  for (const std::int64_t ms : {100, 200, 300, 400, 500}) {
    THistoryRun run = Record("pierce", ms, ms == 300 ? "stopped" : "success");
    run.Steps = {{0, 1, 2, "gas", 0, ms / 10}, {0, 2, 2, "beam", 10, ms / 2}, {1, 1, 1, "delay", 10, ms / 2}};
    Do(std::move(run));
  }
  THistoryRun other = Record("pierce", 9000, "success");
  other.Params = "{}";
  Do(std::move(other));
  EXPECT_EQ(FHistory->EstimateMs("pierce", R"({"from":1})"), 300);  // the median of 100, 200, 400 and 500
  EXPECT_EQ(FHistory->EstimateMs("pierce", R"({"from":2})"), 400);
  EXPECT_EQ(FHistory->EstimateMs("shot", "{}"), std::nullopt);
  Open();
  EXPECT_EQ(FHistory->EstimateMs("pierce", R"({"from":1})"), 450);

  TRunArchive archive(File);
  EXPECT_EQ(Rows().size(), 4U);
  TTexts trend;
  for (const THistoryRun& run : archive.Trend("pierce", 2)) trend.push_back(std::to_string(run.DurationMs));
  EXPECT_EQ(trend, (TTexts{"9000", "500"}));
  const auto steps = archive.Steps("pierce", 10);
  ASSERT_EQ(steps.size(), 2U);  // the beam is its delay
  EXPECT_EQ(steps[0].Desc + " " + std::to_string(steps[0].MedianMs) + " " + std::to_string(steps[0].WorstRun),
            "delay 225 5");

  const auto a = archive.Find(4).value().Steps;
  auto b = archive.Find(5).value().Steps;
  b.insert(b.begin() + 1, THistoryStep{0, 2, 3, "new", 50, 7});
  b.erase(b.begin());
  TTexts pairs;
  for (const TStepPair& pair : CompareSteps(a, b))
    pairs.push_back(pair.Step.Desc + " " + std::to_string(pair.A.value_or(-1)) + " " +
                    std::to_string(pair.B.value_or(-1)));
  EXPECT_EQ(pairs, (TTexts{"new -1 7", "gas 40 -1", "beam 200 250", "delay 200 250"}));
}

TEST_F(RunHistory, AKillAtAnyMomentLeavesAWholeFileAndEveryRunThatWasWritten) {
  std::int64_t known = 0;
  for (int round = 0; round < 6; ++round) {
    int news[2];
    ASSERT_EQ(pipe(news), 0);
    const pid_t child = fork();
    if (child == 0) {
      close(news[0]);
      TRunHistory history(File);
      if (!history.Open()) _exit(1);
      for (;;) {
        THistoryRun run = Record("shot");
        run.Id = history.Begin(run);
        while (run.Id % 2 == 0 && !history.Waiting().empty()) std::this_thread::yield();
        run.Outcome = "success";
        run.Ended = run.Started;
        run.Steps.assign(20, {0, 1, 20, "delay", 0, 1});
        const std::int64_t id = run.Id;
        history.End(std::move(run));
        while (!history.Waiting().empty()) std::this_thread::yield();
        if (write(news[1], &id, sizeof id) < 0) _exit(1);
      }
    }
    close(news[1]);
    std::int64_t id = 0;
    for (int i = 0; i <= round; ++i)  // then at any point of the next ones
      if (read(news[0], &id, sizeof id) != sizeof id) break;
    std::this_thread::sleep_for(std::chrono::microseconds(700 * round));
    kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFSIGNALED(status)) << "the program that writes has ended by itself";
    while (read(news[0], &id, sizeof id) == sizeof id) continue;
    close(news[0]);
    ASSERT_GT(id, known);
    known = id;

    Open();
    ASSERT_TRUE(Opened);
    FHistory->Close();
    TSqliteDb db(File, TSqliteDb::TMode::ReadOnly, 100);
    TSqliteStmt check(db, "PRAGMA integrity_check");
    ASSERT_TRUE(check.Step());
    ASSERT_EQ(check.Text(0), "ok");
    TSqliteStmt open(db, "SELECT count(*) FROM runs WHERE ended IS NULL");
    TSqliteStmt whole(db,
                      "SELECT count(*) FROM runs WHERE id<=?1 AND outcome='success' AND 20=(SELECT count(*) FROM steps "
                      "WHERE run=id)");
    whole.Bind(1, known);
    ASSERT_TRUE(open.Step() && whole.Step());
    EXPECT_EQ(open.Int(0), 0);
    TSqliteStmt lost(db, "SELECT count(*) FROM runs WHERE id<=?1 AND outcome='lost'");
    lost.Bind(1, known);
    ASSERT_TRUE(lost.Step());
    EXPECT_EQ(whole.Int(0) + lost.Int(0), known);
    EXPECT_LE(lost.Int(0), round);
  }
}

}  // namespace
}  // namespace ixocontroller
