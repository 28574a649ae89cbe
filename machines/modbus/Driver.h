// The driver "modbus": inputs, outputs and analogue values of devices on Modbus TCP or RTU, by the addresses of
// Address.h, on the stations of the section <Modbus>. Real time only. It has points and no devices of its own.
#pragma once

#include "ixocamglue/platform/Driver.h"

namespace ixocamglue {

// "modbus"
[[nodiscard]] TDriverFactory ModbusDriver();

}  // namespace ixocamglue
