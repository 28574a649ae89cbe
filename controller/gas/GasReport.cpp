#include "controller/gas/GasReport.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <utility>

#include <nlohmann/json.hpp>

#include "controller/texts/GasTexts.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

constexpr std::pair<const char*, TGasEnd> kEndNames[] = {
    {"unfinished", TGasEnd::Unfinished}, {"skipped", TGasEnd::Skipped}, {"failed", TGasEnd::Failed},
    {"restored", TGasEnd::Restored},     {"unsaved", TGasEnd::Unsaved}, {"stored", TGasEnd::Stored}};

const char* NameOf(TGasEnd end) {
  for (const auto& [name, known] : kEndNames)
    if (known == end) return name;
  return "";
}

TIncList ListOf(const TDAAdjustTable& table) {
  TIncList list;
  for (const TDot& dot : DotsOf(table)) list.AddItem(dot);
  return list;
}

// Of either.
std::vector<double> AllVolts(const TIncList& a, const TIncList& b) {
  std::vector<double> volts;
  for (const TIncList* const list : {&a, &b})
    for (const TDot& dot : list->Dots()) volts.push_back(dot.X);
  std::ranges::sort(volts);
  const auto same = [](double x, double y) { return std::abs(x - y) <= Epsilon_Voltage; };
  volts.erase(std::unique(volts.begin(), volts.end(), same), volts.end());
  return volts;
}

}  // namespace

TResult<std::vector<std::int32_t>> ParseGases(const std::vector<std::string>& names) {
  std::vector<std::int32_t> gases;
  for (const std::string& name : names) {
    const std::int32_t gas = AskedGasType(name);
    if (gas < 0) return TProblem{.What = Format(Tr("\"%s\" is no gas"), name.c_str()), .Remedy = Tr(kGasHelp)};
    if (std::ranges::find(gases, gas) != gases.end())
      return TProblem{.What = Format(Tr("%s is there twice"), name.c_str())};
    gases.push_back(gas);
  }
  if (gases.empty()) return TProblem{.What = Tr("no gas is named"), .Remedy = Tr(kGasHelp)};
  return gases;
}

TResult<> CheckNozzle(const TGasNozzle& nozzle) {
  if (nozzle.Type.empty()) return TProblem{.What = Tr("the type is empty")};
  if (!(nozzle.Size > 0.0 && nozzle.Size <= kLargestNozzleMm))
    return TProblem{.What = Format(Tr("\"%s\" is no diameter above 0 to 100 mm"), Format("%g", nozzle.Size).c_str())};
  return {};
}

std::string ShownGas(std::int32_t gasType) {
  static constexpr const TText* kNames[] = {&SGasAir, &SGasO2, &SGasN2, &SGasHAir, &SGasHO2, &SGasHN2};
  const TGasTypeDic* const gases = GasTypeDic();  // none without a machine file
  if (const std::int32_t index = gases ? gases->IndexOfValue(gasType) : -1; index >= 0) return gases->GetDesc(index);
  const auto row = static_cast<std::size_t>(gasType) - 1;
  return row < std::size(kNames) ? kNames[row]->Get() : GasName(gasType);
}

const TText& TextOf(TGasEnd end) {
  switch (end) {
    case TGasEnd::Skipped: return SGasSkipped;
    case TGasEnd::Failed: return SGasFailed;
    case TGasEnd::Restored: return SGasRestored;
    case TGasEnd::Unsaved: return SGasUnsaved;
    case TGasEnd::Stored: return SGasOk;
    case TGasEnd::Unfinished: break;
  }
  return SGasUnfinished;
}

nlohmann::ordered_json FindingsJson(const std::vector<TGasFinding>& findings) {
  auto json = nlohmann::ordered_json::array();
  for (const auto& finding : findings)
    json.push_back({{"kind", finding.Kind},
                    {"bad", finding.Bad},
                    {"doubt", finding.Doubt},
                    {"figure", finding.Figure},
                    {"unit", finding.Unit},
                    {"text", finding.Sentence}});
  return json;
}

