// What a value may be: fixed ends, or what the machine gives (an axis' limits, the ports fitted, a branch's pressure).
// A property or a parameter names its bound; TMachineBounds says what that is on one machine. Values; any thread.
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

namespace ixocamglue {

enum class TUnit : std::uint8_t { uNone, uMm, uMmPerS, uMmPerS2, uMs, uBar, uVolt, uWatt, uHertz, uPercent, uTurns };
using enum TUnit;
[[nodiscard]] const char* UnitText(TUnit unit);  // "mm/s"; empty for uNone

enum class TBoundKind : std::uint8_t {
  bkAny,
  bkFixed,
  bkX,  // positions within the axis' soft limits
  bkY,
  bkZ,
  bkFocus,
  bkXYSpeed,  // 0 to the axis' highest; of X and Y the slower one's
  bkZSpeed,
  bkFocusSpeed,
  bkInport,    // a port that is fitted
  bkOutport,   // the same
  bkBranch,    // a gas branch that is fitted
  bkPressure,  // 0 to what a branch may have; without a branch, the highest of all
  bkFollower,  // 0 to the number of the last follower
};
using enum TBoundKind;

struct TBound {
  TBoundKind Kind = bkAny;
  double Least = -std::numeric_limits<double>::infinity();  // with bkFixed
  double Most = std::numeric_limits<double>::infinity();
  double Also = std::numeric_limits<double>::quiet_NaN();  // allowed too: "none", or "not set"
  const char* Branch = nullptr;  // with bkPressure: the property or parameter beside it that names the branch

  [[nodiscard]] constexpr TBound Or(double value) const {
    TBound bound = *this;
    bound.Also = value;
    return bound;
  }
};
inline constexpr TBound bdAny{};
inline constexpr TBound bdAxisX{.Kind = bkX};
inline constexpr TBound bdAxisY{.Kind = bkY};
inline constexpr TBound bdAxisZ{.Kind = bkZ};
inline constexpr TBound bdFocus{.Kind = bkFocus};
inline constexpr TBound bdXYSpeed{.Kind = bkXYSpeed};
inline constexpr TBound bdZSpeed{.Kind = bkZSpeed};
inline constexpr TBound bdFocusSpeed{.Kind = bkFocusSpeed};
inline constexpr TBound bdFittedInport{.Kind = bkInport};
inline constexpr TBound bdFittedOutport{.Kind = bkOutport};
inline constexpr TBound bdFittedBranch{.Kind = bkBranch};
inline constexpr TBound bdFollower{.Kind = bkFollower};
inline constexpr TBound bdPressure{.Kind = bkPressure};
[[nodiscard]] constexpr TBound bdPressureOf(const char* branch) { return {.Kind = bkPressure, .Branch = branch}; }
[[nodiscard]] constexpr TBound bdRange(double least, double most) {
  return {.Kind = bkFixed, .Least = least, .Most = most};
}

// What a bound comes to.
struct TLimits {
  double Lowest = -std::numeric_limits<double>::infinity();
  double Highest = std::numeric_limits<double>::infinity();
  std::vector<double> Numbers;  // where IsChoice: one of these, in rising order
  bool IsChoice = false;

  [[nodiscard]] bool Any() const { return !IsChoice && std::isinf(Lowest) && std::isinf(Highest); }
  [[nodiscard]] bool Allows(double value) const;
  // "0..3050", "-1, 1..4, 7", "none"; `upTo` stands between the ends.
  [[nodiscard]] std::string Text(const char* upTo = "..") const;
};

// "axis X", "a fitted output port", "20..60000", "the pressure of CleanGasBranch": for who knows no machine.
[[nodiscard]] std::string BoundText(const TBound& bound);

// The number as people write it: whole ones without an exponent, else the shortest text that reads back the same.
[[nodiscard]] std::string NumberText(double value);

// What one machine has, as its file says. Lengths mm, speeds mm/s, pressures bar, times ms. The defaults are a complete
// machine; what a file does not say keeps them.
struct TMachineBounds {
  struct TAxis {
    std::string Name;
    double SoftLimitNeg = 0.0;
    double SoftLimitPos = 0.0;
    double MaxSpeed = 0.0;
    double Acceleration = 0.0;  // mm/s2
  };
  struct TBranch {
    std::int32_t GasType = 0;  // 1 "Air" ... 6 "H-N2"
    std::string Name;
    std::int32_t DAPort = 0;  // 0: none
    double MaxPressure = 0.0;
  };
  struct TPort {
    std::int32_t Number = 0;
    std::string Name;
  };

  TAxis X{"X", 0.0, 3000.0, 1500.0, 10'000.0};
  TAxis Y{"Y", 0.0, 1500.0, 1500.0, 10'000.0};
  TAxis Z{"Z", 0.0, 120.0, 300.0, 5000.0};
  TAxis Focus{"Focus", -25.0, 25.0, 100.0, 2000.0};
  double SafeZ = 10.0;  // at this Z and above, XY may travel over the table
  std::vector<TBranch> GasBranches{{1, "Air", 33, 16.0}, {2, "O2", 34, 10.0}, {3, "N2", 35, 25.0}};
  std::vector<TPort> Inports{{1, "Input 1"}, {2, "Input 2"}, {3, "Input 3"}, {4, "Input 4"}};
  std::vector<TPort> Outports{{1, "Output 1"}, {2, "Output 2"}, {3, "Output 3"}, {4, "Output 4"}, {5, "Output 5"}};
  std::int32_t Followers = 1;

  // `branch`: the branch that a pressure belongs to, 0 when it is not known; without effect on anything else.
  [[nodiscard]] TLimits Of(const TBound& bound, std::int32_t branch = 0) const;
};

}  // namespace ixocamglue
