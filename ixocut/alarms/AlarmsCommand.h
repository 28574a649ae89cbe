// `ixocut alarms ...`: what each sub-command is given, and what it runs. Each returns the exit code and throws
// EProblem. Main thread.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "ixocut/ControllerSettings.h"

namespace ixocut {

struct TAlarmsOptions : TControllerSettings {
  std::string Id;
  std::string File;    // check: what to check
  std::string Script;  // live: lines instead of the terminal's
  std::string Who;
  std::string Since;
  bool Active = false, History = false, Csv = false, Suppressed = false;
  std::optional<std::int64_t> Level;
  std::uint64_t ForMs = 0;  // watch and live: end by itself after this time; 0: never
  std::uint64_t RetentionDays = 0;
  std::uint64_t Minutes = 0;  // suppress
  std::string Reason;
};

int RunAlarmsLookup(const TAlarmsOptions& options, TConsole& console);
int RunAlarmsLive(const TAlarmsOptions& options, TConsole& console);
int RunAlarmsList(const TAlarmsOptions& options, TConsole& console);
int RunAlarmsWatch(const TAlarmsOptions& options, TConsole& console);
int RunAlarmsStats(const TAlarmsOptions& options, TConsole& console);
int RunAlarmsAck(TAlarmsOptions options, TConsole& console);
int RunAlarmsSuppress(TAlarmsOptions options, TConsole& console);
int RunAlarmsClear(const TAlarmsOptions& options, TConsole& console);
int RunAlarmsCheck(const TAlarmsOptions& options, TConsole& console);

// The store's file: --db, or alarms.db in the state folder.
[[nodiscard]] std::filesystem::path AlarmDbFile(const TAlarmsOptions& options);

}  // namespace ixocut
