#include "machines/composed/Gas.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "ixocamglue/platform/alarms/NcAlarmManager.h"
#include "ixocamglue/platform/states/NcState.h"
#include "ixocamglue/platform/xml/MachineConfig.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocamglue {
namespace {

constexpr double kFullScaleV = 10.0;
constexpr double kNoNumber = std::numeric_limits<double>::quiet_NaN();
constexpr double kLowShare = 0.8;        // of the pressure that was put out
constexpr std::uint64_t kLowMs = 2'000;  // so long it may take to come, beside the valve's own time

std::vector<TNcSimpleAlarmSource::TRow> LowRows(const std::vector<TGasLine>& lines) {
  std::vector<TNcSimpleAlarmSource::TRow> rows;
  rows.reserve(lines.size());
  for (const TGasLine& line : lines)
    rows.push_back({line.GasType, naForbidCut, Format(Tr("gas pressure low, gas type %d"), line.GasType)});
  return rows;
}

}  // namespace

// --- TPointGas ---

TPointGas::TPointGas(TComposedCore& core, std::vector<TGasLine> lines, IMachinePoint* supply, std::uint64_t switchMs)
    : FCore(core),
      FLines(std::move(lines)),
      FSupply(supply),
      FSwitchMs(switchMs),
      FAlarms("TPGas", LowRows(FLines)),
      FBranch(FLines.empty() ? 0 : FLines.front().GasType) {}

TPointGas::~TPointGas() {
  Shut();
  if (FBegun) FCore.Context.Alarms.RemoveSource(FAlarms);
  if (TNcWatch* const watch = NcWatch()) watch->GasOn.End();
}

void TPointGas::Begin() {
  FCore.Context.Alarms.AddSource(FAlarms);
  FBegun = true;
  Shut();
}

void TPointGas::Shut() {
  TGuard guard(FCore.Lock);
  ShutLocked();
  LookLocked();
}

TGasLine* TPointGas::Line(std::int32_t branch) {
  const auto it = std::ranges::find(FLines, branch, &TGasLine::GasType);
  return it == FLines.end() ? nullptr : &*it;
}

bool TPointGas::AnyOpen() {
  return std::ranges::any_of(FLines, [](const TGasLine& line) { return line.Valve->IsOn() || !line.Valve->Settled(); });
}

bool TPointGas::IsBusy() {
  return FCore.Gate.Ask("gas", "IsBusy", true, [&] {
    TGuard guard(FCore.Lock);
    LookLocked();
    const auto waits = [](IMachinePoint* point) { return point && !point->Settled(); };
    return FCore.Now() < FSwitchedAtMs || std::ranges::any_of(FLines, [&](const TGasLine& line) {
             return waits(line.Valve) || waits(line.SetPoint) || waits(line.VoltPoint);
           });
  });
}

bool TPointGas::GetGas() {
  return FCore.Gate.Ask("gas", "GetGas", true, [&] {
    TGuard guard(FCore.Lock);
    LookLocked();
    return FOn || AnyOpen();
  });
}

std::int32_t TPointGas::GetBranch() {
  return FCore.Gate.Ask("gas", "GetBranch", std::int32_t{0}, [&] {
    TGuard guard(FCore.Lock);
    return FBranch;
  });
}

double TPointGas::GetPressure() {
  return FCore.Gate.Ask("gas", "GetPressure", 0.0, [&] {
    TGuard guard(FCore.Lock);
    return FSetBar;
  });
}

void TPointGas::SelectBranch(std::int32_t branch) {
  FCore.Gate.Carry("gas", "SelectBranch", vkSet, Format("%d", branch), [&] {
    TGuard guard(FCore.Lock);
    if (!Line(branch)) return FCore.Event("gas", Format("branch %d is not fitted", branch));
    if (branch == FBranch) return;
    ShutLocked();
    FRaw = false;
    FBranch = branch;
    FEnoughAtMs = FCore.Now();
    FSwitchedAtMs = FCore.Now() + FSwitchMs;
    LimitPressure();
    PutPressure();
    if (FOn) {
      Line(FBranch)->Valve->Write(1.0);
      ShowOn();
    }
    LookLocked();
  });
}

