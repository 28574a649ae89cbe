// The faults of a machine file: names and texts that the records do not read as they were meant, values outside what
// the machine can do, and values that contradict each other. Any thread; nothing is changed.
#pragma once

#include <string>
#include <vector>

#include "ixocamglue/platform/xml/Bounds.h"
#include "ixocamglue/support/Problem.h"

namespace ixocontroller {
using namespace ixocamglue;

struct TConfigFinding {
  std::size_t Offset = 0;
  std::string Place;  // "line:column"
  std::string Path;   // as ViewProperties names it
  std::string Text;
  bool Foreign = false;  // a name that is not ours and resembles none of ours: legal
};

// Everything in the document that the records would not read as it was meant, in document order. Linear in the size of
// the document, whatever stands in it.
[[nodiscard]] std::vector<TConfigFinding> CheckDocument(const TXmlDocument& document, TXmlSubConfig& root);

// Adds problems whose Where is a path in their places, but not where there is a finding already.
void AddFindings(const TXmlDocument& document, const std::vector<TProblem>& problems,
                 std::vector<TConfigFinding>& findings);

// Adds a problem for each value that others contradict: places of the nozzle rack, numbers that name what there is
// none of, ways that lead beyond an axis, strokes that no longer fit the soft limits. `root` is the document element,
// `config` has its values.
void CheckRules(const TConfigSection& root, TMachineConfig& config, const TMachineBounds& machine,
                std::vector<TProblem>& problems);

}  // namespace ixocontroller
