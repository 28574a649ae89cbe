// The alarms that the simulated devices raise by themselves. Devices say what is so, from any thread and also with the
// machine's lock held; the alarm package asks. Nothing here fails.
#pragma once

#include <cstdint>
#include <string_view>

#include "ixocamglue/platform/alarms/NcAlarmManager.h"
#include "ixocamglue/platform/alarms/NcSimpleAlarmSource.h"

namespace ixocamglue {

class TSimDeviceAlarms {
 public:
  static constexpr const char* kAxisPrefix = "TPAxis";      // #1 X-, #2 X+, #3 Y-, ... #8 Focus+
  static constexpr const char* kGasPrefix = "TPGas";        // #gas type
  static constexpr const char* kLaserPrefix = "TPLaser";    // #1, #3
  static constexpr const char* kPalletPrefix = "TPPallet";  // #4
  static constexpr const char* kDevicePrefix = "TPDevice";  // #1 laser, #2 gas, ... see the table in the source
  enum TAxis : std::int32_t { axX, axY, axZ, axFocus };

  TSimDeviceAlarms();

  void AddTo(TNcAlarmManager& alarms);
  void RemoveFrom(TNcAlarmManager& alarms);

  // A target beyond the axis' limits was refused; the next target within them ends the alarm.
  void AxisLimit(TAxis axis, bool positive) { FAxes.Set(AxisId(axis, positive), true); }
  void AxisWithin(TAxis axis) {
    FAxes.Set(AxisId(axis, false), false);
    FAxes.Set(AxisId(axis, true), false);
  }
  void GasLow(std::int32_t gasType, bool low);
  void EmissionLost(bool lost) { FLaser.Set(1, lost); }
  void InterlockOpen(bool open) { FLaser.Set(3, open); }
  // From when an exchange is asked for until its pallet is docked: nothing may move, follow or give light.
  void PalletsExchanged(bool underWay) { FPallets.Set(4, underWay); }
  void Communication(std::string_view device, bool works);  // a device without an alarm of its own is ignored

 private:
  [[nodiscard]] static std::int32_t AxisId(TAxis axis, bool positive) { return 1 + 2 * axis + (positive ? 1 : 0); }

  TNcSimpleAlarmSource FAxes;
  TNcSimpleAlarmSource FGas;
  TNcSimpleAlarmSource FLaser;
  TNcSimpleAlarmSource FPallets;
  TNcSimpleAlarmSource FDevices;
};

}  // namespace ixocamglue
