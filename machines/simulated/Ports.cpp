#include "machines/simulated/Ports.h"

#include <algorithm>
#include <string_view>

#include "ixocamglue/support/Format.h"

namespace ixocamglue {

// --- TSimPorts ---

TSimPorts::TSimPorts(TSimCore& core, const TSimConfig& config, TSimGas& gas) : FCore(core), FGas(gas) {
  for (const TSimPort& port : config.Outports) FOutputs.emplace(port.Number, false);
  for (const TSimPort& port : config.Inports) FInputs.emplace(port.Number, TInput{});
}

void TSimPorts::SwitchOutport(std::int32_t port, bool on) {
  if (!FCore.Gate.Enter("ports", "SwitchOutport", on ? vkStart : vkOff, Format("%d %s", port, on ? "on" : "off")))
    return;
  const TSimScope scope(FCore);
  const auto it = FOutputs.find(port);
  if (it == FOutputs.end()) return FCore.Event("ports", Format("output %d is not fitted", port));
  if (it->second == on) return;
  it->second = on;
  FCore.Signal(sgOutput, on, port);
  for (const TFollow& follow : FFollows)
    if (follow.Outport == port) Plan({FCore.Now() + follow.DelayMs, follow.Inport, on});
  if (FOnSwitch) FOnSwitch(port);
}

void TSimPorts::SetInputLogic(std::int32_t inport, bool level) {
  if (!FCore.Gate.Enter("ports", "SetInputLogic", vkSet, Format("%d %s", inport, level ? "high" : "low"))) return;
  const TSimScope scope(FCore);
  if (const auto it = FInputs.find(inport); it != FInputs.end()) it->second.Reached = level;
}

bool TSimPorts::GetInput(std::int32_t inport) {
  if (!FCore.Gate.Enter("ports", "GetInput", vkRead)) return false;
  return InputIsOn(inport);
}

bool TSimPorts::OutputIsOn(std::int32_t port) {
  const TSimScope scope(FCore);
  return IsOn(port);
}

bool TSimPorts::InputIsOn(std::int32_t inport) {
  const TSimScope scope(FCore);
  const auto it = FInputs.find(inport);
  return it != FInputs.end() && it->second.Level;
}

void TSimPorts::SetInput(std::int32_t port, bool level) {
  const TSimScope scope(FCore);
  Take(port, level);
}

void TSimPorts::SetInputAt(std::int32_t port, bool level, std::uint64_t atMs) {
  const TSimScope scope(FCore);
  Plan({atMs, port, level});
}

void TSimPorts::FollowOutput(std::int32_t outport, std::int32_t inport, std::uint32_t delayMs) {
  const TSimScope scope(FCore);
  FFollows.push_back({outport, inport, delayMs});
}

bool TSimPorts::Reached(std::int32_t inport) const {
  FCore.AssertLocked();
  const auto it = FInputs.find(inport);
  return it != FInputs.end() && it->second.Level == it->second.Reached;
}

std::vector<std::int32_t> TSimPorts::OutputsOn() const {
  FCore.AssertLocked();
  std::vector<std::int32_t> on;
  for (const auto& [port, level] : FOutputs)
    if (level) on.push_back(port);
  return on;
}

bool TSimPorts::IsOn(std::int32_t outport) const {
  FCore.AssertLocked();
  const auto it = FOutputs.find(outport);
  return it != FOutputs.end() && it->second;
}

void TSimPorts::Drive(const TSimSwitch& input, bool closed) {
  FCore.AssertLocked();
  if (input.Port >= 1) Take(input.Port, closed == input.Level);
}

void TSimPorts::Step(std::uint64_t nowMs) {
  FCore.AssertLocked();
  while (!FDue.empty() && FDue.front().AtMs <= nowMs) {
    const TDue due = FDue.front();
    FDue.erase(FDue.begin());
    Take(due.Inport, due.Level);
  }
}

void TSimPorts::Take(std::int32_t port, bool level) {
  const auto it = FInputs.find(port);
  if (it == FInputs.end()) return FCore.Event("ports", Format("input %d is not fitted", port));
  if (it->second.Level == level) return;
  it->second.Level = level;
  FCore.Event("ports", Format("input %d %s", port, level ? "high" : "low"));
}

void TSimPorts::Plan(TDue due) { FDue.insert(std::ranges::upper_bound(FDue, due.AtMs, {}, &TDue::AtMs), due); }

// --- TSimInportCtrl ---

bool TSimInportCtrl::IsBusy() {
  if (!FCore.Gate.Enter("inport", "IsBusy", vkRead)) return true;
  const TSimScope scope(FCore);
  return FWait.Runs();
}

void TSimInportCtrl::SetTimeOutMode(std::int32_t mode) {
  if (!FCore.Gate.Enter("inport", "SetTimeOutMode", vkSet, Format("%d", mode))) return;
  const TSimScope scope(FCore);
  FWait.SetTimeOutMode(mode);
}

void TSimInportCtrl::StartWait(std::int32_t inport, std::int32_t limitMs) {
  if (!FCore.Gate.Enter("inport", "StartWait", vkStart, Format("%d %d", inport, limitMs))) return;
  const TSimScope scope(FCore);
  FWait.Start(inport, limitMs, FCore.Now());
  Look(FCore.Now());
}

void TSimInportCtrl::Cancel() {
  FCore.AssertLocked();
  Tell(FWait.Cancel());
}

void TSimInportCtrl::Step(std::uint64_t nowMs) {
  FCore.AssertLocked();
  if (FWait.Runs()) Look(nowMs);
}

void TSimInportCtrl::Look(std::uint64_t nowMs) { Tell(FWait.Look(nowMs, FPorts.Reached(FWait.Input()))); }

void TSimInportCtrl::Tell(const std::string& text) {
  if (!text.empty()) FCore.Event("inport", text);
}

// --- TSimSwitchTable ---

std::int32_t TSimSwitchTable::GetValue(const char* name, std::int32_t defValue) {
  const bool docked = std::string_view(name) == "DockedTable";
  if (!FCore.Gate.Enter("table", "GetValue", vkRead)) return docked ? 0 : defValue;
  const TSimScope scope(FCore);
  return docked ? FDocked : defValue;
}

void TSimSwitchTable::SetDocked(std::int32_t table) {
  const TSimScope scope(FCore);
  FLift = TLift::Rests;
  FDocked = table;
  FCore.DeviceAlarms.PalletsExchanged(false);
}

void TSimSwitchTable::Exchange(std::int32_t table, std::uint32_t ms) {
  const TSimScope scope(FCore);
  FNext = table;
  FTakesMs = ms;
  FLift = TLift::Waits;
  FSinceMs = FCore.Now();
  FCore.DeviceAlarms.PalletsExchanged(true);
}

void TSimSwitchTable::SetJammed(bool jammed) {
  if (jammed) Exchange(2, 0);
  const TSimScope scope(FCore);
  FJammed = jammed;
  if (jammed) Undock();
}

void TSimSwitchTable::Undock() {
  FLift = TLift::Moves;
  FSinceMs = FCore.Now();
  FDocked = 0;
  FCore.Event("table", Format("pallet %d is coming", FNext));
}

void TSimSwitchTable::Step(std::uint64_t nowMs) {
  FCore.AssertLocked();
  if (FLift == TLift::Waits && !FAtRest()) FSinceMs = nowMs;
  if (FLift == TLift::Waits && nowMs >= FSinceMs + kRestMs) Undock();
  if (FLift != TLift::Moves || FJammed || nowMs < FSinceMs + FTakesMs) return;
  FLift = TLift::Rests;
  FDocked = FNext;
  FCore.Event("table", Format("pallet %d docked", FDocked));
  FCore.DeviceAlarms.PalletsExchanged(false);
}

}  // namespace ixocamglue
