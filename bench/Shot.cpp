// A whole timed laser shot of 500 ms on the simulated machine, from the request to standby, in virtual time.
#include <cstdlib>
#include <stdexcept>

#include "bench/Rows.h"
#include "controller/Journal.h"
#include "ixocamglue/Library.h"
#include "ixocamglue/motion/Ustatemotion.h"
#include "ixocamglue/motion/Ustatemotionbase.h"
#include "ixocamglue/platform/alarms/NcAlarmManager.h"
#include "ixocamglue/platform/states/NcParams.h"
#include "ixocamglue/platform/states/NcState.h"
#include "ixocamglue/platform/xml/MachineConfig.h"
#include "machines/simulated/Machine.h"

namespace ixocamglue::bench {
namespace {

constexpr std::uint32_t kShotMs = 500;
constexpr std::uint64_t kTooLongMs = 60'000;  // a shot that takes that long has failed
constexpr std::uint64_t kSeed = 1;

class TTimedShot {
 public:
  TTimedShot() {
    FMachine.Connect().OrThrow(pbUnusable);
    FFramework.SetObserver([this](std::int32_t, std::int32_t to) {
      FJournal.State(FClock.MonotonicMs(), to);
      FMachine.NoteState(to);
    });
  }
  ~TTimedShot() {
    if (!FSucceeded) std::abort();  // a shot that failed takes another time
  }
  TTimedShot(const TTimedShot&) = delete;
  TTimedShot& operator=(const TTimedShot&) = delete;

  // The journal and the success flag of the shot before.
  void Prepare() {
    FJournal.Clear();
    TCustomMotionState::SetExecOK(TSmtLaserOnTimeState::Cmd, false);
  }

  void Run() {
    auto shot = MakeStepOf<TSmtLaserOnTimeState>(nullptr);
    shot->SetDuration(kShotMs);
    TCustomMotionState::SetStateMotion(std::move(shot));
    (void)FFramework.RequestState(nsCustomMotion, 0);
    const std::uint64_t endMs = FClock.MonotonicMs() + kTooLongMs;
    do FClock.Sleep(FFramework.RunOnce());
    while ((FFramework.ChangePending() || FFramework.CurrentState() != nsStandby) && FClock.MonotonicMs() < endMs);
    FSucceeded = FSucceeded && TCustomMotionState::GetExecOK(TSmtLaserOnTimeState::Cmd, false);
  }

 private:
  TVirtualClock FClock;
  TInstalled<IClock> FClockInstalled{FClock};
  TNcParams FParams;
  TInstalled<TNcParams> FParamsInstalled{FParams};
  TNcRegistry FRegistry;
  TInstalled<TNcRegistry> FRegistryInstalled{FRegistry};
  TLibrary FLibrary;
  TNcStateFramework FFramework;
  TNcAlarmManager FAlarms;
  TInstalled<TNcAlarms> FAlarmsInstalled{FAlarms};
  TMachineConfig FConfig;
  ixocontroller::TJournal FJournal;
  TSimMachine FMachine{{FFramework, FConfig, FAlarms, FJournal, &FClock, kSeed}, TSimConfig{}};
  bool FSucceeded = true;
};

}  // namespace

std::vector<TRow> ShotRows() { return {Measure<TTimedShot>({.Id = "shot", .Name = "timed shot, 500 ms, simulated"})}; }

}  // namespace ixocamglue::bench
