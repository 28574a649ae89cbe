// One pass downwards over voltages that a calibration has measured, for the record: what the pressure does when it
// comes from above shows the valve's hysteresis. Nothing is calibrated by it.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "controller/gas/GasCalibration.h"

namespace ixocontroller {

inline constexpr std::int32_t nsGasDescent = 206;  // a machine state of the controller's own

struct TGasDescent {
  std::int32_t Gas = 0;
  std::vector<double> Volts;  // descending
  std::vector<TGasPoint> Points;
};

// Registers the machine state; at most one at a time, destroyed before the controller and after the state's loop.
class TGasDescentRun {
 public:
  TGasDescentRun();
  ~TGasDescentRun();
  TGasDescentRun(const TGasDescentRun&) = delete;
  TGasDescentRun& operator=(const TGasDescentRun&) = delete;

  // Of each gas whose points settled: its voltages, the highest first. False when there are none.
  [[nodiscard]] bool Start(TNcStateFramework& framework, const std::vector<TGasResult>& results);
  // After the end.
  [[nodiscard]] const std::vector<TGasDescent>& Descents() const { return *FDescents; }

 private:
  std::shared_ptr<std::vector<TGasDescent>> FDescents = std::make_shared<std::vector<TGasDescent>>();
};

}  // namespace ixocontroller