void TPointGas::SetPressure(double bar) {
  FCore.Gate.Carry("gas", "SetPressure", vkSet, Format("%.2f", bar), [&] {
    TGuard guard(FCore.Lock);
    if (!std::isfinite(bar)) return FCore.Event("gas", "a pressure that is no number is not set");
    const double before = FSetBar;
    FRaw = false;
    FSetBar = bar;
    LimitPressure();
    PutPressure();
    if (FOn && FSetBar != before) ShowOn();
  });
}

void TPointGas::SwitchOn() {
  FCore.Gate.Carry("gas", "SwitchOn", vkStart, {}, [&] {
    NoteGasOn();
    TGuard guard(FCore.Lock);
    TGasLine* const line = Line(FBranch);
    if (!line) return FCore.Event("gas", "no branch is fitted");
    if (FOn) return;
    line->Valve->Write(1.0);
    FOn = true;
    FSwitchedAtMs = FCore.Now() + FSwitchMs;
    if (TNcWatch* const watch = NcWatch()) watch->GasOn.Begin(FCore.Now());
    FShown = true;
    ShowOn();
    if (!FRaw) PutPressure();
  });
}

void TPointGas::SwitchOff() {
  NoteGasOff();
  FCore.Gate.Carry("gas", "SwitchOff", vkOff, {}, [&] { Halt(); });
}

void TPointGas::Halt() {
  TGuard guard(FCore.Lock);
  if (FOn) FSwitchedAtMs = FCore.Now() + FSwitchMs;
  FOn = false;
  for (const TGasLine& line : FLines) line.Valve->Write(0.0);
  if (!FRaw) PutPressure();
  LookLocked();
}

void TPointGas::OutputDA(double volt) {
  // 0 V shuts the valve.
  FCore.Gate.Carry("gas", "OutputDA", volt > 0.0 ? vkSet : vkOff, Format("%.2f", volt), [&] {
    TGuard guard(FCore.Lock);
    if (!std::isfinite(volt)) return FCore.Event("gas", "a voltage that is no number is not put out");
    TGasLine* const line = Line(FBranch);
    if (!line || !line->VoltPoint) return FCore.Event("gas", Format("branch %d has no DA port", FBranch));
    const double limited = std::clamp(volt, 0.0, kFullScaleV);
    if (limited != volt) FCore.Event("gas", Format("%.2f V limited to %.2f", volt, limited));
    FRaw = true;
    PutVolt(*line, limited);
  });
}

double TPointGas::ReadPressure() {
  return FCore.Gate.Ask("sensor", "GetRtGasPressure", kNoNumber, [&] {
    TGuard guard(FCore.Lock);
    TGasLine* const line = Line(FBranch);
    return line && line->Pressure ? line->Pressure->Read() : kNoNumber;
  });
}

void TPointGas::LimitPressure() {
  const TGasLine* const line = Line(FBranch);
  const double limited = std::clamp(FSetBar, 0.0, line ? line->MaxPressure : 0.0);
  if (limited != FSetBar) FCore.Event("gas", Format("%.2f bar limited to %.2f", FSetBar, limited));
  FSetBar = limited;
}

void TPointGas::PutPressure() {
  TGasLine* const line = Line(FBranch);
  if (!line) return;
  if (line->SetPoint) return line->SetPoint->Write(FOn ? FSetBar : 0.0);
  if (!line->HasVolt) return;
  const std::optional<double> volt = TableVolt(FBranch, FSetBar);
  if (!volt && FSetBar != 0.0) {
    FSetBar = 0.0;
    FCore.Event("gas", Format("branch %d has no table in use: no pressure can be set", FBranch));
  }
  PutVolt(*line, FOn ? volt.value_or(0.0) : 0.0);
}

void TPointGas::PutVolt(TGasLine& line, double volt) {
  if (!line.VoltPoint) return;
  line.VoltPoint->Write(volt);
  if (std::exchange(FVolt, volt) != volt) FCore.Signal(sgGasVolt, volt != 0.0, line.GasType, volt);
}

void TPointGas::ShutLocked() {
  for (TGasLine& line : FLines) {
    line.Valve->Write(0.0);
    if (line.SetPoint) line.SetPoint->Write(0.0);
    if (line.GasType == FBranch)
      PutVolt(line, 0.0);
    else if (line.VoltPoint)
      line.VoltPoint->Write(0.0);
  }
}

void TPointGas::Look() {
  TGuard guard(FCore.Lock);
  LookLocked();
}

