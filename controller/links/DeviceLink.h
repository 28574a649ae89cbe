// What the commands and pages about device links say of a request. Any thread; nothing throws.
#pragma once

#include <cstdint>
#include <string>

#include "ixocamglue/devcomm/Udevicelink.h"
#include "ixocamglue/devcomm/Udevthrdcomm.h"
#include "ixocamglue/support/Problem.h"

namespace ixocontroller {
using namespace ixocamglue;

// "01 03 00 10"
[[nodiscard]] std::string SpacedHex(const TBytes& bytes);
// Of a request that did not end well.
[[nodiscard]] TProblem ProblemOf(const TModbusResult& result, const TLinkAddress& link, std::uint8_t unit);

}  // namespace ixocontroller
