// What runs as a run of the controller and is no motion procedure: a gas calibration. Interface thread.
#pragma once

#include <cstdint>

#include <nlohmann/json.hpp>

#include "controller/runs/RunWatch.h"
#include "ixocamglue/support/Problem.h"

namespace ixocontroller {

// What fails behind Start is said by Finish.
class IRunJob {
 public:
  virtual ~IRunJob() = default;
  virtual TResult<> Start() = 0;
  // With each look at the machine; false from the moment on at which it needs it no more.
  [[nodiscard]] virtual bool Pass(std::uint64_t run, std::uint64_t nowMs) = 0;
  // Once, behind that. `report` is what the runner has seen; how it ended is the job's to say. The answer is the run's
  // "result".
  [[nodiscard]] virtual nlohmann::ordered_json Finish(std::uint64_t run, TRunReport& report) = 0;
};

}  // namespace ixocontroller
