#include <algorithm>
#include <array>
#include <cmath>
#include <functional>

#include "ixocamglue/motion/Ustatemotion.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"
#include "verify/Judges.h"

namespace ixoverify {
namespace {

constexpr double kStill = 0.001;            // mm; a way below is rounding
constexpr double kTurnAcceleration = 20.0;  // turns/s2
constexpr double kBrushEdge = 1.0;          // mm

struct TMover {
  const char* Device;
  const char* StopVerb;
  double (*At)(const TMachineSnapshot& now);
  double (*StopS)(const TJudging& run);
};
double BrakeS(const TAxisConfig& axis) { return axis.MaxSpeed / axis.Acceleration; }
double XYStopS(const TJudging& run) { return std::max(BrakeS(run.Machine.X), BrakeS(run.Machine.Y)); }
double ZStopS(const TJudging& run) { return BrakeS(run.Machine.Z); }
double FocusStopS(const TJudging& run) { return BrakeS(run.Machine.Focus); }
double TurnStopS(const TJudging& run) {
  double speed = 1.0;
  for (const TFact& fact : run.Story.Facts())
    if (fact.Kind == TActKind::Turn) speed = std::max(speed, fact.Args[2]);
  return speed / kTurnAcceleration;
}

constexpr TMover kMovers[] = {
    {"axes", "StopAll", [](const TMachineSnapshot& now) { return now.Pos.X; }, &XYStopS},
    {"axes", "StopAll", [](const TMachineSnapshot& now) { return now.Pos.Y; }, &XYStopS},
    {"axes", "StopAll", [](const TMachineSnapshot& now) { return now.Turns; }, &TurnStopS},
    {"follower", "Stop", [](const TMachineSnapshot& now) { return now.Z; }, &ZStopS},
    {"follower2", "Stop", [](const TMachineSnapshot& now) { return now.Z2; }, &ZStopS},
    {"head", "Stop", [](const TMachineSnapshot& now) { return now.Focus; }, &FocusStopS},
};

// Without a follower the Z is the motion driver's.
bool ZStopFailed(const TJudging& run, const char* follower) {
  if (!run.Machine.Physics.Follower) return run.Story.Failed("axes", "StopAll");
  return run.Story.Failed(follower, "Stop");
}

bool InBrush(const TSimConfig& machine, const TPoint2& at) {
  return std::ranges::any_of(machine.Brushes, [&](const TSimBrushPlace& brush) {
    const double half = brush.Half + kBrushEdge;
    return std::abs(at.X - brush.X) <= half && std::abs(at.Y - brush.Y) <= half;
  });
}

}  // namespace

void JudgeLowTravel(TJudging& run) {
  if (run.Story.Failed("follower", "MoveZ") || run.Story.Failed("follower2", "MoveZ")) return;
  // Axes that were told to stop and did not travel on from where they were.
  const bool runOn = run.Story.Failed("axes", "StopAll") && !run.Story.Causes().empty();
  const std::uint64_t until = runOn ? run.Story.Facts()[run.Story.Causes().front()].Ms : ~std::uint64_t{0};
  const double safe = run.Machine.SafeZ + kStill;
  const TMachineSnapshot* before = nullptr;
  for (const TFact& fact : run.Story.Facts()) {
    if (fact.Ms > until) break;
    const TMachineSnapshot& now = fact.Now();
    const bool travels = before && std::hypot(now.Pos.X - before->Pos.X, now.Pos.Y - before->Pos.Y) > kStill;
    const bool low = before && (std::min(now.Z, before->Z) > safe || std::min(now.Z2, before->Z2) > safe);
    before = &now;
    if (!travels || !low || now.Following || fact.Shown->Leaf == TSmtMoveToXY::Cmd) continue;
    if (fact.Shown->Leaf == TSmtCleanHeadCurve::Cmd && InBrush(run.Machine, now.Pos)) continue;
    return run.Say(Format(Tr("XY travels in step %d with Z at %.1f and %.1f"), fact.Shown->Leaf, now.Z, now.Z2));
  }
}

void JudgeCollision(TJudging& run) {
  const TMachineSnapshot& last = run.Story.Last();
  if (last.Collisions > run.Story.First().Collisions) run.Say(last.FirstCollision);
}

void JudgePallet(TJudging& run) {
  const std::int32_t docked = run.Story.First().DockedTable;
  for (const TFact& fact : run.Story.Facts())
    if (docked != 0 && fact.Now().DockedTable == 0 && (fact.Now().Following || fact.Now().Calibrating))
      return run.Say(Tr("a head follows while pallets are exchanged"));
}

void JudgeStops(TJudging& run) {
  if (run.Story.Causes().empty()) return;
  const std::vector<TFact>& facts = run.Story.Facts();
  const std::size_t cause = run.Story.Causes().front();
  const std::uint64_t from = facts[cause].Ms + kPassMs + run.Story.HangsOnMs(facts[cause].Ms);
  for (const TMover& mover : kMovers) {
    const bool z = std::string_view(mover.Device).starts_with("follower");
    if (z ? ZStopFailed(run, mover.Device) : run.Story.Failed(mover.Device, mover.StopVerb)) continue;
    const std::uint64_t by = from + static_cast<std::uint64_t>(mover.StopS(run) * 1000.0) + 1;
    const TMachineSnapshot* rest = nullptr;
    for (std::size_t i = cause; i < facts.size(); ++i) {
      const TMachineSnapshot& now = facts[i].Now();
      if (now.Ms < by) continue;
      if (rest && std::abs(mover.At(now) - mover.At(*rest)) > kStill) {
        run.Say(Format(Tr("%s still moves %llu ms after the cause"), mover.Device,
                       static_cast<unsigned long long>(now.Ms - facts[cause].Ms)));
        break;
      }
      if (!rest) rest = &now;
    }
  }
}

void JudgeToldToStop(TJudging& run) {
  if (run.Story.Causes().empty()) return;
  const std::vector<TFact>& facts = run.Story.Facts();
  const std::size_t cause = run.Story.Causes().front();
  const TMachineSnapshot& now = facts[cause].Now();
  const auto require = [&](bool moves, std::string_view device) {
    if (!moves) return;
    const bool told = std::any_of(facts.begin() + static_cast<std::ptrdiff_t>(cause), facts.end(), [&](const TFact& f) {
      return f.IsCommand() && f.Entry->Kind == vkStop && f.Entry->Device.starts_with(device);
    });
    if (!told) run.Say(Format(Tr("%s moved at the cause and was not told to stop"), std::string(device).c_str()));
  };
  require(now.AxesMoving, "axes");
  require(now.FocusMoving, "head");
  const bool mayFollow = run.Expected.Success && run.Expected.MayFollow;  // the cause came too late to end it
  require(!mayFollow && (now.ZMoving || now.Following || now.Calibrating), "follower");
}

void JudgeRest(TJudging& run) {
  const TMachineSnapshot& last = run.Story.Last();
  const bool axesFailed = run.Story.Failed("axes", "StopAll");
  const bool followerFailed = ZStopFailed(run, "follower") || ZStopFailed(run, "follower2");
  run.SayIf(last.AxesMoving && !axesFailed, Tr("the axes move at the end"));
  run.SayIf(last.FocusMoving && !run.Story.Failed("head", "Stop"), Tr("the focus moves at the end"));
  const bool mayFollow = followerFailed || (run.Expected.Success && run.Expected.MayFollow);
  run.SayIf(last.ZMoving && !mayFollow, Tr("a Z moves at the end"));
  run.SayIf(last.Following && !mayFollow, Tr("a head follows at the end"));
  run.SayIf(last.Calibrating && !followerFailed, Tr("a follower calibrates at the end"));
}

}  // namespace ixoverify
