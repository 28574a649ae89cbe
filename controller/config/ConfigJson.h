// Properties and findings of a machine file as programs read them. Any thread. Nothing here fails.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "controller/config/ConfigCheck.h"
#include "controller/config/ConfigView.h"
#include "controller/config/MachineFile.h"

namespace ixocontroller {

// A value of the property as a number, a Boolean or a text.
[[nodiscard]] nlohmann::ordered_json JsonOf(const TPropertyView& view, const std::string& text);
// {"path", "type", "default", "range", "unit", "text"}: what its record's line says.
[[nodiscard]] nlohmann::ordered_json JsonFacts(const TPropertyView& view);
// {"place", "path", "text"} of each.
[[nodiscard]] nlohmann::ordered_json JsonOf(const std::vector<TConfigFinding>& findings);
// {"path", "from", "to"} of each; null: missing.
[[nodiscard]] nlohmann::ordered_json JsonOf(const std::vector<TConfigDifference>& differences);
// {"Supervisor/StepMs": 1000}
[[nodiscard]] nlohmann::ordered_json JsonOf(const std::vector<const TSupervisorConfig::TRow*>& defaulted);
// A JSON value as the file has it; none of an array or object. A text stays as it is.
[[nodiscard]] std::optional<std::string> ValueOf(const nlohmann::json& value);

}  // namespace ixocontroller