void TPointGas::LookLocked() {
  bool good = !FSupply;
  WhereReached([&] { good = good || FSupply->IsOn(); });
  FSupplyGood.store(good, std::memory_order_release);
  LookAtPressure();
  bool open = FOn || FShown;
  if (!FOn) WhereReached([&] { open = AnyOpen(); });
  if (open == FShown) return;
  FShown = open;
  TNcWatch* const watch = NcWatch();
  if (open) {
    ShowOn();
    if (watch) watch->GasOn.Begin(FCore.Now());
  } else {
    FCore.Signal(sgGas, false);
    if (watch) watch->GasOn.End();
  }
}

void TPointGas::LookAtPressure() {
  const TGasLine* const line = Line(FBranch);
  const bool told = FOn && !FRaw && FSetBar > 0.0 && line && line->Pressure && (line->SetPoint || line->HasVolt);
  const double lowBar = kLowShare * FSetBar;
  bool low = false;
  if (told && !WhereReached([&] { low = line->Pressure->Read() < lowBar; })) return;
  const std::uint64_t now = FCore.Now();
  if (!low) FEnoughAtMs = now;
  const std::int32_t type = now - FEnoughAtMs > kLowMs + FSwitchMs ? FBranch : 0;
  if (type == FLow) return;
  if (FLow != 0) FAlarms.Set(FLow, false);
  if (type != 0) FAlarms.Set(type, true);
  FLow = type;
}

void TPointGas::ShowOn() { FCore.Signal(sgGas, true, FBranch, FSetBar); }

TComposedGas::TFacts TPointGas::Facts() {
  TGuard guard(FCore.Lock);
  TFacts facts{.On = FShown, .Branch = FBranch, .SetBar = FSetBar, .Bar = 0.0, .Volt = FVolt, .ValveOpen = false};
  const TGasLine* const line = Line(FBranch);
  const bool switches = FCore.Now() < FSwitchedAtMs;
  WhereReached([&] {
    if (line) facts.ValveOpen = line->Valve->IsOn() && !switches;
    if (line && line->Pressure) facts.Bar = line->Pressure->Read();
  });
  return facts;
}

// --- TWholeGas ---

bool TWholeGas::IsBusy() {
  return FCore.Gate.Ask("gas", "IsBusy", true, [&] { return FGas.IsBusy(); });
}

bool TWholeGas::GetGas() {
  return FCore.Gate.Ask("gas", "GetGas", true, [&] { return FGas.GetGas(); });
}

std::int32_t TWholeGas::GetBranch() {
  return FCore.Gate.Ask("gas", "GetBranch", std::int32_t{0}, [&] { return FGas.GetBranch(); });
}

double TWholeGas::GetPressure() {
  return FCore.Gate.Ask("gas", "GetPressure", 0.0, [&] { return FGas.GetPressure(); });
}

void TWholeGas::SelectBranch(std::int32_t branch) {
  FCore.Gate.Carry("gas", "SelectBranch", vkSet, Format("%d", branch), [&] { FGas.SelectBranch(branch); });
}

void TWholeGas::SetPressure(double bar) {
  FCore.Gate.Carry("gas", "SetPressure", vkSet, Format("%.2f", bar), [&] { FGas.SetPressure(bar); });
}

void TWholeGas::SwitchOn() {
  FCore.Gate.Carry("gas", "SwitchOn", vkStart, {}, [&] { FGas.SwitchOn(); });
}

void TWholeGas::SwitchOff() {
  NoteGasOff();
  FCore.Gate.Carry("gas", "SwitchOff", vkOff, {}, [&] { FGas.SwitchOff(); });
}

void TWholeGas::OutputDA(double volt) {
  FCore.Gate.Carry("gas", "OutputDA", volt > 0.0 ? vkSet : vkOff, Format("%.2f", volt), [&] { FGas.OutputDA(volt); });
}

double TWholeGas::ReadPressure() {
  return FCore.Gate.Ask("sensor", "GetRtGasPressure", kNoNumber, [&] { return FGas.ReadPressure(); });
}

TComposedGas::TFacts TWholeGas::Facts() {
  TFacts facts;
  WhereReached([&] {
    facts.On = FGas.GetGas();
    facts.Branch = FGas.GetBranch();
    facts.SetBar = FGas.GetPressure();
    facts.ValveOpen = facts.On && !FGas.IsBusy();
  });
  return facts;
}

}  // namespace ixocamglue
