// A machine that is put together from its file: axes, head, laser, gas, inputs and outputs, each by a driver of its own
// choice (Devices.h, ixocamglue/platform/Driver.h).
//
// Any thread may call. One lock guards what its devices of points remember; it is held for moments only, and never
// while the gate hangs, calls back or throws.
#pragma once

#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "ixocamglue/platform/ports/FollowerPair.h"
#include "machines/composed/Drivers.h"
#include "machines/composed/Gas.h"
#include "machines/composed/Laser.h"
#include "machines/composed/Motion.h"
#include "machines/composed/Ports.h"

namespace ixocamglue {

class TComposedMachine final : public IMachine, public TNcCutSystem {
 public:
  // `devices` are those of `machine`'s file, which nothing is wrong with; `drivers` outlive it. Throws EProblem
  // (pbUnusable) when a driver cannot be made or has no such point.
  TComposedMachine(const TMachineContext& context, const TDevicesRecord& devices, const TMachineBounds& machine,
                   std::span<const TDriverFactory> drivers);
  ~TComposedMachine() override;

  TResult<> Connect() override;
  void CatchUp(std::uint64_t nowMs) override;
  // A wait for an input ends with its state.
  void NoteState(std::int32_t state) override;
  void StopNow() override;
  TMachineSnapshot Snapshot() override;
  std::vector<TMachinePort> PortFacts() override { return FDrivers.PortFacts(); }
  bool Inject(std::string_view fault) override;

  std::int32_t GetState() override;
  TNcLaser* Laser() override { return FLaser.get(); }
  TNcGas* Gas() override { return FGas.get(); }
  TNcInportCtrl* InportCtrl() override { return &FInportCtrl; }
  TNcCutHeadCtrl* CutHeadCtrl() override { return FFocus ? &*FFocus : nullptr; }
  TNcMultiFollower* MultiFollower() override { return FFollowers ? &*FFollowers : nullptr; }
  TNcSwitchTable* SwitchTable() override { return FPallets.get(); }
  // A refused lock is taken all the same; an unlock that fails has released it.
  void Lock() override IXO_ACQUIRE(FCutLock);
  void Unlock() override IXO_RELEASE(FCutLock);
  void SwitchLaser(bool on) override;
  void KeyDown(std::int32_t command, std::int32_t param, bool fromPanel) override;
  void KeyUp(std::int32_t command, std::int32_t param) override;

  [[nodiscard]] TCallGate& Gate() { return FCore.Gate; }

 private:
  void MakeMotion(const TDevicesRecord& devices);
  void MakeLaser(const TLaserDevice& laser);
  void MakeGas(const TDevicesRecord& devices, const TMachineBounds& machine);
  void MakePorts(const TDevicesRecord& devices, const TMachineBounds& machine);
  void Install();
  void Look();
  void TellWatch();  // where the axes are

  TComposedCore FCore;
  TRecursiveSection FCutLock;  // the library's lock around switching the laser; guards nothing in here
  TDriverSet FDrivers;         // ends after what its points are used by

  // The drivers' own, past the gate; null: not fitted.
  TNcMotionDriver* FAxesDevice = nullptr;
  TNcFollower* FFollowerDevice[2] = {};
  TNcCutHeadCtrl* FFocusDevice = nullptr;

  std::unique_ptr<TComposedLaser> FLaser;
  TPointLaser* FPointLaser = nullptr;  // the same, where it is one
  std::unique_ptr<TComposedGas> FGas;
  TPointGas* FPointGas = nullptr;
  std::optional<TToldAxes> FAxes;
  std::optional<TToldFollower> FFollower, FSecondFollower;
  std::optional<TNcFollowerPair> FFollowers;
  std::optional<TToldFocus> FFocus;
  std::unique_ptr<TNcSwitchTable> FPallets;
  TComposedPorts FPorts;
  TComposedInportCtrl FInportCtrl;

  std::optional<std::size_t> FClockHandle;
  std::uint64_t FToldAtMs = 0;
  std::atomic<std::int32_t> FState{0};  // the last one noted
  std::optional<TInstalled<TNcCutSystem>> FCutSystemInstalled;
  std::optional<TInstalled<TNcFollower>> FFollowerInstalled;
  std::optional<TInstalled<TNcMotionDriver>> FMotionInstalled;
  std::optional<TInstalled<TNcMotionCard>> FCardInstalled;
  std::optional<TInstalled<TNcDeviceManager>> FManagerInstalled;
};

// "composed": with these drivers.
[[nodiscard]] TMachineFactory ComposedMachine(std::vector<TDriverFactory> drivers);

// For who knows that it is one; throws std::bad_cast.
[[nodiscard]] inline TComposedMachine& Composed(IMachine& machine) { return dynamic_cast<TComposedMachine&>(machine); }

}  // namespace ixocamglue
