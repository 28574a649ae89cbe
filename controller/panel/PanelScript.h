// A panel script: presses, releases, forms, alarms and times, a line each, run in virtual time on the state thread.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "controller/panel/PanelHost.h"

namespace ixocontroller {
using namespace ixocamglue;

struct TScriptLine {
  int Number = 0;  // in its file
  std::vector<std::string> Words;
};

// The steps of a script, for the help page. Does not fail.
[[nodiscard]] std::string ScriptHelp();

// Reads and checks the whole file, before its first line runs. Throws EProblem with file, line and reason.
[[nodiscard]] std::vector<TScriptLine> ReadScript(const std::filesystem::path& file);
// The alarms that it raises, which only a controller knows. Throws likewise.
void CheckScriptAlarms(const std::filesystem::path& file, const std::vector<TScriptLine>& lines, TController& session);

// Who is told the story as it happens, on the thread that runs the script; without Line nobody is.
struct TScriptTeller {
  std::function<void(const std::string& line)> Line = {};
  std::function<void(TKeyMask leds)> Leds = {};  // the picture of the panel
};

// Run throws what the devices and the knob throw, as a press does by hand; nothing else fails.
class TPanelScript {
 public:
  // The host outlives the script.
  explicit TPanelScript(TPanelHost& host, TScriptTeller teller = {});

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
  const TScriptTeller FTeller;
  nlohmann::ordered_json FEvents = nlohmann::ordered_json::array();
  std::size_t FToldEntries = 0;
  std::uint64_t FStartMs;
  TNcWindows::THandle FWindow = 0;
  bool FSilent = false;
};

}  // namespace ixocontroller
