#include "ixocut/alarms/AlarmView.h"

#include <iostream>

#include <nlohmann/json.hpp>

#include "controller/StateFolder.h"
#include "ixocamglue/alarms/Almintprt.h"
#include "ixocamglue/alarms/Ualarmdefs.h"
#include "ixocamglue/platform/services/UtcTime.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Problem.h"
#include "ixocamglue/support/Texts.h"

namespace ixocut {
using namespace ixocontroller;
namespace {

struct TColumn {
  const char* Name;
  std::string TAlarmRow::*Text;
};
constexpr TColumn kColumns[] = {{"raised", &TAlarmRow::Raised},
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

std::string Quoted(const std::string& text) {
  if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"') quoted += '"';
    quoted += c;
  }
  return quoted + '"';
}

}  // namespace

TAlarmRow Translated(TAlarmRow row) {
  const TAlarmInterpreter* const interpreter = AlarmInterpreter();
  TAlarmRec rec;
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

std::string ShownTime(const std::string& stored) {
  const auto moment = ParseMoment(stored);
  return moment ? FormatLocal(*moment) : stored;
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

nlohmann::ordered_json AlarmJson(const TAlarmRow& row) {
  nlohmann::ordered_json json{
      {"row", row.Row}, {"level", row.Level}, {"active", row.Active()}, {"first", row.FirstOut}};
  for (const TColumn& column : kColumns) json[column.Name] = row.*column.Text;
  return json;
}

std::string AlarmCsv(const TAlarmRow& row) {
  std::string line = std::to_string(row.Level);
  for (const TColumn& column : kColumns) line += "," + Quoted(row.*column.Text);
  return line;
}

std::string AlarmCsvHead() {
  std::string line = "level";
  for (const TColumn& column : kColumns) line += std::string(",") + column.Name;
  return line;
}

TAlarmLookup::TAlarmLookup(const std::string& language, const std::filesystem::path& machine)
    : FLocale(ShareFolder() / "locale") {
  if (!machine.empty()) FConfig.Load(machine).OrThrow(pbUnusable);
  FApp.Register(IID_IAlarmInterpreterSvc, std::make_shared<TAlarmDefinitionFiles>(ShareFolder() / "alarms"));
  FLibrary.emplace();
  if (const std::string problem = FLocaleManager.ChangeLanguage(language); !problem.empty())
    std::cerr << "ixocut alarms: " << problem << std::endl;
  for (const std::string& refused : FLibrary->LoadLocaleResources())
    std::cerr << "ixocut alarms: " << refused << std::endl;
}

}  // namespace ixocut
