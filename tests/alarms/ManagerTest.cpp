#include <algorithm>
#include <atomic>

#include <gtest/gtest.h>

#include "fixture/Faults.h"
#include "fixture/LogTexts.h"
#include "ixocamglue/alarms/Ualarmmanager.h"
#include "ixocamglue/platform/alarms/NcSimpleAlarmSource.h"
#include "ixocamglue/platform/ports/Alarmintf.h"
#include "ixocamglue/platform/services/Clock.h"

namespace ixocamglue::test {
namespace {

TNcAlarmMsg Msg(TNcAlarmAction action, std::string_view id, std::string_view desc, TAlarmLv level = 0) {
  TNcAlarmMsg msg;
  msg.Action = action;
  msg.Level = level;
  msg.Texts = TNcAlarmTexts(id, desc);
  return msg;
}

TTexts Texts(const std::vector<TNcAlarmMsg>& messages) {
  TTexts texts;
  for (const TNcAlarmMsg& msg : messages) texts.emplace_back(msg.Desc());
  return texts;
}

TEST(AlarmFifos, ListsTakeTheNewestOfAnIdentifier) {
  TIxoAlarmFifos fifos;
  int client = 0;
  fifos.RegisterClient(&client, false);
  fifos.RegisterClient(&client, true);
  for (const char* const desc : {"A", "B", "A2"}) fifos.Push(Msg(naaAdded, std::string(desc).substr(0, 1), desc));
  EXPECT_EQ(fifos.GetAlarmsDescPreview(), "A2, B, A");
  fifos.Push(Msg(naaRemoved, "A", "cleared"));
  fifos.Push(Msg(naaAcknowledged, "B", "seen"));
  EXPECT_EQ(Texts(fifos.Active()), (TTexts{"B", "A"}));
  fifos.Push(Msg(naaRemoved, "A", "again"));
  fifos.Push(Msg(naaRemoved, "X", "never raised"));
  EXPECT_EQ(Texts(fifos.Removed()), (TTexts{"never raised", "again", "cleared"}));
  fifos.Push(Msg(naaAdded, "A", "A3"));
  EXPECT_EQ(Texts(fifos.Removed()), (TTexts{"never raised", "cleared"}));
  TNcAlarmMsg msg;
  TTexts queued;
  while (fifos.Pop(&client, msg)) queued.emplace_back(msg.Desc());
  EXPECT_EQ(queued, (TTexts{"A", "B", "A2", "cleared", "seen", "again", "never raised", "A3"}));
  fifos.RemoveClient(&client);
  fifos.Push(Msg(naaAdded, "A", "A4"));
  EXPECT_FALSE(fifos.Pop(&client, msg));
  fifos.RegisterClient(&client, true);
  ASSERT_TRUE(fifos.Pop(&client, msg));
  EXPECT_EQ(msg.Desc(), "A") << "the replay starts with the first message ever";
}

TEST(AlarmFifos, ACappedHistoryIsReplayedBehindWhatIsActive) {
  TIxoAlarmFifos fifos;
  fifos.SetHistoryCap(4);
  for (const char* id : {"first", "gone", "second"}) fifos.Push(Msg(naaAdded, id, id));
  fifos.Push(Msg(naaRemoved, "gone", "left"));
  for (int i = 0; i < 50; ++i) {
    fifos.Push(Msg(naaAdded, "X", "on"));
    fifos.Push(Msg(naaRemoved, "X", "off"));
  }
  fifos.Push(Msg(naaAdded, "X", "stands"));
  EXPECT_EQ(fifos.Sizes().History, 4U);
  int late = 0;
  fifos.RegisterClient(&late, true);
  TNcAlarmMsg msg;
  TTexts replayed;
  while (fifos.Pop(&late, msg)) replayed.emplace_back(msg.Desc());
  EXPECT_EQ(replayed, (TTexts{"first", "second", "off", "on", "off", "stands"}));
}

// The client's thread waits beside the test; the time is the test's.
class TTestsClock final : public IClock {
 public:
  std::uint32_t TickMs() override { return static_cast<std::uint32_t>(FNow); }
  std::uint64_t MonotonicMs() override { return FNow; }
  TDateTime Now() override { return {46'000.0}; }
  void Sleep(std::uint32_t ms) override { FNow += ms; }
  void Spin() override {}
  bool Pause(TStop& stop, std::uint32_t ms) override { return stop.WaitFor(ms); }

 private:
  std::atomic<std::uint64_t> FNow{0};
};

class Manager : public testing::Test, protected TLogWorld {
 protected:
  Manager() {
    Sink.Form = [](const TLogRecord& r) {
      return std::to_string(r.Kind) + " " + std::to_string(r.Colour) + " " + r.Text;
    };
  }
  // Without a store nothing leaves the client.
  void Make(TAlarmLimits limits = {}) {
    Alarms.emplace([this] { return Nc; }, limits);
    Alarms->Initialize();
    Alarms->RegisterClient(this, true);
  }
  void Raise(const char* desc, int id, TNcAlarmAttrs attrs) {
    Package.Raise({.IdPrefix = "T", .Desc = desc, .Id = id, .Attrs = attrs});
    Package.DrainOnce();
  }
  void Clear(const char* id) {
    EXPECT_TRUE(Package.Clear(id));
    Package.DrainOnce();
  }
  TTexts Popped() {
    TTexts texts;
    for (TNcAlarmMsg msg; Alarms->Pop(this, msg);)
      texts.push_back((msg.Action == naaAdded ? "+" : msg.Removed == 1 ? "-" : "?") + std::string(msg.Desc()));
    return texts;
  }
  std::string Counts() {
    return std::to_string(Alarms->GetActiveCount(0)) + " " + std::to_string(Alarms->GetActiveCount(1)) + " " +
           std::to_string(Alarms->GetHighestLevel());
  }

  TTestsClock Clock;
  TInstalled<IClock> ClockInstalled{Clock};
  TNcAlarmManager Package;
  TNcAlarmManager* Nc = &Package;
  std::optional<TAlarmManager> Alarms;
};

TEST_F(Manager, TakesOverWhatStandsAndCountsPerLevel) {
  Raise("before", 1, naShownOnly);
  Make();
  Raise("red", 2, naForbidCut);
  Raise("red2", 3, naRequireStop);
  EXPECT_EQ(Counts(), "1 2 1");
  EXPECT_EQ(&Alarms->GetAlarmFifos(), &Alarms->GetAlarmFifos(1));
  EXPECT_EQ(Alarms->GetAllAlarmsDescPreview(), "red2, red, before");
  Clear("T#3");
  EXPECT_EQ(Counts(), "1 1 1");
  Clear("T#2");
  EXPECT_EQ(Counts(), "1 0 0");
  EXPECT_EQ(Popped(), (TTexts{"+red", "+red2", "-red2", "-red", "+before"})) << "level 1 before level 0";
  EXPECT_EQ(Texts(Alarms->GetRemovedAlarms()), (TTexts{"red2", "red"}));
  Raise("red again", 2, naForbidCut);
  EXPECT_EQ(Texts(Alarms->GetRemovedAlarms()), (TTexts{"red2"}));
  int late = 0;
  Alarms->RegisterClient(&late, true);
  TNcAlarmMsg msg;
  int replayed = 0;
  while (Alarms->Pop(&late, msg)) ++replayed;
  EXPECT_EQ(replayed, 6);
}

TEST_F(Manager, OddEventsAreNeverDropped) {
  Make();
  TNcAlarmRecord rec{.IdPrefix = "T", .Desc = "never raised", .Id = 1};
  Alarms->NcAlarmRemoved(rec);
  Alarms->NcAlarmRemoved(rec);
  EXPECT_EQ(Counts(), "0 0 0");
  Alarms->AddToFifo(Msg(naaAdded, "T#9", "level 7", 7));
  Alarms->Acknowledge("T#9", {});
  EXPECT_EQ(Popped(), (TTexts{"+level 7", "?", "-never raised", "-never raised"}));
  EXPECT_EQ(Texts(Alarms->GetRemovedAlarms()).size(), 2U);
  Alarms->NcAlarmAdded(rec);
  EXPECT_EQ(Texts(Alarms->GetRemovedAlarms()).size(), 1U);
}

TEST_F(Manager, EveryEventIsLoggedUnlessALimitLeavesLinesOut) {
  Make({.QueueThreshold = 3, .LogLinesPerSecond = 2});
  Raise("门打开", 1, naForbidCut);
  Clear("T#1");
  Raise("left out", 1, naForbidCut);
  EXPECT_EQ(Log(), (TTexts{"7 0 出现报警：门打开", "4 65280 报警解除：门打开",
                           "4 0 an alarm queue has grown to 3 messages (threshold 3)"}));
  Clock.Sleep(1000);
  Clear("T#1");
  const TTexts log = Log();
  ASSERT_EQ(log.size(), 2U);
  EXPECT_EQ(log[0], "4 0 1 lines of alarms were left out here; the alarms themselves were not");
  EXPECT_EQ(Popped().size(), 4U) << "the alarms themselves are not left out";
}

TEST_F(Manager, AQueueThatStaysLongIsReportedOnceHoweverTheLevelsAlternate) {
  Make({.QueueThreshold = 4});
  for (int id = 0; id < 8; ++id) Raise("tells", id, naShownOnly);
  Raise("stops", 9, naForbidCut);
  Raise("tells", 10, naShownOnly);
  EXPECT_EQ(std::ranges::count_if(Log(), [](const std::string& line) { return line.find("grown") != line.npos; }), 1);
}

TEST_F(Manager, WithoutAnAlarmPackageThereIsNothingToPop) {
  Nc = nullptr;
  Make();
  Raise("unheard", 1, naForbidCut);
  EXPECT_EQ(Popped(), TTexts{});
  Alarms.reset();
}

TEST_F(Manager, AStoreThatThrowsKeepsNobodyFromStarting) {
  struct TBroken final : IAlarmSvcIntf {
    void AddAlarmItem(const std::shared_ptr<IAlarmItem>&) override { throw std::runtime_error("disk"); }
    void RemoveAlarmItem(const std::shared_ptr<IAlarmItem>&) override { throw 5; }
    void DeleteResidualAlarms() override { throw std::runtime_error("disk"); }
    void Commit() override { throw std::runtime_error("disk"); }
  };
  App.Register(IID_IAlarmSvcIntf, std::make_shared<TBroken>());
  Make();
  EXPECT_TRUE(Alarms->RemoveResidualAlarmRecord());
  Raise("goes on", 1, 0);
  EXPECT_EQ(Popped(), TTexts{"+goes on"});
}

TEST(NcAlarmPackage, PermissionsChangeAtOnceAndFollowEveryStandingAlarm) {
  TNcAlarmManager package;
  package.Raise({.IdPrefix = "T", .Id = 1, .Attrs = naForbidLaser | naRequireOrg});
  package.Raise({.IdPrefix = "T", .Id = 1, .Attrs = naForbidLaser});
  EXPECT_FALSE(package.AllowLaser());
  EXPECT_TRUE(package.RequireOrg());
  EXPECT_TRUE(package.Clear("T#1"));
  EXPECT_FALSE(package.AllowLaser()) << "it stood twice";
  EXPECT_TRUE(package.Clear("T#1"));
  EXPECT_FALSE(package.Clear("T#1"));
  EXPECT_TRUE(package.AllowLaser() && !package.RequireOrg());
  package.Raise({.IdPrefix = "T", .Id = 3, .Attrs = naForbidFollower | naRequireStop});
  EXPECT_FALSE(package.AllowFollower() || !package.RequireStop());
  EXPECT_TRUE(package.AllowCut() && package.AllowLaser() && package.AllowHoming() && package.AllowMove());
  package.Raise({.IdPrefix = "T", .Id = 2, .Attrs = NcAlarmAxis(3, false) | naShownOnly});
  EXPECT_FALSE(package.AllowMoveAxis(3, false));
  EXPECT_TRUE(package.AllowMove() && package.AllowMoveAxis(3, true));
  EXPECT_EQ(NcAlarmLevel(NcAlarmAxis(3, false) | naShownOnly), 1);
  EXPECT_EQ(NcAlarmLevel(naRequireOrg | naShownOnly), 0);
}

TEST(NcAlarmPackage, RecordsChangeWithTheirEventAndClearsCarryTheRaise) {
  TNcAlarmManager package;
  TTexts events;
  const auto added = package.AlarmAdded().Subscribe([&](const TNcAlarmRecord& r) { events.push_back("+" + r.Desc); });
  const auto removed = package.AlarmRemoved().Subscribe(
      [&](const TNcAlarmRecord& r) { events.push_back("-" + r.Desc + " " + std::to_string(r.Level())); });
  package.Raise({.IdPrefix = "T", .Desc = "a", .Id = 1, .Attrs = naForbidCut});
  package.BeginRead();
  EXPECT_EQ(package.GetAlarmCount(), 0) << "its event has not fired yet";
  package.EndRead();
  package.DrainOnce();
  package.BeginRead();
  ASSERT_EQ(package.GetAlarmCount(), 1);
  EXPECT_EQ(package.GetAlarm(0).SnapShot().Identifier(), "T#1");
  package.EndRead();
  EXPECT_TRUE(package.Clear("T#1"));
  package.DrainOnce();
  package.AlarmAdded().Unsubscribe(added);
  package.AlarmRemoved().Unsubscribe(removed);
  package.Raise({.IdPrefix = "T", .Desc = "unheard", .Id = 1});
  package.DrainOnce();
  EXPECT_EQ(events, (TTexts{"+a", "-a 1"}));
}

TEST(NcAlarmPackage, SourcesAreAskedAndTheirAlarmsEndWithThem) {
  TNcAlarmManager package;
  TNcSimpleAlarmSource source("S", {{1, naShownOnly, "flickers", 60'000, 0}, {2, naForbidCut, "cut", 60'000, 60'000}});
  package.AddSource(source);
  const auto standing = [&] {
    package.DrainOnce();
    TTexts texts;
    for (const TNcAlarmRecord& r : package.Standing()) texts.push_back(r.Desc);
    return texts;
  };
  source.Set(1, true);
  source.Set(2, true, "its own text");
  EXPECT_EQ(standing(), TTexts{"its own text"}) << "only an alarm that forbids nothing waits";
  EXPECT_EQ(standing(), TTexts{"its own text"}) << "raised once";
  package.ClearAll();
  EXPECT_EQ(standing(), TTexts{"its own text"}) << "the condition lasts";
  package.ResetAlarms();
  EXPECT_TRUE(package.AllowCut()) << "at once";
  EXPECT_EQ(standing(), TTexts{});
  source.Set(2, true);
  EXPECT_EQ(standing(), TTexts{"cut"});
  package.RemoveSource(source);
  EXPECT_EQ(standing(), TTexts{});
}

}  // namespace
}  // namespace ixocamglue::test
