// Alarm definition lists on disk: the service that hands them to the interpreter, and the check that says what is wrong
// with one. The interpreter itself takes what it can and says nothing. Any thread. The service throws EProblem for a
// list that cannot be read; a check throws nothing and answers what it has found.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "ixocamglue/platform/ports/Alarmintf.h"
#include "ixocamglue/platform/xml/MachineConfig.h"
#include "ixocamglue/support/Problem.h"

namespace ixocamglue {

// Reads <language>.json of a folder, the language being the locale manager's. Any thread.
class TAlarmDefinitionFiles final : public IAlarmInterpreterSvc {
 public:
  // An empty folder name: no definitions.
  explicit TAlarmDefinitionFiles(std::filesystem::path folder) : FFolder(std::move(folder)) {}
  // Both throw std::runtime_error for a file that cannot be read.
  std::string GetAlarmDefinitions() override;
  std::string GetAlarmDefinitionsIn(std::string_view language) override;

 private:
  const std::filesystem::path FFolder;
};

// What is wrong with a definition list: at "LINE:COLUMN" for text that is no JSON, otherwise at "[INDEX] HelpID" with
// the entry's index from 0. Empty: nothing.
[[nodiscard]] std::vector<TProblem> CheckAlarmDefinitions(std::string_view json);

// The same for the alarms section of a machine configuration: at "Alarms/UserAlarm[2]/Number".
[[nodiscard]] std::vector<TProblem> CheckAlarmsSection(const TConfigSection& section);

}  // namespace ixocamglue
