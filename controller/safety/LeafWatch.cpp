#include "controller/safety/LeafWatch.h"

#include <algorithm>
#include <utility>

#include "ixocamglue/motion/Uheadsteps.h"
#include "ixocamglue/platform/services/Clock.h"

namespace ixocontroller {
namespace {

constexpr std::int64_t kOwnExtraMs = 5000;  // beyond the time that a step itself carries

}  // namespace

TLeafWatch::TLeafWatch(TNcWatch& watch, const TMachineBounds& machine)
    : FWatch(watch),
      FLimits(machine.Supervisor.InForce()),
      FPollMs(machine.Laser.EmissionOnDelay + FLimits.EmissionExtraMs) {}

void TLeafWatch::Entered(IStateMotion& root) {
  FRoot = dynamic_cast<TStateMotion*>(&root);
  FLeaf = nullptr;
  Look(csbtEnsure);
}

void TLeafWatch::Ticked(IStateMotion&, TStepType) {
  if (FRoot && FRoot->StateCtrl()) Look(FRoot->StateCtrl()->CustomBusyType());
}

void TLeafWatch::Ended(const TMotionOutcome*) {
  FRoot = nullptr;
  FLeaf = nullptr;
  FWatch.LeafSince.End();
  FWatch.Leaf.store(0, std::memory_order_release);
}

void TLeafWatch::Look(TCustomBusyType busy) {
  if (!FRoot) return;
  TStateMotion* const leaf = CurrentLeaf(*FRoot);
  const bool waited = leaf == FLeaf && std::exchange(FTicked, true);
  if (leaf != FLeaf) {
    FLeaf = leaf;
    FTicked = false;
    FWatch.Leaf.store(leaf->GetID(), std::memory_order_release);
    FWatch.LeafSince.Restart(Clock().MonotonicMs());
  }
  const TWait wait = WaitFor(*leaf, busy);
  if (waited && wait.LimitMs <= FWatch.LeafLimitMs.load(std::memory_order_relaxed)) return;
  FWatch.LeafLimitMs.store(wait.LimitMs, std::memory_order_release);
  FWatch.LeafWait.store(wait.Kind, std::memory_order_release);
}

TLeafWatch::TWait TLeafWatch::WaitFor(const TStateMotion& leaf, TCustomBusyType busy) const {
  const auto limit = [](TNcLeafWait kind, std::int64_t ms) {
    return TWait{kind, static_cast<std::uint64_t>(std::max<std::int64_t>(ms, 0))};
  };
  switch (busy) {
    case csbtInit:
    case csbtChange:
    case csbtEnsure: return limit(lwPlain, FPollMs);
    case csbtFollower:
    case csbtFollower2:
      if (FWatch.Leaf.load(std::memory_order_relaxed) == TSmtCapCaliMotion::Cmd)
        return limit(lwCalibrates, FLimits.CalibrationLimitMs);
      return limit(lwMoves, FLimits.FollowerLimitMs);
    case csbtMotion: return limit(lwMoves, FLimits.MoveLimitMs);
    case csbtFocus: return limit(lwMoves, FLimits.FocusLimitMs);
    case csbtGas: return limit(lwPlain, FLimits.GasWaitLimitMs);
    case csbtInput:
    case csbtDelay: break;
  }
  const std::int64_t own = leaf.OwnWaitMs();
  return limit(lwPlain, own < 0 ? FLimits.BusyLimitMs : own + kOwnExtraMs);
}

}  // namespace ixocontroller
