#include "machines/simulated/Laser.h"

namespace ixocamglue {

TSimLaser::TSimLaser(TSimCore& core, const TSimConfig& config, std::uint64_t seed)
    : FCore(core),
      FDelayMs(static_cast<std::uint64_t>(config.Physics.EmissionDelayMs)),
      FJitterMs(static_cast<std::uint64_t>(config.Physics.EmissionJitterMs)),
      FRandom(seed) {}

TSimLaser::~TSimLaser() {
  if (TNcWatch* const watch = NcWatch()) {
    watch->LaserOn.End();
    watch->EmissionOn.End();
    watch->EmissionAsked.End();
  }
}

bool TSimLaser::GetEmission() {
  if (!FCore.Gate.Enter("laser", "GetEmission", vkRead)) return false;
  const TSimScope scope(FCore);
  if (FAskEmission && !FEmission && FScript.Mode == TEmissionScript::TMode::emPolls && FPolls++ >= FScript.Polls)
    Rise();
  Settle();
  return Emitting();
}

void TSimLaser::EmissionOn() {
  if (!FCore.Gate.Enter("laser", "EmissionOn", vkStart)) return;
  const TSimScope scope(FCore);
  FCore.DeviceAlarms.EmissionLost(false);
  if (!FAskEmission) {
    FAskEmission = true;
    FPolls = 0;
    if (FScript.Mode == TEmissionScript::TMode::emDelay)
      FUpAtMs = FCore.Now() + FDelayMs + FRandom.Below(FJitterMs + 1);
    else if (FScript.Mode == TEmissionScript::TMode::emPolls && FScript.Polls == 0)
      Rise();
  }
  Settle();
}

void TSimLaser::EmissionOff() {
  if (!FCore.Gate.Enter("laser", "EmissionOff", vkOff)) return;
  const TSimScope scope(FCore);
  FAskLaser = FAskEmission = FEmission = false;
  FUpAtMs = kNever;
  Settle();
}

bool TSimLaser::GetLaser() {
  if (!FCore.Gate.Enter("laser", "GetLaser", vkRead)) return true;
  const TSimScope scope(FCore);
  Settle();
  return Lit();
}

bool TSimLaser::GetAiming() { return FCore.Gate.Enter("laser", "GetAiming", vkRead) && FAiming; }

void TSimLaser::SetAiming(bool on) {
  if (!FCore.Gate.Enter("laser", "SetAiming", vkSet, on ? "on" : "off")) return;
  const TSimScope scope(FCore);
  if (FAiming.exchange(on) != on) FCore.Signal(sgAiming, on);
}

void TSimLaser::SwitchLaser(bool on) {
  if (!FCore.Gate.Enter("laser", "SwitchLaser", on ? vkStart : vkOff, on ? "on" : "off")) return;
  const TSimScope scope(FCore);
  FAskLaser = on;
  Settle();
}

void TSimLaser::ResetLatch() {
  const TSimScope scope(FCore);
  Settle();
  if (!FLatch.Tripped()) return;
  FAskLaser = FAskEmission = FEmission = false;
  FUpAtMs = kNever;
  FLatch.Reset();
  FShownTrip = false;
  FCore.Event("laser", "latch reset");
  Watch();
}

void TSimLaser::SetEmissionScript(TEmissionScript script) {
  const TSimScope scope(FCore);
  FScript = script;
}

void TSimLaser::LoseEmission() {
  const TSimScope scope(FCore);
  if (!FEmission) return;
  FCore.Event("laser", "emission lost");
  FCore.DeviceAlarms.EmissionLost(true);
  FAskLaser = FAskEmission = FEmission = false;
  FUpAtMs = kNever;
  Settle();
}

void TSimLaser::Step(std::uint64_t nowMs) {
  FCore.AssertLocked();
  if (nowMs >= FUpAtMs) {
    FUpAtMs = kNever;
    if (FAskEmission && !FEmission) Rise();
  }
  if (FAskEmission || FAskLaser || FLatch.Tripped()) Settle();
}

void TSimLaser::Rise() {
  if (FLatch.Tripped()) return;
  FEmission = true;
  FCore.Event("laser", "emission up");
}

void TSimLaser::Settle() {
  FCore.AssertLocked();
  FLatch.Evaluate(FCore.Now(), FAskEmission || FAskLaser, Lit());
  if (FLatch.Tripped() && !FShownTrip) {
    FShownTrip = true;
    FAskLaser = FAskEmission = FEmission = false;
    FUpAtMs = kNever;
    FCore.Event("laser", std::string("latch tripped: ") + FLatch.Reason());
  }
  if (FShownLaser && !Lit()) {
    FShownLaser = false;
    FCore.Event("laser", "beam dark");
    FCore.Signal(sgLaser, false);
  }
  if (FShownEmission != Emitting()) {
    FShownEmission = !FShownEmission;
    if (!FShownEmission) FCore.Event("laser", "emission down");
    FCore.Signal(sgEmission, FShownEmission);
  }
  if (!FShownLaser && Lit()) {
    FShownLaser = true;
    FCore.Event("laser", "beam lit");
    FCore.Signal(sgLaser, true);
  }
  Watch();
}

void TSimLaser::Watch() {
  TNcWatch* const watch = NcWatch();
  if (!watch) return;
  const auto mark = [now = FCore.Now()](TNcSince& span, bool runs) {
    if (runs)
      span.Begin(now);
    else
      span.End();
  };
  mark(watch->LaserOn, Lit());
  mark(watch->EmissionOn, Emitting());
  mark(watch->EmissionAsked, FAskEmission);
}

}  // namespace ixocamglue
