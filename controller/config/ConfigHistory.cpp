#include "controller/config/ConfigHistory.h"

#include <algorithm>
#include <fstream>

#include <nlohmann/json.hpp>

#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/platform/services/UtcTime.h"
#include "ixocamglue/platform/xml/FileLayer.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
using namespace ixocamglue;
namespace {

constexpr const char* kOlder = ".old";

std::string LineOf(const nlohmann::ordered_json& json) {
  return json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

// A crash has cut the last line.
bool EndsWithin(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::ate | std::ios::binary);
  return in && in.tellg() > 0 && in.seekg(-1, std::ios::end) && in.get() != '\n';
}

}  // namespace

nlohmann::ordered_json TConfigHistory::Read(std::size_t most) const {
  auto entries = nlohmann::ordered_json::array();
  std::ifstream in(FFile);
  for (std::string line; std::getline(in, line);)
    if (auto entry = nlohmann::ordered_json::parse(line, nullptr, false); entry.is_object())
      entries.push_back(std::move(entry));
  if (entries.size() > most) entries.erase(entries.begin(), entries.end() - static_cast<std::ptrdiff_t>(most));
  return entries;
}

void TConfigHistory::Add(const TConfigChange& change) {
  const auto text = [](const std::string& value) { return value.substr(0, kMostText); };
  const nlohmann::ordered_json entry{{"at", FormatUtc(UtcNow())}, {"who", change.Who},         {"what", change.What},
                                     {"path", change.Path},       {"from", text(change.From)}, {"to", text(change.To)}};
  std::error_code error;
  if (const auto size = std::filesystem::file_size(FFile, error); !error && size > kMostBytes) {
    std::string bytes;
    for (const auto& kept : Read(kKept)) bytes += LineOf(kept);
    if (const auto replaced = ReplaceFile(FFile.string(), bytes, kOlder); !replaced.Done)
      return LogMsg(lkWarning, 0, replaced.Problem, "TPHost");
  }
  std::ofstream out(FFile, std::ios::app);
  out << (EndsWithin(FFile) ? "\n" : "") << LineOf(entry) << std::flush;
  if (!out) LogMsg(lkWarning, 0, Format(Tr("%s: the change could not be noted"), FFile.c_str()), "TPHost");
}

}  // namespace ixocontroller
