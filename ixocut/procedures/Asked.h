// What the command line says about a run, whatever command it is: the options that they share, and a procedure of the
// table with its parameters.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "controller/procedures/Calls.h"
#include "controller/procedures/Procedures.h"
#include "controller/runs/ProcedureRun.h"
#include "ixocamglue/platform/Machine.h"
#include "ixocamglue/support/Texts.h"
#include "ixocut/ControllerSettings.h"

namespace ixocut {
using namespace ixocontroller;

struct TRunSettings : TControllerSettings, TRunTriggers {};

// For help pages; shown through Tr.
inline constexpr const char* kTimesNote = TrMark(
    "Times are those of the simulated machine, which run as fast as the computer can unless --realtime is given.\n"
    "A controller that runs has its own clock, seed and log: --realtime, --seed, --db and --trace change nothing "
    "there.");

// The options of the controller, and all else that a run has.
void AddRunSettings(TCommand command, TRunSettings& settings);

// A run whose logs go to the console, which outlives it and shows its times.
[[nodiscard]] std::unique_ptr<TProcedureRun> MakeRun(const TControllerSettings& settings, const TRunTriggers& triggers,
                                                     TConsole& console);

// "--x", "100", "--y=50" and so on. Throws EProblem for what is neither.
[[nodiscard]] TParamTexts ReadParams(const TProcedure& row, const std::vector<std::string>& words);
// What nobody expected on the command line of the row.
[[noreturn]] void RefuseExtra(const TProcedure& row, const std::string& extra);

}  // namespace ixocut
