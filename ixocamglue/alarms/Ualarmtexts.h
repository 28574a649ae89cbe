// The operator texts of alarms/: catalogue section "CamGlue", the key is the constant's name.
#pragma once

#include "ixocamglue/support/Texts.h"

namespace ixocamglue {

inline constinit TText SAlarm{"CamGlue", "SAlarm", "报警"};  // the type of an alarm that nobody has defined
inline constinit TText SAlarmPrompt{"CamGlue", "SAlarmPrompt", "出现报警："};  // with its own colon
inline constinit TText SAlarmRemove{"CamGlue", "SAlarmRemove", "报警解除："};

inline constexpr auto kAlarmTexts = TextList(SAlarm, SAlarmPrompt, SAlarmRemove);

}  // namespace ixocamglue
