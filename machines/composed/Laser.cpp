#include "machines/composed/Laser.h"

#include <algorithm>

#include "ixocamglue/platform/alarms/NcAlarmManager.h"
#include "ixocamglue/platform/states/BeamWatch.h"
#include "ixocamglue/support/Texts.h"

namespace ixocamglue {
namespace {

constexpr const char* kDeviceAway = TrMark("a device of the machine did not answer while laser or emission was on");
constexpr const char* kLatchDown = TrMark("the laser's own latch has fallen");
constexpr const char* kFurtherDown = TrMark("a latch of the machine beside the laser's own has fallen");
constexpr std::int32_t kEmissionLost = 1;
constexpr std::int32_t kSourceFault = 3;

}  // namespace

// --- TPointLaser ---

TPointLaser::TPointLaser(TComposedCore& core, const TLaserPoints& points)
    : FCore(core),
      FPoints(points),
      FAlarms("TPLaser", {{kEmissionLost, naForbidCut, Tr("emission lost")},
                          {kSourceFault, naForbidLaser, Tr("the laser source has a fault or its interlock is open")}}) {
}

TPointLaser::~TPointLaser() {
  Darken();
  if (FBegun) FCore.Context.Alarms.RemoveSource(FAlarms);
  if (TNcWatch* const watch = NcWatch())
    for (TNcSince* const span : {&watch->LaserOn, &watch->LaserAsked, &watch->EmissionOn, &watch->EmissionAsked})
      span->End();
}

void TPointLaser::Begin() {
  FCore.Context.Alarms.AddSource(FAlarms);
  FBegun = true;
  Darken();
  WriteRearm(0.0);
  Look();
}

bool TPointLaser::ReadEmission() const {
  return (FPoints.EmissionConfirmed ? FPoints.EmissionConfirmed : FPoints.EmissionRequest)->IsOn();
}

bool TPointLaser::ReadLit() const {
  return FPoints.BeamOn ? FPoints.BeamOn->IsOn() : FPoints.Beam->IsOn() && ReadEmission();
}

bool TPointLaser::Rests(IMachinePoint* point) { return !point || (point->Settled() && !point->IsOn()); }

bool TPointLaser::IsDown(const TLatchPoints& latch) {
  bool ok = true;
  WhereReached([&] { ok = !latch.Ok || latch.Ok->IsOn(); });
  return !ok;
}

bool TPointLaser::WriteRearm(double value) {
  bool all = true;
  for (const TLatchPoints& latch : FPoints.Latches)
    all = WhereReached([&] {
            if (latch.Rearm) latch.Rearm->Write(value);
          }) &&
          all;
  return all;
}

bool TPointLaser::GetEmission() {
  return FCore.Gate.Ask("laser", "GetEmission", false, [&] {
    TGuard guard(FCore.Lock);
    LookLocked();
    return FAskEmission ? ReadEmission() : ReadEmission() || !Rests(FPoints.EmissionRequest);
  });
}

bool TPointLaser::GetLaser() {
  return FCore.Gate.Ask("laser", "GetLaser", true, [&] {
    TGuard guard(FCore.Lock);
    LookLocked();
    return FAskLaser ? ReadLit() : ReadLit() || !Rests(FPoints.Beam);
  });
}

void TPointLaser::EmissionOn() {
  bool told = false;
  const auto ask = [&](bool refused) {
    told = true;
    if (TNcWatch* const watch = NcWatch()) watch->AskEmission(FCore.Now(), refused);
  };
  FCore.Gate.Carry(
      "laser", "EmissionOn", vkStart, {},
      [&] {
        TGuard guard(FCore.Lock);
        ask(false);
        FAlarms.Set(kEmissionLost, false);
        if (!FAskEmission) SwitchOn("EmissionOn", FAskEmission, *FPoints.EmissionRequest);
        LookLocked();
      },
      LaserForbidden);
  if (!told) ask(true);
}

void TPointLaser::EmissionOff() {
  FCore.Gate.Carry("laser", "EmissionOff", vkOff, {}, [&] {
    TGuard guard(FCore.Lock);
    Darken();
    if (TNcWatch* const watch = NcWatch()) {
      watch->LaserAsked.End();
      watch->EmissionAsked.End();
    }
    LookLocked();
  });
}

void TPointLaser::SwitchLaser(bool on) {
  if (!on) {
    FCore.Gate.Carry("laser", "SwitchLaser", vkOff, "off", [&] {
      TGuard guard(FCore.Lock);
      FAskLaser = false;
      FPoints.Beam->Write(0.0);
      if (TNcWatch* const watch = NcWatch()) watch->LaserAsked.End();
      LookLocked();
    });
    return;
  }
  bool told = false;
  const auto ask = [&](bool refused) {
    told = true;
    if (TNcWatch* const watch = NcWatch()) watch->AskLaser(FCore.Now(), refused);
  };
  FCore.Gate.Carry(
      "laser", "SwitchLaser", vkStart, "on",
      [&] {
        TGuard guard(FCore.Lock);
        ask(false);
        SwitchOn("SwitchLaser", FAskLaser, *FPoints.Beam);
        LookLocked();
      },
      LaserForbidden);
  if (!told) ask(true);
}

// Forbidden is asked in front of the write, as the lock may have been waited for, and behind it, as who trips or
// darkens waits for no lock: whichever of the two writes comes last is a 0.
void TPointLaser::SwitchOn(const char* verb, std::atomic<bool>& ask, IMachinePoint& point) {
  const char* why = LaserForbidden();
  if (!why) {
    ask = true;
    try {
      point.Write(1.0);
    } catch (...) {
      ask = false;
      point.Write(0.0);
      throw;
    }
    why = LaserForbidden();
    if (!why && ask) return;
    ask = false;
    point.Write(0.0);
  }
  FCore.Event("laser", std::string(verb) + " refused: " + (why ? why : "it was darkened meanwhile"));
  if (TNcWatch* const watch = NcWatch()) watch->BeamRefused.store(true, std::memory_order_release);
}

bool TPointLaser::GetAiming() {
  if (!FPoints.Aiming) return false;
  return FCore.Gate.Ask("laser", "GetAiming", false, [&] { return FPoints.Aiming->IsOn(); });
}

void TPointLaser::SetAiming(bool on) {
  FCore.Gate.Carry("laser", "SetAiming", vkSet, on ? "on" : "off", [&] {
    TGuard guard(FCore.Lock);
    if (FPoints.Aiming) FPoints.Aiming->Write(on ? 1.0 : 0.0);
    ShowAiming();
  });
}

void TPointLaser::AimingOff() {
  FCore.Gate.Carry("laser", "AimingOff", vkOff, {}, [&] {
    TGuard guard(FCore.Lock);
    if (FPoints.Aiming) FPoints.Aiming->Write(0.0);
    ShowAiming();
  });
}

void TPointLaser::ShowAiming() {
  bool on = FAiming;
  if (!WhereReached([&] { on = FPoints.Aiming && FPoints.Aiming->IsOn(); })) return;
  if (FAiming.exchange(on) != on) FCore.Signal(sgAiming, on);
}

void TPointLaser::Darken() {
  FAskLaser = FAskEmission = false;
  FPoints.Beam->Write(0.0);
  FPoints.EmissionRequest->Write(0.0);
}

void TPointLaser::Trip(const char* reason) {
  FTrippedAnew.store(reason, std::memory_order_release);  // first: a reset that ends now looks at it behind its own end
  FLatch.Trip(reason);
  Darken();
  if (FPoints.Trip) WhereReached([&] { FPoints.Trip->Write(1.0); });
}

void TPointLaser::DeviceAway() {
  if (FAskLaser || FAskEmission || FLit || FEmission)
    Trip(kDeviceAway);
  else
    Darken();
}

void TPointLaser::ResetLatch() {
  TGuard guard(FCore.Lock);
  if (FReset != TReset::None) return LookLocked();
  FTrippedAnew.store(nullptr, std::memory_order_release);  // first: who trips beside what follows waits for no lock
  LookLocked();
  if (!FLatch.Tripped()) return;
  Darken();
  if (FPoints.Trip) FPoints.Trip->Write(0.0);
  FReset = TReset::Low;
  FResetAtMs = FCore.Now();
  LookLocked();
}

void TPointLaser::Look() {
  TGuard guard(FCore.Lock);
  LookLocked();
}

void TPointLaser::LookLocked() {
  const std::uint64_t nowMs = FCore.Now();
  bool lit = FLit;
  bool emission = FEmission;
  bool fault = FFault;
  const bool reached = WhereReached([&] {
    emission = ReadEmission();
    lit = ReadLit();
    fault = FPoints.Fault && FPoints.Fault->IsOn();
  });
  if (reached && FEmission && !emission && FAskEmission && !FLatch.Tripped()) {
    FCore.Event("laser", "emission lost");
    FAlarms.Set(kEmissionLost, true);
    Darken();
  }
  if (fault != FFault) {
    FFault = fault;
    FCore.Event("laser", fault ? "source fault" : "source fault gone");
    FAlarms.Set(kSourceFault, fault);
    if (fault) Darken();
  }
  LookAtLatch(nowMs);
  if (FReset != TReset::None) LookAtReset(nowMs);
  Show(lit, emission);
  ShowAiming();
}

void TPointLaser::LookAtLatch(std::uint64_t nowMs) {
  const bool down = !FPoints.Latches.empty() && IsDown(FPoints.Latches.front());
  if (down) FLatch.Trip(kLatchDown);
  if (std::ranges::any_of(FPoints.Latches, IsDown)) FLatch.Trip(kFurtherDown);
  FLatch.Evaluate(nowMs, FAskEmission || FAskLaser, FLit);
  if (!FLatch.Tripped() || FShownTrip) return;
  FShownTrip = true;
  Darken();
  if (!down && FPoints.Trip) WhereReached([&] { FPoints.Trip->Write(1.0); });
  FCore.Event("laser", std::string("latch tripped: ") + FLatch.Reason());
}

void TPointLaser::LookAtReset(std::uint64_t nowMs) {
  const std::uint64_t lastedMs = nowMs - FResetAtMs;
  const auto end = [&](bool good) {
    FCore.AssertLocked();
    FReset = TReset::None;
    WriteRearm(0.0);
    if (!good) return FCore.Event("laser", "the latch could not be reset");
    FLatch.Reset();
    FShownTrip = false;
    FCore.Event("laser", "latch reset");
    if (const char* const anew = FTrippedAnew.load(std::memory_order_acquire)) FLatch.Trip(anew);
  };
  const auto reads = [](const auto& read) {
    bool is = false;
    return WhereReached([&] { is = read(); }) && is;
  };
  switch (FReset) {
    case TReset::None: return;
    case TReset::Low:
      if (!reads([&] {
            return Rests(FPoints.Beam) && Rests(FPoints.EmissionRequest) && Rests(FPoints.Trip) && !ReadLit();
          }))
        break;
      if (std::ranges::none_of(FPoints.Latches, [](const TLatchPoints& latch) { return latch.Ok || latch.Rearm; }))
        return end(true);
      if (!WriteRearm(1.0)) return end(false);
      FReset = TReset::Pulse;
      FResetAtMs = nowMs;
      return;
    case TReset::Pulse:
      if (lastedMs < kRearmMs) return;
      WriteRearm(0.0);
      FReset = TReset::Wait;
      return;
    case TReset::Wait:
      if (reads([&] {
            return std::ranges::all_of(FPoints.Latches, [](const TLatchPoints& l) { return !l.Ok || l.Ok->IsOn(); });
          }))
        return end(true);
      break;
  }
  if (lastedMs > kResetLimitMs) end(false);
}

void TPointLaser::Show(bool lit, bool emission) {
  if (FLit && !lit) {
    FCore.Event("laser", "beam dark");
    FCore.Signal(sgLaser, false);
  }
  if (FEmission != emission) {
    FCore.Event("laser", emission ? "emission up" : "emission down");
    FCore.Signal(sgEmission, emission);
  }
  if (!FLit && lit) {
    FCore.Event("laser", "beam lit");
    FCore.Signal(sgLaser, true);
  }
  FLit = lit;
  FEmission = emission;
  TNcWatch* const watch = NcWatch();
  if (!watch) return;
  lit ? watch->LaserOn.Begin(FCore.Now()) : watch->LaserOn.End();
  watch->ShowEmission(emission, FCore.Now());
}

// --- TWholeLaser ---

bool TWholeLaser::GetEmission() {
  return FCore.Gate.Ask("laser", "GetEmission", false, [&] { return FLaser.GetEmission(); });
}

bool TWholeLaser::GetLaser() {
  return FCore.Gate.Ask("laser", "GetLaser", true, [&] { return FLaser.GetLaser(); });
}

void TWholeLaser::EmissionOn() {
  const auto act = [&] { FLaser.EmissionOn(); };
  if (FCore.Gate.Carry("laser", "EmissionOn", vkStart, {}, act, LaserForbidden)) return;
  if (TNcWatch* const watch = NcWatch()) watch->AskEmission(FCore.Now(), true);
}

void TWholeLaser::EmissionOff() {
  FCore.Gate.Carry("laser", "EmissionOff", vkOff, {}, [&] { FLaser.EmissionOff(); });
}

void TWholeLaser::SwitchLaser(bool on) {
  const auto act = [&] { FLaser.SwitchLaser(on); };
  if (!on) {
    FCore.Gate.Carry("laser", "SwitchLaser", vkOff, "off", act);
    return;
  }
  if (FCore.Gate.Carry("laser", "SwitchLaser", vkStart, "on", act, LaserForbidden)) return;
  if (TNcWatch* const watch = NcWatch()) watch->AskLaser(FCore.Now(), true);
}

bool TWholeLaser::GetAiming() {
  return FCore.Gate.Ask("laser", "GetAiming", false, [&] { return FLaser.GetAiming(); });
}

void TWholeLaser::SetAiming(bool on) {
  FCore.Gate.Carry("laser", "SetAiming", vkSet, on ? "on" : "off", [&] { FLaser.SetAiming(on); });
}

void TWholeLaser::AimingOff() {
  FCore.Gate.Carry("laser", "AimingOff", vkOff, {}, [&] { FLaser.AimingOff(); });
}

TComposedLaser::TFacts TWholeLaser::Facts() {
  TFacts facts;
  if (const TNcWatch* const watch = NcWatch()) {
    facts.Lit = watch->LaserOn.Runs();
    facts.Emission = watch->EmissionOn.Runs();
  }
  WhereReached([&] { facts.Aiming = FLaser.GetAiming(); });
  return facts;
}

void TWholeLaser::DeviceAway() {
  const TNcWatch* const watch = NcWatch();
  const bool active = watch && (watch->LaserAsked.Runs() || watch->EmissionAsked.Runs() || watch->LaserOn.Runs() ||
                                watch->EmissionOn.Runs());
  if (active) FLaser.Trip(kDeviceAway);
}

}  // namespace ixocamglue
