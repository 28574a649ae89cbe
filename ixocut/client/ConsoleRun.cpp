#include "ixocut/client/ConsoleRun.h"

#include <optional>
#include <utility>

#include "controller/SignalStop.h"

namespace ixocut {
using namespace ixocontroller;

TWireRun RunOnConsole(TWireClient& client, const TWireOrder& order, TConsole& console,
                      decltype(TWireFollower::Look) look, decltype(TWireFollower::Event) event) {
  std::optional<TSignalStop> signals;
  if (!order.Detach) signals.emplace();
  TWireFollower follower{.Stops = {}, .Log = &console, .Look = std::move(look), .Event = std::move(event)};
  if (signals) follower.Stops = &TSignalStop::Asked;
  return RunOnController(client, order, follower);
}

}  // namespace ixocut
