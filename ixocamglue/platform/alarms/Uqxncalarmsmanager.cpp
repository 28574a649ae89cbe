#include "ixocamglue/platform/alarms/Uqxncalarmsmanager.h"

namespace ixocamglue {

void TNcAlarmMsg::InitAlarmMsg(const TNcAlarmRecord& record) {
  Level = record.Level();
  Texts = TNcAlarmTexts(record.Identifier(), record.Desc);
  Time = record.Time;
  Attrs = record.Attrs;
  Word = static_cast<std::uint32_t>(record.Serial);
}

}  // namespace ixocamglue
