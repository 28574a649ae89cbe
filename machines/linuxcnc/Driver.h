// The driver `linuxcnc`: axes, Z with its height follower, focus and the inputs and outputs of a machine that LinuxCNC
// moves. It links nothing of LinuxCNC: it speaks to linuxcncrsh and to ixocut-hal.
#pragma once

#include <memory>

#include "ixocamglue/platform/Driver.h"

namespace ixocamglue {

[[nodiscard]] TDriverFactory LinuxcncDriver();

}  // namespace ixocamglue
