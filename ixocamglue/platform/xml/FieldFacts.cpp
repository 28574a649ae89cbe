#include "ixocamglue/platform/xml/FieldFacts.h"

#include <algorithm>
#include <iterator>

#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/ValueText.h"

namespace ixocamglue {

const char* UnitText(TUnit unit) {
  constexpr const char* kTexts[] = {"", "mm", "mm/s", "mm/s2", "ms", "bar", "V", "W", "Hz", "%", "turns"};
  static_assert(std::size(kTexts) == static_cast<std::size_t>(uTurns) + 1);
  return kTexts[static_cast<std::size_t>(unit)];
}

std::string NumberText(double value) {
  constexpr double kExact = 1e15;
  return value == std::floor(value) && std::abs(value) < kExact ? Format("%.0f", value) : ValueText(value);
}

bool TLimits::Allows(double value) const {
  return (!IsChoice && value >= Lowest && value <= Highest) || std::ranges::find(Numbers, value) != Numbers.end();
}

std::string TLimits::Text(const char* upTo) const {
  std::string text;
  for (std::size_t i = 0; i < Numbers.size(); ++i) {
    const std::size_t first = i;
    while (i + 1 < Numbers.size() && Numbers[i + 1] == Numbers[i] + 1.0) ++i;
    text += (text.empty() ? "" : ", ") + NumberText(Numbers[first]);
    if (i > first) text += (i > first + 1 ? upTo : ", ") + NumberText(Numbers[i]);
  }
  if (IsChoice) return text.empty() ? "none" : text;
  return (text.empty() ? "" : text + ", ") + NumberText(Lowest) + upTo + NumberText(Highest);
}

std::string BoundText(const TBound& bound) {
  const auto named = [&]() -> std::string {
    switch (bound.Kind) {
      case bkAny:
      case bkSwitch: break;
      case bkFixed: return NumberText(bound.Least) + ".." + NumberText(bound.Most);
      case bkX: return "axis X";
      case bkY: return "axis Y";
      case bkZ: return "axis Z";
      case bkFocus: return "axis Focus";
      case bkXYSpeed: return "speed of X and Y";
      case bkZSpeed: return "speed of Z";
      case bkFocusSpeed: return "speed of Focus";
      case bkInport: return "a fitted input";
      case bkOutport: return "a fitted output";
      case bkBranch: return "a fitted gas branch";
      case bkPressure: return bound.Branch ? std::string("pressure of ") + bound.Branch : "pressure of a branch";
      case bkFollower: return "a fitted follower";
    }
    return {};
  };
  return std::isnan(bound.Also) ? named() : NumberText(bound.Also) + " or " + named();
}

}  // namespace ixocamglue
