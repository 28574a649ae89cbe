#include "machines/composed/Ports.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <string_view>

#include "ixocamglue/support/Format.h"

namespace ixocamglue {
namespace {

constexpr double kReadBackShare = 0.01;  // an analogue output reads back with its steps

}  // namespace

// --- TComposedPorts ---

void TComposedPorts::SwitchOutport(std::int32_t port, bool on) {
  FCore.Gate.Carry("ports", "SwitchOutport", on ? vkStart : vkOff, Format("%d %s", port, on ? "on" : "off"), [&] {
    TGuard guard(FCore.Lock);
    const auto it = FOutputs.find(port);
    if (it == FOutputs.end()) return FCore.Event("ports", Format("output %d is not fitted", port));
    it->second.Point->Write(on ? 1.0 : 0.0);
    Show(port, it->second);
  });
}

void TComposedPorts::SetInputLogic(std::int32_t inport, bool level) {
  FCore.Gate.Carry("ports", "SetInputLogic", vkSet, Format("%d %s", inport, level ? "high" : "low"), [&] {
    TGuard guard(FCore.Lock);
    if (const auto it = FInputs.find(inport); it != FInputs.end()) it->second.Reached = level;
  });
}

bool TComposedPorts::GetInput(std::int32_t inport) {
  return FCore.Gate.Ask("ports", "GetInput", false, [&] {
    const auto it = FInputs.find(inport);
    return it != FInputs.end() && it->second.Point->IsOn();
  });
}

double TComposedPorts::GetRtGasPressure() {
  return FGas ? FGas->ReadPressure() : std::numeric_limits<double>::quiet_NaN();
}

void TComposedPorts::Look() {
  TGuard guard(FCore.Lock);
  for (auto& [port, output] : FOutputs) Show(port, output);
}

bool TComposedPorts::Reached(std::int32_t inport) {
  FCore.AssertLocked();
  const auto it = FInputs.find(inport);
  if (it == FInputs.end()) return false;
  bool reached = false;
  WhereReached([&] { reached = it->second.Point->IsOn() == it->second.Reached; });
  return reached;
}

std::vector<std::int32_t> TComposedPorts::OutputsOn() {
  TGuard guard(FCore.Lock);
  std::vector<std::int32_t> on;
  for (const auto& [port, output] : FOutputs)
    if (output.Shown) on.push_back(port);
  return on;
}

void TComposedPorts::Show(std::int32_t port, TOutput& output) {
  bool on = output.Shown;
  WhereReached([&] { on = output.Point->IsOn(); });
  if (on == output.Shown) return;
  output.Shown = on;
  FCore.Signal(sgOutput, on, port);
}

// --- TComposedInportCtrl ---

bool TComposedInportCtrl::IsBusy() {
  return FCore.Gate.Ask("inport", "IsBusy", true, [&] {
    TGuard guard(FCore.Lock);
    LookLocked();
    return FWait.Runs();
  });
}

void TComposedInportCtrl::SetTimeOutMode(std::int32_t mode) {
  FCore.Gate.Carry("inport", "SetTimeOutMode", vkSet, Format("%d", mode), [&] {
    TGuard guard(FCore.Lock);
    FWait.SetTimeOutMode(mode);
  });
}

void TComposedInportCtrl::StartWait(std::int32_t inport, std::int32_t limitMs) {
  FCore.Gate.Carry("inport", "StartWait", vkStart, Format("%d %d", inport, limitMs), [&] {
    TGuard guard(FCore.Lock);
    FWait.Start(inport, limitMs, FCore.Now());
    LookLocked();
  });
}

void TComposedInportCtrl::Cancel() {
  TGuard guard(FCore.Lock);
  Tell(FWait.Cancel());
}

void TComposedInportCtrl::Look() {
  TGuard guard(FCore.Lock);
  LookLocked();
}

void TComposedInportCtrl::LookLocked() {
  if (FWait.Runs()) Tell(FWait.Look(FCore.Now(), FPorts.Reached(FWait.Input())));
}

void TComposedInportCtrl::Tell(const std::string& text) {
  if (!text.empty()) FCore.Event("inport", text);
}

// --- TSteadyPoint ---

bool TSteadyPoint::Shows(double value) {
  const double within = kReadBackShare * std::max(1.0, std::abs(value));
  bool shows = false;
  WhereReached([&] { shows = std::abs(FPoint.Read() - value) <= within; });
  return shows;
}

void TSteadyPoint::Write(double value) {
  TGuard guard(FLock);
  if (FLast == value && (!FPoint.Settled() || Shows(value))) return;
  FLast.reset();
  FPoint.Write(value);
  FLast = value;
}

// --- TPointPallets ---

std::int32_t TPointPallets::GetValue(const char* name, std::int32_t defValue) {
  const bool docked = std::string_view(name) == "DockedTable";
  return FCore.Gate.Ask("table", "GetValue", docked ? 0 : defValue, [&]() -> std::int32_t {
    if (!docked) return defValue;
    const bool first = FDocked1 && FDocked1->IsOn();
    const bool second = FDocked2 && FDocked2->IsOn();
    return first == second ? 0 : first ? 1 : 2;
  });
}

}  // namespace ixocamglue
