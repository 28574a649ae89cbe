// The operator texts of alarms/: catalogue section "CamGlue", the key is the constant's name.
#pragma once

#include <span>

#include "ixocamglue/support/Texts.h"

namespace ixocamglue {

extern constinit TText SAlarm;        // the type of an alarm that nobody has defined
extern constinit TText SAlarmPrompt;  // with its own colon
extern constinit TText SAlarmRemove;

[[nodiscard]] std::span<TText* const> AlarmTexts();

}  // namespace ixocamglue
