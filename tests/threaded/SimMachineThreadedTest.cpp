// The simulated machine in real time: several threads use its devices at once.
#include <atomic>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "controller/Journal.h"
#include "ixocamglue/platform/alarms/NcAlarmManager.h"
#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/platform/states/NcState.h"
#include "machines/simulated/Machine.h"

namespace ixocamglue::test {
namespace {

TEST(SimMachineThreaded, ManyThreadsUseTheDevicesAndATripDarkensAtOnce) {
  TNcStateFramework framework;
  TNcAlarmManager alarms;
  TMachineConfig file;
  ixocontroller::TJournal journal;
  TSimConfig config;
  config.Physics.EmissionDelayMs = 0;
  config.Physics.EmissionJitterMs = 0;
  TSimMachine machine({framework, file, alarms, journal}, config);
  machine.Connect().OrThrow(pbUnusable);
  std::atomic<std::uint64_t> calls{0};
  const TNcStateThread loop(framework);  // gives the heartbeat
  {
    std::vector<std::jthread> threads;
    for (int i = 0; i < 3; ++i) {
      threads.emplace_back([&, i] {
        for (int round = 0; round < 200; ++round, calls += 6) {
          const TCutSystemGuard lock(machine);  // two calls
          machine.SwitchLaser(round % 2 == 0);
          (void)machine.Laser()->GetEmission();
          machine.Gas()->SelectBranch(1 + i);
          machine.Motion().MoveXY({static_cast<double>(round), 0.0}, 0.0);
          (void)machine.Snapshot();
          machine.CatchUp(Clock().MonotonicMs());
        }
      });
    }
  }
  EXPECT_GE(machine.Gate().Calls(), calls.load());
  machine.Laser()->ResetLatch();
  machine.Laser()->EmissionOn();
  std::jthread([&] { machine.LaserDevice().Trip("by hand"); }).join();
  EXPECT_FALSE(machine.LaserDevice().Lit() || machine.LaserDevice().Emitting());
  EXPECT_TRUE(machine.Snapshot().LatchTripped);
}

}  // namespace
}  // namespace ixocamglue::test
