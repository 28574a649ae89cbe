#include <algorithm>
#include <cmath>
#include <optional>

#include "ixocamglue/motion/Ulasersteps.h"
#include "ixocamglue/platform/states/NcWatch.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"
#include "verify/Judges.h"

namespace ixoverify {
namespace {

unsigned long long Shown(std::uint64_t ms) { return static_cast<unsigned long long>(ms); }

// Since a cause is no more than a moment, the light of the same pass is still allowed.
std::uint64_t DarkBy(const TStory& story, std::uint64_t causeMs) {
  return causeMs + kPassMs + story.HangsOnMs(causeMs);
}

bool LitAfter(const TStory& story, std::size_t from, std::uint64_t byMs, std::uint64_t& litMs) {
  for (std::size_t i = from; i < story.Facts().size(); ++i) {
    const TFact& fact = story.Facts()[i];
    if (fact.Ms <= byMs || !fact.Now().Laser || fact.Now().Ms <= byMs) continue;
    litMs = fact.Now().Ms;
    return true;
  }
  return false;
}

}  // namespace

void JudgeLightAfterCause(TJudging& run) {
  for (const std::size_t cause : run.Story.Causes()) {
    const std::uint64_t at = run.Story.Facts()[cause].Ms;
    if (std::uint64_t lit = 0; LitAfter(run.Story, cause, DarkBy(run.Story, at), lit))
      return run.Say(Format(Tr("light %llu ms after the cause"), Shown(lit - at)));
  }
  for (std::size_t i = 0; i < run.Story.Facts().size(); ++i) {
    const TFact& fact = run.Story.Facts()[i];
    const bool lit = fact.Now().Laser || (fact.LaserAsked && fact.EmissionAsked);
    if (fact.Kind != TActKind::Hang || !lit) continue;
    if (std::uint64_t ms = 0; LitAfter(run.Story, i, fact.Ms + TNcWatch::kHeartbeatMs + kPassMs, ms))
      return run.Say(Format(Tr("light %llu ms into a hang"), Shown(ms - fact.Ms)));
  }
}

// Causes here are also the latch itself and an alarm: whenever one comes, what was asked for has to be taken back by
// commands within a pass. Step 516 waits for emission within its tick, and there is no light to be saved yet: that pass
// lasts as long as its wait may.
void JudgeLatch(TJudging& run) {
  const std::vector<TFact>& facts = run.Story.Facts();
  if (run.Story.Hung()) return;
  for (std::size_t i = 1; i < facts.size(); ++i) {
    const TFact& fact = facts[i];
    const bool tripped = fact.Now().LatchTripped && !facts[i - 1].Now().LatchTripped;
    const bool waits = fact.Shown->Leaf == TSmtLaserOn::Cmd && !fact.LaserAsked && !fact.Now().Laser;
    if (!tripped || !(fact.EmissionAsked || fact.LaserAsked)) continue;
    const std::uint64_t by =
        fact.Ms + kPassMs + (waits ? static_cast<std::uint64_t>(run.Machine.Laser.EmissionOnDelay) : 0);
    const bool taken =
        std::any_of(facts.begin() + static_cast<std::ptrdiff_t>(i), facts.end(),
                    [&](const TFact& later) { return later.Ms <= by && !later.EmissionAsked && !later.LaserAsked; });
    if (!taken) return run.Say(Format(Tr("dark at %llu ms by the latch only"), Shown(fact.Ms)));
  }
}

void JudgeLatchedSuccess(TJudging& run) {
  const std::vector<TFact>& facts = run.Story.Facts();
  bool asked = false;
  for (std::size_t i = run.Story.EnteredAt(); run.Expected.Success && i < run.Story.LeftAt(); ++i) {
    asked = asked || facts[i].EmissionAsked || facts[i].LaserAsked;
    if (asked && facts[i].Now().LatchTripped) return run.Say(Tr("success with a latch that has tripped"));
  }
}

void JudgeDarkAtLeave(TJudging& run) {
  const std::vector<TFact>& facts = run.Story.Facts();
  const std::size_t left = run.Story.LeftAt();
  if (left == facts.size()) return;
  run.SayIf(facts[left].EmissionAsked || facts[left].LaserAsked, Tr("left without a command to be dark"));
  for (std::size_t i = left; i < facts.size(); ++i)
    if (facts[i].Now().Ms > facts[left].Ms + kPassMs && (facts[i].Now().Laser || facts[i].Now().Emission))
      return run.Say(
          Format(facts[i].Now().Laser ? Tr("light %llu ms after the leave") : Tr("emission %llu ms after the leave"),
                 Shown(facts[i].Now().Ms - facts[left].Ms)));
}

void JudgeLightForbidden(TJudging& run) {
  std::optional<std::uint64_t> since;
  for (const TFact& fact : run.Story.Facts()) {
    if (fact.Shown->LaserAllowed) since.reset();
    if (!fact.Shown->LaserAllowed && !since) since = fact.Now().Ms;
    if (since && fact.Now().Laser && fact.Now().Ms > *since + kPassMs)
      return run.Say(Format(Tr("light %llu ms after an alarm forbade it"), Shown(fact.Now().Ms - *since)));
  }
}

void JudgeLightAlone(TJudging& run) {
  const std::int32_t docked = run.Story.First().DockedTable;
  for (const TFact& fact : run.Story.Facts()) {
    const TMachineSnapshot& now = fact.Now();
    if (!now.Laser) continue;
    if (now.Calibrating) return run.Say(Tr("light while a follower calibrates"));
    if (now.RackMoving) return run.Say(Tr("light while the rack moves"));
    if (docked != 0 && now.DockedTable == 0) return run.Say(Tr("light while pallets are exchanged"));
  }
}

void JudgeLightBeforeGas(TJudging& run) {
  const std::vector<TFact>& facts = run.Story.Facts();
  if (run.Story.Failed("gas", "SwitchOn")) return;
  bool hasGas = false;
  bool litWithout = false;
  for (std::size_t i = run.Story.EnteredAt(); i < run.Story.LeftAt(); ++i) {
    hasGas = hasGas || facts[i].Kind == TActKind::GasOn;
    litWithout = litWithout || (facts[i].Now().Laser && !facts[i].Now().Gas && !hasGas);
  }
  run.SayIf(hasGas && litWithout, Tr("light before the gas is on"));
}

// Light is summed from sample to sample. One that comes or goes by itself is seen up to a pass late.
void JudgePromisedLight(TJudging& run) {
  const std::vector<TFact>& facts = run.Story.Facts();
  std::uint64_t lit = 0;
  for (std::size_t i = run.Story.EnteredAt() + 1; i < facts.size(); ++i)
    if (facts[i - 1].Now().Laser && facts[i].Now().Ms > facts[i - 1].Now().Ms)
      lit += facts[i].Now().Ms - facts[i - 1].Now().Ms;
  if (!run.Expected.Success) return;
  if (lit < run.Expected.LightMs)
    run.Say(Format(Tr("success with %llu ms of light, not %llu"), Shown(lit), Shown(run.Expected.LightMs)));
  if (lit > run.Expected.LightMostMs)
    run.Say(Format(Tr("%llu ms of light, at most %llu"), Shown(lit), Shown(run.Expected.LightMostMs)));
}

void JudgeCutSpeed(TJudging& run) {
  const TMachineSnapshot* before = nullptr;
  for (const TFact& fact : run.Story.Facts()) {
    const TMachineSnapshot& now = fact.Now();
    if (before && now.Ms <= before->Ms) continue;
    if (before && before->Laser && now.Laser) {
      const double way = std::hypot(now.Pos.X - before->Pos.X, now.Pos.Y - before->Pos.Y);
      const double speed = way * 1000.0 / static_cast<double>(now.Ms - before->Ms);
      if (speed > run.Machine.Laser.CutSpeedLimit * 1.01)
        return run.Say(Format(Tr("%.0f mm/s while light comes out"), speed));
    }
    before = &now;
  }
}

void JudgeEnded(TJudging& run) {
  bool ended = false;
  for (const TFact& fact : run.Story.Facts()) {
    ended = ended || fact.Kind == TActKind::Ended;
    if (!ended || fact.Kind != TActKind::Sample) continue;
    if (fact.Now().Aiming) return run.Say(Tr("the aiming light is on when the controller has ended"));
    if (fact.Now().Laser || fact.Now().Emission)
      return run.Say(Tr("laser or emission is on when the controller has ended"));
  }
}

}  // namespace ixoverify
