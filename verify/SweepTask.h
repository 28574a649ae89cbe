// How the parts of the abort sweep hand their runs over: a task is one row of the result, a trial is one run of it. One
// thread; nothing fails.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "verify/Oracle.h"
#include "verify/Sweep.h"

namespace ixoverify {

// What was wrong with one run.
struct TSweepVerdict {
  std::vector<std::string> Violations;  // none when the machine ended safe
  bool SavedByLatch = false;            // the state thread ran, and only the latch made it dark

  void Take(const std::vector<TFinding>& findings) {
    for (const TFinding& finding : findings) {
      Violations.push_back(finding.Line());
      SavedByLatch = SavedByLatch || finding.Rule == kSavedByLatch;
    }
  }
};

struct TSweepTrial {
  std::function<std::string()> Text;  // what goes wrong in this run
  std::function<TSweepVerdict()> Run;
};

struct TSweepTask {
  std::string Procedure;
  std::string Dimension;
  std::function<std::vector<TSweepTrial>()> Trials;
};

}  // namespace ixoverify
