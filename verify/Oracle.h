// Judges a run in virtual time from its journal. It knows nothing of the library: it recomputes laser, emission, gas,
// outputs and movement from the commands that were carried out and from what happened by itself, and compares the
// result with the machine's own snapshot.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "controller/Journal.h"

namespace ixoverify {
using namespace ixocamglue;
using namespace ixocontroller;

struct TExpectations {
  bool Success = false;       // the procedure says that it succeeded
  bool GasMayStayOn = false;  // with success only
  bool MayFollow = false;     // the same
  bool OutputsMayStayOn = false;
  // Index of the first entry after which the run was no longer normal.
  std::optional<std::size_t> AbortIndex;
  // A device that failed on and on answers for nothing but a dark laser; empty: none.
  std::string ExemptDevice;
  std::int32_t ProcedureState = 204;
};

// What a journal, read from power-up, says about the machine.
class TOracle {
 public:
  void Read(const TJournalEntry& entry);

  [[nodiscard]] bool Laser() const { return FAskLaser && FEmission; }
  [[nodiscard]] bool Emission() const { return FEmission; }
  [[nodiscard]] bool Gas() const { return FGas; }
  [[nodiscard]] const std::set<std::int32_t>& OutputsOn() const { return FOutputs; }
  [[nodiscard]] const std::set<std::string>& Moving() const { return FMoving; }            // devices
  [[nodiscard]] const std::set<std::string>& Following() const { return FFollowing; }      // devices
  [[nodiscard]] const std::set<std::string>& Calibrating() const { return FCalibrating; }  // devices
  [[nodiscard]] std::int32_t State() const { return FState; }
  // What cannot be: a beam or emission that nobody asked for, or one that stayed after it was switched off. What must
  // not be: a collision.
  [[nodiscard]] const std::vector<std::string>& Contradictions() const { return FContradictions; }

 private:
  void ReadLaser(const TJournalEntry& entry);
  void Dark();

  bool FAskEmission = false;
  bool FEmission = false;
  bool FAskLaser = false;
  bool FTripped = false;
  bool FGas = false;
  std::set<std::int32_t> FOutputs;
  std::set<std::string> FMoving;
  std::set<std::string> FFollowing;
  std::set<std::string> FCalibrating;
  std::int32_t FState = 0;
  std::vector<std::string> FContradictions;
};

// Violations, a sentence each; empty when the run ended as it must: laser and emission dark, gas off (unless it may
// stay on), outputs off (unless
// they may stay on), everything at rest, the procedure's state left exactly once, and nothing but reads, locks,
// stops and offs after the abort.
[[nodiscard]] std::vector<std::string> CheckRun(std::span<const TJournalEntry> entries,
                                                const TMachineSnapshot& snapshot, const TExpectations& expected);

}  // namespace ixoverify
