#include "machines/simulated/Machine.h"

#include <utility>

#include "ixocamglue/platform/ports/CutCommands.h"
#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/support/Format.h"

namespace ixocamglue {
namespace {

constexpr std::uint64_t kFollowerSeed = 0x5F0110;  // the sensors' noise is not the laser's jitter

}  // namespace

TSimMachine::TSimMachine(const TSimConfig& config, std::uint64_t seed, TNcStateFramework& framework, TCallGate& gate,
                         const TSimParts& parts)
    : FConfig(config),
      FParts(parts),
      FFramework(framework),
      FCore(gate, framework),
      FLaser(FCore, FConfig, seed),
      FGas(FCore, FConfig, seed),
      FMotion(FCore, FConfig),
      FHead(FCore, FConfig),
      FFollower(FCore, "follower", FConfig, seed ^ kFollowerSeed),
      FSecondFollower(config.Physics.SecondFollower
                          ? std::make_unique<TSimFollower>(FCore, "follower2", FConfig, ~seed ^ kFollowerSeed)
                          : nullptr),
      FMultiFollower(config.Physics.Follower ? &FFollower : nullptr, FSecondFollower.get()),
      FPorts(FCore, FConfig, FGas),
      FInportCtrl(FCore, FPorts, FAlarms),
      FTable(FCore, FConfig),
      FRack(FCore, FConfig.Rack, FPorts, FMotion, config.Physics.Follower ? &FFollower : nullptr),
      FBrush(FCore, FConfig.Brushes, FMotion, config.Physics.Follower ? &FFollower : nullptr),
      FDemo(*this, framework) {
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
  if (parts.CutSystem) FCutSystemInstalled.emplace(*this);
  if (parts.Follower && config.Physics.Follower) FFollowerInstalled.emplace(FFollower);
  if (parts.MotionDriver) FMotionInstalled.emplace(FMotion);
  if (parts.MotionCard) FCardInstalled.emplace(FPorts);
  if (parts.DeviceManager) FManagerInstalled.emplace(FPorts);
  if (parts.Alarms) FAlarmsInstalled.emplace(FAlarms);
  FCore.DeviceAlarms.AddTo(FAlarms);
  gate.OnAnswer([this](const char* device, bool works) { FCore.DeviceAlarms.Communication(device, works); });
}

TSimMachine::~TSimMachine() {
  if (FClock) FClock->Remove(FClockHandle);
  FCore.Gate.OnAnswer({});
  FCore.DeviceAlarms.RemoveFrom(FAlarms);
}

void TSimMachine::Lock() {
  (void)FCore.Gate.Enter("cut", "Lock", vkLock);
  FCutLock.lock();
}

void TSimMachine::Unlock() {
  FCutLock.unlock();
  (void)FCore.Gate.Enter("cut", "Unlock", vkLock);
}

void TSimMachine::SwitchLaser(bool on) {
  if (FParts.Laser) FLaser.SwitchLaser(on);
}

void TSimMachine::KeyDown(std::int32_t command, std::int32_t param, bool) {
  const TVerbKind kind = IsStopCommand(command) ? vkStop : vkStart;
  if (!FCore.Gate.Enter("cut", "KeyDown", kind, Format("%d %d", command, param))) return;
  FDemo.KeyDown(command);
}

void TSimMachine::KeyUp(std::int32_t command, std::int32_t param) {
  if (!FCore.Gate.Enter("cut", "KeyUp", vkStop, Format("%d %d", command, param))) return;
  FDemo.KeyUp(command);
}

void TSimMachine::Note(const char* device, std::string_view text) {
  const TSimScope scope(FCore);
  FCore.Event(device, text);
}

void TSimMachine::Attach(TVirtualClock& clock) {
  if (FClock) FClock->Remove(FClockHandle);
  FClock = &clock;
  FClockHandle = clock.OnStep([this](std::uint64_t nowMs) { CatchUp(nowMs); });
}

void TSimMachine::CatchUp(std::uint64_t nowMs) { const TSimScope scope(FCore, nowMs); }

void TSimMachine::NoteState(std::int32_t state) {
  const TSimScope scope(FCore);
  Journal().State(FCore.Now(), state);
  if (std::exchange(FState, state) != state) FInportCtrl.Cancel();
}

void TSimMachine::ClearAlarms() {
  FAlarms.ClearAll();
  const TSimScope scope(FCore);
  FCore.Event("alarm", "all cleared");
}

void TSimMachine::RaiseAlarm(TNcAlarmRecord record, const TSimForbids& forbids) {
  FAlarms.Raise(record, forbids);
  const TSimScope scope(FCore);
  FCore.Event("alarm", Format("%s %d: %s", record.IdPrefix.c_str(), record.Id, record.Desc.c_str()));
  FLaser.Settle();
  FCore.PostAlarm(std::move(record));
}

TSimSnapshot TSimMachine::Snapshot() {
  const TSimScope scope(FCore);
  FLaser.Settle();
  TSimSnapshot now;
  now.Ms = FCore.Now();
  now.Laser = FLaser.Lit();
  now.Emission = FLaser.Emitting();
  now.LatchTripped = FLaser.LatchTripped();
  if (const char* const reason = FLaser.LatchReason()) now.LatchReason = reason;
  const TSimGas::TFacts gas = FGas.Facts();
  now.Gas = gas.On;
  now.GasBranch = gas.Branch;
  now.GasSetBar = gas.SetBar;
  now.GasBar = gas.Bar;
  now.GasVolt = gas.Volt;
  now.Pos = FMotion.Pos();
  now.AxesMoving = FMotion.Moving();
  now.Z = FConfig.Physics.Follower ? FFollower.Z() : FMotion.Z();
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
  now.OutputsOn = FPorts.OutputsOn();
  now.State = GetState();
  return now;
}

}  // namespace ixocamglue
