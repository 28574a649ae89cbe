#include <csignal>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <functional>
#include <sys/resource.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "fixture/Faults.h"
#include "fixture/TempDir.h"
#include "ixocamglue/alarms/store/AlarmHistory.h"
#include "ixocamglue/alarms/store/AlarmStore.h"
#include "ixocamglue/platform/services/UtcTime.h"
#include "ixocamglue/platform/services/VirtualClock.h"

namespace ixocamglue::test {
namespace {

class AlarmStoreFile : public testing::Test {
 protected:
  TAlarmStore& Open(TAlarmStoreOptions options = {}) {
    FStore.reset();
    FStore.emplace(File, std::move(options));
    return *FStore;
  }
  std::shared_ptr<IAlarmItem> Item(const char* id, std::uint8_t level = 0, std::uint64_t serial = 0) {
    auto item = FStore->CreateAlarmItem();
    item->SetAlarmId(id);
    item->SetCode("C");
    item->SetDesc("d'; DROP TABLE alarms; --");
    item->SetTime(Clock.Now());
    item->SetFinal(false);
    item->SetLevel(level);
    item->SetSerial(serial);
    item->SetDefinition("module", "type", "reason of " + std::string(id), "solution");
    return item;
  }
  TTexts Rows(TAlarmFilter filter = {}) {
    TTexts texts;
    for (const TAlarmRow& row : TAlarmHistory(File).Rows(filter))
      texts.push_back(row.Identifier + (row.Active() ? " active" : " cleared") + row.Mark +
                      (row.ByWhom.empty() ? "" : " " + row.ByWhom) + (row.FirstOut ? " first" : ""));
    return texts;
  }

