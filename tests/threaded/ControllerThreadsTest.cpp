// The session in real time, with everything that other threads may do at once.
#include <atomic>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "controller/StateFolder.h"
#include "fixture/Machine.h"
#include "ixocamglue/motion/Umotiontexts.h"
#include "ixocamglue/platform/services/Locale.h"

namespace ixocamglue::test {
namespace {

// The threads run, and the machine has acknowledged standby.
void StartUp(TController& session) {
  session.StartThreads();
  const auto& framework = session.Framework();
  for (int wait = 0; wait < 400 && (session.Framework().Watch().Pass == 0 || framework.SafePending()); ++wait)
    Clock().Sleep(5);
}

TEST(SessionThreaded, OtherThreadsStopAskLogAndTranslateWhileProceduresRun) {
  TControllerOptions options;
  options.Realtime = true;
  options.LocaleFolder = ShareFolder() / "locale";
  options.Machines = {SimulatedMachine({.Adjust = [](TSimConfig& config) {
    config.Physics.EmissionDelayMs = 5;
    config.Physics.EmissionJitterMs = 0;
  }})};
  TController session(options);
  StartUp(session);

  std::atomic<bool> done{false};
  std::vector<std::thread> others;
  const auto keepDoing = [&](std::uint32_t everyMs, std::function<void()> what) {
    others.emplace_back([&done, everyMs, what = std::move(what)] {
      while (!done) {
        what();
        Clock().Sleep(everyMs);
      }
    });
  };
  keepDoing(37, [&] { session.Framework().Stop(); });
  keepDoing(53, [&] { session.Framework().PostAlarm({"TP", "harmless", 1}); });
  keepDoing(5, [&] { static_cast<void>(session.Machine().Snapshot()); });
  keepDoing(7, [&] {
    LogMsg(lkInfo, 0, SOpenShutter.Get());
    static_cast<void>(TCustomMotionState::GetExecOK(515, false));
    static_cast<void>(session.Framework().Busy());
  });
  keepDoing(11, [&, english = false]() mutable {
    static_cast<void>(LocaleReader()->SelectLanguage((english = !english) ? "en" : "zh"));
    session.Library().LoadLocaleResources();
  });

  int started = 0;
  // Between a stop and its end a start is refused.
  for (int tries = 0; started < 10 && tries < 1000; ++tries) {
    Clock().Sleep(5);
    if (!session.Start(ShareRoot(MakeShot(10)))) continue;
    ++started;
    for (int wait = 0; wait < 400 && session.Running(); ++wait) Clock().Sleep(5);
    ASSERT_FALSE(session.Running());
  }
  done = true;
  for (std::thread& other : others) other.join();
  EXPECT_GT(started, 0);
  Clock().Sleep(60);  // the beam's last off is acknowledged
  EXPECT_FALSE(session.Machine().Snapshot().Laser || session.Machine().Snapshot().Emission);
}

// The end of the process while a beam is on.
TEST(SessionThreaded, EndsARunningShotInRealTime) {
  TControllerOptions options;
  options.Realtime = true;
  options.Machines = {SimulatedMachine({.Adjust = [](TSimConfig& config) { config.Physics.EmissionDelayMs = 5; }})};
  TController session(options);
  StartUp(session);
  ASSERT_TRUE(session.Start(ShareRoot(MakeShot(60'000))));
  for (int wait = 0; wait < 400 && !session.Journal().HasSignal("laser on"); ++wait) Clock().Sleep(5);
  EXPECT_TRUE(session.Machine().Snapshot().Laser);
}

}  // namespace
}  // namespace ixocamglue::test
