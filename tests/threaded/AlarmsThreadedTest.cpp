// The alarm path under real threads: floods, consumers that stall or come late, ends and languages in the middle of it.
#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "controller/Controller.h"
#include "controller/procedures/Procedures.h"
#include "controller/process/StateFolder.h"
#include "fixture/Installed.h"
#include "fixture/TempDir.h"
#include "fixture/Waiting.h"
#include "ixocamglue/Library.h"
#include "ixocamglue/alarms/Almintprt.h"
#include "ixocamglue/alarms/Ualarmdefs.h"
#include "ixocamglue/alarms/Ualarmmanager.h"
#include "ixocamglue/alarms/store/AlarmHistory.h"
#include "ixocamglue/motion/Uwaitsteps.h"
#include "ixocamglue/platform/ports/Alarmintf.h"
#include "ixocamglue/platform/services/Locale.h"
#include "ixocamglue/platform/services/LocaleManager.h"
#include "machines/simulated/Machine.h"

namespace ixocamglue::test {
using namespace ixocontroller;
namespace {

constexpr int kIds = 200;
constexpr std::uint32_t kEvents = 60'000;

// Raises and clears over the identifiers; a message's word is the raise's serial, so order can be checked.
void Flood(TNcAlarmManager& package, std::uint32_t events, const std::function<void(std::uint32_t)>& during = {}) {
  for (std::uint32_t i = 0; i < events / 2; ++i) {
    const int id = static_cast<int>(i % kIds);
    package.Raise({.IdPrefix = "T", .Desc = "alarm", .Id = id, .Attrs = id % 2 == 0 ? naForbidCut : naShownOnly});
    if (during) during(i);
    EXPECT_TRUE(package.Clear("T#" + std::to_string(id)));
  }
}

struct TSeen {
  std::uint32_t Raises[2] = {}, Clears[2] = {};
  std::uint32_t Last[2] = {};
  bool Ordered = true;

