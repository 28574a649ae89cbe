// A gas calibration with the state loop on its own thread, stopped from another one.
#include <atomic>
#include <fstream>
#include <thread>

#include <gtest/gtest.h>

#include "controller/gas/GasCalibration.h"
#include "fixture/Faults.h"
#include "fixture/TempDir.h"
#include "machines/simulated/Machine.h"

namespace ixocamglue::test {
using namespace ixocontroller;
namespace {

TEST(GasCalibrationThreaded, ReadersAndAStopMeetTheStateThread) {
  const TTempDir folder;
  const auto file = folder.Path() / "machine.xml";
  std::ofstream(file) << "<MachineConfig><GasBranches><GasBranch GasType='1' DAPort='33' MaxPressure='12'/>"
                         "</GasBranches></MachineConfig>";
  const TFaultWatch faults;
  TController session({.Machines = {SimulatedMachine()}, .MachineFile = file, .Realtime = true});
  TGasCalibration calibration(session, {1}, {"S", 1.5});
  session.StartThreads();
  while (session.Framework().SafePending()) Clock().Sleep(1);
  calibration.Start().OrThrow(pbRefused);
  double highest = 0.0;
  while (calibration.Now().Volt == 0.0 || calibration.Now().Press == 0.0) {
    highest = std::max(highest, calibration.Progress());
    calibration.Watch(Clock().MonotonicMs());
    Clock().Sleep(1);
  }
  calibration.Stop();
  while (calibration.Running()) Clock().Sleep(1);
  session.StopThreads();
  EXPECT_LT(highest, 100.0);
  EXPECT_FALSE(calibration.Completed());
  EXPECT_FALSE(calibration.Results().front().Points.empty());
  EXPECT_FALSE(session.Machine().Snapshot().Gas);
  std::string last;
  for (std::string text; calibration.GetMsg(text);) last = text;
  EXPECT_EQ(last, "停止校正！");
}

TEST(GasCalibrationThreaded, OfTwoStartsAtOnceOneHappens) {
  const TFaultWatch faults;
  // Its loop does not run: what is asked for stays asked for.
  TController session({.Machines = {SimulatedMachine()}, .Realtime = true});
  for (int round = 0; round < 200; ++round) {
    std::atomic<int> ready{0}, started{0};
    const auto start = [&] {
      ++ready;
      while (ready < 2) continue;
      started += GZemGasAdjustModel()->StartAjdust({1}) ? 1 : 0;
    };
    std::thread other(start);
    start();
    other.join();
    ASSERT_EQ(started, 1) << round;
    session.Framework().Stop();
    ASSERT_FALSE(GZemGasAdjustModel()->AjdustIsBusy());
    while (session.Framework().SafePending() || !session.Framework().RequestState(nsStandby, 0))
      session.Framework().RunOnce();
    session.Framework().RunOnce();
  }
}

}  // namespace
}  // namespace ixocamglue::test
