#include "commandline/Document.h"

#include <atomic>
#include <ostream>

#include <nlohmann/json.hpp>

#include "commandline/CommandLine.h"
#include "ixocamglue/support/JsonText.h"
#include "ixocamglue/support/Texts.h"

namespace ixocommandline {
namespace {

std::atomic<bool> GPrinted{false};

}  // namespace

TOption AddJsonOption(TCommand command, bool& json) {
  return command.Flag("--json", json, Tr("Print one JSON document instead of text"));
}

bool JsonAsked(int argc, const char* const* argv) {
  for (int i = 1; i < argc; ++i)
    if (std::string_view(argv[i]) == "--json") return true;
  return false;
}

void PrintDocument(std::ostream& out, std::string_view command, const nlohmann::ordered_json& result,
                   const std::optional<TProblem>& problem, bool lines) {
  const nlohmann::ordered_json document{{"command", command},
                                        {"ok", !problem},
                                        {"problem", problem ? ProblemJson(*problem) : nlohmann::ordered_json()},
                                        {"result", result}};
  out << document.dump(lines ? -1 : 2, ' ', false, nlohmann::json::error_handler_t::replace) << '\n' << std::flush;
  GPrinted = true;
}

bool DocumentPrinted() { return GPrinted.load(); }

}  // namespace ixocommandline
