// What a controller says of itself over the wire, as people read it in the language of the thread. Any thread. A member
// of another type throws nlohmann::json::exception; one that is missing is left out.
#pragma once

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace ixocontroller {

// A word of an answer (a state of the machine, the outcome of a run, what a job is at), in the operator's language.
[[nodiscard]] std::string ShownWord(const std::string& word);
// What GET status answers: a row for each thing, with its name in front.
[[nodiscard]] std::vector<std::vector<std::string>> StatusRows(const nlohmann::ordered_json& status);
// The same in one line: "procedure change-nozzle  3/7 Go to the slot, 1/2 Raise Z  X 100.00 ...".
[[nodiscard]] std::string StatusLine(const nlohmann::ordered_json& status);

}  // namespace ixocontroller
