// A machine without its axes, wired to a Modbus device: laser source, gas valves with their lines and sensors, inputs
// and outputs with the nozzle rack's cap and stage, pallets. The physics are the simulated machine's. Real time.
//
// Its addresses, all from 0; others are refused with exception 2:
//
//   coils               discrete inputs           holding registers         input registers
//   ------------------  ------------------------  ------------------------  -----------------------------
//   1..64 outputs       1..64 inputs              101..106 voltage of the   101..106 pressure of the
//   100 ask emission    100 emission confirmed    branch, 0..32767 is       branch, -32767..32767 is
//   101 beam            101 light comes out       0 to 10 V                 -25 to 25 bar
//   102 pilot light     102 latch lets it through 200 watchdog
//   103 trip the latch  103 interlock open
//   104 rearm           104 pilot light is on
//   111..116 gas valve  105 gas supply is good
//   121, 122 change     121, 122 pallet docked
//   190 lose emission
//   191 open interlock
//
// Emission comes as the machine file's section Simulator says. The latch trips by coil 103, by an open interlock, after
// 65 s of light, and while laser or emission is asked for and the watchdog register has not been written for 200 ms; it
// is set again by a rising edge of coil 104 while the coils 100, 101, 103 and 191 are off. A trip, and a watchdog that
// was written once and then not for kOutputsMs, switch the coils off that light, or blow, or move. Nothing is lit
// again by itself. One valve blows at a time: the one that was opened last.
//
// One thread at a time.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string_view>

#include "ixocamglue/platform/Machine.h"
#include "ixocamglue/platform/states/NcWatch.h"
#include "machines/simulated/Axes.h"
#include "machines/simulated/Config.h"
#include "machines/simulated/Core.h"
#include "machines/simulated/Gas.h"
#include "machines/simulated/Laser.h"
#include "machines/simulated/LoadingPlc.h"
#include "machines/simulated/Ports.h"
#include "machines/simulated/Rack.h"

namespace ixocamglue {

class TModbusPlant final : public IPlcDevice {
 public:
  static constexpr std::size_t kPorts = 64;
  static constexpr std::size_t kEmission = 100, kBeam = 101, kAiming = 102, kTrip = 103, kRearm = 104;
  static constexpr std::size_t kValves = 110, kVolts = 100, kPressures = 100;  // and the gas type
  static constexpr std::size_t kConfirmed = 100, kLight = 101, kLatchOk = 102, kFault = 103, kAimingOn = 104;
  static constexpr std::size_t kSupplyGood = 105;
  static constexpr std::size_t kPallets = 120;  // and the pallet's number
  static constexpr std::size_t kLoseEmission = 190, kInterlock = 191;
  static constexpr std::size_t kWatchdog = 200;
  static constexpr double kFullV = 10.0, kFullBar = 25.0, kFullRaw = 32767.0;
  static constexpr std::uint64_t kOutputsMs = 500;
  static constexpr std::int32_t kCover = 4;  // the output and the input that answers it

  // Installs a watch of its own for the laser: one for each process. `tell` hears what happens in the plant, at the
  // monotonic ms of its physics, and calls nobody back.
  TModbusPlant(const TSimConfig& config, std::uint64_t seed,
               std::function<void(std::uint64_t ms, std::string_view text)> tell);
  ~TModbusPlant() override;

  [[nodiscard]] bool Has(TPlcTable table, std::size_t addr) const override;
  [[nodiscard]] std::uint16_t Get(TPlcTable table, std::size_t addr) override;
  void Set(TPlcTable table, std::size_t addr, std::uint16_t value) override;
  void CatchUp() override;

 private:
  static constexpr std::size_t kCoils = 200, kTypes = 7;

  class TTeller final : public IMachineObserver {
   public:
    void Called(TDeviceCall) override {}
    void Happened(std::uint64_t ms, std::string_view device, std::string_view text) override;
    void Signalled(const TSignal& signal) override;

    std::function<void(std::uint64_t, std::string_view)> Tell;  // empty until the plant is whole
  };

  [[nodiscard]] bool GetInput(std::size_t addr);
  void SetCoil(std::size_t addr, bool on);
  void SwitchGas(std::size_t gasType);  // whose valve or voltage has changed
  void Rearm();
  void Drop(bool outputs);  // what lights; and what blows or moves

  TNcWatch FWatch;
  TInstalled<TNcWatch> FWatchInstalled;
  TTeller FTeller;
  TCallGate FGate;
  TSimCore FCore;
  const TSimConfig FConfig;
  TSimLaser FLaser;
  TSimGas FGas;
  TSimMotion FMotion;  // parked; the rack looks at it
  TSimPorts FPorts;
  TSimSwitchTable FTable;
  TSimRack FRack;
  std::array<bool, kCoils> FCoils{};
  std::array<std::uint16_t, kTypes> FVolts{};  // by gas type
  std::uint16_t FFeeds = 0;                    // the watchdog register
  bool FFed = false;
  bool FWasTripped = false;
};

}  // namespace ixocamglue
