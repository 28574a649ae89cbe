#include "machines/composed/Machine.h"

#include <utility>

#include "ixocamglue/platform/alarms/NcAlarmManager.h"
#include "ixocamglue/platform/ports/CutCommands.h"
#include "ixocamglue/platform/services/VirtualClock.h"
#include "ixocamglue/platform/states/NcState.h"
#include "ixocamglue/platform/xml/MachineConfig.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Lists.h"
#include "ixocamglue/support/Texts.h"

namespace ixocamglue {
namespace {

constexpr std::uint64_t kPosMs = 10;  // how often the watch is told where the axes are

// The device that the check has found in the driver's list.
template <class Device>
Device& Have(Device* device, const std::string& driver, const char* what) {
  if (device) return *device;
  throw EProblem(pbUnusable, Format(Tr("the driver \"%s\" has no %s for this machine file"), driver.c_str(), what));
}

}  // namespace

TComposedMachine::TComposedMachine(const TMachineContext& context, const TDevicesRecord& devices,
                                   const TMachineBounds& machine, std::span<const TDriverFactory> drivers)
    : FCore(context), FDrivers(FCore, drivers), FPorts(FCore), FInportCtrl(FCore, FPorts) {
  MakeMotion(devices);
  MakeLaser(devices.Laser);
  MakePorts(devices, machine);
  MakeGas(devices, machine);
  FPorts.SetGas(FGas.get());
}

void TComposedMachine::MakeMotion(const TDevicesRecord& devices) {
  std::int32_t axes = 0;
  if (const std::string& name = devices.Axes.Driver; !name.empty()) {
    FAxesDevice = &Have(FDrivers.Driver(name).Axes(), name, "Axes");
    const std::string& turns = devices.NozzleMotor.Driver.empty() ? name : devices.NozzleMotor.Driver;
    FAxes.emplace(FCore, *FAxesDevice, Have(FDrivers.Driver(turns).Axes(), turns, "NozzleMotor"));
    axes = 2;
  }
  if (const std::string& name = devices.Follower.Driver; !name.empty()) {
    FFollowerDevice[0] = &Have(FDrivers.Driver(name).Follower(0), name, "Follower");
    FFollower.emplace(FCore, "follower", *FFollowerDevice[0]);
  }
  if (const std::string& name = devices.SecondFollower.Driver; !name.empty()) {
    FFollowerDevice[1] = &Have(FDrivers.Driver(name).Follower(1), name, "SecondFollower");
    FSecondFollower.emplace(FCore, "follower2", *FFollowerDevice[1]);
  }
  if (FFollower) FFollowers.emplace(&*FFollower, FSecondFollower ? &*FSecondFollower : nullptr);
  if (const std::string& name = devices.Focus.Driver; !name.empty()) {
    FFocusDevice = &Have(FDrivers.Driver(name).Focus(), name, "Focus");
    FFocus.emplace(FCore, *FFocusDevice);
    ++axes;
  }
  const bool hasZ = FFollower || (FAxesDevice && FAxesDevice->HasZ());
  FPorts.SetAxisCount(axes + (hasZ ? 1 : 0));
  const TPalletsDevice& pallets = devices.Pallets;
  if (pallets.IsOfPoints()) {
    IMachinePoint* const docked1 = FDrivers.Point(pkInput, pallets.Docked1, pallets.Driver, Tr("pallet 1 docked"));
    IMachinePoint* const docked2 = FDrivers.Point(pkInput, pallets.Docked2, pallets.Driver, Tr("pallet 2 docked"));
    FPallets = std::make_unique<TPointPallets>(FCore, docked1, docked2);
  } else if (!pallets.Driver.empty()) {
    FPallets = std::make_unique<TToldPallets>(
        FCore, Have(FDrivers.Driver(pallets.Driver).Pallets(), pallets.Driver, "Pallets"));
  }
}

void TComposedMachine::MakeLaser(const TLaserDevice& laser) {
  if (!laser.IsOfPoints()) {
    if (laser.Driver.empty()) return;
    FLaser = std::make_unique<TWholeLaser>(FCore, Have(FDrivers.Driver(laser.Driver).Laser(), laser.Driver, "Laser"));
    FDrivers.TellsLaser(laser.Driver);
    return;
  }
  const auto in = [&](const std::string& address, const char* name) {
    return FDrivers.Point(pkInput, address, laser.Driver, Format(Tr("laser %s"), name));
  };
  const auto out = [&](const std::string& address, const char* name) {
    return FDrivers.OwnOutput(address, laser.Driver, Format(Tr("laser %s"), name));
  };
  TLaserPoints points{.EmissionRequest = out(laser.EmissionRequest, "EmissionRequest"),
                      .Beam = out(laser.Beam, "Beam"),
                      .Aiming = out(laser.Aiming, "Aiming"),
                      .Trip = out(laser.Trip, "Trip"),
                      .EmissionConfirmed = in(laser.EmissionConfirmed, "EmissionConfirmed"),
                      .BeamOn = in(laser.BeamOn, "BeamOn"),
                      .Fault = in(laser.Fault, "Fault"),
                      .Latches = {{.Ok = in(laser.LatchOk, "LatchOk"), .Rearm = out(laser.Rearm, "Rearm")}}};
  for (const auto& latch : laser.Latches)
    points.Latches.push_back({.Ok = in(latch->Ok, "Latch Ok"), .Rearm = out(latch->Rearm, "Latch Rearm")});
  auto made = std::make_unique<TPointLaser>(FCore, points);
  for (const std::string& lights : {laser.EmissionRequest, laser.Beam})
    FDrivers.NoteUse(pkOutput, lights, laser.Driver, puLight);
  FPointLaser = made.get();
  FLaser = std::move(made);
}

void TComposedMachine::MakeGas(const TDevicesRecord& devices, const TMachineBounds& machine) {
  const TGasDevice& gas = devices.Gas;
  if (gas.Branches.Size() == 0) {
    if (gas.Driver.empty()) return;
    FGas = std::make_unique<TWholeGas>(FCore, Have(FDrivers.Driver(gas.Driver).Gas(), gas.Driver, "Gas"));
    FDrivers.TellsGas(gas.Driver);
    return;
  }
  std::vector<TGasLine> lines;
  for (const auto& each : gas.Branches) {
    TGasLine line{.GasType = each->GasType};
    const auto point = [&](TPointKind kind, const std::string& address, const char* name) {
      return FDrivers.Point(kind, address, gas.Driver, Format(Tr("gas %d %s"), each->GasType, name), "bar");
    };
    line.Valve = point(pkOutput, each->Valve, "Valve");
    line.Pressure = point(pkAnalogIn, each->Pressure, "Pressure");
    line.SetPoint = point(pkAnalogOut, each->SetPoint, "SetPoint");
    FDrivers.NoteUse(pkOutput, each->Valve, gas.Driver, puGas);
    FDrivers.NoteUse(pkAnalogOut, each->SetPoint, gas.Driver, puGas);
    for (const TGasBranchConfig& branch : machine.GasBranches) {
      if (branch.GasType != each->GasType) continue;
      line.MaxPressure = branch.GetMaxPressure();
      line.HasVolt = branch.DAPort != 0;
      for (const auto& out : devices.AnalogOuts)
        if (line.HasVolt && out->Number == branch.DAPort) {
          line.VoltPoint = FDrivers.Point(pkAnalogOut, out->Address, out->Driver, {});
          FDrivers.NoteUse(pkAnalogOut, out->Address, out->Driver, puGas);
        }
    }
    lines.push_back(line);
  }
  IMachinePoint* const supply = FDrivers.Point(pkInput, gas.Supply, gas.Driver, Tr("gas supply"));
  auto made =
      std::make_unique<TPointGas>(FCore, std::move(lines), supply, static_cast<std::uint64_t>(gas.SwitchTimeMs));
  FPointGas = made.get();
  FGas = std::move(made);
}

void TComposedMachine::MakePorts(const TDevicesRecord& devices, const TMachineBounds& machine) {
  const auto name = [](const TPointDevice& port, const std::vector<TPortConfig>& names) {
    const auto named = std::ranges::find(names, port.Number, &TPortConfig::Number);
    return named == names.end() ? std::string() : named->Name;
  };
  for (const auto& port : devices.Inputs) {
    std::string label = Format(Tr("input %d %s"), port->Number, name(*port, machine.Inports).c_str());
    FPorts.AddInput(port->Number, *FDrivers.Point(pkInput, port->Address, port->Driver, std::move(label)));
  }
  for (const auto& port : devices.Outputs) {
    std::string label = Format(Tr("output %d %s"), port->Number, name(*port, machine.Outports).c_str());
    FPorts.AddOutput(port->Number, *FDrivers.Point(pkOutput, port->Address, port->Driver, std::move(label)));
  }
  // Those that nothing else of the machine uses are looked at by who commissions it.
  for (const auto& port : devices.AnalogIns)
    FDrivers.Point(pkAnalogIn, port->Address, port->Driver, Format(Tr("analogue input %d"), port->Number));
  for (const auto& port : devices.AnalogOuts) {
    const bool drivesGas =
        std::ranges::find(machine.GasBranches, port->Number, &TGasBranchConfig::DAPort) != machine.GasBranches.end();
    FDrivers.Point(pkAnalogOut, port->Address, port->Driver, Format(Tr("analogue output %d"), port->Number),
                   drivesGas ? "V" : "");
  }
}

TResult<> TComposedMachine::Connect() {
  FDrivers.OnAway([this] {
    if (FLaser) FLaser->DeviceAway();
  });
  if (TResult<> connected = FDrivers.Connect(); !connected) return connected;
  if (FPointLaser) FPointLaser->Begin();
  if (FPointGas) FPointGas->Begin();
  Install();
  if (FCore.Context.Clock)
    FClockHandle = FCore.Context.Clock->OnStep([this](std::uint64_t nowMs) {
      Look();
      if (nowMs - FToldAtMs < kPosMs) return;
      FToldAtMs = nowMs;
      TellWatch();
    });
  return {};
}

void TComposedMachine::Install() {
  FCutSystemInstalled.emplace(*this);
  if (FFollower) FFollowerInstalled.emplace(*FFollower);
  if (FAxes) FMotionInstalled.emplace(*FAxes);
  if (FPorts.HasOutputs()) FCardInstalled.emplace(FPorts);
  FManagerInstalled.emplace(FPorts);
}

TComposedMachine::~TComposedMachine() {
  if (FClockHandle) FCore.Context.Clock->Remove(*FClockHandle);
  FDrivers.OnAway({});
}

std::int32_t TComposedMachine::GetState() { return FCore.Context.Framework.CurrentState(); }

void TComposedMachine::Lock() {
  (void)FCore.Gate.Enter("cut", "Lock", vkLock);
  FCutLock.lock();
}

void TComposedMachine::Unlock() {
  FCutLock.unlock();
  (void)FCore.Gate.Enter("cut", "Unlock", vkLock);
}

void TComposedMachine::SwitchLaser(bool on) {
  if (FLaser) FLaser->SwitchLaser(on);
}

void TComposedMachine::KeyDown(std::int32_t command, std::int32_t param, bool fromPanel) {
  const TVerbKind kind = IsStopCommand(command) ? vkStop : vkStart;
  if (!FCore.Gate.Enter("cut", "KeyDown", kind, Format("%d %d", command, param))) return;
  TNcCutSystem::KeyDown(command, param, fromPanel);
}

void TComposedMachine::KeyUp(std::int32_t command, std::int32_t param) {
  if (!FCore.Gate.Enter("cut", "KeyUp", vkStop, Format("%d %d", command, param))) return;
  TNcCutSystem::KeyUp(command, param);
}

void TComposedMachine::Look() {
  if (FLaser) FLaser->Look();
  if (FGas) FGas->Look();
  FPorts.Look();
  FInportCtrl.Look();
}

void TComposedMachine::CatchUp(std::uint64_t nowMs) {
  for (IMachineDriver* const driver : FDrivers.All()) driver->CatchUp(nowMs);
  Look();
  TellWatch();
}

void TComposedMachine::TellWatch() {
  const auto tell = [this](TNcWatchAxis axis, const auto& read) {
    WhereReached([&] { FCore.Context.Framework.Watch().Pos[axis].store(read(), std::memory_order_release); });
  };
  if (FAxesDevice) {
    tell(waX, [&] { return FAxesDevice->GetPos(0); });
    tell(waY, [&] { return FAxesDevice->GetPos(1); });
  }
  if (FFollowerDevice[0])
    tell(waZ, [&] { return FFollowerDevice[0]->GetZ(); });
  else if (FAxesDevice)
    tell(waZ, [&] { return FAxesDevice->GetZ(); });
  if (FFollowerDevice[1]) tell(waZ2, [&] { return FFollowerDevice[1]->GetZ(); });
  if (FFocusDevice) tell(waFocus, [&] { return FFocusDevice->GetFocus(); });
}

void TComposedMachine::NoteState(std::int32_t state) {
  for (IMachineDriver* const driver : FDrivers.All()) driver->NoteState(state);
  if (FState.exchange(state) != state) FInportCtrl.Cancel();
}

void TComposedMachine::StopNow() {
  for (IMachineDriver* const driver : FDrivers.All()) WhereReached([&] { driver->StopNow(); });
  NoteGasOff();
  if (FPointGas) FPointGas->Halt();
  (void)FCore.Gate.Enter("machine", "StopNow", vkStop);  // what is planned for the call comes too late for it
}

bool TComposedMachine::Inject(std::string_view fault) {
  bool known = false;
  for (IMachineDriver* const driver : FDrivers.All()) known = driver->Inject(fault) || known;
  return known;
}

TMachineSnapshot TComposedMachine::Snapshot() {
  TMachineSnapshot now;
  now.Ms = FCore.Now();
  now.State = GetState();
  now.OutputsOn = FPorts.OutputsOn();
  if (FLaser) {
    FLaser->Look();
    const TComposedLaser::TFacts laser = FLaser->Facts();
    now.Laser = laser.Lit;
    now.Emission = laser.Emission;
    now.Aiming = laser.Aiming;
    if (const char* const reason = FLaser->LatchReason()) {
      now.LatchTripped = true;
      now.LatchReason = reason;
    }
  }
  if (FGas) {
    const TComposedGas::TFacts gas = FGas->Facts();
    now.Gas = gas.On;
    now.GasBranch = gas.Branch;
    now.GasSetBar = gas.SetBar;
    now.GasBar = gas.Bar;
    now.GasVolt = gas.Volt;
    now.GasValveOpen = gas.ValveOpen;
  }
  if (FAxesDevice)
    WhereReached([&] {
      now.Pos = {FAxesDevice->GetPos(0), FAxesDevice->GetPos(1)};
      if (!FFollowerDevice[0] && FAxesDevice->HasZ()) now.Z = FAxesDevice->GetZ();
      now.AxesMoving = FAxesDevice->IsBusy();
    });
  for (TNcFollower* const follower : FFollowerDevice)
    if (follower)
      WhereReached([&] {
        (follower == FFollowerDevice[0] ? now.Z : now.Z2) = follower->GetZ();
        now.Following = follower->IsFollowing() || now.Following;
        now.ZMoving = follower->IsBusy() || now.ZMoving;
      });
  if (FFocusDevice)
    WhereReached([&] {
      now.Focus = FFocusDevice->GetFocus();
      now.FocusMoving = FFocusDevice->IsBusy();
    });
  for (IMachineDriver* const driver : FDrivers.All()) driver->Show(now);
  return now;
}

TMachineFactory ComposedMachine(std::vector<TDriverFactory> drivers) {
  const auto shared = std::make_shared<const std::vector<TDriverFactory>>(std::move(drivers));
  const auto make = [shared](const TMachineContext& context) -> TResult<std::unique_ptr<IMachine>> {
    std::vector<TProblem> problems;
    TMachineBounds machine;
    TDevicesRecord devices;
    machine.Read(context.Config.Root(), problems);
    ReadDevices(context.Config.Root(), *shared, devices, machine, problems);
    std::string text;
    for (const TProblem& problem : problems)
      AddToList(text, context.Config.File().string() + ": " + problem.Text(), "\n");
    if (!text.empty()) return TProblem{.What = std::move(text), .Where = {}, .Why = {}, .Remedy = {}};
    try {
      return TResult<std::unique_ptr<IMachine>>(std::make_unique<TComposedMachine>(context, devices, machine, *shared));
    } catch (const EProblem& problem) {
      return problem.Problem;
    }
  };
  const auto allows = [shared](const TConfigSection& root, std::vector<TProblem>& problems) -> TMachineLimits {
    TMachineLimits limits;
    TDevicesRecord devices;
    limits.Bounds.Read(root, problems);
    ReadDevices(root, *shared, devices, limits.Bounds, problems);
    if (devices.Table.Z > 0.0) {
      limits.TableZ = devices.Table.Z;
      limits.Table = devices.Table.Area;
      const TMachineBounds& machine = limits.Bounds;
      if (limits.Table.Max.X <= limits.Table.Min.X || limits.Table.Max.Y <= limits.Table.Min.Y)
        limits.Table = {{machine.X.SoftLimitNeg, machine.Y.SoftLimitNeg},
                        {machine.X.SoftLimitPos, machine.Y.SoftLimitPos}};
    }
    return limits;
  };
  TMachineFactory factory{.Name = "composed", .Make = make, .Limits = allows};
  factory.Sections.push_back({TDevicesRecord::kSection, [] { return std::make_unique<TDevicesRecord>(); }});
  for (const TDriverFactory& driver : *shared) {
    factory.Sections.insert(factory.Sections.end(), driver.Sections.begin(), driver.Sections.end());
    factory.Faults.insert(factory.Faults.end(), driver.Faults.begin(), driver.Faults.end());
  }
  return factory;
}

}  // namespace ixocamglue
