// Where the axes stand while a list of commands runs, as far as its commands tell. A value of whoever has it; mm.
// Nothing fails: what is not known is none.
#pragma once

#include <array>
#include <optional>
#include <string_view>

#include "controller/procedures/Procedures.h"

namespace ixocontroller {

class TAxisPlaces {
 public:
  static constexpr std::array kAxes{bkX, bkY, bkZ, bkFocus};

  [[nodiscard]] static bool Moves(const TMotionCall& call, TBoundKind axis) {
    const TProcedureFlags& flags = call.Row->Flags;
    return axis == bkZ ? flags.MovesZ : axis == bkFocus ? flags.MovesFocus : flags.MovesXY;
  }
  // Where the call sends the axis, of Z its own head's; none: the call does not say.
  [[nodiscard]] static std::optional<double> TargetOf(const TMotionCall& call, TBoundKind axis) {
    if (call.Value("use-safe-z") == 1.0 || call.Value("only-up") == 1.0) return std::nullopt;
    for (const TMotionParam& param : call.Row->Params)
      if (param.Bound.Kind == axis && param.Need == TMotionParam::Required) return call.Value(param.Name);
    return std::nullopt;
  }
  [[nodiscard]] static bool OfSecondHead(const TMotionCall& call) { return call.Value("follower") > 0.0; }

  // None: not known.
  [[nodiscard]] std::optional<double> At(TBoundKind axis, bool second = false) const {
    return axis == bkZ && second ? FSecondZ : FAt[Index(axis)];
  }
  // Where an axis stands before the first call.
  void Stands(TBoundKind axis, double mm) { FAt[Index(axis)] = mm; }
  // What is known behind the call. One that travels raises both heads.
  void Pass(const TMotionCall& call) {
    for (const TBoundKind axis : kAxes) {
      if (!Moves(call, axis)) continue;
      const bool second = OfSecondHead(call);
      (axis == bkZ && second ? FSecondZ : FAt[Index(axis)]) = TargetOf(call, axis);
      if (axis == bkZ && call.Row->Flags.MovesXY) FSecondZ.reset();
    }
  }

 private:
  static constexpr std::size_t Index(TBoundKind axis) {
    return axis == bkX ? 0 : axis == bkY ? 1 : axis == bkZ ? 2 : 3;
  }

  std::array<std::optional<double>, 4> FAt;
  std::optional<double> FSecondZ;
};

}  // namespace ixocontroller
