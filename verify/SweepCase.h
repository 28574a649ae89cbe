// What the abort sweep runs: a case for each row of the table of procedures, and the same on machines that are fitted
// otherwise. What a case needs of the simulated machine stands here, so that the table knows no machine. One thread;
// nothing fails but what says so.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "controller/Controller.h"
#include "controller/procedures/Procedures.h"
#include "machines/simulated/Machine.h"

namespace ixoverify {
using namespace ixocontroller;

// Why a procedure is aborted, one after the other; 2 is none of the named ones.
inline constexpr std::int32_t kAbortReasons[] = {srStop, 2, srPause, srAlarm, srError};
inline constexpr std::uint64_t kWrapMs = std::uint64_t{1} << 32U;  // 49.7 days: the 32-bit counts of ms begin anew

struct TSweepCase {
  std::string Name;                         // the row's, or a variant's
  TMotionCall Call;                         // the row's sample
  void (*Prepare)(TSimMachine&) = nullptr;  // before power-up; may be null
  bool PlainMachine = false;                // without a machine file: every value has its default
  bool DriverZ = false;                     // no follower: Z is an axis of the motion driver
  std::uint64_t LightMs = 0;                // a success has had light so long
  bool LightEnds = false;                   // and not longer
  std::optional<TNcArea> WorkArea;          // none: the machine's own

  [[nodiscard]] const TProcedureFlags& Flags() const { return Call.Row->Flags; }
  // A single command stands for itself, so that a list does not make good what it forgets; but one that a list has to
  // make dark stands in a list, behind the emission that it needs.
  [[nodiscard]] TStepPtr MakeRoot() const;
};

[[nodiscard]] std::vector<TSweepCase> SweepCases();

// That a short procedure runs to its end, whatever was before it.
[[nodiscard]] TResult<> RunNext(TController& controller);

}  // namespace ixoverify
