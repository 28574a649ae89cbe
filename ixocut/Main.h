// The whole program as a function, for the program itself and for applications that put steps of their own into it.
#pragma once

#include <string>
#include <vector>

#include "controller/procedures/Procedures.h"
#include "ixocamglue/platform/Driver.h"
#include "verify/GasStudy.h"

namespace ixocut {

// What an application adds: its rows run from the command line and in files like the program's own, its machines drive
// what the machine file names, its methods of calibration are judged by `gas study`.
struct TAdditions {
  std::vector<ixocontroller::TProcedure> Procedures = {};
  std::vector<ixocamglue::TMachineFactory> Machines = {};
  std::vector<ixocamglue::TDriverFactory> Drivers = {};  // of a machine that is put together from its file
  std::vector<ixoverify::TGasMethod> GasMethods = {};
  std::string Commit = {};  // that it was built from; --version tells it
};

// Parses, runs, prints one line on the error output for each failure. Returns the exit code. Main thread.
int IxocutMain(int argc, const char* const* argv, TAdditions additions = {});

}  // namespace ixocut
