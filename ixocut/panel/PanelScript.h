// A panel script: presses, releases, forms, alarms and times, a line each, run in virtual time.
#pragma once

#include <filesystem>
#include <iosfwd>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "controller/panel/PanelHost.h"

namespace ixocut {
using namespace ixocamglue;
using namespace ixocontroller;

struct TScriptLine {
  int Number = 0;  // in its file
  std::vector<std::string> Words;
};

// The steps of a script, for the help page.
[[nodiscard]] std::string ScriptHelp();

// Reads and checks the whole file, before its first line runs. Throws EProblem with file, line and reason.
[[nodiscard]] std::vector<TScriptLine> ReadScript(const std::filesystem::path& file);
// The alarms that it raises, which only a controller knows. Throws likewise.
void CheckScriptAlarms(const std::filesystem::path& file, const std::vector<TScriptLine>& lines, TController& session);

class TPanelScript {
 public:
  // `out` gets the story as text; null: none. Both outlive the script.
  TPanelScript(TPanelHost& host, std::ostream* out);

  void Run(const std::vector<TScriptLine>& lines);
  // The LED picture and the published masks at this moment.
  void ShowLeds();
  // Everything that happened, in order.
  [[nodiscard]] const nlohmann::ordered_json& Events() const { return FEvents; }

 private:
  void Step(const TScriptLine& line);
  void Press(TKeyCode key, std::int32_t param);
  void RunFor(std::uint64_t ms);
  void TellMachine();
  void Tell(const char* what, const std::string& text, bool shown = true);

  TPanelHost& FHost;
  std::ostream* const FOut;
  nlohmann::ordered_json FEvents = nlohmann::ordered_json::array();
  std::size_t FToldEntries = 0;
  std::uint64_t FStartMs;
  TNcWindows::THandle FWindow = 0;
  bool FSilent = false;
};

}  // namespace ixocut
