// Reading the history of runs, also while the controller writes it. One thread per object. Failures are ESqlite.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "controller/history/HistoryRun.h"
#include "ixocamglue/alarms/store/Sqlite.h"

namespace ixocontroller {

struct THistoryFilter {
  std::size_t Limit = 50;
  std::int64_t Before = 0;  // numbers below this one; 0: all
  std::string Name;         // empty: every one
  std::string Outcome;      // empty: whatever it was
  std::string Since;        // began then or later, as FormatUtc writes it; empty: all

  [[nodiscard]] bool Fits(const THistoryRun& run) const {
    return (Before == 0 || run.Id < Before) && (Name.empty() || run.Name == Name) &&
           (Outcome.empty() || run.Outcome == Outcome) && run.Started >= Since;
  }
};

// One step of a procedure over its last successes, known by its place and name; a step that holds others is left out.
struct TStepFigures {
  std::int32_t Level = 0, Number = 0;
  std::string Desc;
  std::int64_t Times = 0;
  std::int64_t MedianMs = 0, WorstMs = 0;
  std::int64_t WorstRun = 0;
};

// The same step of two runs; none: that run has no such step.
struct TStepPair {
  THistoryStep Step;
  std::optional<std::int64_t> A, B;  // ms
};

class TRunArchive {
 public:
  // Throws when there is no such file, or it is no history of runs.
  explicit TRunArchive(const std::filesystem::path& file);

  [[nodiscard]] std::vector<THistoryRun> List(const THistoryFilter& filter);  // newest first, without their steps
  [[nodiscard]] std::optional<THistoryRun> Find(std::int64_t id);             // with its steps
  // Its last successes, newest first, without their steps.
  [[nodiscard]] std::vector<THistoryRun> Trend(const std::string& name, std::size_t last);
  [[nodiscard]] std::vector<TStepFigures> Steps(const std::string& name, std::size_t last);  // slowest first

 private:
  const std::unique_ptr<TSqliteDb> FDb;
};

// In the order of `a`, what only `b` has behind the step that it follows there.
[[nodiscard]] std::vector<TStepPair> CompareSteps(std::span<const THistoryStep> a, std::span<const THistoryStep> b);

}  // namespace ixocontroller
