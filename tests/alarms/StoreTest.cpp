#include <fstream>

#include <gtest/gtest.h>

#include "fixture/Faults.h"
#include "fixture/TempDir.h"
#include "ixocamglue/alarms/store/AlarmHistory.h"
#include "ixocamglue/alarms/store/AlarmStore.h"
#include "ixocamglue/platform/services/VirtualClock.h"

namespace ixocamglue::test {
namespace {

class Store : public testing::Test {
 protected:
  TAlarmStore& Open(TAlarmStoreOptions options = {}) {
    FStore.reset();
    FStore.emplace(File, std::move(options));
    return *FStore;
  }
  std::shared_ptr<IAlarmItem> Item(const char* id, std::uint8_t level = 0) {
    auto item = FStore->CreateAlarmItem();
    item->SetAlarmId(id);
    item->SetCode("C");
    item->SetDesc("d'; DROP TABLE alarms; --");
    item->SetTime(Clock.Now());
    item->SetFinal(false);
    item->SetLevel(level);
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

TEST_F(Store, AClearClosesTheNewestOpenRowAndARestartClosesTheRest) {
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
}

TEST_F(Store, WhatCannotBeWrittenWaitsAndOnlyTheOldestIsLost) {
  std::uint64_t told = 0;
  TAlarmStore& store = Open({.OnLost = [&](std::uint64_t lost) { told += lost; }, .QueueLimit = 3});
  ASSERT_TRUE(store.Open());
  {
    TSqliteDb other(File, TSqliteDb::TMode::ReadWrite, 0);
    other.Exec("BEGIN IMMEDIATE");
    for (const char* const id : {"1", "2", "3"}) store.AddAlarmItem(Item(id));
    store.Commit();
    EXPECT_EQ(store.Waiting(), 3U);
    EXPECT_EQ(Rows(), TTexts{}) << "readers are not kept out";
    for (const char* const id : {"4", "5"}) store.AddAlarmItem(Item(id));
    EXPECT_EQ(store.Lost(), 2U);
    EXPECT_EQ(told, 1U) << "told once";
    other.Exec("COMMIT");
  }
  store.Commit();
  EXPECT_EQ(store.Waiting(), 3U) << "tried again after a second, not before";
  Clock.Sleep(kStoreRetryMs);
  store.Commit();
  EXPECT_EQ(Rows(), (TTexts{"3 active first", "4 active", "5 active"}));
}

TEST_F(Store, AnotherFileIsNeverOverwritten) {
  std::ofstream(File) << "this is no database, and it is long enough to be looked at as one..........................";
  TAlarmStore& text = Open();
  EXPECT_NE(text.Open().Problem().What.find("not a database"), std::string::npos);
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

TEST_F(Store, RetentionDeletesOldClosedRowsOnly) {
  Open().AddAlarmItem(Item("old#1"));
  FStore->AddAlarmItem(Item("stands#1"));
  FStore->RemoveAlarmItem(Item("old#1"));
  Open({.RetentionDays = 0}).Commit();
  EXPECT_EQ(Rows().size(), 2U);
  TSqliteDb(File, TSqliteDb::TMode::ReadWrite, 0).Exec("UPDATE alarms SET raised='2025-12-29 00:00:00.000'");
  Open({.RetentionDays = 3}).AddAlarmItem(Item("new#1"));
  FStore->Commit();
  EXPECT_EQ(Rows(), (TTexts{"stands#1 active first", "new#1 active"}));
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
  TAlarmStats stats = StatsOf(rows, "2026-01-02 10:00:00.000");
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
  stats = StatsOf(rows, "2026-01-02 10:00:00.000");
  ASSERT_EQ(stats.Floods.size(), 1U);
  EXPECT_EQ(stats.Floods[0].Raises, 11U);
}

TEST(AlarmStats, OnlyStoredTimesAreTimes) {
  EXPECT_EQ(StoredTimeMs("1970-01-02"), 86'400'000);
  EXPECT_EQ(StoredTimeMs("1970-01-01 00:01:02.003"), 62'003);
  for (const char* const text : {"", "1970-1-2", "1970-02-30", "1970-01-01 24:00", "1970-01-01T00:00", "1970-01-01 00"})
    EXPECT_FALSE(StoredTimeMs(text)) << text;
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