  const TTempDir Folder;
  const std::filesystem::path File = Folder.Path() / "alarms.db";
  TVirtualClock Clock;
  TInstalled<IClock> ClockInstalled{Clock};
  std::optional<TAlarmStore> FStore;
};

TEST_F(AlarmStoreFile, AClearClosesTheRowOfItsOwnRaiseAndARestartClosesTheRest) {
  TAlarmStore& store = Open();
  ASSERT_TRUE(store.Open());
  store.AddAlarmItem(Item("A#1", 1));
  store.Commit();
  Clock.Sleep(5);
  store.AddAlarmItem(Item("A#1", 1));
  store.AddAlarmItem(Item("B#1"));
  Clock.Sleep(5);
  store.RemoveAlarmItem(Item("A#1", 1));
  store.RemoveAlarmItem(Item("never#1"));
  store.Acknowledge("B#1", "Li");
  store.Commit();
  EXPECT_EQ(Rows(), (TTexts{"A#1 active first", "A#1 cleared", "B#1 active Li"}));
  const TAlarmRow row = TAlarmHistory(File).Rows({.Level = 1}).front();
  EXPECT_EQ(row.Module + "|" + row.Type + "|" + row.Reason + "|" + row.Solution + "|" + row.Description,
            "module|type|reason of A#1|solution|d'; DROP TABLE alarms; --");
  EXPECT_EQ(Rows({.What = TAlarmFilter::TWhat::History}), TTexts{"A#1 cleared"});
  EXPECT_EQ(Rows({.What = TAlarmFilter::TWhat::Active, .Identifier = "B#1"}), TTexts{"B#1 active Li"});
  Open().DeleteResidualAlarms();
  EXPECT_EQ(Rows(), (TTexts{"A#1 clearedrestart first", "A#1 cleared", "B#1 clearedrestart Li"}));

  std::filesystem::remove(File);
  FStore->AddAlarmItem(Item("known#1", 1, 2));
  FStore->AddAlarmItem(Item("known#1", 0, 1));
  FStore->AddAlarmItem(Item("plain#1", 1));
  FStore->AddAlarmItem(Item("plain#1", 0));
  FStore->RemoveAlarmItem(Item("known#1", 1, 2));
  FStore->RemoveAlarmItem(Item("known#1", 0, 99));
  FStore->RemoveAlarmItem(Item("plain#1", 1));
  FStore->MarkByHand(1);
  FStore->Commit();
  TTexts levels;
  for (const TAlarmRow& open : TAlarmHistory(File).Rows({.What = TAlarmFilter::TWhat::Active}))
    levels.push_back(open.Identifier + " " + std::to_string(open.Level) + open.Mark);
  EXPECT_EQ(levels, (TTexts{"known#1 0operator", "plain#1 0"})) << "newer, and not what was cleared";
}

TEST_F(AlarmStoreFile, WhatCannotBeWrittenIsToldAndWaitsAndOnlyTheOldestIsLost) {
  TTexts told;
  TAlarmStoreOptions options;
  options.OnFailed = [&](const TProblem& why, bool) { told.push_back(why.What); };
  options.OnWritten = [&] { told.emplace_back("written"); };
  options.OnLost = [&](std::uint64_t) { told.emplace_back("lost"); };
  options.QueueLimit = 3;
  TAlarmStore& store = Open(options);
  store.OnFate([&](const TAlarmFate& fate) {
    told.push_back(std::to_string(fate.Serial) + (fate.Stored ? " stored" : " waits"));
  });
  ASSERT_TRUE(store.Open());
  {
    TSqliteDb other(File, TSqliteDb::TMode::ReadWrite, 0);
    other.Exec("BEGIN IMMEDIATE");
    for (const std::uint64_t serial : {1U, 2U, 3U}) store.AddAlarmItem(Item("A#1", 0, serial));
    store.Commit();
    EXPECT_EQ(Rows(), TTexts{}) << "readers are not kept out";
    for (const std::uint64_t serial : {4U, 5U}) store.AddAlarmItem(Item("A#1", 0, serial));
    EXPECT_EQ(store.Lost(), 2U);
    EXPECT_EQ(store.Unstored().size(), 3U);
    other.Exec("COMMIT");
  }
  store.Commit();
  EXPECT_EQ(store.Waiting(), 3U) << "tried again after a second, not before";
  Clock.Sleep(kStoreRetryMs);
  store.AddAlarmItem(Item("A#1", 0, 6));
  store.RemoveAlarmItem(Item("A#1", 0, 1));
  store.Commit();
  EXPECT_EQ(told, (TTexts{"another program locks the file", "1 waits", "2 waits", "3 waits", "lost", "4 waits",
                          "5 waits", "written", "6 stored", "1 stored"}));
  EXPECT_EQ(Rows(), (TTexts{"A#1 active first", "A#1 active"})) << "the clear of a lost raise closes no other row";
}

TEST_F(AlarmStoreFile, OneThatIsDeletedOrMovedIsMadeAgainWithWhatStands) {
  const auto aside = Folder.Path() / "aside.db";
  const std::function<void()> ways[] = {[&] { std::filesystem::remove(File); },
                                        [&] { std::filesystem::rename(File, aside); },
                                        [&] {
                                          for (const char* const end : {"", "-wal", "-shm", ".lock"})
                                            std::filesystem::remove(File.string() + end);
                                        }};
  for (const auto& way : ways) {
    int madeAgain = 0;
    TAlarmStore& store = Open({.OnMadeAgain = [&] { ++madeAgain; }});
    ASSERT_TRUE(store.Open());
    for (const std::uint64_t serial : {1U, 2U}) store.AddAlarmItem(Item("stands#1", 0, serial));
    store.RemoveAlarmItem(Item("stands#1", 0, 1));
    store.Commit();
    way();
    Clock.Sleep(kStoreRetryMs);
    store.Commit();  // nothing waits
    EXPECT_EQ(Rows(), TTexts{"stands#1 active first"});
    way();
    store.RemoveAlarmItem(Item("stands#1", 0, 2));
    store.Commit();
    EXPECT_EQ(Rows(), TTexts{"stands#1 cleared first"});
    EXPECT_EQ(madeAgain, 2);
    EXPECT_EQ(TAlarmStore(File, {}).Open().Problem().What, "the file is in use by process " + std::to_string(getpid()));
    FStore.reset();
    std::filesystem::remove(File);
  }
  EXPECT_EQ(TAlarmHistory(aside).Rows({}).size(), 1U) << "what was moved has its rows";
}

TEST_F(AlarmStoreFile, OneThatIsDeletedOnAFullDiskIsMadeAgainWithWhatStands) {
  TAlarmStore& store = Open();
  ASSERT_TRUE(store.Open());
  store.AddAlarmItem(Item("early#1", 0, 1));
  store.Commit();
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
  const rlimit full{1, before.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &full), 0);
  store.AddAlarmItem(Item("late#1", 0, 2));
  store.Commit();
  std::filesystem::remove(File);
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &before), 0);
  EXPECT_EQ(store.Unstored().size(), 1U);
  Clock.Sleep(kStoreRetryMs);
  store.Commit();
  store.RemoveAlarmItem(Item("early#1", 0, 1));
  store.Commit();
  EXPECT_EQ(Rows(), (TTexts{"early#1 cleared first", "late#1 active"}));
}

