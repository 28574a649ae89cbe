#include "machines/simulated/Machine.h"

#include <utility>

#include "ixocamglue/platform/alarms/NcAlarmManager.h"
#include "ixocamglue/platform/ports/CutCommands.h"
#include "ixocamglue/platform/states/NcState.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Lists.h"
#include "ixocamglue/support/Texts.h"
#include "machines/simulated/Faults.h"

namespace ixocamglue {
namespace {

constexpr std::uint64_t kFollowerSeed = 0x5F0110;  // the sensors' noise is not the laser's jitter

}  // namespace

TSimMachine::TSimMachine(const TMachineContext& context, const TSimConfig& config, const TSimParts& parts)
    : FContext(context),
      FConfig(config),
      FParts(parts),
      FGate(&context.Observer),
      FCore(FGate, context.Observer),
      FLaser(FCore, FConfig, context.Seed),
      FGas(FCore, FConfig, context.Seed),
      FMotion(FCore, FConfig),
      FHead(FCore, FConfig),
      FFollower(FCore, "follower", FConfig, context.Seed ^ kFollowerSeed),
      FSecondFollower(config.Physics.SecondFollower
                          ? std::make_unique<TSimFollower>(FCore, "follower2", FConfig, ~context.Seed ^ kFollowerSeed)
                          : nullptr),
      FMultiFollower(config.Physics.Follower ? &FFollower : nullptr, FSecondFollower.get()),
      FPorts(FCore, FConfig, FGas),
      FInportCtrl(FCore, FPorts, context.Alarms),
      FTable(FCore, FConfig, [this] { return AtRest(); }),
      FRack(FCore, FConfig.Rack, FPorts, FMotion, config.Physics.Follower ? &FFollower : nullptr,
            FSecondFollower.get()),
      FBrush(FCore, FConfig.Brushes, FMotion, config.Physics.Follower ? &FFollower : nullptr),
      FCollisions(FCore, FConfig, FMotion, config.Physics.Follower ? &FFollower : nullptr, FSecondFollower.get()) {
  FCore.AddPart(FLaser);
  FCore.AddPart(FGas);
  FCore.AddPart(FMotion);
  FCore.AddPart(FHead);
  FCore.AddPart(FFollower);
  if (FSecondFollower) FCore.AddPart(*FSecondFollower);
  FCore.AddPart(FPorts);
  FCore.AddPart(FTable);
  FCore.AddPart(FRack);
  FCore.AddPart(FBrush);
  FCore.AddPart(FInportCtrl);
  FCore.AddPart(FCollisions);
}

TResult<> TSimMachine::Connect() {
  if (FParts.CutSystem) FCutSystemInstalled.emplace(*this);
  if (FParts.Follower && FConfig.Physics.Follower) FFollowerInstalled.emplace(FFollower);
  if (FParts.MotionDriver) FMotionInstalled.emplace(FMotion);
  if (FParts.MotionCard) FCardInstalled.emplace(FPorts);
  if (FParts.DeviceManager) FManagerInstalled.emplace(FPorts);
  FCore.DeviceAlarms.AddTo(FContext.Alarms);
  FGate.OnAnswer([this](const char* device, bool works) { FCore.DeviceAlarms.Communication(device, works); });
  if (FContext.Clock)
    FClockHandle = FContext.Clock->OnStep([this](std::uint64_t nowMs) {
      const TSimScope scope(FCore, nowMs);
      TellWatch();
    });
  return {};
}

TSimMachine::~TSimMachine() {
  if (FClockHandle) FContext.Clock->Remove(*FClockHandle);
  FGate.OnAnswer({});
  FCore.DeviceAlarms.RemoveFrom(FContext.Alarms);
}

std::int32_t TSimMachine::GetState() { return FContext.Framework.CurrentState(); }

void TSimMachine::Lock() {
  (void)FGate.Enter("cut", "Lock", vkLock);
  FCutLock.lock();
}

void TSimMachine::Unlock() {
  FCutLock.unlock();
  (void)FGate.Enter("cut", "Unlock", vkLock);
}

void TSimMachine::SwitchLaser(bool on) {
  if (FParts.Laser) FLaser.SwitchLaser(on);
}

void TSimMachine::KeyDown(std::int32_t command, std::int32_t param, bool fromPanel) {
  const TVerbKind kind = IsStopCommand(command) ? vkStop : vkStart;
  if (!FGate.Enter("cut", "KeyDown", kind, Format("%d %d", command, param))) return;
  TNcCutSystem::KeyDown(command, param, fromPanel);
}

void TSimMachine::KeyUp(std::int32_t command, std::int32_t param) {
  if (!FGate.Enter("cut", "KeyUp", vkStop, Format("%d %d", command, param))) return;
  TNcCutSystem::KeyUp(command, param);
}

void TSimMachine::CatchUp(std::uint64_t nowMs) {
  const TSimScope scope(FCore, nowMs);
  FLaser.Settle();  // the latch looks at the alarms
  TellWatch();
}

void TSimMachine::TellWatch() {
  const auto tell = [this](TNcWatchAxis axis, double mm) {
    FContext.Framework.Watch().Pos[axis].store(mm, std::memory_order_release);
  };
  tell(waX, FMotion.Pos().X);
  tell(waY, FMotion.Pos().Y);
  tell(waZ, FConfig.Physics.Follower ? FFollower.Z() : FMotion.Z());
  if (FSecondFollower) tell(waZ2, FSecondFollower->Z());
  tell(waFocus, FHead.Focus());
}

void TSimMachine::NoteState(std::int32_t state) {
  const TSimScope scope(FCore);
  if (std::exchange(FState, state) != state) FInportCtrl.Cancel();
}

void TSimMachine::StopNow() {
  {
    const TSimScope scope(FCore);
    FMotion.Halt();
    FHead.Halt();
    FFollower.Halt();
    if (FSecondFollower) FSecondFollower->Halt();
    FGas.Halt();
  }
  NoteGasOff();
  (void)FGate.Enter("machine", "StopNow", vkStop);  // what is planned for the call comes too late for it
}

bool TSimMachine::Inject(std::string_view fault) { return InjectSimFault(*this, fault); }

bool TSimMachine::SetTrouble(std::string_view device, bool fails) { return SetSimTrouble(*this, device, fails); }

bool TSimMachine::AtRest() const {
  FCore.AssertLocked();
  const auto rests = [](const TSimFollower& z) { return !z.Moving() && !z.Following() && !z.Calibrating(); };
  return !FLaser.Lit() && !FMotion.Moving() && !FHead.Moving() && !FRack.Travelling() && rests(FFollower) &&
         (!FSecondFollower || rests(*FSecondFollower));
}

TMachineSnapshot TSimMachine::Snapshot() {
  const TSimScope scope(FCore);
  FLaser.Settle();
  TMachineSnapshot now;
  now.Ms = FCore.Now();
  now.Laser = FLaser.Lit();
  now.Emission = FLaser.Emitting();
  now.LatchTripped = FLaser.LatchTripped();
  if (const char* const reason = FLaser.LatchReason()) now.LatchReason = reason;
  now.Aiming = FLaser.Aiming();
  const TSimGas::TFacts gas = FGas.Facts();
  now.Gas = gas.On;
  now.GasBranch = gas.Branch;
  now.GasSetBar = gas.SetBar;
  now.GasBar = gas.Bar;
  now.GasVolt = gas.Volt;
  now.GasValveOpen = gas.On && !gas.Switching;
  now.Pos = FMotion.Pos();
  now.AxesMoving = FMotion.Moving();
  now.Z = FConfig.Physics.Follower ? FFollower.Z() : FMotion.Z();
  now.Z2 = FSecondFollower ? FSecondFollower->Z() : 0.0;
  now.Turns = FMotion.Turns();
  now.ZMoving = FFollower.Moving() || (FSecondFollower && FSecondFollower->Moving());
  now.Following = FFollower.Following() || (FSecondFollower && FSecondFollower->Following());
  now.Calibrating = FFollower.Calibrating() || (FSecondFollower && FSecondFollower->Calibrating());
  now.Focus = FHead.Focus();
  now.FocusMoving = FHead.Moving();
  const TPoint2 speed = FMotion.Speed();
  const double lagS = FConfig.Physics.FollowingErrorMs / 1000.0;
  const double speedZ = FConfig.Physics.Follower ? FFollower.Speed() : FMotion.ZSpeed();
  now.FollowingError = {speed.X * lagS, speed.Y * lagS, speedZ * lagS, FHead.Speed() * lagS};
  now.RackMoving = FRack.Travelling();
  now.Nozzle = FRack.Nozzle();
  now.DockedTable = FTable.Docked();
  now.OutputsOn = FPorts.OutputsOn();
  now.Collisions = FCore.Collisions();
  now.FirstCollision = FCore.FirstCollision();
  now.State = GetState();
  return now;
}

std::vector<TMachinePort> TSimMachine::PortFacts() {
  const TMachineSnapshot now = Snapshot();
  std::vector<TMachinePort> ports;
  const auto add = [&](std::string device, std::string port, std::string value, std::string limits = {}) {
    ports.push_back({std::move(device), "simulated",
                     TPortFacts{.Port = std::move(port),
                                .Value = std::move(value),
                                .AgeMs = 0,
                                .Limits = std::move(limits),
                                .Readable = true}});
  };
  const auto axis = [&](const char* name, double mm, const TSimAxisConfig& limits) {
    add(Format(Tr("axis %s"), name), name, Format("%.3f mm", mm),
        Format("%g..%g mm", limits.SoftLimitNeg, limits.SoftLimitPos));
  };
  axis("X", now.Pos.X, FConfig.X);
  axis("Y", now.Pos.Y, FConfig.Y);
  axis("Z", now.Z, FConfig.Z);
  if (FSecondFollower) axis("Z2", now.Z2, FConfig.Z);
  axis("Focus", now.Focus, FConfig.Focus);
  add(Tr("laser"), "laser", now.Laser ? "1" : "0");
  for (const TSimGasBranch& branch : FConfig.GasBranches)
    add(Format(Tr("gas %d %s"), branch.GasType, branch.Name.c_str()), Format("gas:%d", branch.GasType),
        branch.GasType == now.GasBranch ? Format("%.2f bar", now.GasBar) : std::string(),
        Format("0..%g bar", branch.MaxPressure));
  add(Tr("pallets"), "pallets", Format("%d", now.DockedTable));
  for (const TSimPort& port : FConfig.Inports)
    add(Format(Tr("input %d %s"), port.Number, port.Name.c_str()), Format("in:%d", port.Number),
        FPorts.InputIsOn(port.Number) ? "1" : "0");
  for (const TSimPort& port : FConfig.Outports)
    add(Format(Tr("output %d %s"), port.Number, port.Name.c_str()), Format("out:%d", port.Number),
        FPorts.OutputIsOn(port.Number) ? "1" : "0");
  return ports;
}

TMachineFactory SimulatedMachine(TSimOptions options) {
  const auto make = [options =
                         std::move(options)](const TMachineContext& context) -> TResult<std::unique_ptr<IMachine>> {
    std::vector<TProblem> problems;
    TSimConfig config = TSimConfig::FromRoot(context.Config.Root(), problems);
    std::string text;
    for (const TProblem& problem : problems)
      AddToList(text, context.Config.File().string() + ": " + problem.Text(), "\n");
    if (!text.empty()) return TProblem{.What = std::move(text)};
    if (options.Adjust) options.Adjust(config);
    return TResult<std::unique_ptr<IMachine>>(std::make_unique<TSimMachine>(context, config, options.Parts));
  };
  const auto limits = [](const TConfigSection& root, std::vector<TProblem>& problems) -> TMachineLimits {
    const TSimConfig sim = TSimConfig::FromRoot(root, problems);
    return {sim, sim.Physics.PlateZ, sim.WorkArea};
  };
  return {.Name = "simulated",
          .Make = make,
          .Faults = {SimFaults().begin(), SimFaults().end()},
          .Sections = {{"Simulator", [] { return std::make_unique<TSimulatorRecord>(); }}},
          .Limits = limits};
}

}  // namespace ixocamglue
