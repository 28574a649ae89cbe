// Where a list of commands that was ended may begin again, and what the machine has to look like for that. Values; any
// thread. Why it is not allowed is answered, nothing is thrown.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <vector>

#include "controller/procedures/Procedures.h"
#include "ixocamglue/platform/Machine.h"

namespace ixocontroller {

struct TReentry {
  std::size_t From = 0;            // index of the call that is the first again
  std::vector<std::string> Again;  // calls that had begun and will be done again
  std::vector<std::string> Rest;   // those behind them
  bool LightsBeam = false;         // one of Again or Rest does
  // What was read back and compared, a line each.
  std::vector<std::string> Compared;
};

// The machine as it was when the list began, when it was ended, and as it is.
struct TListMachine {
  TMachineSnapshot Start, End, Now;
};

// `ended`: index of the call that did not come to its end. The last call that may be re-entered at or before it, where
//   - the calls before it have left the beam dark with emission off, the gas off, nothing following and the outputs as
//     they were;
//   - none from it up to `ended` takes or leaves a nozzle;
//   - X, Y and focus stand where the calls before it, or the start, have left them, unless it moves them itself;
//   - outputs, pallet and nozzle are still the same;
//   - now nothing lights, blows, follows or moves, and nothing was struck meanwhile.
// Else why there is none. Nothing is started here.
[[nodiscard]] TResult<TReentry> FindReentry(std::span<const TMotionCall> calls, std::size_t ended,
                                            const TListMachine& machine);

// Whether whoever has looked at the one sees the same in the other: places, outputs, pallet, nozzle, what was struck.
[[nodiscard]] bool StandsAs(const TMachineSnapshot& machine, const TMachineSnapshot& shown);

}  // namespace ixocontroller
