// The abort sweep: runs every procedure on the simulated machine again and again, each time with one thing going wrong
// at one moment, and asks an oracle that knows nothing of the library whether the machine ended safe.
//
// Per procedure, each dimension by itself:
//   ticks       every tick x every reason (stop, 2, pause, alarm, error)
//   bare        the same without the platform's safe entry: what the procedures do by themselves
//   emission    emission after 0, 1, 8 polls, the configured delay, or never (cut after 10 s of machine time)
//   once        an exception at every device call
//   sticky      the same, and at every later call of the same verb of the same device
//   refused     the device ignores a call, and every later one of the same verb
//   pair        every tick x every reason x an exception at a call after the abort, once or from then on, or such
//               calls ignored from then on
//   combined    laser procedures: every tick x every reason x every emission
//   sink        an exception at every line that a log sink writes
//   callback    a stop, an alarm, or the start of a second procedure from inside every device call
//   hang        every device call takes 300 ms: the latch has made dark what was asked for, and it is no success
//   beam-lost   laser procedures: every tick x a laser alarm, or emission that is lost
//   supervised  every tick x a stop, with the supervisor
//   end         every tick x the end of the controller, as its destructor and SIGTERM bring it
//   pallet      every tick x a pallet exchange that is asked for
//   clock       across the wrap of the 32-bit tick, across 49.7 days of the long count, and behind them
//
// The budget counts points. Each dimension of each procedure has its share, and which points that is the seed decides
// for each by itself; "pair" looks at a few aborts per procedure then, and counts only their points. The gas
// calibration has dimensions of its own; see GasSweep.h.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "ixocamglue/support/Problem.h"

namespace ixoverify {
using namespace ixocamglue;

struct TSweepOptions {
  bool Full = false;              // every point
  std::uint64_t Points = 20'000;  // so many at most, but one of each dimension of each procedure
  std::uint64_t Seed = 1;
  std::string Procedure;  // empty: all
};

struct TSweepRow {
  std::string Procedure;
  std::string Dimension;
  std::uint64_t Enumerated = 0;
  std::uint64_t Run = 0;
  std::uint64_t Survived = 0;
  std::uint64_t SavedByLatch = 0;
};

// One thread; nothing fails.
struct TSweepResult {
  std::vector<TSweepRow> Rows;
  std::vector<std::string> Violations;         // "procedure, dimension, point: what"; the first five of each kind
  std::map<std::string, std::uint64_t> Kinds;  // how many violations of each: a rule's name, or what was wrong
  std::uint64_t ViolationCount = 0;

  [[nodiscard]] std::uint64_t Enumerated() const;
  [[nodiscard]] std::uint64_t Run() const;
  [[nodiscard]] std::uint64_t Survived() const;
  // Where the state thread ran and did not itself make it dark.
  [[nodiscard]] std::uint64_t SavedByLatch() const;
};

// Every name that TSweepOptions::Procedure may have, or what is wrong with one. Any thread.
[[nodiscard]] TResult<> CheckSweepName(const std::string& name);

// Runs in virtual time on the calling thread. `progress` (may be empty) is told each finished row.
[[nodiscard]] TSweepResult RunSweep(const TSweepOptions& options,
                                    const std::function<void(const TSweepRow&)>& progress = {});
// What a program is told of it. Any thread; does not fail.
[[nodiscard]] nlohmann::ordered_json JsonOf(const TSweepResult& result, std::uint64_t seed);
// The problem that it is, in the language of the thread; none of a safe machine.
[[nodiscard]] std::optional<TProblem> ProblemOf(const TSweepResult& result);

}  // namespace ixoverify
