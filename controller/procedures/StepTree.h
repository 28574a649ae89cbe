// The tree of a procedure's steps as it is built before it runs. Needs the machine's services, as parts that are built
// late ask them; the thread that has made the controller, while nothing runs. A part that cannot be built is marked so;
// what the devices throw passes.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "ixocamglue/motion/Ustatemotion.h"

namespace ixocontroller {
using namespace ixocamglue;

struct TStepNode {
  std::int32_t Command = 0;
  std::string Class;
  std::string Desc;
  nlohmann::ordered_json Params = nlohmann::ordered_json::object();  // by name; of a step with a row in the table
  bool BuiltLate = false;                                            // only when the machine gets there
  bool Failed = false;                                               // it cannot be built
  std::vector<TStepNode> Children;

  [[nodiscard]] bool AnyFailed() const;  // of it and all below
};

// Of a root that was built (BuildData); builds what is built late as its entry would.
[[nodiscard]] TStepNode StepTree(TStateMotion& root);
// {"command","class","description","parameters"}, "builtLate" and "failed" where they are so, "children".
[[nodiscard]] nlohmann::ordered_json JsonOf(const TStepNode& node);

}  // namespace ixocontroller
