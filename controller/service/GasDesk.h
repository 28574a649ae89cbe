// The gas valves of a controller that stays up: what is fitted, their calibration as a run, and what the last one left.
// Interface thread.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "controller/gas/GasJob.h"
#include "controller/service/Events.h"
#include "controller/service/RunJob.h"

namespace ixocontroller {

inline constexpr const char* kGasRun = "gas-calibrate";  // the procedure of its run

// What is only shown does not fail.
class TGasDesk {
 public:
  // The last calibration, with every sample.
  struct TLast {
    std::uint64_t Run = 0;
    nlohmann::ordered_json Result;
    TGasRecording Recording;
  };

  // Both outlive it.
  TGasDesk(TController& controller, TEventRing& events) : FController(controller), FEvents(events) {}

  // The branches as the machine file has them. While a calibration runs their tables are its own: then as they were
  // when it began.
  [[nodiscard]] const nlohmann::ordered_json& Branches();
  // A calibration for the runner. Throws EProblem (pbRefused) while one runs.
  [[nodiscard]] std::shared_ptr<IRunJob> MakeRun(TGasOrder order);
  [[nodiscard]] const std::optional<TLast>& Last() const { return FLast; }

 private:
  class TRun;

  TController& FController;
  TEventRing& FEvents;
  nlohmann::ordered_json FBranches;
  std::optional<TLast> FLast;
};

}  // namespace ixocontroller
