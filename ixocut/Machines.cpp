#include "ixocut/Machines.h"

#include <utility>

#include "machines/simulated/Machine.h"

namespace ixocut {
namespace {

std::vector<TMachineFactory> GAdded;

}  // namespace

TAddedMachines::TAddedMachines(std::vector<TMachineFactory> machines) { GAdded = std::move(machines); }
TAddedMachines::~TAddedMachines() { GAdded.clear(); }

std::vector<TMachineFactory> Machines() {
  std::vector<TMachineFactory> machines{SimulatedMachine()};
  machines.insert(machines.end(), GAdded.begin(), GAdded.end());
  return machines;
}

std::vector<TMachineFault> MachineFaults() {
  std::vector<TMachineFault> faults;
  for (const TMachineFactory& machine : Machines())
    faults.insert(faults.end(), machine.Faults.begin(), machine.Faults.end());
  return faults;
}

}  // namespace ixocut
