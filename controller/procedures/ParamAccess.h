// How a row of the table reaches a public field of its step. The thread that has the step. A step of another class is a
// mistake of the row: std::bad_cast. Values are in the unit of the row's parameter.
#pragma once

#include <type_traits>

#include "controller/procedures/Procedures.h"

namespace ixocontroller {

// The setter and getter of one public field, however wide it is.
template <auto Member>
struct TFieldAccess;
template <class Step, class Value, Value Step::*Member>
struct TFieldAccess<Member> {
  static Value& At(TStateMotion& step) { return dynamic_cast<Step&>(step).*Member; }
  static void Set(TStateMotion& step, double value) {
    if constexpr (std::is_same_v<Value, bool>)
      At(step) = value != 0.0;
    else
      At(step) = static_cast<Value>(value);
  }
  static double Get(TStateMotion& step) { return static_cast<double>(At(step)); }
  static constexpr TParamKind Kind = std::is_same_v<Value, bool> ? pkSwitch
                                     : std::is_integral_v<Value> ? pkWhole
                                                                 : pkNumber;
};
template <auto Member>
inline constexpr TParamAccess kAt{TFieldAccess<Member>::Kind, &TFieldAccess<Member>::Set, &TFieldAccess<Member>::Get};

// The same for a coordinate of a point.
template <auto Member, double TPoint2::*Coordinate>
inline constexpr TParamAccess kAtPoint{
    pkNumber, [](TStateMotion& step, double value) { TFieldAccess<Member>::At(step).*Coordinate = value; },
    [](TStateMotion& step) { return TFieldAccess<Member>::At(step).*Coordinate; }};
template <auto Member>
inline constexpr TParamAccess kAtX = kAtPoint<Member, &TPoint2::X>;
template <auto Member>
inline constexpr TParamAccess kAtY = kAtPoint<Member, &TPoint2::Y>;

}  // namespace ixocontroller
