// The line settings of an open serial port, all in one call of the driver: Asio sets one at a time, and neither any
// rate nor mark and space parity. Any thread, one at a time for a port. What the driver refuses is answered as a
// problem.
#pragma once

#include "ixocamglue/platform/comm/SerialSettings.h"

namespace ixocamglue {

// Raw mode, no flow control, the settings, both queues flushed; or what the driver refused.
[[nodiscard]] TResult<> SetUpLine(int fd, const TSerialSettings& settings);

}  // namespace ixocamglue
