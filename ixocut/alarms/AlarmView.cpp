#include "ixocut/alarms/AlarmView.h"

#include <iostream>

#include "controller/StateFolder.h"
#include "ixocamglue/alarms/Ualarmdefs.h"
#include "ixocamglue/platform/services/UtcTime.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Problem.h"
#include "ixocamglue/support/Texts.h"

namespace ixocut {
using namespace ixocontroller;

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
