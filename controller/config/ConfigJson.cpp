#include "controller/config/ConfigJson.h"

#include <nlohmann/json.hpp>

namespace ixocontroller {

nlohmann::ordered_json JsonOf(const TPropertyView& view, const std::string& text) {
  if (view.Type == "Boolean") return text == "True";
  if (view.Type == "string") return text;
  auto number = nlohmann::ordered_json::parse(text, nullptr, false);
  return number.is_number() ? std::move(number) : nlohmann::ordered_json(text);
}

nlohmann::ordered_json JsonFacts(const TPropertyView& view) {
  nlohmann::ordered_json row{{"path", view.Path}, {"type", view.Type}, {"default", JsonOf(view, view.Default)}};
  if (!view.RangeText().empty()) row["range"] = view.RangeText();
  if (!view.Unit().empty()) row["unit"] = view.Unit();
  row["text"] = view.Text();
  return row;
}

nlohmann::ordered_json JsonOf(const std::vector<TConfigFinding>& findings) {
  auto list = nlohmann::ordered_json::array();
  for (const TConfigFinding& finding : findings)
    list.push_back({{"place", finding.Place}, {"path", finding.Path}, {"text", finding.Text}});
  return list;
}

nlohmann::ordered_json JsonOf(const std::vector<TConfigDifference>& differences) {
  const auto shown = [](const TPropertyView* at) { return at ? JsonOf(*at, at->Value) : nlohmann::ordered_json(); };
  auto list = nlohmann::ordered_json::array();
  for (const TConfigDifference& difference : differences)
    list.push_back({{"path", difference.Path()}, {"from", shown(difference.From)}, {"to", shown(difference.To)}});
  return list;
}

nlohmann::ordered_json JsonOf(const std::vector<const TSupervisorConfig::TRow*>& defaulted) {
  auto values = nlohmann::ordered_json::object();
  for (const auto* const row : defaulted) values["Supervisor/" + std::string(row->Name.Text)] = row->Default;
  return values;
}

std::optional<std::string> ValueOf(const nlohmann::json& value) {
  if (value.is_string()) return value.get<std::string>();
  if (value.is_boolean()) return ValueText(value.get<bool>());
  if (value.is_number_integer()) return value.dump();
  if (value.is_number()) return ValueText(value.get<double>());
  return std::nullopt;
}

}  // namespace ixocontroller
