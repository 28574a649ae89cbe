#include "controller/procedures/BeamCheck.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <string>

#include "controller/procedures/AxisPlaces.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

constexpr double kMoveExtraMs = 2000.0;     // speeding up, settling, the ticks
constexpr double kEmissionExtraMs = 100.0;  // 516 lets emission settle

class TBeamCheck {
 public:
  explicit TBeamCheck(const TMachineLimits& machine) : FMachine(machine) {}

  // The longest that the call can last; none: nobody knows.
  [[nodiscard]] std::optional<double> LongestMs(const TMotionCall& call) const {
    switch (call.Row->Command) {
      case TSmtDelay::Cmd: return call.Value("ms");
      case TSmtWaitInport::Cmd: return call.Value("time");
      case TSmtLaserOn::Cmd: return FMachine.Bounds.Laser.EmissionOnDelay + kEmissionExtraMs;
      case TSmtEmissionOn::Cmd:
      case TSmtLaserOnOnly::Cmd: return 0.0;
      case TSmtMoveToXY::Cmd:
      case TSmtSafeMoveToZ::Cmd:
      case TSmtSafeMoveToZ::kMoveToZ:
      case TSmtMoveToF::Cmd: return MoveMs(call);
      default: return std::nullopt;
    }
  }

  void Pass(const TMotionCall& call) { FPlaces.Pass(call); }

  // Why the call may not stand under a beam, however long it lasts.
  [[nodiscard]] std::optional<TProblem> Forbidden(const TMotionCall& call) const {
    constexpr std::int32_t kNever[] = {133, 137, 138, 139, 151, 152, 153, 154, 163, 164, 181, 350, 422, 513, 514};
    const std::int32_t command = call.Row->Command;
    const std::string name = call.Row->Name;
    if (std::ranges::find(kNever, command) != std::end(kNever))
      return TProblem{.What = Format(Tr("%s is not allowed while the beam is on"), name.c_str()),
                      .Why = Tr("it takes the head away from the cut"),
                      .Remedy = Tr("switch the beam off before it (517 or 522)")};
    if (command != TSmtMoveToXY::Cmd || SpeedOf(call) <= FMachine.Bounds.Laser.CutSpeedLimit) return std::nullopt;
    return TProblem{
        .What = Format(Tr("%s at %s mm/s is not allowed while the beam is on"), name.c_str(),
                       NumberText(SpeedOf(call)).c_str()),
        .Why = Format(Tr("CutSpeedLimit is %s mm/s"), NumberText(FMachine.Bounds.Laser.CutSpeedLimit).c_str()),
        .Remedy = Tr("give it a speed up to that; 0 is the machine's highest")};
  }

 private:
  [[nodiscard]] double SpeedOf(const TMotionCall& call) const {
    const double speed = call.Value("speed");
    for (const TMotionParam& param : call.Row->Params)  // 0 is the machine's default, its highest
      if (param.Name == std::string_view("speed") && !(speed > 0.0))
        return call.LimitsOf(param, FMachine.Bounds).Highest;
    return speed;
  }

  [[nodiscard]] double MoveMs(const TMotionCall& call) const {
    double way = 0.0;
    for (const TBoundKind axis : TAxisPlaces::kAxes)
      if (TAxisPlaces::Moves(call, axis)) way = std::hypot(way, Way(call, axis));
    return way / SpeedOf(call) * 1000.0 + kMoveExtraMs;
  }

  // The longest way of the axis.
  [[nodiscard]] double Way(const TMotionCall& call, TBoundKind axis) const {
    const TLimits limits = FMachine.Bounds.Of({.Kind = axis});
    const auto target = TAxisPlaces::TargetOf(call, axis);
    const auto from = FPlaces.At(axis, TAxisPlaces::OfSecondHead(call));
    if (target && from) return std::abs(*target - *from);
    if (!target && !from) return limits.Highest - limits.Lowest;
    const double known = target ? *target : *from;
    return std::max(std::abs(known - limits.Lowest), std::abs(limits.Highest - known));
  }

  const TMachineLimits& FMachine;
  TAxisPlaces FPlaces;
};

}  // namespace

std::optional<std::pair<std::size_t, TProblem>> CheckBeam(std::span<const TMotionCall> calls,
                                                          const TMachineLimits& machine) {
  TBeamCheck check(machine);
  bool lit = false;
  double ms = 0.0;
  for (std::size_t i = 0; i < calls.size(); ++i) {
    const TMotionCall& call = calls[i];
    if (call.Row->Flags.EndsBeam) lit = false;
    if (call.Row->Flags.LeavesBeam && !lit) {
      lit = true;
      ms = 0.0;
    }
    if (auto forbidden = lit ? check.Forbidden(call) : std::nullopt) return std::pair(i, std::move(*forbidden));
    const auto longest = lit ? check.LongestMs(call) : 0.0;
    check.Pass(call);
    if (!longest)
      return std::pair(i, TProblem{.What = Format(Tr("%s is not allowed while the beam is on"), call.Row->Name),
                                   .Why = Tr("how long it lasts is not known"),
                                   .Remedy = Tr("switch the beam off before it (517 or 522)")});
    ms += *longest;
    if (!(ms <= static_cast<double>(kShotLimitMs)))  // also where no speed is known
      return std::pair(i, TProblem{.What = Format(Tr("the beam would be on for %s ms, which is more than %s ms"),
                                                  NumberText(std::round(ms)).c_str(),
                                                  NumberText(static_cast<double>(kShotLimitMs)).c_str())});
  }
  return std::nullopt;
}

}  // namespace ixocontroller
