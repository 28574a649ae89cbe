// Going on with the run that was paused, stopped or failed last: what would be done again is shown and has to be
// confirmed before anything starts. Knows runs by what it is told of them, and starts nothing itself. Interface thread.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "controller/runs/Reentry.h"
#include "controller/runs/StepWatch.h"

namespace ixocontroller {

inline constexpr std::uint64_t kConfirmWithinMs = 60'000;  // real time

// What ran, or goes on.
struct TCallList {
  std::string Name;
  bool Sequence = false;
  std::vector<TMotionCall> Calls;
};

class TContinue {
 public:
  struct TOffer {
    std::int64_t Run = 0;  // that is gone on with
    std::string Token;     // confirms this list, once, within kConfirmWithinMs
    TReentry Reentry;
    std::string Name;
    std::vector<TMotionCall> Calls;  // from the re-entry on
  };

  // Every run that begins and ends.
  void Began(std::int64_t run, TCallList list, TMachineSnapshot start);
  void Ended(std::int64_t run, std::string_view outcome, const std::vector<TStepSpan>& steps, TMachineSnapshot end);

  // What would be done again as the machine is now, or why nothing can go on.
  [[nodiscard]] TResult<TOffer> Offer(const TMachineSnapshot& now, std::uint64_t realMs);
  // What was offered under the token and holds still: the calls from the re-entry on. The token is used up.
  [[nodiscard]] TResult<TCallList> Confirm(std::string_view token, const TMachineSnapshot& now, std::uint64_t realMs);

 private:
  struct TRun {
    std::int64_t Id = 0;
    TCallList List;
    TListMachine Machine;
    std::string Outcome;  // empty: it runs
    std::size_t At = 0;   // the call that did not come to its end
  };
  struct TGiven {
    std::string Token;
    std::size_t From = 0;
    TMachineSnapshot Shown;
    std::uint64_t RealMs = 0;
  };

  [[nodiscard]] TResult<TReentry> Find(const TMachineSnapshot& now);
  [[nodiscard]] std::vector<TMotionCall> CallsFrom(std::size_t first) const;

  std::optional<TRun> FRun;  // the last one
  std::optional<TGiven> FGiven;
};

}  // namespace ixocontroller
