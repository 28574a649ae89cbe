#include "controller/procedures/BeamCheck.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "ixocamglue/support/Format.h"

namespace ixocontroller {
namespace {

constexpr double kMoveExtraMs = 2000.0;     // speeding up, settling, the ticks
constexpr double kEmissionExtraMs = 100.0;  // 516 lets emission settle

// Where an axis stands while a list runs, as far as its commands tell.
struct TPlace {
  TBoundKind Axis;
  std::optional<double> At = std::nullopt;  // none: anywhere within the limits
};

class TBeamCheck {
 public:
  explicit TBeamCheck(const TMachineLimits& machine) : FMachine(machine) {}

  // The longest that the call can last; none: nobody knows.
  [[nodiscard]] std::optional<double> LongestMs(const TMotionCall& call) const {
    switch (call.Row->Command) {
      case TSmtDelay::Cmd: return call.Value("ms");
      case TSmtWaitInport::Cmd: return call.Value("time");
      case TSmtLaserOn::Cmd: return FMachine.EmissionOnDelayMs + kEmissionExtraMs;
      case TSmtLaserOnOnly::Cmd: return 0.0;
      case TSmtMoveToXY::Cmd:
      case TSmtSafeMoveToZ::Cmd:
      case TSmtSafeMoveToZ::kMoveToZ:
      case TSmtMoveToF::Cmd: return MoveMs(call);
      default: return std::nullopt;
    }
  }

  // What is known behind the call.
  void Pass(const TMotionCall& call) {
    const TProcedureFlags& flags = call.Row->Flags;
    for (TPlace& place : FPlaces) {
      const bool isXY = place.Axis == bkX || place.Axis == bkY;
      if (isXY ? flags.MovesXY : place.Axis == bkZ ? flags.MovesZ : flags.MovesFocus) place.At = TargetOf(call, place);
    }
  }

 private:
  // Where the call sends the axis; none: the call does not say.
  static std::optional<double> TargetOf(const TMotionCall& call, const TPlace& place) {
    if (call.Value("use-safe-z") == 1.0 || call.Value("only-up") == 1.0 || call.Value("follower") > 0.0)
      return std::nullopt;
    for (const TMotionParam& param : call.Row->Params)
      if (param.Bound.Kind == place.Axis && param.Need == TMotionParam::Required) return call.Value(param.Name);
    return std::nullopt;
  }

  [[nodiscard]] double MoveMs(const TMotionCall& call) const {
    const TProcedureFlags& flags = call.Row->Flags;
    double way = 0.0;
    for (const TPlace& place : FPlaces) {
      const bool isXY = place.Axis == bkX || place.Axis == bkY;
      if (!(isXY ? flags.MovesXY : place.Axis == bkZ ? flags.MovesZ : flags.MovesFocus)) continue;
      way = std::hypot(way, Way(call, place));
    }
    double speed = call.Value("speed");
    for (const TMotionParam& param : call.Row->Params)  // 0 is the machine's default, its highest
      if (param.Name == std::string_view("speed") && !(speed > 0.0))
        speed = call.LimitsOf(param, FMachine.Bounds).Highest;
    return way / speed * 1000.0 + kMoveExtraMs;
  }

  // The longest way of the axis.
  [[nodiscard]] double Way(const TMotionCall& call, const TPlace& place) const {
    const TLimits limits = FMachine.Bounds.Of({.Kind = place.Axis});
    const auto target = TargetOf(call, place);
    const bool sameAxis = !(call.Value("follower") > 0.0);
    const auto from = sameAxis ? place.At : std::nullopt;
    if (target && from) return std::abs(*target - *from);
    if (!target && !from) return limits.Highest - limits.Lowest;
    const double known = target ? *target : *from;
    return std::max(std::abs(known - limits.Lowest), std::abs(limits.Highest - known));
  }

  const TMachineLimits& FMachine;
  TPlace FPlaces[4]{{bkX}, {bkY}, {bkZ}, {bkFocus}};
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
    const auto longest = lit ? check.LongestMs(call) : 0.0;
    check.Pass(call);
    if (!longest)
      return std::pair(i, TProblem{.What = std::string(call.Row->Name) + " is not allowed while the beam is on",
                                   .Why = "how long it lasts is not known",
                                   .Remedy = "switch the beam off before it (517 or 522)"});
    ms += *longest;
    if (!(ms <= static_cast<double>(kShotLimitMs)))  // also where no speed is known
      return std::pair(i, TProblem{.What = Format("the beam would be on for %s ms, which is more than %s ms",
                                                  NumberText(std::round(ms)).c_str(),
                                                  NumberText(static_cast<double>(kShotLimitMs)).c_str())});
  }
  return std::nullopt;
}

}  // namespace ixocontroller
