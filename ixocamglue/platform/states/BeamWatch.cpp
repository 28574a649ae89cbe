#include "ixocamglue/platform/states/BeamWatch.h"

#include <utility>

#include "ixocamglue/platform/ports/CutSystem.h"
#include "ixocamglue/platform/ports/NcAlarms.h"
#include "ixocamglue/platform/states/NcState.h"
#include "ixocamglue/platform/states/NcStateTexts.h"
#include "ixocamglue/support/Texts.h"

namespace ixocamglue {
namespace {

// Null: not tripped, or there is none to ask.
const char* LatchReason() {
  try {
    TNcLaser* const laser = FittedLaser();
    return laser ? laser->LatchReason() : nullptr;
  } catch (...) {  // a source that cannot be reached is not known to be latched
    return nullptr;
  }
}

}  // namespace

bool LaserAllowed() {
  TNcAlarms* const alarms = NcAlarms();
  return !alarms || alarms->AllowLaser();
}

// What comes last is read first: a device that goes away raises its alarm, then trips its latch, and then its beam is
// lost or an ask of it refused. None of these is seen without what it came from.
TBeamFacts TBeamFacts::Read(const TNcWatch& watch) {
  const bool lost = watch.EmissionLost.load(std::memory_order_acquire);
  const bool refused = watch.BeamRefused.load(std::memory_order_acquire);
  const bool latched = LatchReason() != nullptr;
  return {.LaserAsked = watch.LaserAsked.Runs(),
          .EmissionAsked = watch.EmissionAsked.Runs(),
          .Allowed = LaserAllowed(),
          .Latched = latched,
          .EmissionLost = lost,
          .Refused = refused};
}

TBeamCause JudgeBeam(const TBeamFacts& facts) {
  if (!facts.LaserAsked && !facts.EmissionAsked) return bcNone;
  if (!facts.Allowed) return bcForbidden;
  if (facts.Latched) return bcLatched;
  if (facts.EmissionLost && facts.LaserAsked) return bcLost;
  return facts.Refused ? bcRefused : bcNone;
}

std::int32_t BeamReason(TBeamCause cause) {
  switch (cause) {
    case bcNone: break;
    case bcForbidden: return srAlarm;
    case bcLatched:
    case bcLost:
    case bcRefused: return srError;
  }
  return srDone;
}

std::string BeamCauseText(TBeamCause cause) {
  switch (cause) {
    case bcNone: break;
    case bcForbidden: return Show(SBeamForbidden);
    case bcLatched: {
      const char* const reason = LatchReason();
      return Show(SBeamLatched, reason ? Tr(reason) : "?");
    }
    case bcLost: return Show(SBeamLost);
    case bcRefused: return Show(SBeamRefused);
  }
  return {};
}

void TBeamWatch::Remember() {
  FLaserAsked = FLaserAsked || FWatch.LaserAsked.Runs();
  FEmissionAsked = FEmissionAsked || FWatch.EmissionAsked.Runs();
}

TBeamCause TBeamWatch::Look(bool forbidden) {
  TBeamFacts facts = TBeamFacts::Read(FWatch);
  const bool laser = std::exchange(FLaserAsked, facts.LaserAsked);
  const bool emission = std::exchange(FEmissionAsked, facts.EmissionAsked);
  facts.LaserAsked = facts.LaserAsked || laser;
  facts.EmissionAsked = facts.EmissionAsked || emission;
  facts.Allowed = facts.Allowed && !forbidden;
  if (facts.Refused) FWatch.BeamRefused.store(false, std::memory_order_release);
  return JudgeBeam(facts);
}

void TBeamWatch::Restart() {
  FLaserAsked = FEmissionAsked = false;
  FWatch.EmissionLost.store(false, std::memory_order_release);
  FWatch.BeamRefused.store(false, std::memory_order_release);
}

const char* LaserForbidden() {
  if (!LaserAllowed()) return "an alarm forbids the laser";
  if (LatchReason()) return "the laser is latched";
  const TNcWatch* const watch = NcWatch();
  return watch ? watch->EndPosted.load(std::memory_order_acquire) : nullptr;
}

}  // namespace ixocamglue
