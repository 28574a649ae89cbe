#include "controller/alarms/AlarmRows.h"

#include <nlohmann/json.hpp>

#include "ixocamglue/alarms/Almintprt.h"
#include "ixocamglue/platform/services/LocaleManager.h"
#include "ixocamglue/platform/services/UtcTime.h"
#include "ixocamglue/support/Csv.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {

TAlarmRow Translated(TAlarmRow row) {
  const TAlarmInterpreter* const interpreter = AlarmInterpreter();
  TAlarmRec rec;
  row.Description = Retold(row.Description);
  if (!interpreter || !interpreter->TryGetAlarmRec(row.Identifier, rec)) return row;
  row.Code = rec.Code;
  row.Module = rec.Category;
  row.Type = rec.Alarmtype;
  if (!rec.AlarmDesc.empty() && rec.AlarmDesc != row.Description)
    row.Description = row.Description.empty() ? rec.AlarmDesc : rec.AlarmDesc + " (" + row.Description + ")";
  row.Reason = rec.Reason;
  row.Solution = rec.Solution;
  return row;
}

std::string AlarmState(const TAlarmRow& row) {
  std::string state = row.Active()               ? Tr("active")
                      : row.Mark == kMarkRestart ? Tr("closed by a restart")
                                                 : Tr("cleared");
  if (row.Mark == kMarkOperator) state += Tr(", by hand");
  if (!row.Acknowledged.empty()) state += Format(Tr(", acknowledged by %s"), row.ByWhom.c_str());
  if (row.FirstOut) state += Tr(", first");
  return state;
}

std::string AlarmLine(const TAlarmRow& row) {
  std::string line = Format("%s  [%s]  %lld  %s  %s", ShownTime(row.Raised).c_str(), AlarmState(row).c_str(),
                            static_cast<long long>(row.Level), row.Identifier.c_str(), row.Code.c_str());
  for (const std::string* const text : {&row.Module, &row.Description, &row.Reason, &row.Solution})
    line += "  | " + *text;
  return line;
}

const std::vector<TAlarmColumn>& AlarmColumns() {
  static const std::vector<TAlarmColumn> columns = {{"raised", &TAlarmRow::Raised},
                                                    {"cleared", &TAlarmRow::Cleared},
                                                    {"acknowledged", &TAlarmRow::Acknowledged},
                                                    {"byWhom", &TAlarmRow::ByWhom},
                                                    {"mark", &TAlarmRow::Mark},
                                                    {"identifier", &TAlarmRow::Identifier},
                                                    {"code", &TAlarmRow::Code},
                                                    {"module", &TAlarmRow::Module},
                                                    {"type", &TAlarmRow::Type},
                                                    {"description", &TAlarmRow::Description},
                                                    {"reason", &TAlarmRow::Reason},
                                                    {"solution", &TAlarmRow::Solution}};
  return columns;
}

nlohmann::ordered_json AlarmJson(const TAlarmRow& row) {
  nlohmann::ordered_json json{
      {"row", row.Row}, {"level", row.Level}, {"active", row.Active()}, {"first", row.FirstOut}};
  for (const TAlarmColumn& column : AlarmColumns()) json[column.Name] = row.*column.Text;
  return json;
}

nlohmann::ordered_json StatsJson(const TAlarmStats& stats) {
  nlohmann::ordered_json json{{"raises", stats.Raises},
                              {"active", stats.Active},
                              {"last10Min", stats.LastSpan},
                              {"per10Min", stats.PerSpan},
                              {"busiest10Min", stats.BusiestSpan},
                              {"floods", nlohmann::ordered_json::array()},
                              {"chattering", nlohmann::ordered_json::array()},
                              {"stale", nlohmann::ordered_json::array()},
                              {"mostFrequent", nlohmann::ordered_json::array()}};
  for (const auto& flood : stats.Floods)
    json["floods"].push_back({{"from", flood.From}, {"to", flood.To}, {"raises", flood.Raises}});
  for (const auto& count : stats.Chattering)
    json["chattering"].push_back({{"identifier", count.Identifier}, {"raisesIn60s", count.Raises}});
  for (const auto& row : stats.Stale) json["stale"].push_back({{"identifier", row.Identifier}, {"raised", row.Raised}});
  for (const auto& count : stats.Frequent)
    json["mostFrequent"].push_back({{"identifier", count.Identifier}, {"raises", count.Raises}});
  return json;
}

TAlarmFilter FilterOf(const TAlarmAsked& asked, const char* where) {
  TAlarmFilter filter;
  if (!asked.Since.empty()) filter.Since = AskedMoment(asked.Since, where);
  if (asked.Active != asked.History)
    filter.What = asked.Active ? TAlarmFilter::TWhat::Active : TAlarmFilter::TWhat::History;
  filter.Level = asked.Level;
  filter.Identifier = asked.Identifier;
  return filter;
}

nlohmann::ordered_json DefinitionsJson(const std::string& identifier) {
  auto list = nlohmann::ordered_json::array();
  const TAlarmInterpreter* const interpreter = AlarmInterpreter();
  if (!interpreter) return list;
  for (const std::string& known : identifier.empty() ? interpreter->Identifiers() : std::vector{identifier}) {
    TAlarmRec rec;
    if (!interpreter->TryGetAlarmRec(known, rec)) continue;
    list.push_back({{"identifier", rec.HelpID},
                    {"code", rec.Code},
                    {"category", rec.Category},
                    {"type", rec.Alarmtype},
                    {"brief", rec.BrifDesc},
                    {"text", rec.AlarmDesc},
                    {"reason", rec.Reason},
                    {"solution", rec.Solution}});
  }
  return list;
}

std::string AlarmCsv(const TAlarmRow& row) {
  std::string line = std::to_string(row.Level);
  for (const TAlarmColumn& column : AlarmColumns()) line += "," + CsvField(row.*column.Text);
  return line;
}

std::string AlarmCsvHead() {
  std::string line = "level";
  for (const TAlarmColumn& column : AlarmColumns()) line += std::string(",") + column.Name;
  return line;
}

}  // namespace ixocontroller
