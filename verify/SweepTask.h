// How the parts of the abort sweep hand their runs over: a task is one row of the result, a trial is one run of it.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "verify/Sweep.h"

namespace ixoverify {

struct TSweepTrial {
  std::function<std::string()> Text;              // what goes wrong in this run
  std::function<std::vector<std::string>()> Run;  // violations; none when the machine ended safe
};

struct TSweepTask {
  std::string Procedure;
  std::string Dimension;
  std::function<std::vector<TSweepTrial>()> Trials;
};

}  // namespace ixoverify
