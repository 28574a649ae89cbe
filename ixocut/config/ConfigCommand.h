// `ixocut config` and `ixocut info`: the machine file, checked, shown and edited, and what the library makes of it.
#pragma once

#include <filesystem>
#include <initializer_list>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "controller/config/ConfigCheck.h"
#include "controller/config/ConfigView.h"
#include "ixocamglue/panel/Kbpkeys.h"
#include "ixocamglue/platform/alarms/AlarmsConfig.h"
#include "ixocamglue/platform/xml/JogSections.h"
#include "ixocamglue/platform/xml/MachineConfig.h"
#include "ixocamglue/support/Problem.h"
#include "machines/simulated/Config.h"

namespace ixocut {
using namespace ixocamglue;
using namespace ixocontroller;

// With every section that the program reads. To check, show and edit only: the process that runs a machine keeps its
// own record of the jog and alarm sections.
class TWholeConfig final : public TMachineConfig {
 public:
  TWholeConfig();
  ~TWholeConfig() override { Die(); }
  void Publish(TPublisher& p) override;

 private:
  TMachineRecord FMachine;
  TSimulatorRecord FSimulator;
  TJogRecord FJog;
  TAlarmsRecord* FAlarms = nullptr;
  TKeyDefinitionRecord* FKeys = nullptr;
};

// A machine configuration with every section that the program knows, installed while it lives.
class TMachineFile {
 public:
  TMachineFile();
  ~TMachineFile();
  TMachineFile(const TMachineFile&) = delete;
  TMachineFile& operator=(const TMachineFile&) = delete;
  // Throws EProblem, exit code 3, when the file cannot be loaded.
  void Load(const std::filesystem::path& file, TXmlDetail detail = xdValues);
  // Before the load of a file that is to be changed. Throws EProblem: exit code 1 when another process keeps it to
  // itself for longer than 2 s, 3 when it cannot be locked.
  void Hold(const std::filesystem::path& file);
  TMachineConfig& Config() { return FConfig; }
  // What is wrong with a file of this content, which has the configuration's values.
  [[nodiscard]] std::vector<TConfigFinding> Findings(const TXmlDocument& document);
  // What would be wrong with the file if it were saved now; the configuration has no document from here on.
  [[nodiscard]] std::vector<TConfigFinding> FindingsWhenSaved();
  // What is wrong in these sections, or with these properties; "" is everything.
  [[nodiscard]] std::vector<TConfigFinding> Wrong(std::initializer_list<std::string_view> sections);

 private:
  TWholeConfig FConfig;
  TInstalled<TMachineConfig> FInstalled{FConfig};
};

// {"place", "path", "text"} of each.
[[nodiscard]] nlohmann::ordered_json JsonOf(const std::vector<TConfigFinding>& findings);
// A line for each on the error output.
void TellWrong(const std::filesystem::path& file, const std::vector<TConfigFinding>& wrong);

struct TSetting {
  bool Force = false;  // also a value that `check` would name
  bool Json = false;
};

// Each returns the exit code and throws EProblem.
[[nodiscard]] int RunConfigCheck(const std::filesystem::path& file, bool all, bool json, std::ostream& out);
[[nodiscard]] int RunConfigShow(const std::filesystem::path& file, const std::string& section, bool json,
                                std::ostream& out);
[[nodiscard]] int RunConfigGet(const std::filesystem::path& file, const std::string& path, bool json,
                               std::ostream& out);
[[nodiscard]] int RunConfigSet(const std::filesystem::path& file, const std::string& path, const std::string& value,
                               TSetting setting, std::ostream& out);
[[nodiscard]] int RunConfigDiff(const std::filesystem::path& a, const std::filesystem::path& b, bool json,
                                std::ostream& out);
[[nodiscard]] int RunConfigSchema(bool json, std::ostream& out);
[[nodiscard]] int RunConfigRestore(const std::filesystem::path& file, bool json, std::ostream& out);
[[nodiscard]] int RunInfo(const std::filesystem::path& file, const std::string& language, bool json, std::ostream& out);

}  // namespace ixocut
