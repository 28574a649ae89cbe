// A run in the controller that is asked: started, followed to its end, stopped by Ctrl-C. Main thread.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>

#include <nlohmann/json.hpp>

#include "controller/procedures/RunReport.h"
#include "ixocut/Console.h"
#include "ixocut/client/WireClient.h"

namespace ixocut {

struct TWireRun {
  std::uint64_t Id = 0;
  nlohmann::ordered_json Json;       // as GET runs/{id} answers it; null: nobody waited for it
  ixocontroller::TRunReport Report;  // what it says
};

// Where the machine is: ms of machine time behind the run's start, and how many steps have begun by then.
using TWireLook = std::function<void(std::uint64_t ms, const TMachineSnapshot& now, std::uint64_t begun)>;

// What starts it.
struct TWireOrder {
  std::string Path = "/api/v1/runs";
  nlohmann::ordered_json Body;
  bool Detach = false;    // it is only started
  bool TakeOver = false;  // control, from whoever has it
};

// Progress goes to the console in the words of a run in this process; `event` is told of what else is said of the run.
// Throws EProblem for what is refused, and when the controller ends before the run does.
[[nodiscard]] TWireRun RunOnController(TWireClient& client, const TWireOrder& order, TConsole& console,
                                       const TWireLook& look,
                                       const std::function<void(const nlohmann::ordered_json&)>& event = {});
// Where the axes were meanwhile.
[[nodiscard]] ixocontroller::TMotionTrace TraceOf(TWireClient& client, std::uint64_t run);

}  // namespace ixocut
