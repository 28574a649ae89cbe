#include "machines/simulated/Laser.h"

#include <utility>

#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/platform/states/BeamWatch.h"

namespace ixocamglue {

TSimLaser::TSimLaser(TSimCore& core, const TSimConfig& config, std::uint64_t seed)
    : FCore(core),
      FDelayMs(static_cast<std::uint64_t>(config.Physics.EmissionDelayMs)),
      FJitterMs(static_cast<std::uint64_t>(config.Physics.EmissionJitterMs)),
      FRandom(seed) {}

TSimLaser::~TSimLaser() {
  if (TNcWatch* const watch = NcWatch())
    for (TNcSince* const span : {&watch->LaserOn, &watch->LaserAsked, &watch->EmissionOn, &watch->EmissionAsked})
      span->End();
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
  const bool taken = FCore.Gate.Enter("laser", "EmissionOn", vkStart, {}, LaserForbidden);
  const TSimScope scope(FCore);
  const bool good = taken && !ForbiddenMeanwhile();
  if (TNcWatch* const watch = NcWatch()) watch->AskEmission(FCore.Now(), !good);
  if (!good) return;
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
  if (TNcWatch* const watch = NcWatch()) {
    watch->LaserAsked.End();
    watch->EmissionAsked.End();
  }
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

void TSimLaser::AimingOff() {
  if (!FCore.Gate.Enter("laser", "AimingOff", vkOff)) return;
  const TSimScope scope(FCore);
  if (FAiming.exchange(false)) FCore.Signal(sgAiming, false);
}

void TSimLaser::SwitchLaser(bool on) {
  if (auto hangs = TLitFault::OffHangs; !on && Lit() && FFault.compare_exchange_strong(hangs, TLitFault::None))
    Clock().Sleep(kHangMs);
  const bool taken = on ? FCore.Gate.Enter("laser", "SwitchLaser", vkStart, "on", LaserForbidden)
                        : FCore.Gate.Enter("laser", "SwitchLaser", vkOff, "off");
  const TSimScope scope(FCore);
  const bool good = taken && !(on && ForbiddenMeanwhile());
  if (TNcWatch* const watch = NcWatch(); watch && on) watch->AskLaser(FCore.Now(), !good);
  if (!good) return;
  FAskLaser = on;
  if (TNcWatch* const watch = NcWatch(); watch && !on) watch->LaserAsked.End();
  Settle();
}

// While the lock was waited for.
bool TSimLaser::ForbiddenMeanwhile() {
  const char* const why = LaserForbidden();
  if (why) FCore.Event("laser", std::string("refused: ") + why);
  return why;
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
  Drop();
}

void TSimLaser::Drop() {
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
  if (FShownLaser && nowMs - FLitAtMs >= kLitFaultMs) Befall();
  if (FAskEmission || FAskLaser || FLatch.Tripped()) Settle();
}

void TSimLaser::Befall() {
  auto fault = TLitFault::EmissionDrops;
  if (FFault.compare_exchange_strong(fault, TLitFault::None)) return Drop();
  if (fault != TLitFault::InterlockOpens) return;
  FFault = TLitFault::None;
  FCore.Event("laser", "interlock open");
  FCore.DeviceAlarms.InterlockOpen(true);
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
    FLitAtMs = FCore.Now();
    FCore.Event("laser", "beam lit");
    FCore.Signal(sgLaser, true);
  }
  Watch();
}

// Changes only: beside a source of another driver this one has nothing to say.
void TSimLaser::Watch() {
  TNcWatch* const watch = NcWatch();
  if (!watch) return;
  const bool lit = Lit();
  const bool emitting = Emitting();
  if (std::exchange(FToldLit, lit) != lit) lit ? watch->LaserOn.Begin(FCore.Now()) : watch->LaserOn.End();
  if (std::exchange(FToldEmission, emitting) != emitting) watch->ShowEmission(emitting, FCore.Now());
}

}  // namespace ixocamglue
