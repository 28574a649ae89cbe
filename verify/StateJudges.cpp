#include <algorithm>
#include <cmath>
#include <set>

#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"
#include "verify/Judges.h"

namespace ixoverify {
namespace {

constexpr double kMostVolt = 10.0;
constexpr double kMostHeight = 50.0;  // mm, of following

bool Within(double value, double low, double high) { return value >= low && value <= high; }  // false for no number

bool InTravel(const TAxisConfig& axis, double mm) { return Within(mm, axis.SoftLimitNeg, axis.SoftLimitPos); }

bool Harmless(TVerbKind kind) {
  switch (kind) {
    case vkRead:
    case vkLock:
    case vkStop:
    case vkOff: return true;
    case vkSet:
    case vkStart: return false;
  }
  return false;
}

std::set<std::int32_t> OutputsOf(const TMachineSnapshot& now) { return {now.OutputsOn.begin(), now.OutputsOn.end()}; }

}  // namespace

// A speed of 0 is the axis' own.
void JudgeLimits(TJudging& run) {
  const TSimConfig& m = run.Machine;
  double mostBar = 0.0;
  const auto branch = [&](double number) {
    const auto it = std::ranges::find(m.GasBranches, static_cast<std::int32_t>(number), &TGasBranchConfig::GasType);
    mostBar = it == m.GasBranches.end() ? 0.0 : it->MaxPressure;
    return it != m.GasBranches.end();
  };
  branch(run.Story.First().GasBranch);
  for (const TFact& fact : run.Story.Facts()) {
    const auto& [a, b, c, d, e] = fact.Args;
    bool within = true;
    switch (fact.Kind) {
      case TActKind::Branch: within = branch(a); break;
      case TActKind::Pressure: within = Within(a, 0.0, mostBar); break;
      case TActKind::Volt: within = Within(a, 0.0, kMostVolt); break;
      case TActKind::MoveXY:
        within = InTravel(m.X, a) && InTravel(m.Y, b) && Within(c, 0.0, std::max(m.X.MaxSpeed, m.Y.MaxSpeed));
        break;
      case TActKind::MoveCurve:
        within = Within(a, 0.0, std::max(m.X.MaxSpeed, m.Y.MaxSpeed)) && InTravel(m.X, b) && InTravel(m.X, c) &&
                 InTravel(m.Y, d) && InTravel(m.Y, e);
        break;
      case TActKind::MoveZ: within = InTravel(m.Z, a) && Within(b, 0.0, m.Z.MaxSpeed); break;
      case TActKind::MoveFocus: within = InTravel(m.Focus, a) && Within(b, 0.0, m.Focus.MaxSpeed); break;
      case TActKind::Follow: within = Within(a, 0.0, kMostHeight); break;
      case TActKind::Turn: within = std::isfinite(b) && std::isfinite(c); break;
      default: break;
    }
    if (!within) run.Say(Tr("outside its limits: ") + fact.Entry->Line());
  }
}

// A cause out of a device call ends the next pass; the pass that it comes in goes on to its end, and what its devices
// refuse then begins nothing.
void JudgeHarmless(TJudging& run) {
  if (run.Story.Causes().empty()) return;
  const std::vector<TFact>& facts = run.Story.Facts();
  const TFact& cause = facts[run.Story.Causes().front()];
  const bool inCall = cause.Entry && cause.Entry->Verb.starts_with(kFromCall);
  for (std::size_t i = run.Story.Causes().front(); i < facts.size(); ++i) {
    if (!facts[i].IsCommand() || Harmless(facts[i].Entry->Kind)) continue;
    if (inCall && (facts[i].Ms == cause.Ms || facts[i].Entry->Outcome == toRefused)) continue;
    run.Say(facts[i].Entry->Line());
  }
}

// A device that failed to switch off closes with its repair; one that only failed to answer has no excuse.
void JudgeGas(TJudging& run) {
  const std::vector<TFact>& facts = run.Story.Facts();
  const std::size_t left = run.Story.LeftAt();
  const bool mayStay = run.Expected.Success && run.Expected.GasMayStayOn;
  const bool failed = run.Story.Failed("gas", "SwitchOff");
  if (left == facts.size()) return run.SayIf(facts.back().Now().Gas, Tr("gas is on at the end"));
  const std::uint64_t limit =
      mayStay ? static_cast<std::uint64_t>(std::max(run.Machine.Supervisor.GasOnLimitMs, 0)) : kPassMs;
  for (std::size_t i = left; i < facts.size() && !failed; ++i) {
    const TMachineSnapshot& now = facts[i].Now();
    if (now.Ms <= facts[left].Ms + limit || !(now.Gas || (now.GasVolt != 0.0 && !run.Story.Failed("gas", "OutputDA"))))
      continue;
    return run.Say(Format(Tr("gas is open (%.2f V) %llu ms after the end"), now.GasVolt,
                          static_cast<unsigned long long>(now.Ms - facts[left].Ms)));
  }
  if (failed && !mayStay && (facts.back().Now().Gas || facts.back().Now().GasVolt != 0.0))
    run.Say(Tr("gas is open though its device is mended"));
}

void JudgeOutputs(TJudging& run) {
  if (run.Expected.OutputsMayStayOn || run.Story.Failed("ports", "SwitchOutport")) return;
  const std::set<std::int32_t> before = OutputsOf(run.Story.First());
  for (const std::int32_t port : OutputsOf(run.Story.Last()))
    if (!before.contains(port)) run.Say(Format(Tr("output %d is on at the end"), port));
}

void JudgeUnasked(TJudging& run) {
  const TMachineSnapshot& first = run.Story.First();
  bool emission = first.Emission;
  bool laser = first.Laser;
  bool gas = first.Gas;
  std::set<std::int32_t> outputs = OutputsOf(first);
  for (const TFact& fact : run.Story.Facts()) {
    switch (fact.Done() ? fact.Kind : fact.Kind == TActKind::Sample ? TActKind::Sample : TActKind::None) {
      case TActKind::EmissionOn: emission = true; break;
      case TActKind::EmissionOff: emission = laser = false; break;
      case TActKind::LaserOn: laser = true; break;
      case TActKind::LaserOff: laser = false; break;
      case TActKind::GasOn: gas = true; break;
      case TActKind::GasOff: gas = false; break;
      case TActKind::OutputOn: outputs.insert(static_cast<std::int32_t>(fact.Args[0])); break;
      case TActKind::OutputOff: outputs.erase(static_cast<std::int32_t>(fact.Args[0])); break;
      case TActKind::Sample: {
        const TMachineSnapshot& now = fact.Now();
        if (now.Emission && !emission) return run.Say(Tr("emission that nobody asked for"));
        if (now.Laser && !(emission && laser)) return run.Say(Tr("light that nobody asked for"));
        if (now.Gas && !gas) return run.Say(Tr("gas that nobody switched on"));
        for (const std::int32_t port : now.OutputsOn)
          if (!outputs.contains(port)) return run.Say(Format(Tr("output %d that nobody switched on"), port));
        break;
      }
      default: break;
    }
  }
}

void JudgeStates(TJudging& run) {
  const std::vector<TFact>& facts = run.Story.Facts();
  int changes = 0;
  bool again = false;
  for (std::size_t i = run.Story.EnteredAt(); i < facts.size(); ++i) {
    if (facts[i].Kind != TActKind::State || i == run.Story.EnteredAt()) continue;
    ++changes;
    again = again || facts[i].Args[0] == run.Expected.ProcedureState;
  }
  run.SayIf(again, Tr("the procedure's state was entered again"));
  if (run.Story.EnteredAt() < facts.size() && changes != 1)
    run.Say(Format(Tr("%d changes of state after the procedure began, not 1"), changes));
}

}  // namespace ixoverify
