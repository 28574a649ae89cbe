#include "ixocamglue/platform/xml/FieldFacts.h"

#include <algorithm>
#include <iterator>

#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Lists.h"
#include "ixocamglue/support/ValueText.h"

namespace ixocamglue {

const char* UnitText(TUnit unit) {
  constexpr const char* kTexts[] = {"",   "mm", "mm/s",          "mm/s2",           "ms", "bar", "V", "W",
                                    "Hz", "%",  TrMark("turns"), TrMark("turns/s"), "h"};
  static_assert(std::size(kTexts) == static_cast<std::size_t>(uHour) + 1);
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
    AddToList(text, NumberText(Numbers[first]));
    if (i > first) text += (i > first + 1 ? upTo : ", ") + NumberText(Numbers[i]);
  }
  if (IsChoice) return text.empty() ? "none" : text;
  return (text.empty() ? "" : text + ", ") + NumberText(Lowest) + upTo + NumberText(Highest);
}

std::string TLimits::Refusal(double value, TUnit unit) const {
  const std::string unitText = unit == uNone ? std::string() : std::string(" ") + Tr(UnitText(unit));
  if (IsChoice) return Format(Tr("not one of %s"), Text(Tr(" to ")).c_str());
  if (std::isinf(Highest) && value < Lowest) return Format(Tr("below %s"), (NumberText(Lowest) + unitText).c_str());
  return Format(Tr("outside %s"), (Text(Tr(" to ")) + unitText).c_str());
}

std::string BoundText(const TBound& bound) {
  const auto named = [&]() -> std::string {
    switch (bound.Kind) {
      case bkAny:
      case bkSwitch: break;
      case bkFixed:
        return std::isinf(bound.Most) ? Format(Tr("at least %s"), NumberText(bound.Least).c_str())
                                      : NumberText(bound.Least) + ".." + NumberText(bound.Most);
      case bkX: return Tr("axis X");
      case bkY: return Tr("axis Y");
      case bkZ: return Tr("axis Z");
      case bkFocus: return Tr("axis Focus");
      case bkXYSpeed: return Tr("speed of X and Y");
      case bkZSpeed: return Tr("speed of Z");
      case bkFocusSpeed: return Tr("speed of Focus");
      case bkInport: return Tr("a fitted input");
      case bkOutport: return Tr("a fitted output");
      case bkBranch: return Tr("a fitted gas branch");
      case bkPressure:
        return bound.Branch ? Format(Tr("pressure of %s"), bound.Branch) : std::string(Tr("pressure of a branch"));
      case bkFollower: return Tr("a fitted follower");
    }
    return {};
  };
  return std::isnan(bound.Also) ? named() : Format(Tr("%s or %s"), NumberText(bound.Also).c_str(), named().c_str());
}

}  // namespace ixocamglue
