#include "machines/linuxcnc/Points.h"

#include <cmath>

#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"
#include "ixocamglue/support/ValueText.h"
#include "machines/linuxcnc/Pins.h"

namespace ixocamglue {
namespace {

constexpr std::string_view kPrefix = "hal:";
constexpr double kSame = 1e-9;

}  // namespace

TResult<std::string> HalPointName(TPointKind kind, std::string_view address) {
  const auto problem = [&](std::string what, std::string why) {
    return TProblem{std::move(what), std::string(address), std::move(why),
                    Tr("write \"hal:\" and the name of a pin from ixocut-hal's list, as \"hal:laser\"")};
  };
  if (!address.starts_with(kPrefix)) return problem(Tr("LinuxCNC has no such point"), {});
  const std::string name(address.substr(kPrefix.size()));
  if (kind == pkOutput && name == kHalRearm) return name;
  if (const TResult<THalPin> pin = ParseHalPin("bit in " + name); !pin)
    return problem(Tr("LinuxCNC has no such point"), pin.Problem().What);
  for (const TNeededPin& own : kNeededPins)
    if (own.Output && own.Name == name && (kind == pkOutput || kind == pkAnalogOut))
      return problem(Tr("the driver writes this pin by itself"), {});
  return name;
}

TResult<> THalPoint::Check() const {
  if (IsRearm()) return {};
  const auto pin = FLink.Hal().Pin(FName);
  const auto problem = [&](const char* what) {
    return TProblem{Format(what, FName.c_str()),
                    FAddress,
                    {},
                    Tr("add it to ixocut-hal's list of pins, or correct the address in the machine file")};
  };
  if (!pin) return problem(Tr("ixocut-hal has no pin \"%s\""));
  if (pin->Output != IsOutput() || (pin->Kind == hkBit) != IsDigital(FKind))
    return problem(Tr("the pin \"%s\" of ixocut-hal is of another kind"));
  return {};
}

double THalPoint::Read() {
  FLink.RequireFresh();
  if (IsRearm()) return FLink.RearmDue() ? 1.0 : 0.0;
  const auto value = FLink.Hal().Value(FName);
  if (!value) throw EDeviceAway(Format(Tr("%s has no value"), FAddress.c_str()));
  return *value;
}

void THalPoint::Write(double value) {
  if (value != 0.0)
    if (const std::string away = FLink.WhyAway(); !away.empty()) throw EDeviceAway(away);
  if (IsRearm()) {
    if (value != 0.0) FLink.Rearm();
    return;
  }
  TGuard guard(FLock);
  // What is told again and again settles nevertheless.
  if (value == FValue && IsUnderWay()) return;
  FConnection = FLink.Hal().Connection();
  FWritten = FLink.Hal().Set(FName, value);
  FValue = value;
  // Without a connection every output is 0 already, and stays so when there is one.
  if (FWritten == 0 && value != 0.0) throw EDeviceAway(Tr("ixocut-hal does not answer"));
}

bool THalPoint::Settled() {
  if (IsRearm()) return !FLink.RearmDue();
  TGuard guard(FLock);
  return FWritten == 0 || FConnection != FLink.Hal().Connection() ||
         (FLink.Hal().Done() >= FWritten && ShowsWhatWasWritten());
}

bool THalPoint::ShowsWhatWasWritten() const {
  const auto value = FLink.Hal().Value(FName);
  return value && std::abs(*value - FValue) <= kSame + 1e-6 * std::abs(FValue);
}

// On its way, or arrived.
bool THalPoint::IsUnderWay() const {
  return FWritten != 0 && FConnection == FLink.Hal().Connection() &&
         (FLink.Hal().Done() < FWritten || ShowsWhatWasWritten());
}

TPortFacts THalPoint::Facts() {
  TPortFacts facts{.Port = FAddress, .AgeMs = AgeMs()};
  try {
    facts.Value = ValueText(Read());
    facts.Readable = true;
  } catch (const EDeviceAway& away) {
    facts.Warning = away.what();
  }
  return facts;
}

}  // namespace ixocamglue
