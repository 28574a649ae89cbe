// The operator texts of the panel and knob commands: catalogue section "IxoCut", the key is the constant's name.
#pragma once

#include <span>

#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
using namespace ixocamglue;

extern constinit TText SPanelStale;
extern constinit TText SJogTooLow, SJogOrder, SJogTooHigh;
// The alarms that can be raised by hand.
extern constinit TText SAlarmLaserSource, SAlarmGasPressure, SAlarmFollower, SAlarmLimitX, SAlarmNotHomed, SAlarmDrive;

[[nodiscard]] std::span<TText* const> PanelTexts();

}  // namespace ixocontroller
