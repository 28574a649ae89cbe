// The operator texts of the monitor files: catalogue section "Monitor", the key is the constant's name.
#pragma once

#include <span>

#include "ixocamglue/support/Texts.h"

namespace ixocamglue {

extern constinit TText SAxis;                  // an axis without a name is this and its number
extern constinit TText SNotSupportOldVersion;  // shown when a file of version 1.0 is opened
extern constinit TText SSampleTime;            // caption in expanded-data files
extern constinit TText SSignalPosition, SSignalSpeed, SSignalAcceleration, SSignalFollowingError, SSignalGasPressure;
extern constinit TText SSignalLaser, SSignalEmission, SSignalState, SSignalGasBranch;

[[nodiscard]] std::span<TText* const> MonitorTexts();

}  // namespace ixocamglue
