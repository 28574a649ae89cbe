// The machines that the program can drive, by the name that a machine file gives ("Machine/Driver"); the first one
// stands where it gives none.
#pragma once

#include <vector>

#include "ixocamglue/platform/Driver.h"

namespace ixocut {
using namespace ixocamglue;

[[nodiscard]] std::vector<TMachineFactory> Machines();
// What a machine that is put together from its file may name.
[[nodiscard]] std::vector<TDriverFactory> Drivers();
// An application's machines, and drivers for machines that are put together from their file, behind the program's own,
// for the life of this object.
class TAddedMachines {
 public:
  explicit TAddedMachines(std::vector<TMachineFactory> machines, std::vector<TDriverFactory> drivers = {});
  ~TAddedMachines();
  TAddedMachines(const TAddedMachines&) = delete;
  TAddedMachines& operator=(const TAddedMachines&) = delete;
};
// The faults that they have on request.
[[nodiscard]] std::vector<TMachineFault> MachineFaults();

}  // namespace ixocut
