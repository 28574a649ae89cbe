#include "ixocamglue/platform/xml/Bounds.h"

#include <algorithm>

#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/ValueText.h"

namespace ixocamglue {
namespace {

TLimits ChoiceOf(const auto& items, auto number) {
  TLimits limits{.Numbers = {}, .IsChoice = true};
  for (const auto& item : items) limits.Numbers.push_back(item.*number);
  return limits;
}

TLimits Without(const TMachineBounds& machine, const TBound& bound, std::int32_t branch) {
  const auto within = [](double low, double high) { return TLimits{.Lowest = low, .Highest = high, .Numbers = {}}; };
  const auto axis = [&](const TMachineBounds::TAxis& a) { return within(a.SoftLimitNeg, a.SoftLimitPos); };
  switch (bound.Kind) {
    case bkAny: return {};
    case bkFixed: return within(bound.Least, bound.Most);
    case bkX: return axis(machine.X);
    case bkY: return axis(machine.Y);
    case bkZ: return axis(machine.Z);
    case bkFocus: return axis(machine.Focus);
    case bkXYSpeed: return within(0.0, std::min(machine.X.MaxSpeed, machine.Y.MaxSpeed));
    case bkZSpeed: return within(0.0, machine.Z.MaxSpeed);
    case bkFocusSpeed: return within(0.0, machine.Focus.MaxSpeed);
    case bkInport: return ChoiceOf(machine.Inports, &TMachineBounds::TPort::Number);
    case bkOutport: return ChoiceOf(machine.Outports, &TMachineBounds::TPort::Number);
    case bkBranch: return ChoiceOf(machine.GasBranches, &TMachineBounds::TBranch::GasType);
    case bkPressure: break;
    case bkFollower: return within(0.0, machine.Followers - 1.0);
  }
  const auto known = std::ranges::find(machine.GasBranches, branch, &TMachineBounds::TBranch::GasType);
  if (known != machine.GasBranches.end()) return within(0.0, known->MaxPressure);
  double highest = 0.0;
  for (const auto& fitted : machine.GasBranches) highest = std::max(highest, fitted.MaxPressure);
  return within(0.0, highest);
}

}  // namespace

const char* UnitText(TUnit unit) {
  switch (unit) {
    case uNone: break;
    case uMm: return "mm";
    case uMmPerS: return "mm/s";
    case uMmPerS2: return "mm/s2";
    case uMs: return "ms";
    case uBar: return "bar";
    case uVolt: return "V";
    case uWatt: return "W";
    case uHertz: return "Hz";
    case uPercent: return "%";
    case uTurns: return "turns";
  }
  return "";
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
      case bkAny: break;
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

TLimits TMachineBounds::Of(const TBound& bound, std::int32_t branch) const {
  TLimits limits = Without(*this, bound, branch);
  if (!std::isnan(bound.Also) && !limits.Allows(bound.Also)) limits.Numbers.push_back(bound.Also);
  std::ranges::sort(limits.Numbers);
  return limits;
}

}  // namespace ixocamglue
