// A shot with every thread of the real program: state loop, machine, supervisor, log, and the waiting main thread.
#include <algorithm>
#include <chrono>
#include <csignal>
#include <fstream>
#include <sstream>
#include <thread>
#include <unistd.h>

#include <gmock/gmock.h>

#include "fixture/TempDir.h"
#include "ixocut/procedures/Shot.h"

namespace ixocamglue::test {
using namespace ixocontroller;
using namespace ixocut;
namespace {

class RealtimeShot : public testing::Test {
 protected:
  RealtimeShot() {
    const auto file = FDir.Path() / "machine.xml";
    std::ofstream(file) << "<MachineConfig><Simulator EmissionDelayMs=\"50\" EmissionJitterMs=\"0\"/></MachineConfig>";
    FOptions.Machine = file;
    FOptions.Realtime = true;
    FOptions.Language = "en";
  }
  int Shoot() {
    TConsole console(FOut, "shot", FOptions);
    return RunShot(FOptions, console);
  }

  TTempDir FDir;
  TShotOptions FOptions;
  std::ostringstream FOut;
};

TEST_F(RealtimeShot, RunsToItsEndWithEveryLineShown) {
  FOptions.Ms = 100;
  FOptions.Trace = true;
  EXPECT_EQ(Shoot(), 0) << FOut.str();
  for (const char* line : {"1/5: ", "5/5: ", "there was light for 1", "Success after "})
    EXPECT_THAT(FOut.str(), testing::HasSubstr(line));
}

class RealtimeShotSignal : public RealtimeShot, public testing::WithParamInterface<int> {};

TEST_P(RealtimeShotSignal, IsStoppedByItAndEndsDark) {
  FOptions.Ms = 30'000;
  const auto handled = [] {
    struct sigaction now {};
    sigaction(GetParam(), nullptr, &now);
    return now.sa_handler != SIG_DFL && now.sa_handler != SIG_IGN;
  };
  std::thread interrupter([&] {
    while (!handled()) std::this_thread::yield();
    std::this_thread::sleep_for(std::chrono::milliseconds(150));  // the beam is on by now; earlier is a stop too
    for (int times = 0; times < 3 && handled(); ++times) {
      kill(getpid(), GetParam());
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
  });
  const int exitCode = Shoot();
  interrupter.join();
  EXPECT_FALSE(handled());
  if (GetParam() == SIGPIPE) {
    EXPECT_EQ(std::signal(SIGPIPE, SIG_DFL), SIG_IGN);
  }
  EXPECT_EQ(exitCode, 1);
  EXPECT_THAT(FOut.str(), testing::HasSubstr("Interrupted, stopping"));
  EXPECT_THAT(FOut.str(), testing::HasSubstr("Stopped after "));
  EXPECT_THAT(FOut.str(), testing::Not(testing::HasSubstr("still on")));
}

INSTANTIATE_TEST_SUITE_P(Signals, RealtimeShotSignal, testing::Values(SIGINT, SIGTERM, SIGHUP, SIGPIPE));

TEST_F(RealtimeShot, ASignalThatTheProgramWasStartedToIgnoreStaysIgnored) {
  const auto before = std::signal(SIGHUP, SIG_IGN);
  {
    const TSignalStop stop;
    kill(getpid(), SIGHUP);
    EXPECT_FALSE(stop.Asked());
    kill(getpid(), SIGTERM);
    EXPECT_TRUE(stop.Asked());
  }
  EXPECT_EQ(std::signal(SIGHUP, before), SIG_IGN);
}

TEST_F(RealtimeShot, AMoveIsWatchedFromOutsideWhileItRuns) {
  TConsole console(FOut, "run");
  const auto made = MakeRun(FOptions, {}, console);
  TProcedureRun& run = *made;
  double furthest = 0.0;
  std::size_t steps = 0;
  run.OnLook([&](std::uint64_t) {
    furthest = std::max(furthest, run.Controller().Machine().Snapshot().Pos.X);
    steps = std::max(steps, run.Steps().Items().size());
  });
  const TMotionCall move{FindProcedure(137), {30.0, 20.0, 300.0}, {}};
  const TRunReport report = run.Run([&] { return move.Make(nullptr); }, 10'000);
  EXPECT_STREQ(report.End.Name, "success") << FOut.str();
  EXPECT_EQ(furthest, 30.0);
  EXPECT_EQ(steps, 2U);
  EXPECT_EQ(report.Steps.size(), 2U);
}

}  // namespace
}  // namespace ixocamglue::test
