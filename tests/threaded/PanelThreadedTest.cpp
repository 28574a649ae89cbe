// The panel with its threads: refresh and presses side by side, and stop keys while everything else hangs.
#include <algorithm>
#include <atomic>
#include <thread>

#include <gtest/gtest.h>

#include "ixocamglue/platform/ports/CutCommands.h"
#include "ixocut/panel/PanelHost.h"
#include "machines/simulated/Machine.h"

namespace ixocamglue::test {
using namespace ixocut;
namespace {

TControllerOptions Realtime() {
  TControllerOptions options;
  options.Machines = {SimulatedMachine()};
  options.Realtime = true;
  return options;
}

TEST(PanelThreaded, RefreshAndPressesFromTwoThreads) {
  TController session(Realtime());
  session.StartThreads();
  TPanelHost host(session);
  std::atomic<bool> done{false};
  std::thread refresh([&] {
    while (!done) host.Guard().Refresh();
  });
  std::thread flood([&] {
    for (std::int32_t i = 0; !done; ++i) {
      session.Alarms().Raise({.IdPrefix = "TPTest", .Desc = "flood", .Id = i, .Attrs = naForbidCut});
      session.ClearAlarms();
    }
  });
  for (int i = 0; i < 200; ++i) {
    host.Forms().Show(i % 2 ? "Work" : "DlgEdgeSeek");
    for (const TKeyCode key : {CK_RIGHT, CK_GAS, CK_RETURN0, CK_STOP}) {
      host.Guard().Press(key);
      host.Guard().Release(key);
    }
    KBPManager()->KeyItem(CK_RESUME)->SetAlt(i % 2 == 0, true);
  }
  done = true;
  refresh.join();
  flood.join();
  EXPECT_EQ(KBPManager()->CurKeyBits(), 0U);
  const auto stops = std::ranges::count_if(session.Journal().Entries(), [](const TJournalEntry& entry) {
    return entry.Verb == "KeyDown" && entry.Args == "4 0";
  });
  EXPECT_EQ(stops, 200);
}

TEST(PanelThreaded, StopArrivesWhileTheStateThreadHangs) {
  std::atomic<bool> hangs{false}, released{false};  // used by the session's threads
  TController session(Realtime());
  session.StartThreads();
  TPanelHost host(session);
  host.Forms().Show("Work");
  const auto waitFor = [](auto condition) {
    for (int i = 0; i < 2000 && !condition(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return condition();
  };
  ASSERT_TRUE(
      waitFor([&] { return session.Framework().Watch().Pass.load() > 2 && !session.Framework().SafePending(); }));

  host.Guard().Press(CK_DRY_CUT);
  ASSERT_TRUE(waitFor([&] { return session.Machine().Snapshot().AxesMoving; }));
  const auto hang = [&] {
    if (!OnStateThread()) return;
    hangs = true;
    while (!released) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  };
  TCallGate& gate = Simulated(session.Machine()).Gate();
  // Which thread makes the planned call is open; it is planned anew until the state thread has made one.
  ASSERT_TRUE(waitFor([&] {
    if (!hangs) gate.PlanSet({.Call = gate.Calls() + 2, .Fault = gfCallback, .Callback = hang});
    return hangs.load();
  }));
  host.Guard().Press(CK_STOP);
  EXPECT_TRUE(waitFor([&] { return !session.Machine().Snapshot().AxesMoving; }));
  released = true;
}

}  // namespace
}  // namespace ixocamglue::test
