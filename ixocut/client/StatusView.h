// What a controller says of itself, as people read it.
#pragma once

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace ixocut {

// A word of an answer (a state of the machine, the outcome of a run, what a job is at), in the operator's language.
[[nodiscard]] std::string ShownWord(const std::string& word);
// "3/7 Go to the slot, 1/2 Raise Z"; empty: no step stands.
[[nodiscard]] std::string PathText(const nlohmann::ordered_json& path);
// "procedure change-nozzle", "standby"; all that keeps it from working behind.
[[nodiscard]] std::string StateText(const nlohmann::ordered_json& status);
// `ixocut status`, a line for each thing.
[[nodiscard]] std::vector<std::string> StatusLines(const nlohmann::ordered_json& status);
// The same in one line.
[[nodiscard]] std::string StatusLine(const nlohmann::ordered_json& status);

}  // namespace ixocut