nlohmann::ordered_json JsonOf(const TGasResult& result) {
  auto points = nlohmann::ordered_json::array();
  for (const TGasPoint& point : result.Points)
    if (point.Settled)
      points.push_back({{"volt", point.Volt},
                        {"bar", point.Press},
                        {"atMs", point.AtMs},
                        {"stableMs", point.StableMs},
                        {"riseMs", point.RiseMs}});
  nlohmann::ordered_json json{{"gas", GasName(result.Gas)},
                              {"result", NameOf(result.End)},
                              {"durationMs", result.DurationMs},
                              {"maxBar", result.MaxBar()},
                              {"kneeVolt", nullptr},
                              {"points", std::move(points)},
                              {"curve", JsonOf(result.Curve)},
                              {"good", !result.Stopped && !result.Findings.empty() && !FirstBad(result.Findings)},
                              {"findings", FindingsJson(result.Findings)}};
  if (result.Knee) json["kneeVolt"] = *result.Knee;
  if (!result.Why.empty()) json["why"] = result.Why;
  return json;
}

TGasResult GasResultFromJson(const nlohmann::ordered_json& json) {
  TGasResult result;
  result.Gas = AskedGasType(json.at("gas").get<std::string>());
  for (const auto& [name, end] : kEndNames)
    if (json.at("result") == name) result.End = end;
  json.at("durationMs").get_to(result.DurationMs);
  if (!json.at("kneeVolt").is_null()) result.Knee = json.at("kneeVolt").get<double>();
  for (const auto& point : json.at("points"))
    result.Points.push_back({.Volt = point.at("volt"), .Settled = true, .Press = point.at("bar")});
  for (const auto& dot : json.at("curve")) result.Curve.push_back({dot.at("volt"), dot.at("bar")});
  for (const auto& finding : json.at("findings"))
    result.Findings.push_back({.Kind = finding.at("kind").get_ref<const std::string&>().c_str(),
                               .Bad = finding.at("bad"),
                               .Doubt = finding.at("doubt"),
                               .Sentence = finding.at("text")});
  return result;
}

void AddSamples(TGasResult& result, const TGasRecording& recording) {
  for (const TRecordedGas& gas : recording.Gases) {
    if (gas.GasType != result.Gas) continue;
    result.Points.clear();
    for (const TRecordedGasPoint& point : gas.Points)
      if (!point.Descending)
        result.Points.push_back({.Volt = point.Volt,
                                 .Settled = point.Settled.has_value(),
                                 .Foreseen = point.Foreseen,
                                 .Press = point.Settled.value_or(0.0),
                                 .Samples = point.Samples});
  }
}

TTableDifference CompareTables(const TDAAdjustTable& stored, const TDAAdjustTable& used) {
  const TIncList a = ListOf(stored), b = ListOf(used);
  TTableDifference difference{.Equal = a.Dots() == b.Dots(), .LargestBar = 0.0, .Points = {}};
  for (const double volt : AllVolts(a, b)) {
    difference.Points.push_back({volt, a.GetY(volt), b.GetY(volt)});
    difference.LargestBar = std::max(difference.LargestBar, std::abs(difference.Points.back().Bar()));
  }
  return difference;
}

std::vector<TStoredTable> StoredTables(TGasCaliConfig& stored, const std::vector<std::int32_t>& gases,
                                       std::string_view nozzle, double size) {
  constexpr double kSameSize = 1e-12;
  std::vector<TStoredTable> tables;
  for (const std::int32_t gas : gases) {
    const TGasBraCaliConfig* const branch = stored.GetGasConfig(gas);
    if (!branch) continue;
    for (const auto& item : branch->Items())
      if ((nozzle.empty() || item->NozzType == nozzle) &&
          (!(size > 0.0) || std::abs(item->NozzSize - size) <= kSameSize))
        tables.push_back({gas, item.get()});
  }
  return tables;
}

std::vector<TDot> DotsOf(const TDAAdjustTable& table) {
  std::vector<TDot> dots;
  dots.reserve(static_cast<std::size_t>(table.GetCount()));
  for (std::int32_t i = 0; i < table.GetCount(); ++i) dots.push_back({table.GetItem(i)->Volt, table.GetItem(i)->Press});
  return dots;
}

nlohmann::ordered_json JsonOf(const std::vector<TDot>& dots) {
  auto json = nlohmann::ordered_json::array();
  for (const TDot& dot : dots) json.push_back({{"volt", dot.X}, {"bar", dot.Y}});
  return json;
}

nlohmann::ordered_json JsonOf(const TStoredTable& table) {
  return {{"gas", GasName(table.Gas)},
          {"nozzle", table.Item->NozzType},
          {"size", table.Item->NozzSize},
          {"record", table.Item->RecordData},
          {"points", JsonOf(DotsOf(table.Item->DAAdjustTable))}};
}

}  // namespace ixocontroller
