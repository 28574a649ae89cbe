// The driver "modbus": inputs, outputs and analogue values of devices on Modbus TCP or RTU, by addresses such as
// "io:coil:3", on the stations of the section <Modbus>. Real time only. It has points and no devices of its own.
#pragma once

#include "ixocamglue/platform/Driver.h"

namespace ixocamglue {

// "modbus". Any thread makes one; what is wrong with a machine file or a station is the factory's and the driver's to
// say, so that nothing of this fails.
[[nodiscard]] TDriverFactory ModbusDriver();

}  // namespace ixocamglue
