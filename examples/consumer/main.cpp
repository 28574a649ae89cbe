// A machine builder's adapter in one file: a laser source and a cutting system on digital I/O, and one timed shot on
// it.
//
// Only what the machine has is implemented; whatever is not installed reads as null, and the library skips it.
#include <cstdio>
#include <mutex>

#include <ixocamglue/Library.h>
#include <ixocamglue/motion/Ustatemotion.h>
#include <ixocamglue/motion/Ustatemotionbase.h>
#include <ixocamglue/platform/states/NcParams.h>
#include <ixocamglue/platform/states/NcState.h>

using namespace ixocamglue;

namespace {

// The fieldbus of this machine. A real one writes process data; this one only remembers.
struct TBus {
  bool ShutterCommand = false, BeamCommand = false;
  // The source's answer follows the command, as a wired feedback does.
  bool ShutterFeedback() const { return ShutterCommand; }
};

class TBusLaser final : public TNcLaser {
 public:
  TBusLaser(TBus& bus, TNcWatch& watch) : FBus(bus), FWatch(watch) {}
  bool GetEmission() override { return FBus.ShutterFeedback(); }
  void EmissionOn() override {
    const bool refused = LaserForbidden() != nullptr;
    FWatch.AskEmission(Clock().MonotonicMs(), refused);  // for the watch over the beam, also where it is refused
    if (refused) return;
    FBus.ShutterCommand = true;
    FWatch.ShowEmission(true, Clock().MonotonicMs());
  }
  void EmissionOff() override {
    FBus.ShutterCommand = false;
    FWatch.EmissionAsked.End();
    FWatch.ShowEmission(false, Clock().MonotonicMs());
  }
  bool GetLaser() override { return FBus.BeamCommand; }
  void SwitchBeam(bool on) {
    if (on) {
      const bool refused = LaserForbidden() != nullptr;
      FWatch.AskLaser(Clock().MonotonicMs(), refused);
      if (refused) return;
    } else {
      FWatch.LaserAsked.End();
    }
    FBus.BeamCommand = on;
    on ? FWatch.LaserOn.Begin(Clock().MonotonicMs()) : FWatch.LaserOn.End();
  }

 private:
  TBus& FBus;
  TNcWatch& FWatch;
};

class TBusCutSystem final : public TNcCutSystem {
 public:
  TBusCutSystem(TBusLaser& laser, TNcStateFramework& framework) : FLaser(laser), FFramework(framework) {}
  std::int32_t GetState() override { return FFramework.CurrentState(); }
  TNcLaser* Laser() override { return &FLaser; }
  TNcGas* Gas() override { return nullptr; }
  TNcInportCtrl* InportCtrl() override { return nullptr; }
  TNcCutHeadCtrl* CutHeadCtrl() override { return nullptr; }
  TNcMultiFollower* MultiFollower() override { return nullptr; }
  TNcSwitchTable* SwitchTable() override { return nullptr; }
  void Lock() override { FLock.lock(); }
  void Unlock() override { FLock.unlock(); }
  void SwitchLaser(bool on) override {
    FLaser.SwitchBeam(on);
    std::printf("beam %s\n", on ? "on" : "off");
  }
  void KeyDown(std::int32_t, std::int32_t, bool) override {}
  void KeyUp(std::int32_t, std::int32_t) override {}

 private:
  TBusLaser& FLaser;
  TNcStateFramework& FFramework;
  std::recursive_mutex FLock;
};

}  // namespace

int main() {
  // Services first, then the library, then the loop, then the machine's ports.
  TNcParams params;
  const TInstalled<TNcParams> paramsInstalled(params);
  TNcRegistry registry;
  const TInstalled<TNcRegistry> registryInstalled(registry);
  TLibrary library;
  TNcStateFramework framework;
  TBus bus;
  TBusLaser laser(bus, framework.Watch());
  TBusCutSystem cut(laser, framework);
  const TInstalled<TNcCutSystem> cutInstalled(cut);

  auto shot = MakeStepOf<TSmtLaserOnTimeState>(nullptr);
  shot->SetDuration(50);  // ms
  TCustomMotionState::SetStateMotion(std::shared_ptr<TStateMotion>(TStepPtr(std::move(shot))));
  (void)framework.RequestState(nsCustomMotion, 0);
  {
    const TNcStateThread loop(framework);
    while (framework.ChangePending() || framework.CurrentState() == nsCustomMotion) Clock().Sleep(10);
  }
  const bool ok = TCustomMotionState::GetExecOK(515, false);
  std::printf("CustomMotionStateExecOK515 = %s\n", ok ? "true" : "false");
  return ok ? 0 : 1;
}
