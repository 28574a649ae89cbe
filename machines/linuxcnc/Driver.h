// The driver `linuxcnc`: axes, Z with its height follower, focus and the inputs and outputs of a machine that LinuxCNC
// moves. It links nothing of LinuxCNC: it speaks to linuxcncrsh and to ixocut-hal.
#pragma once

#include <memory>

#include "ixocamglue/platform/Driver.h"

namespace ixocamglue {

// "linuxcnc". Any thread makes one; what is wrong with a machine file or LinuxCNC is the factory's and the driver's to
// say, so that nothing of this fails.
[[nodiscard]] TDriverFactory LinuxcncDriver();

}  // namespace ixocamglue
