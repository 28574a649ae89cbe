// A machine of points with all its threads: its device goes away on a thread of the driver's own, under a beam.
#include <fstream>
#include <thread>

#include <gtest/gtest.h>

#include "controller/commissioning/PortTries.h"
#include "fixture/BenchDriver.h"
#include "fixture/ComposedFile.h"
#include "fixture/Contracts.h"
#include "fixture/TempDir.h"
#include "machines/composed/Machine.h"
#include "machines/simulated/Driver.h"

namespace ixocamglue::test {
namespace {

TEST(ComposedThreaded, ABenchThatIsCutAndHealedKeepsThePortsContracts) {
  TTempDir dir;
  const auto file = dir.Path() / "machine.xml";
  std::ofstream(file) << R"(<MachineConfig><Machine Driver="composed"/><Laser EmissionOnDelay="1000"/>
    <GasBranches><GasBranch GasType="1" DAPort="0"/></GasBranches><Devices>
    <Laser Driver="bench" EmissionRequest="emission" EmissionConfirmed="confirmed" Beam="beam" BeamOn="lit"
           LatchOk="ok" Trip="trip" Rearm="rearm"/>
    <Gas Driver="bench"><Branch GasType="1" Valve="v1"/></Gas>
    <Output Number="5" Driver="bench" Address="o5"/></Devices></MachineConfig>)";
  TBench bench;
  bench.SetLag(20);
  ExpectPortContracts(
      {.Options = {.Machines = {ComposedMachine({BenchDriver(bench)})}, .MachineFile = file, .Realtime = true},
       .Cut = [&] { std::thread([&] { bench.Cut(); }).join(); },
       .Heal = [&] { std::thread([&] { bench.Heal(); }).join(); },
       .CallMs = 60});
}

TEST(ComposedThreaded, APilotLightThatStaysOnIsNotTriedWell) {
  TTempDir dir;
  const auto file = dir.Path() / "machine.xml";
  std::ofstream(file) << R"(<MachineConfig><Machine Driver="composed"/><Devices>
    <Laser Driver="bench" EmissionRequest="emission" Beam="beam" Aiming="pilot"/></Devices></MachineConfig>)";
  TBench bench;
  const ixocontroller::TPortTries tries({.Machines = {ComposedMachine({BenchDriver(bench)})}, .MachineFile = file}, 20,
                                        [] { return false; });
  const auto chosen = tries.Chosen({"pilot"});
  EXPECT_EQ(tries.Perform(*chosen[0]).Read, "1, 0");
  bench.Stick("pilot");
  const auto tried = tries.Perform(*chosen[0]);
  EXPECT_EQ(tried.Read, "1, 1");
  EXPECT_FALSE(tried.Good);
  bench.Stick("");
}

TEST(ComposedThreaded, TheSimulatedDevicesKeepThePortsContracts) {
  TTempDir dir;
  const auto file = WriteMachine(dir.Path() / "machine.xml", std::string(kOwnDevices) + PortDevices());
  ExpectPortContracts(
      {.Options = {.Machines = {ComposedMachine({SimulatedDriver()})}, .MachineFile = file, .Realtime = true},
       .CallMs = 60});
}

}  // namespace
}  // namespace ixocamglue::test
