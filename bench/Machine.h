// State 204 on a machine of memory cells: every device answers at once and costs next to nothing, so that what is
// measured is the library. The lock of the cutting system is the machine's own, and here empty.
#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <utility>

#include "ixocamglue/Library.h"
#include "ixocamglue/motion/Ustatemotionbase.h"
#include "ixocamglue/platform/ports/CutSystem.h"
#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/platform/states/NcParams.h"
#include "ixocamglue/platform/states/NcState.h"

namespace ixocamglue::bench {

class TStillClock final : public IClock {
 public:
  std::uint32_t TickMs() override { return static_cast<std::uint32_t>(FNow); }
  std::uint64_t MonotonicMs() override { return FNow; }
  TDateTime Now() override { return {46'000.0}; }
  void Sleep(std::uint32_t ms) override { FNow += ms; }
  void Spin() override { ++FNow; }
  bool Pause(TStop& stop, std::uint32_t ms) override {
    FNow += ms;
    return stop.Asked();
  }

 private:
  std::uint64_t FNow = 1000;
};

class TCellLaser final : public TNcLaser {
 public:
  bool GetEmission() override { return FEmission; }
  void EmissionOn() override { FEmission = FAnswers; }
  void EmissionOff() override { FEmission = false; }
  bool GetLaser() override { return FLaser; }

  bool FLaser = false;
  bool FAnswers = true;  // false: emission never comes

 private:
  bool FEmission = false;
};

class TCellGas final : public TNcGas {
 public:
  bool IsBusy() override { return false; }
  bool GetGas() override { return FOn; }
  std::int32_t GetBranch() override { return FBranch; }
  double GetPressure() override { return FBar; }
  void SelectBranch(std::int32_t branch) override { FBranch = branch; }
  void SetPressure(double bar) override { FBar = bar; }
  void SwitchOn() override { FOn = true; }
  void SwitchOff() override { FOn = false; }

 private:
  std::int32_t FBranch = 0;
  double FBar = 0.0;
  bool FOn = false;
};

class TCellCutSystem final : public TNcCutSystem {
 public:
  std::int32_t GetState() override { return nsStandby; }
  TNcLaser* Laser() override { return &FLaser; }
  TNcGas* Gas() override { return &FGas; }
  TNcInportCtrl* InportCtrl() override { return nullptr; }
  TNcCutHeadCtrl* CutHeadCtrl() override { return nullptr; }
  TNcMultiFollower* MultiFollower() override { return nullptr; }
  TNcSwitchTable* SwitchTable() override { return nullptr; }
  void Lock() override {}
  void Unlock() override {}
  void SwitchLaser(bool on) override { FLaser.FLaser = on; }
  void KeyDown(std::int32_t, std::int32_t, bool) override {}
  void KeyUp(std::int32_t, std::int32_t) override {}

  TCellLaser FLaser;

 private:
  TCellGas FGas;
};

class TCellMachine {
 public:
  // Enters state 204 with this root, built.
  explicit TCellMachine(TStepPtr root) {
    TCustomMotionState::SetStateMotion(std::move(root));
    (void)FFramework.RequestState(nsCustomMotion, 0);
    FFramework.RunOnce();
    if (FFramework.CurrentState() != nsCustomMotion) throw std::runtime_error("state 204 was not entered");
    FState = dynamic_cast<TCustomMotionState*>(FFramework.State(nsCustomMotion));
  }

  TCustomMotionState& State() { return *FState; }
  TNcStateFramework& Framework() { return FFramework; }
  TCellLaser& Laser() { return FCut.FLaser; }

 private:
  TStillClock FClock;
  TInstalled<IClock> FClockInstalled{FClock};
  TNcParams FParams;
  TInstalled<TNcParams> FParamsInstalled{FParams};
  TCellCutSystem FCut;
  TInstalled<TNcCutSystem> FCutInstalled{FCut};
  TNcRegistry FRegistry;
  TInstalled<TNcRegistry> FRegistryInstalled{FRegistry};
  TLibrary FLibrary;
  TNcStateFramework FFramework;
  TCustomMotionState* FState = nullptr;  // the framework's
};

}  // namespace ixocamglue::bench
