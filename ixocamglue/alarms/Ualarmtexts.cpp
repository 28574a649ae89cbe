#include "ixocamglue/alarms/Ualarmtexts.h"

namespace ixocamglue {

constinit TText SAlarm{"CamGlue", "SAlarm", "报警"};
constinit TText SAlarmPrompt{"CamGlue", "SAlarmPrompt", "出现报警："};
constinit TText SAlarmRemove{"CamGlue", "SAlarmRemove", "报警解除："};

std::span<TText* const> AlarmTexts() {
  static constexpr TText* kTexts[] = {&SAlarm, &SAlarmPrompt, &SAlarmRemove};
  return kTexts;
}

}  // namespace ixocamglue
