// The names by which people know keys, forms, states and alarms of the panel. Any thread. What is no such name is a
// problem that says which there are; nothing throws.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "controller/Controller.h"
#include "ixocamglue/panel/Kbpkeys.h"
#include "ixocamglue/platform/ports/CutStates.h"

namespace ixocontroller {
using namespace ixocamglue;

// What is refused names the nearest name there is.
[[nodiscard]] TResult<TKeyCode> ParseKey(std::string_view text);  // "CK_LASER", "laser"
[[nodiscard]] TResult<> CheckForm(std::string_view form);         // case counts
// A state by number or name ("paused").
[[nodiscard]] TResult<std::int32_t> ParseState(const std::string& text);
// A number of the alarms that can be raised by hand, or an identifier ("TPLaser#1") that the machine, the controller or
// the definitions know; as it would be raised. What nobody has registered forbids nothing.
[[nodiscard]] TResult<TNcAlarmRecord> ParseAlarm(TController& session, const std::string& text);
// The same by what the machine and the controller have registered (TNcAlarmManager::Registered, which waits while a
// source is asked).
[[nodiscard]] TResult<TNcAlarmRecord> ParseAlarm(std::vector<TNcAlarmRecord> registered, const std::string& text);
// Everything that can be raised here with what it forbids: by hand, by a registered source, by the controller itself.
[[nodiscard]] std::vector<TNcAlarmRecord> RaisedAlarms(std::vector<TNcAlarmRecord> registered);
// All that ParseAlarm knows, each once, described in the thread's language.
[[nodiscard]] std::vector<TNcAlarmRecord> KnownAlarms(std::vector<TNcAlarmRecord> registered);

// "101 (Laser source fault), ..."
[[nodiscard]] std::string HandAlarmList();
[[nodiscard]] std::string KeyNames(TKeyMask keys);      // "CK_LASER CK_GAS"; "-" for none
[[nodiscard]] const char* ShownKey(TKeyCode key);       // the label, in the operator's language
[[nodiscard]] const char* ShownState(TCutState state);  // in the operator's language

}  // namespace ixocontroller