TEST_F(AlarmStoreFile, HasOneWriterWhileEverybodyReads) {
  ASSERT_TRUE(Open().Open());
  FStore->AddAlarmItem(Item("first#1"));
  FStore->Commit();
  bool heldByOther = false;
  TAlarmStore second(File, {.OnFailed = [&](const TProblem&, bool held) { heldByOther = held; }});
  EXPECT_FALSE(second.Open());
  EXPECT_TRUE(heldByOther);
  second.AddAlarmItem(Item("second#1"));
  Clock.Sleep(kStoreRetryMs);
  second.Commit();
  EXPECT_EQ(Rows(), TTexts{"first#1 active first"});
  FStore.reset();
  second.Close();
  EXPECT_EQ(second.Unstored().size(), 0U) << "the first has ended meanwhile";
}

TEST_F(AlarmStoreFile, AnotherFileIsNeverOverwritten) {
  std::ofstream(File) << "this is no database, and it is long enough to be looked at as one..........................";
  TAlarmStore& text = Open();
  EXPECT_NE(text.Open().Problem().What.find("no database"), std::string::npos);
  EXPECT_THROW(TAlarmHistory{File}, ESqlite);
  FStore.reset();
  std::filesystem::remove(File);
  TSqliteDb(File, TSqliteDb::TMode::Create, 0).Exec("CREATE TABLE customers(name TEXT)");
  EXPECT_EQ(Open().Open().Problem().Text(), File.string() + ": the file is another program's database");
  EXPECT_THROW(TAlarmHistory{File}, ESqlite);
  EXPECT_THROW(TAlarmHistory{Folder.Path() / "none.db"}, ESqlite);
  struct TForeign final : IAlarmItem {
    void SetAlarmId(std::string_view) override {}
    void SetCode(std::string_view) override {}
    void SetDesc(std::string_view) override {}
    void SetTime(TDateTime) override {}
    void SetFinal(bool) override {}
  };
  EXPECT_THROW(FStore->AddAlarmItem(std::make_shared<TForeign>()), std::invalid_argument);
}

TEST_F(AlarmStoreFile, RetentionDeletesOldClosedRowsOnly) {
  Open().AddAlarmItem(Item("old#1"));
  FStore->AddAlarmItem(Item("stands#1"));
  FStore->RemoveAlarmItem(Item("old#1"));
  Open({.RetentionDays = 0}).Commit();
  EXPECT_EQ(Rows().size(), 2U);
  TSqliteDb(File, TSqliteDb::TMode::ReadWrite, 0).Exec("UPDATE alarms SET raised='2025-12-29T07:59:59.999+00:00'");
  Open({.RetentionDays = 3}).AddAlarmItem(Item("new#1"));
  FStore->Commit();
  EXPECT_EQ(Rows(), (TTexts{"stands#1 active first", "new#1 active"}));
}

// In a place that puts its clocks back at 03:00 on 2026-10-25.
class AlarmTimes : public AlarmStoreFile {
 protected:
  AlarmTimes() {
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    tzset();
  }
  ~AlarmTimes() override {
    unsetenv("TZ");
    tzset();
  }
};

TEST_F(AlarmTimes, AChangeOfTheClocksReordersNothing) {
  ASSERT_TRUE(Open().Open());
  for (const char* const id : {"before#1", "back#1"}) {
    FStore->AddAlarmItem(Item(id));
    FStore->Commit();
    Clock.SetWall(-1.0 / 24.0);
  }
  FStore->AddAlarmItem(Item("same#1"));
  FStore->AddAlarmItem(Item("same#2", 1));
  FStore->Commit();
  EXPECT_EQ(Rows(), (TTexts{"before#1 active first", "back#1 active", "same#2 active", "same#1 active"}));
  // The first version wrote local times.
  TSqliteDb(File, TSqliteDb::TMode::ReadWrite, 0)
      .Exec("UPDATE alarms SET raised='2026-07-01 08:00:00.000', cleared='2026-12-01 08:00:00.000' WHERE row=1");
  const TAlarmRow old = TAlarmHistory(File).Rows({}).front();
  EXPECT_EQ(old.Raised + " " + old.Cleared, "2026-07-01T06:00:00.000+00:00 2026-12-01T07:00:00.000+00:00");
}

