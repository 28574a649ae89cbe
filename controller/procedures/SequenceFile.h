// A file of motion commands for `ixocut run FILE.json`:
//
//   {
//     "name": "purge in the corner",
//     "commands": [
//       {"command": 137, "x": 100, "y": 50, "speed": 300},
//       {"command": "gas-on", "branch": 2, "pressure": 1.5, "description": "purge"},
//       {"command": "delay", "ms": 500},
//       {"command": 142}
//     ]
//   }
//
// Any thread, while the configuration stands still.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "controller/procedures/Procedures.h"
#include "ixocamglue/platform/Machine.h"

namespace ixocontroller {

struct TSequenceFile {
  std::string Name;  // the file's own without one
  std::vector<TMotionCall> Calls;
};

// Everything is checked before anything can move. Throws EProblem that names every problem with its line and place:
// no JSON, names that are unknown or given twice, values of the wrong type or out of the machine's range, a beam that
// could be on for longer than a shot may, or is on where it must not be, a head that would strike something, an input
// that never comes. It is the request that is wrong where a procedure is named as it was once.
[[nodiscard]] TSequenceFile ReadSequenceFile(const std::filesystem::path& file, const TMachineLimits& machine);

// The same of a text that somebody sent; all of it is a matter of the request. `name`: what it is called. Throws
// likewise.
[[nodiscard]] TSequenceFile ReadSequence(const std::string& name, const std::string& text,
                                         const TMachineLimits& machine);

}  // namespace ixocontroller
