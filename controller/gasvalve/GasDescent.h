// One pass downwards over voltages that a calibration has measured, for the record: what the pressure does when it
// comes from above shows the valve's hysteresis. Nothing is calibrated by it. One thread starts and reads it; the pass
// itself is the state thread's. V, bar.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "controller/gasvalve/GasResult.h"
#include "ixocamglue/platform/states/NcState.h"

namespace ixocontroller {

inline constexpr std::int32_t nsGasDescent = 206;  // a machine state of the controller's own

struct TGasDescent {
  std::int32_t Gas = 0;
  std::vector<double> Volts;  // descending
  std::vector<TGasPoint> Points;
};

// The controller's own: registers the machine state while no loop runs, and is used for one pass after the other.
class TGasDescents {
 public:
  explicit TGasDescents(TNcRegistry& registry);
  ~TGasDescents();
  TGasDescents(const TGasDescents&) = delete;
  TGasDescents& operator=(const TGasDescents&) = delete;

  // Of each gas whose points settled: its voltages, the highest first. False when there are none, or the state is not
  // taken. While none runs.
  [[nodiscard]] bool Start(TNcStateFramework& framework, const std::vector<TGasResult>& results);
  // After the end: those of the last start. A point that did not settle says so itself; a pass that was ended has fewer
  // points. None before a start.
  [[nodiscard]] const std::vector<TGasDescent>& Items() const { return *FDescents; }

 private:
  TNcRegistry& FRegistry;
  const std::shared_ptr<std::vector<TGasDescent>> FDescents = std::make_shared<std::vector<TGasDescent>>();
};

}  // namespace ixocontroller