TEST_F(AlarmTimes, MomentsAreReadAndShownWithTheirOffset) {
  const std::pair<const char*, const char*> shown[] = {{"2026-10-25T00:30:00.007Z", "2026-10-25 02:30:00.007+02:00"},
                                                       {"2026-10-25 01:30+00:00", "2026-10-25 02:30:00.000+01:00"},
                                                       {"2026-10-25T02:30:00-05:30", "2026-10-25 09:00:00.000+01:00"},
                                                       {"2026-07-01", "2026-07-01 00:00:00.000+02:00"},
                                                       {"2026-07-01 14:00", "2026-07-01 14:00:00.000+02:00"}};
  for (const auto& [text, local] : shown) EXPECT_EQ(FormatLocal(ParseMoment(text).value()), local) << text;
  for (const char* const text : {"", "1970-1-2", "1970-02-30", "1970-01-01 24:00", "1970-01-01 00", "1970-01-01+1:00",
                                 "1970-01-01 00:00 +01:00", "1970-01-01 00:00+24:00"})
    EXPECT_FALSE(ParseMoment(text)) << text;
}

TEST(AlarmStats, LimitsAreTheNamedOnes) {
  std::vector<TAlarmRow> rows;
  const auto raise = [&](const char* id, const std::string& time, bool active = false) {
    TAlarmRow row;
    row.Identifier = id;
    row.Raised = "2026-01-02 " + time;
    row.Cleared = active ? "" : row.Raised;
    rows.push_back(row);
  };
  rows.emplace_back().Identifier = "stale#1";
  rows.back().Raised = "2026-01-01 09:59:59.999";
  for (const char* const s : {"00", "30"}) raise("calm#1", std::string("08:00:") + s + ".000");
  raise("calm#1", "08:01:00.001");  // the third comes after 60.001 s, and one more a minute later
  raise("calm#1", "08:02:00.002");
  for (int i = 0; i < 10; ++i) raise(i < 3 ? "chatter#1" : "x#1", "09:0" + std::to_string(i) + ":00.000");
  for (int i = 0; i < 3; ++i) raise("chatter#1", "09:55:0" + std::to_string(i) + ".000", i == 2);
  TAlarmStats stats = StatsOf(rows, *ParseMoment("2026-01-02 10:00"));
  EXPECT_EQ(stats.Raises, 18U);
  EXPECT_EQ(stats.Active, 2U);
  EXPECT_EQ(stats.LastSpan, 3U);
  EXPECT_EQ(stats.BusiestSpan, 10U);
  EXPECT_TRUE(stats.Floods.empty()) << "10 in 10 minutes are no flood";
  ASSERT_EQ(stats.Chattering.size(), 1U);
  EXPECT_EQ(stats.Chattering[0].Identifier, "chatter#1");
  ASSERT_EQ(stats.Stale.size(), 1U);
  EXPECT_EQ(stats.Stale[0].Identifier, "stale#1");
  EXPECT_EQ(stats.Frequent.front().Identifier, "x#1");
  rows.insert(rows.begin() + 15, rows[14]);
  stats = StatsOf(rows, *ParseMoment("2026-01-02 10:00"));
  ASSERT_EQ(stats.Floods.size(), 1U);
  EXPECT_EQ(stats.Floods[0].Raises, 11U);
}

TEST(AlarmStats, LevelOneIsNeverSuppressed) {
  TAlarmRow row;
  row.Identifier = "A#1";
  const std::vector<TAlarmSuppression> suppressions{{"A#1", "", ""}};
  EXPECT_TRUE(IsSuppressed(row, suppressions));
  row.Level = 1;
  EXPECT_FALSE(IsSuppressed(row, suppressions));
}

}  // namespace
}  // namespace ixocamglue::test
