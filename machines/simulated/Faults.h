// The faults that the simulated machine has on request, by name: one table, in the order in which people look them up.
// Any thread.
#pragma once

#include <span>
#include <string_view>

#include "ixocamglue/platform/Machine.h"

namespace ixocamglue {

class TSimMachine;

[[nodiscard]] std::span<const TMachineFault> SimFaults();
bool InjectSimFault(TSimMachine& machine, std::string_view name);  // false: unknown

// What happens to a device while somebody looks on, or ends: an "axis" leaves its range, "gas" has no supply,
// "emission" is lost, of a "device" a call throws. Its alarms are its own. False: there is no such device.
bool SetSimTrouble(TSimMachine& machine, std::string_view device, bool fails);

}  // namespace ixocamglue
