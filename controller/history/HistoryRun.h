// What is kept of a run of the controller: values; any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ixocamglue/support/Problem.h"

namespace ixocontroller {
using namespace ixocamglue;

inline constexpr const char* kKindProcedure = "procedure";
inline constexpr const char* kKindSequence = "sequence";
inline constexpr const char* kKindCalibration = "calibration";
inline constexpr const char* kOutcomeSuccess = "success";
// Of a run whose end nobody saw: its controller ended before it.
inline constexpr const char* kOutcomeLost = "lost";

// One step of a list, in the order in which they began; a step that is a list itself is followed by its own ones.
struct THistoryStep {
  std::int32_t Level = 0;   // 0: a step of the root
  std::int32_t Number = 0;  // from 1
  std::int32_t Count = 0;
  std::string Desc;
  std::int64_t FromMs = 0;  // after the run was entered, machine time
  std::int64_t Ms = 0;      // how long it stood
};

// An alarm that stood while it ran.
struct THistoryAlarm {
  std::int64_t AtMs = 0;                  // after the run's start, machine time; 0: it stood before
  std::optional<std::int64_t> ClearedMs;  // nothing: it stood at the end
  std::int32_t Level = 0;                 // as TRunAlarm::Level
  std::string Identifier, Desc;
};

// Nothing here fails.
struct THistoryRun {
  std::int64_t Id = 0;
  std::string Name;  // of the procedure, or of the sequence
  std::string Kind = kKindProcedure;
  std::string Params = "{}";  // JSON
  std::string Who;
  bool Detached = false;
  std::string Started, Ended;   // as FormatUtc writes them; Ended is empty while it runs
  std::string Outcome;          // TRunEnd::Name, or kOutcomeLost; empty while it runs
  std::int64_t DurationMs = 0;  // machine time
  std::string Path;             // from the root to where it ended, by class
  std::optional<TProblem> Problem;
  std::string Language;               // of Problem and of the steps' names
  std::vector<THistoryStep> Steps;    // at most kMostStepsKept
  std::int64_t StepCount = 0;         // of all that it had
  std::vector<THistoryAlarm> Alarms;  // at most kMostAlarmsKept, in the order of their raises

  [[nodiscard]] bool Runs() const { return Outcome.empty(); }
};

inline constexpr std::size_t kMostStepsKept = 1000;
inline constexpr std::size_t kMostAlarmsKept = 100;

}  // namespace ixocontroller
