#include "machines/simulated/ModbusPlant.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>

#include "ixocamglue/platform/services/Clock.h"

namespace ixocamglue {
namespace {

constexpr std::uint32_t kCoverMs = 250;
constexpr std::uint32_t kExchangeMs = 3000;

}  // namespace

void TModbusPlant::TTeller::Happened(std::uint64_t ms, std::string_view device, std::string_view text) {
  if (Tell) Tell(ms, std::string(device) + ": " + std::string(text));
}

void TModbusPlant::TTeller::Signalled(const TSignal& signal) {
  // The laser says it by itself.
  if (Tell && signal.Kind != sgLaser && signal.Kind != sgEmission) Tell(signal.Ms, signal.Text());
}

TModbusPlant::TModbusPlant(const TSimConfig& config, std::uint64_t seed,
                           std::function<void(std::uint64_t, std::string_view)> tell)
    : FWatchInstalled(FWatch),
      FGate(&FTeller),
      FCore(FGate, FTeller),
      FConfig(config),
      FLaser(FCore, FConfig, seed),
      FGas(FCore, FConfig, seed),
      FMotion(FCore, FConfig),
      FPorts(FCore, FConfig, FGas),
      FTable(FCore, FConfig, [this] { return !FLaser.Lit(); }),
      FRack(FCore, FConfig.Rack, FPorts, FMotion, nullptr, nullptr) {
  FCore.AddPart(FLaser);
  FCore.AddPart(FGas);
  FCore.AddPart(FPorts);
  FCore.AddPart(FTable);
  FCore.AddPart(FRack);
  FPorts.FollowOutput(kCover, kCover, kCoverMs);
  FTeller.Tell = std::move(tell);
}

TModbusPlant::~TModbusPlant() = default;

bool TModbusPlant::Has(TPlcTable table, std::size_t addr) const {
  const auto branch = [&](std::size_t base) { return addr > base && addr < base + kTypes; };  // also one not fitted
  const bool port = addr >= 1 && addr <= kPorts;
  const bool pallet = addr == kPallets + 1 || addr == kPallets + 2;
  switch (table) {
    case ptCoils:
      return port || (addr >= kEmission && addr <= kRearm) || branch(kValves) || pallet || addr == kLoseEmission ||
             addr == kInterlock;
    case ptInputs: return port || (addr >= kConfirmed && addr <= kSupplyGood) || pallet;
    case ptRegisters: return branch(kVolts) || addr == kWatchdog;
    case ptInputRegisters: return branch(kPressures);
  }
  return false;
}

std::uint16_t TModbusPlant::Get(TPlcTable table, std::size_t addr) {
  switch (table) {
    case ptCoils: return FCoils[addr] ? 1 : 0;
    case ptInputs: return GetInput(addr) ? 1 : 0;
    case ptRegisters: return addr == kWatchdog ? FFeeds : FVolts[addr - kVolts];
    case ptInputRegisters: break;
  }
  if (FGas.GetBranch() != static_cast<std::int32_t>(addr - kPressures)) return 0;  // its line is vented
  const double bar = FGas.ReadPressure();
  const double raw = std::isfinite(bar) ? std::round(bar / kFullBar * kFullRaw) : -kFullRaw - 1;  // a broken wire
  return static_cast<std::uint16_t>(static_cast<std::int16_t>(std::clamp(raw, -kFullRaw - 1, kFullRaw)));
}

bool TModbusPlant::GetInput(std::size_t addr) {
  switch (addr) {
    case kConfirmed: return FLaser.Emitting();
    case kLight: return FLaser.Lit();
    case kLatchOk: return !FLaser.LatchTripped();
    case kFault: return FCoils[kInterlock];
    case kAimingOn: return FLaser.Aiming();
    case kSupplyGood: return FGas.SupplyGood();
    case kPallets + 1:
    case kPallets + 2: return FTable.GetValue("DockedTable", 0) == static_cast<std::int32_t>(addr - kPallets);
    default: return FPorts.GetInput(static_cast<std::int32_t>(addr));
  }
}

void TModbusPlant::Set(TPlcTable table, std::size_t addr, std::uint16_t value) {
  if (table == ptCoils) return SetCoil(addr, value != 0);
  if (addr == kWatchdog) {
    FFeeds = value;
    FFed = true;
    FWatch.BeatMs = Clock().MonotonicMs();
    return;
  }
  FVolts[addr - kVolts] = std::min<std::uint16_t>(value, static_cast<std::uint16_t>(kFullRaw));
  SwitchGas(addr - kVolts);
}

void TModbusPlant::SetCoil(std::size_t addr, bool on) {
  const bool before = std::exchange(FCoils[addr], on);
  if (before == on) return;
  switch (addr) {
    case kEmission: return on ? FLaser.EmissionOn() : FLaser.EmissionOff();
    case kBeam: return FLaser.SwitchLaser(on);
    case kAiming: return on ? FLaser.SetAiming(true) : FLaser.AimingOff();
    case kTrip:
      if (on) FLaser.Trip("tripped by its coil");
      break;
    case kRearm:
      if (on) Rearm();
      return;
    case kLoseEmission:
      FCoils[addr] = false;
      FLaser.LoseEmission();
      break;
    case kInterlock:
      if (on) FLaser.Trip("the interlock is open");
      break;
    case kPallets + 1:
    case kPallets + 2:
      if (on) FTable.Exchange(static_cast<std::int32_t>(addr - kPallets), kExchangeMs);
      break;
    default:
      if (addr > kValves && addr < kValves + kTypes)
        SwitchGas(addr - kValves);
      else
        FPorts.SwitchOutport(static_cast<std::int32_t>(addr), on);
  }
  CatchUp();
}

void TModbusPlant::SwitchGas(std::size_t gasType) {
  const auto type = static_cast<std::int32_t>(gasType);
  const bool open = FCoils[kValves + gasType];
  const bool other = FGas.GetGas() && FGas.GetBranch() != type;
  if (other && !open) return;  // it takes effect when its valve opens
  FGas.SelectBranch(type);
  if (FGas.GetBranch() != type) return;  // it is not fitted
  FGas.OutputDA(FVolts[gasType] / kFullRaw * kFullV);
  open ? FGas.SwitchOn() : FGas.SwitchOff();
}

void TModbusPlant::Rearm() {
  if (FCoils[kEmission] || FCoils[kBeam] || FCoils[kTrip] || FCoils[kInterlock]) return;
  FLaser.ResetLatch();
  FWasTripped = false;
}

void TModbusPlant::Drop(bool outputs) {
  for (std::size_t addr = 0; addr < kCoils; ++addr) {
    const bool lights = addr == kEmission || addr == kBeam;
    const bool moves = addr <= kPorts || (addr > kValves && addr < kValves + kTypes) || addr == kAiming;
    if (FCoils[addr] && (lights || (outputs && moves))) SetCoil(addr, false);
  }
  for (std::size_t type = 1; outputs && type < kTypes; ++type)
    if (std::exchange(FVolts[type], 0) != 0) SwitchGas(type);
}

void TModbusPlant::CatchUp() {
  {
    const TSimScope scope(FCore);
    FLaser.Settle();
  }
  if (!FWasTripped && FLaser.LatchTripped()) {
    FWasTripped = true;
    Drop(false);
  }
  if (FFed && Clock().MonotonicMs() - FWatch.BeatMs > kOutputsMs) {
    FFed = false;
    FTeller.Happened(Clock().MonotonicMs(), "device", "its watchdog was not fed: outputs off");
    Drop(true);
  }
}

}  // namespace ixocamglue