  void Take(const TNcAlarmMsg& msg) {
    ++(msg.Action == naaAdded ? Raises : Clears)[msg.Level];
    Ordered = Ordered && msg.Word >= Last[msg.Level];
    Last[msg.Level] = msg.Word;
  }
  [[nodiscard]] std::uint32_t All() const { return Raises[0] + Raises[1] + Clears[0] + Clears[1]; }
};

TEST(AlarmThreads, AFloodLosesNothingAndKeepsTheOrderPerLevel) {
  TNcAlarmManager package;
  TAlarmManager manager([&] { return &package; });
  manager.Initialize();
  package.Start();
  TSeen seen[4];
  std::atomic<bool> done{false};
  std::atomic<bool> lateMayCome{false};
  for (int i = 0; i < 3; ++i) manager.RegisterClient(&seen[i], true);
  std::vector<std::thread> consumers;
  for (int i = 0; i < 4; ++i) {
    consumers.emplace_back([&, i] {
      if (i == 3) {
        lateMayCome.wait(false);
        manager.RegisterClient(&seen[3], true);
      }
      TNcAlarmMsg msg;
      for (std::uint32_t taken = 0; seen[i].All() < kEvents;) {
        if (manager.Pop(&seen[i], msg)) {
          seen[i].Take(msg);
          if (i == 2 && ++taken == 1000) done.wait(false);  // stops popping until the flood is over
        } else {
          std::this_thread::yield();
        }
      }
    });
  }
  Flood(package, kEvents, [&](std::uint32_t i) {
    if (i != kEvents / 4) return;
    lateMayCome = true;
    lateMayCome.notify_all();
  });
  done = true;
  done.notify_all();
  for (std::thread& consumer : consumers) consumer.join();
  for (const TSeen& each : seen) {
    EXPECT_EQ(each.Raises[0] + each.Raises[1], kEvents / 2);
    EXPECT_EQ(each.Raises[0], each.Clears[0]);
    // The late one's two levels are registered one after the other, and both replay.
    EXPECT_TRUE(each.Ordered);
  }
  EXPECT_EQ(manager.GetActiveCount(0) + manager.GetActiveCount(1), 0);
  EXPECT_TRUE(package.AllowCut());
}

TEST(AlarmThreads, TheManagerMayEndAndConsumersComeAndGoInTheMiddleOfAFlood) {
  TNcAlarmManager package;
  package.Start();
  std::atomic<bool> stop{false};
  std::thread flood([&] {
    while (!stop) Flood(package, 200);
  });
  for (int round = 0; round < 5; ++round) {
    auto manager = std::make_unique<TAlarmManager>([&] { return &package; });
    manager->Initialize();
    std::vector<std::thread> consumers;
    for (int i = 0; i < 8; ++i)
      consumers.emplace_back([&] {
        const int self = 0;
        TNcAlarmMsg msg;
        for (int times = 0; times < 20; ++times) {
          manager->RegisterClient(&self, times % 2 == 0);
          for (int popped = 0; popped < 50 && manager->Pop(&self, msg); ++popped) (void)msg.Desc();
          (void)manager->GetAllAlarmsDescPreview();
          manager->RemoveClient(&self);
        }
      });
    for (std::thread& consumer : consumers) consumer.join();
    manager.reset();  // the package goes on firing
  }
  stop = true;
  flood.join();
  EXPECT_TRUE(package.Standing().empty() && package.AllowCut());
}

TEST(AlarmThreads, LookupsSeeWholeTextsWhileTheLanguageChanges) {
  TAppSys app;
  TLocaleReader reader(ShareFolder() / "locale");
  TLocaleManager languages;
  const TAllInstalled<TAppSys, TLocaleReader, TLocaleManager> installed(app, reader, languages);
  app.Register(IID_IAlarmInterpreterSvc, std::make_shared<TAlarmDefinitionFiles>(ShareFolder() / "alarms"));
  const TLibrary library;
  std::atomic<bool> stop{false};
  std::vector<std::thread> readers;
  for (int i = 0; i < 3; ++i)
    readers.emplace_back([&] {
      TNcAlarmMsg msg;
      msg.Texts = TNcAlarmTexts("TPLaser#1", "lost");
      while (!stop) {
        const std::string module = AlarmInterpreter()->GetAlarmModule(msg);
        EXPECT_TRUE(module == "激光器" || module == "Laser") << module;
      }
    });
  for (int i = 0; i < 20; ++i) EXPECT_EQ(languages.ChangeLanguage(i % 2 == 0 ? "en" : "zh"), "");
  stop = true;
  for (std::thread& each : readers) each.join();
}

TEST(AlarmThreads, ABracketOfAnotherThreadHoldsEventsBackAndUnsubscribingWaits) {
  TNcAlarmManager package;
  std::atomic<int> calls{0};
  std::atomic<bool> inside{false}, goOn{false};
  const auto handle = package.AlarmAdded().Subscribe([&](const TNcAlarmRecord&) {
    inside = true;
    inside.notify_all();
    goOn.wait(false);
    ++calls;
  });
  package.BeginRead();
  package.Start();
  package.Raise({.IdPrefix = "T", .Id = 1});
  EXPECT_FALSE(inside) << "no event inside the bracket";
  EXPECT_EQ(package.GetAlarmCount(), 0);
  package.EndRead();
  inside.wait(false);
  std::thread release([&] {
    goOn = true;
    goOn.notify_all();
  });
  package.AlarmAdded().Unsubscribe(handle);
  EXPECT_EQ(calls, 1) << "the call in flight was waited for";
  release.join();
}

class TListeningDelay : public TSmtDelay {
 public:
  using TSmtDelay::TSmtDelay;
  void CheckNewAlarm(const TNcAlarmRecord&, bool&) override { ++Heard; }
  static inline std::atomic<int> Heard{0};
};

TEST(AlarmThreads, WithAStoreTooAnAlarmReachesTheProcedureOnce) {
  const TTempDir folder;
  TController controller({.Machines = {SimulatedMachine()}, .Realtime = true, .AlarmDb = folder.Path() / "alarms.db"});
  const TNcStateFramework& framework = controller.Framework();
  controller.StartThreads();
  TNcWatch& watch = controller.Framework().Watch();
  ASSERT_TRUE(Comes([&] { return !framework.SafePending(); }));
  auto delay = MakeStepOf<TListeningDelay>(nullptr);
  delay->SetDelay(60'000);
  ASSERT_TRUE(controller.Start(ShareRoot(std::move(delay))));
  ASSERT_TRUE(Comes([&] { return watch.Tick.load() > 0; }));
  controller.RaiseAlarm({.IdPrefix = "T", .Desc = "told", .Id = 1});
  ASSERT_TRUE(Comes([&] { return TAlarmHistory(folder.Path() / "alarms.db").Rows({}).size() == 1; }));
  const auto passes = watch.Pass.load();
  ASSERT_TRUE(Comes([&] { return watch.Pass.load() > passes + 2; }));
  EXPECT_EQ(TListeningDelay::Heard, 1);
}

}  // namespace
}  // namespace ixocamglue::test
