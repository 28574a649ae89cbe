// A laser cutting machine made of software: owns the simulated devices and offers them to the library for its own life.
//
// Built after the clock is installed and before any thread starts. In virtual time the clock steps it; in real time
// every device call, and whoever calls CatchUp regularly, brings it up to the clock. Any thread may call; one lock
// guards the physics, and it is never held while the gate hangs, calls back or throws. GetState and the pointers to the
// devices pass no gate.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>

#include "ixocamglue/platform/Machine.h"
#include "ixocamglue/platform/ports/FollowerPair.h"
#include "ixocamglue/platform/services/VirtualClock.h"
#include "machines/simulated/Axes.h"
#include "machines/simulated/Collisions.h"
#include "machines/simulated/Config.h"
#include "machines/simulated/Core.h"
#include "machines/simulated/Follower.h"
#include "machines/simulated/Gas.h"
#include "machines/simulated/Laser.h"
#include "machines/simulated/Ports.h"
#include "machines/simulated/Rack.h"

namespace ixocamglue {

// What the machine has; whatever is left out reads as null.
struct TSimParts {
  bool CutSystem = true;
  bool Laser = true;
  bool Gas = true;
  bool InportCtrl = true;
  bool CutHead = true;
  bool MultiFollower = true;
  bool Follower = true;  // GFollower
  bool SwitchTable = true;
  bool MotionDriver = true;
  bool MotionCard = true;
  bool DeviceManager = true;
};

class TSimMachine final : public IMachine, public TNcCutSystem {
 public:
  TSimMachine(const TMachineContext& context, const TSimConfig& config, const TSimParts& parts = {});
  ~TSimMachine() override;

  TResult<> Connect() override;
  void CatchUp(std::uint64_t nowMs) override;
  // A wait for an input ends with its state.
  void NoteState(std::int32_t state) override;
  // Axes, head, followers and gas; takes the physics' lock only, which no hanging call holds.
  void StopNow() override;
  TMachineSnapshot Snapshot() override;
  std::vector<TMachinePort> PortFacts() override;
  bool Inject(std::string_view fault) override;
  bool SetTrouble(std::string_view device, bool fails) override;

  std::int32_t GetState() override;
  TSimLaser* Laser() override { return FParts.Laser ? &FLaser : nullptr; }
  TSimGas* Gas() override { return FParts.Gas ? &FGas : nullptr; }
  TSimInportCtrl* InportCtrl() override { return FParts.InportCtrl ? &FInportCtrl : nullptr; }
  TSimCutHead* CutHeadCtrl() override { return FParts.CutHead ? &FHead : nullptr; }
  TNcFollowerPair* MultiFollower() override { return FParts.MultiFollower ? &FMultiFollower : nullptr; }
  TSimSwitchTable* SwitchTable() override { return FParts.SwitchTable ? &FTable : nullptr; }
  // A refused lock is taken all the same; an unlock that fails has released it.
  void Lock() override IXO_ACQUIRE(FCutLock);
  void Unlock() override IXO_RELEASE(FCutLock);
  void SwitchLaser(bool on) override;
  void KeyDown(std::int32_t command, std::int32_t param, bool fromPanel) override;
  void KeyUp(std::int32_t command, std::int32_t param) override;

  [[nodiscard]] TCallGate& Gate() { return FGate; }
  // The devices as such, also where the library does not see them.
  [[nodiscard]] TSimLaser& LaserDevice() { return FLaser; }
  [[nodiscard]] TSimGas& GasDevice() { return FGas; }
  [[nodiscard]] TSimCutHead& HeadDevice() { return FHead; }
  [[nodiscard]] TSimMotion& Motion() { return FMotion; }
  [[nodiscard]] TSimPorts& Ports() { return FPorts; }
  [[nodiscard]] TSimFollower& Follower() { return FFollower; }
  [[nodiscard]] TSimFollower* SecondFollower() { return FSecondFollower.get(); }  // null: not fitted
  [[nodiscard]] TSimSwitchTable& Table() { return FTable; }
  [[nodiscard]] TSimRack& Rack() { return FRack; }
  [[nodiscard]] TSimBrush& Brush() { return FBrush; }
  [[nodiscard]] const TSimConfig& Config() const { return FConfig; }

 private:
  void TellWatch() IXO_REQUIRES(FCore.Lock);  // where the axes are
  // No light, and nothing moves or follows. The core's lock is held.
  [[nodiscard]] bool AtRest() const;

  const TMachineContext FContext;
  const TSimConfig FConfig;
  const TSimParts FParts;
  TCallGate FGate;
  TSimCore FCore;
  TRecursiveSection FCutLock;  // the library's lock around switching the laser; guards nothing in here

  TSimLaser FLaser;
  TSimGas FGas;
  TSimMotion FMotion;
  TSimCutHead FHead;
  TSimFollower FFollower;
  std::unique_ptr<TSimFollower> FSecondFollower;
  TNcFollowerPair FMultiFollower;
  TSimPorts FPorts;
  TSimInportCtrl FInportCtrl;
  TSimSwitchTable FTable;
  TSimRack FRack;
  TSimBrush FBrush;
  TSimCollisions FCollisions;

  std::optional<std::size_t> FClockHandle;
  std::int32_t FState IXO_GUARDED_BY(FCore.Lock) = 0;  // the last one noted

  std::optional<TInstalled<TNcCutSystem>> FCutSystemInstalled;
  std::optional<TInstalled<TNcFollower>> FFollowerInstalled;
  std::optional<TInstalled<TNcMotionDriver>> FMotionInstalled;
  std::optional<TInstalled<TNcMotionCard>> FCardInstalled;
  std::optional<TInstalled<TNcDeviceManager>> FManagerInstalled;
};

struct TSimOptions {
  TSimParts Parts;
  std::function<void(TSimConfig&)> Adjust;  // after its file was read; may be empty
};
// "simulated"
[[nodiscard]] TMachineFactory SimulatedMachine(TSimOptions options = {});

// For who knows that it is one; throws std::bad_cast.
[[nodiscard]] inline TSimMachine& Simulated(IMachine& machine) { return dynamic_cast<TSimMachine&>(machine); }

}  // namespace ixocamglue
