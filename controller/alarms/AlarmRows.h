// Alarms of a store and alarms that stand, as people and programs read them: with what their definitions say, in the
// language of the thread that shows them. Any thread. Nothing fails but what says so: an alarm without a definition is
// shown as it was stored.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "ixocamglue/alarms/store/AlarmHistory.h"

namespace ixocontroller {
using namespace ixocamglue;

// An alarm as it is shown: what the dictionary says of the identifier, behind its description the message's own in
// brackets, which may name an axis, a port or a value; everything as stored where it says nothing.
[[nodiscard]] TAlarmRow Translated(TAlarmRow row);

// "2026-01-01 08:00:00.000+08:00  [active]  1  TPLaser#1  L101  | Laser  | emission lost  | reason  | solution"; the
// time of this place.
[[nodiscard]] std::string AlarmLine(const TAlarmRow& row);
// "active", "cleared", "closed by a restart"; with ", by hand", ", acknowledged by NAME" and ", first" behind it.
[[nodiscard]] std::string AlarmState(const TAlarmRow& row);

// {"row", "level", "active", "first", "raised", ..., "solution"}
[[nodiscard]] nlohmann::ordered_json AlarmJson(const TAlarmRow& row);

// The texts of AlarmJson in its order, by their names.
struct TAlarmColumn {
  const char* Name;
  std::string TAlarmRow::*Text;
};
[[nodiscard]] const std::vector<TAlarmColumn>& AlarmColumns();

// {"raises", "active", "last10Min", ..., "floods", "chattering", "stale", "mostFrequent"}
[[nodiscard]] nlohmann::ordered_json StatsJson(const TAlarmStats& stats);

// A row with the level in front, parted by commas, and the head of such a table.
[[nodiscard]] std::string AlarmCsv(const TAlarmRow& row);
[[nodiscard]] std::string AlarmCsvHead();

struct TAlarmAsked {
  std::string Since;  // a moment; empty: from the first one on
  bool Active = false, History = false;
  std::optional<std::int64_t> Level;
  std::string Identifier;
};
// Throws EProblem (pbRequest) for what is no moment; `where` names it.
[[nodiscard]] TAlarmFilter FilterOf(const TAlarmAsked& asked, const char* where);

// [{"identifier", "code", "category", "type", "brief", "text", "reason", "solution"}] of each identifier that is
// defined, or of one; empty: all.
[[nodiscard]] nlohmann::ordered_json DefinitionsJson(const std::string& identifier);

}  // namespace ixocontroller
