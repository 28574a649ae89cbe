#include "controller/safety/EffectWatch.h"

#include <cmath>
#include <utility>

#include "controller/safety/LaserLatch.h"
#include "controller/texts/ProcedureTexts.h"
#include "ixocamglue/config/Libmachinecfg.h"
#include "ixocamglue/motion/Ulasersteps.h"
#include "ixocamglue/motion/Uwaitsteps.h"
#include "ixocamglue/support/Faults.h"

namespace ixocontroller {
namespace {

// How often a span has begun, one that has not ended yet left out.
std::uint32_t Ended(const TNcSince& span) { return span.Begun() - (span.Runs() ? 1U : 0U); }

}  // namespace

void TEffectWatch::Entered(IStateMotion& root) {
  FSet.reset();
  FLights = false;
  const auto* const shot = dynamic_cast<TSmtLaserOnTimeState*>(&root);
  FShotMs.store(shot ? shot->GetDuration() : kNoShot, std::memory_order_release);
  const TNcWatch& watch = FFramework.Watch();
  FAsked = ixocontroller::Ended(watch.LaserAsked);
  FLit = ixocontroller::Ended(watch.LaserOn);
  FFitted = FittedLaser();
  FNeedsLaser = root.NeedsLaser();
  if (!FNeedsLaser || !FFitted) return;  // steps without their device answer for themselves
  if (const TResult<> usable = LaserUsable(); !usable) FFramework.Abort(srError, usable.Problem().Text());
}

void TEffectWatch::Ticked(IStateMotion& root, TStepType answer) {
  const auto set = std::exchange(FSet, std::nullopt);
  if (answer == mstpError) return;
  if (set) CheckGas(*set);
  TStateMotion* const leaf = CurrentLeaf(root);
  FLights = FLights || (leaf && (leaf->GetID() == TSmtLaserOn::Cmd || leaf->GetID() == TSmtLaserOnOnly::Cmd));
  // Behind its command, before its leave.
  if (auto* const gas = dynamic_cast<TSmtGasOnState*>(leaf); gas && gas->GetStep() == mstpEnd)
    FSet = TGas{gas->FGasBranch, gas->FGasPressure};
}

void TEffectWatch::Ended(const TMotionOutcome*) {
  const TNcWatch& watch = FFramework.Watch();
  const bool promised = FLights || watch.LaserAsked.Begun() != FAsked || (FNeedsLaser && !FFitted);
  FLightMissed.store(promised && watch.LaserOn.Begun() == FLit, std::memory_order_release);
}

void TEffectWatch::CheckGas(const TGas& set) {
  try {
    TNcGas* const gas = FittedGas();
    if (!gas) return;
    const TGas now{gas->GetBranch(), gas->GetPressure()};
    if (now.Branch == set.Branch && std::abs(now.Bar - set.Bar) <= kSameBar) return;
    FFramework.Abort(srError, Show(SGasNotAsSet, GasTypeName(set.Branch), set.Bar, GasTypeName(now.Branch), now.Bar));
  } catch (...) {
    FFramework.Abort(srError, Show(SGasNotRead, DescribeException(std::current_exception()).c_str()));
  }
}

}  // namespace ixocontroller
