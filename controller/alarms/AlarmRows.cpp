#include "controller/alarms/AlarmRows.h"

#include <nlohmann/json.hpp>

#include "ixocamglue/alarms/Almintprt.h"
#include "ixocamglue/platform/services/LocaleManager.h"
#include "ixocamglue/platform/services/UtcTime.h"
#include "ixocamglue/support/Csv.h"

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
