// Judges a run in virtual time: one small judge per rule, each on commands, their results and plain samples only. It
// believes neither what the machine says in words nor the latch that saved a run. One thread; nothing fails: what is
// wrong is found.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "machines/simulated/Config.h"
#include "verify/Story.h"

namespace ixoverify {

inline constexpr std::uint64_t kPassMs = 20;  // what a cause may take: two passes of the state loop

// What a run was to be.
struct TExpectations {
  bool Success = false;       // the procedure says that it succeeded
  bool GasMayStayOn = false;  // with success only, and no longer than the supervisor allows
  bool MayFollow = false;     // with success only
  bool OutputsMayStayOn = false;
  std::int32_t ProcedureState = 204;
  // Index of the first entry after which the run was no longer normal, where no cause is noted.
  std::optional<std::size_t> FaultAt;
  // How long light comes out of a run that succeeds, and at most.
  std::uint64_t LightMs = 0;
  std::uint64_t LightMostMs = std::numeric_limits<std::uint64_t>::max();
};

struct TFinding {
  std::string Rule;  // its name
  std::string Text;

  [[nodiscard]] std::string Line() const { return Rule + ": " + Text; }
};

// The rule that only the latch made it dark.
inline constexpr const char* kSavedByLatch = "latch";

// In the order of the rules; empty when the run was as it must be. The journal is read from power-up, or from any
// moment in standby.
[[nodiscard]] std::vector<TFinding> CheckRun(std::span<const TJournalEntry> entries,
                                             std::span<const TJournalSample> samples, const TExpectations& expected,
                                             const TSimConfig& machine);

[[nodiscard]] std::vector<std::string> OracleRules();  // their names

}  // namespace ixoverify
