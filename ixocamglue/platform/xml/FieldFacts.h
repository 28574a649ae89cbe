// What a value may be: fixed ends, or what the machine gives (an axis' limits, the ports fitted, a branch's pressure).
// A property or a parameter names its bound; TMachineBounds (Bounds.h) says what that is on one machine. And what else
// a record's line says of its property. Values; any thread. Nothing throws. Numbers are in the property's unit.
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "ixocamglue/support/Texts.h"

namespace ixocamglue {

enum class TUnit : std::uint8_t {
  uNone,
  uMm,
  uMmPerS,
  uMmPerS2,
  uMs,
  uBar,
  uVolt,
  uWatt,
  uHertz,
  uPercent,
  uTurns,
  uTurnsPerS,
  uHour
};
using enum TUnit;
[[nodiscard]] const char* UnitText(TUnit unit);  // "mm/s"; empty for uNone; Tr shows it

// bkX to bkFocus: within the axis' soft limits. Speeds: 0 to the axis' highest, of X and Y the slower one's.
// bkPressure: 0 to what a branch may have; without a branch, the highest of all. bkFollower: 0 to the last one's index.
// The others: one of those that are fitted.
enum class TBoundKind : std::uint8_t {
  bkAny,
  bkFixed,
  bkSwitch,
  bkX,
  bkY,
  bkZ,
  bkFocus,
  bkXYSpeed,
  bkZSpeed,
  bkFocusSpeed,
  bkInport,
  bkOutport,
  bkBranch,
  bkPressure,
  bkFollower
};
using enum TBoundKind;

struct TBound {
  TBoundKind Kind = bkAny;
  double Least = -std::numeric_limits<double>::infinity();  // with bkFixed
  double Most = std::numeric_limits<double>::infinity();
  double Also = std::numeric_limits<double>::quiet_NaN();  // allowed too: "none", or "not set"
  const char* Branch = nullptr;  // with bkPressure: the property or parameter beside it that names the branch
  bool Advice = false;           // a value outside is told of, and no reason to refuse the machine

  [[nodiscard]] constexpr TBound Or(double value) const {
    TBound bound = *this;
    bound.Also = value;
    return bound;
  }
  [[nodiscard]] constexpr TBound AsAdvice() const {
    TBound bound = *this;
    bound.Advice = true;
    return bound;
  }
};
inline constexpr TBound bdAny{};
inline constexpr TBound bdSwitch{.Kind = bkSwitch};
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
[[nodiscard]] constexpr TBound bdAtLeast(double least) { return {.Kind = bkFixed, .Least = least}; }

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
  // What is wrong with a value that is not allowed: "outside 0 to 3050 mm", "below 0 ms", "not one of 1 to 3, 6".
  [[nodiscard]] std::string Refusal(double value, TUnit unit) const;
};

// "axis X", "a fitted output port", "20..60000", "the pressure of CleanGasBranch": for who knows no machine. Empty
// where any value will do.
[[nodiscard]] std::string BoundText(const TBound& bound);

// The number as people write it: whole ones without an exponent, else the shortest text that reads back the same.
[[nodiscard]] std::string NumberText(double value);

// What a record's line says of a property beside its name, type and default: the one place where it is said.
struct TFieldFacts {
  TUnit Unit = uNone;
  TBound Bound;
  const char* Text = nullptr;     // what the value does for the machine: one sentence in English, which Tr shows
  const char* Missing = nullptr;  // of what tells the items of a list apart: what an item without one is
  bool DefaultBelow = false;      // below its least the default is in force, which is no reason to refuse the machine
};

// Hears the facts of each field, after its Field.
class TFieldListener {
 public:
  virtual ~TFieldListener() = default;
  virtual void Said(const TFieldFacts& facts) = 0;

 private:
  friend class TFieldLine;
  TFieldFacts FFacts;  // of the field whose line is being said
};

// The rest of a field's line: p.Field("SafeZ", SafeZ, 10.0).Unit(uMm).Within(bdAxisZ). Costs next to nothing where
// nobody listens.
class TFieldLine {
 public:
  explicit TFieldLine(TFieldListener* listener) : FListener(listener) {
    if (FListener) FListener->FFacts = {};
  }
  TFieldLine(TFieldLine&& other) noexcept : FListener(std::exchange(other.FListener, nullptr)) {}
  TFieldLine& operator=(TFieldLine&&) = delete;
  ~TFieldLine() noexcept(false) {
    if (FListener) FListener->Said(FListener->FFacts);
  }

  TFieldLine& Unit(TUnit unit) {
    if (FListener) FListener->FFacts.Unit = unit;
    return *this;
  }
  TFieldLine& Within(const TBound& bound) {
    if (FListener) FListener->FFacts.Bound = bound;
    return *this;
  }
  TFieldLine& Within(double least, double most) { return Within(bdRange(least, most)); }
  TFieldLine& Key(const char* missing) {
    if (FListener) FListener->FFacts.Missing = missing;
    return *this;
  }
  TFieldLine& DefaultBelow() {
    if (FListener) FListener->FFacts.DefaultBelow = true;
    return *this;
  }
  // One sentence, marked with TrMark.
  TFieldLine& Text(const char* text) {
    if (FListener) FListener->FFacts.Text = text;
    return *this;
  }

 private:
  TFieldListener* FListener;
};

}  // namespace ixocamglue
