// The session in real time, with everything that other threads may do at once.
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <vector>

#include <gtest/gtest.h>

#include "controller/process/RoundThread.h"
#include "controller/process/StateFolder.h"
#include "fixture/Machine.h"
#include "fixture/TempDir.h"
#include "fixture/Waiting.h"
#include "ixocamglue/devcomm/Umodbuscomm.h"
#include "ixocamglue/motion/Umotiontexts.h"
#include "ixocamglue/platform/services/Locale.h"

namespace ixocamglue::test {
namespace {

// The threads run, and the machine has acknowledged standby.
void StartUp(TController& session) {
  session.StartThreads();
  const auto& framework = session.Framework();
  ASSERT_TRUE(Comes([&] { return session.Framework().Watch().Pass > 0 && !framework.SafePending(); }));
}

TEST(SessionThreaded, OtherThreadsStopAskLogAndTranslateWhileProceduresRun) {
  const auto adjust = [](TSimConfig& config) {
    config.Physics.EmissionDelayMs = 5;
    config.Physics.EmissionJitterMs = 0;
  };
  TController session(
      {.Machines = {SimulatedMachine({.Adjust = adjust})}, .LocaleFolder = ShareFolder() / "locale", .Realtime = true});
  StartUp(session);

  TSideThreads others;
  others.KeepDoing(37, [&] { session.Framework().Stop(); });
  others.KeepDoing(53, [&] { session.Framework().PostAlarm({"TP", "harmless", 1}); });
  others.KeepDoing(5, [&] { static_cast<void>(session.Machine().Snapshot()); });
  others.KeepDoing(7, [&] {
    LogMsg(lkInfo, 0, SOpenShutter.Get());
    static_cast<void>(TCustomMotionState::GetExecOK(515, false));
    static_cast<void>(session.Framework().Busy());
  });
  others.KeepDoing(11, [&, english = false]() mutable {
    static_cast<void>(LocaleReader()->SelectLanguage((english = !english) ? "en" : "zh"));
    session.Library().LoadLocaleResources();
  });
  for (const auto& [language, text] : {std::pair("en", "Open shutter"), std::pair("zh", SOpenShutter.Default)})
    others.KeepDoing(1, [language = language, text = std::string(text)] {
      const TLanguageScope scope(language);
      EXPECT_EQ(SOpenShutter.Get(), text);
      EXPECT_EQ(std::string_view(Tr("the memory grows")) == "the memory grows", std::string_view(language) == "en");
    });

  int started = 0;
  // Between a stop and its end a start is refused.
  for (int tries = 0; started < 10 && tries < 1000; ++tries) {
    Clock().Sleep(5);
    if (!session.Start(ShareRoot(MakeShot(10)))) continue;
    ++started;
    ASSERT_TRUE(Comes([&] { return !session.Running(); }));
  }
  others.End();
  EXPECT_GT(started, 0);
  // The beam's last off is acknowledged.
  EXPECT_TRUE(Comes([&] {
    const TMachineSnapshot now = session.Machine().Snapshot();
    return !now.Laser && !now.Emission;
  }));
}

TEST(SessionThreaded, ARoundThatThrowsEndsNoThread) {
  std::atomic<int> rounds{0};
  const TRoundThread thread("ixo-round", 1, [&](std::uint64_t) {
    ++rounds;
    throw std::runtime_error("round");
  });
  EXPECT_TRUE(Comes([&] { return rounds > 2; }));
}

// The end of the process while a beam is on.
TEST(SessionThreaded, EndsARunningShotInRealTime) {
  const auto adjust = [](TSimConfig& config) { config.Physics.EmissionDelayMs = 5; };
  TController session({.Machines = {SimulatedMachine({.Adjust = adjust})}, .Realtime = true});
  StartUp(session);
  ASSERT_TRUE(session.Start(ShareRoot(MakeShot(60'000))));
  EXPECT_TRUE(Comes([&] { return session.Journal().HasSignal("laser on"); }));
  EXPECT_TRUE(session.Machine().Snapshot().Laser);
}

// Throws, blocks, or does nothing, as it is told.
struct TToldDevice final : TModbusComm {
  using TModbusComm::TModbusComm;
  ~TToldDevice() override { EndUse(); }
  void BreakOff() override {
    Blocks = false;
    TModbusComm::BreakOff();
  }
  void UpdateStatus() override {
    ++Rounds;
    if (Throws) throw std::runtime_error("boom");
    while (Blocks) Clock().Sleep(1);
  }
  std::atomic<int> Rounds{0};
  std::atomic<bool> Throws{false}, Blocks{false};
};

TEST(SessionThreaded, ADeadOrSilentDeviceThreadIsShownAsLongAsItIsSoAndEndsNothing) {
  const TTempDir folder;
  const auto file = folder.Path() / "machine.xml";
  std::ofstream(file) << R"(<MachineConfig><Supervisor DeviceThreadLimitMs="400" HeartbeatLimitMs="20000"
      ThreadLimitMs="20000" LogThreadLimitMs="20000"/></MachineConfig>)";
  TController session({.Machines = {SimulatedMachine()}, .MachineFile = file, .Realtime = true});
  StartUp(session);
  const auto shown = [&] {
    TTexts texts;
    for (const TNcAlarmRecord& alarm : session.Alarms().Standing())
      if (alarm.IdPrefix == "TPThread" && alarm.Attrs == naShownOnly) texts.push_back(alarm.Identifier() + alarm.Desc);
    std::ranges::sort(texts);  // the dead before the silent
    return texts;
  };
  const auto shows = [&](const std::vector<const char*>& parts) {
    for (int wait = 0; wait < 1000; ++wait, Clock().Sleep(5)) {
      const TTexts texts = shown();
      if (std::ranges::equal(texts, parts, [](auto& text, auto* part) { return text.find(part) != text.npos; }))
        return true;
    }
    return false;
  };
  auto delay = MakeStepOf<TSmtDelay>(nullptr);
  delay->SetDelay(60'000);
  ASSERT_TRUE(session.Start(ShareRoot(std::move(delay))));

  auto dead = MakeDevice<TToldDevice>("PLC7");
  auto slow = MakeDevice<TToldDevice>("PLC8");
  const auto held = MakeDevice<TToldDevice>("PLC9");
  const auto idle = MakeDevice<TToldDevice>("PLC10");
  idle->StopUpdates();
  held->LockData();  // its rounds are skipped, which is a sign of life
  dead->Throws = true;
  ASSERT_TRUE(shows({"PLC7"}));
  slow->Blocks = true;
  ASSERT_TRUE(shows({"TPThread#1", "TPThread#2"}));
  ASSERT_TRUE(shows({"PLC7", "PLC8"}));
  EXPECT_EQ(dead->Rounds, 1) << "it is not started again";
  session.ClearAlarms();
  ASSERT_TRUE(shows({"PLC7", "PLC8"})) << "what is so is shown again";
  slow->Blocks = false;
  ASSERT_TRUE(shows({"PLC7"}));
  dead.reset();
  ASSERT_TRUE(shows({}));
  Clock().Sleep(500);  // longer than the limit
  EXPECT_EQ(shown(), TTexts{});
  held->UnLockData();
  EXPECT_TRUE(session.Running());
}

// The process ends all the same, and says what it waited for.
TEST(SessionThreadedDeathTest, ADeviceThatDoesNotComeBackDoesNotKeepTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto end = [] {
    const auto failed = [](const TProblem& problem, bool processEnds) {
      const bool dark = CutSystem()->Laser()->LatchReason() != nullptr;
      std::fprintf(stderr, "%s %d %d\n", problem.What.c_str(), processEnds, dark);
    };
    TController session({.Machines = {SimulatedMachine()}, .Realtime = true, .EndFailed = failed});
    StartUp(session);
    CutSystem()->Gas()->SwitchOn();
    TCallGate& gate = Simulated(session.Machine()).Gate();
    gate.PlanSet({.Call = gate.Calls() + 1, .Fault = gfHang, .HangMs = 20'000});
    session.StopThreads();
    std::exit(0);
  };
  EXPECT_EXIT(end(), testing::ExitedWithCode(3), " 1 1");
}

}  // namespace
}  // namespace ixocamglue::test
