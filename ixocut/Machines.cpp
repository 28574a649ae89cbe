#include "ixocut/Machines.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "machines/composed/Machine.h"
#include "machines/linuxcnc/Driver.h"
#include "machines/modbus/Driver.h"
#include "machines/simulated/Driver.h"
#include "machines/simulated/Machine.h"

namespace ixocut {
namespace {

std::vector<TMachineFactory> GAdded;
std::vector<TDriverFactory> GAddedDrivers;

}  // namespace

std::vector<TDriverFactory> Drivers() {
  std::vector<TDriverFactory> drivers{SimulatedDriver(), LinuxcncDriver(), ModbusDriver()};
  drivers.insert(drivers.end(), GAddedDrivers.begin(), GAddedDrivers.end());
  return drivers;
}

TAddedMachines::TAddedMachines(std::vector<TMachineFactory> machines, std::vector<TDriverFactory> drivers) {
  GAdded = std::move(machines);
  GAddedDrivers = std::move(drivers);
}
TAddedMachines::~TAddedMachines() {
  GAdded.clear();
  GAddedDrivers.clear();
}

std::vector<TMachineFactory> Machines() {
  std::vector<TMachineFactory> machines{SimulatedMachine(), ComposedMachine(Drivers())};
  machines.insert(machines.end(), GAdded.begin(), GAdded.end());
  return machines;
}

std::vector<TMachineFault> MachineFaults() {
  std::vector<TMachineFault> faults;
  for (const TMachineFactory& machine : Machines())
    for (const TMachineFault& fault : machine.Faults)
      if (std::ranges::find(faults, std::string_view(fault.Name), &TMachineFault::Name) == faults.end())
        faults.push_back(fault);
  return faults;
}

}  // namespace ixocut
