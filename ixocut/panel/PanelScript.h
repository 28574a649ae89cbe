// A panel script: presses, releases, forms, alarms and times, a line each, run in virtual time.
#pragma once

#include <filesystem>
#include <iosfwd>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "ixocut/panel/PanelHost.h"

namespace ixocut {

struct TScriptLine {
  int Number = 0;  // in its file
  std::vector<std::string> Words;
};

inline constexpr const char* kScriptHelp =
    "A script has one step a line, its words apart by blanks; # begins a comment:\n"
    "  wait MS                      press KEY [PARAM]       release KEY      tap KEY [MS]\n"
    "  show FORM                    hide FORM               knob low|normal|high\n"
    "  alt KEY on|off [blink]       window open|close       silent on|off\n"
    "  alarm ID                     clear                   warning on|off\n"
    "  emergency on|off             leds\n"
    "KEY is a panel key with or without CK_; silent stops the panel's signs of life.\n";

// Reads and checks the whole file. Throws EProblem with file, line and reason.
[[nodiscard]] std::vector<TScriptLine> ReadScript(const std::filesystem::path& file);

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
  void RunFor(std::uint64_t ms);
  void TellMachine();
  void Tell(const char* what, const std::string& text);

  TPanelHost& FHost;
  std::ostream* const FOut;
  nlohmann::ordered_json FEvents = nlohmann::ordered_json::array();
  std::size_t FToldEntries = 0;
  std::uint64_t FStartMs;
  TNcWindows::THandle FWindow = 0;
  bool FSilent = false;
};

}  // namespace ixocut
