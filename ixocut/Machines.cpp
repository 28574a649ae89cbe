#include "ixocut/Machines.h"

#include "machines/simulated/Machine.h"

namespace ixocut {

std::vector<TMachineFactory> Machines() { return {SimulatedMachine()}; }

std::vector<TMachineFault> MachineFaults() {
  std::vector<TMachineFault> faults;
  for (const TMachineFactory& machine : Machines())
    faults.insert(faults.end(), machine.Faults.begin(), machine.Faults.end());
  return faults;
}

}  // namespace ixocut
