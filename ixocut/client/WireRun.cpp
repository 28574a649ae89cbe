#include "ixocut/client/WireRun.h"

#include <chrono>
#include <thread>

#include "controller/SignalStop.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"
#include "ixocut/client/Attach.h"
#include "ixocut/client/StatusView.h"

namespace ixocut {
namespace {

using namespace ixocontroller;
using TJson = nlohmann::ordered_json;

using TWireTold = std::function<void(const TJson&)>;

constexpr std::uint32_t kEventWaitMs = 50;
constexpr auto kAskEvery = std::chrono::milliseconds(1000);  // keeps the lease, and the connection that attends

class TFollower {
 public:
  TFollower(TWireClient& client, std::uint64_t id, std::uint64_t startMs, TConsole& console, const TWireLook& look,
            const TWireTold& told)
      : FClient(client),
        FPath("/api/v1/runs/" + std::to_string(id)),
        FId(id),
        FConsole(console),
        FLook(look),
        FEvent(told),
        FStartMs(startMs) {}

  // The run, once it has ended.
  TJson Follow(TWireEvents& events, TClientLease& lease) {
    const TSignalStop signals;
    auto asked = std::chrono::steady_clock::now();
    bool stopped = false;
    for (;;) {
      if (const auto event = events.Next(kEventWaitMs)) Take(*event);
      // A controller that needs room lets go of who follows: then the run is asked for, as often as events would come.
      if (events.Ended()) std::this_thread::sleep_for(std::chrono::milliseconds(kEventWaitMs));
      if (TSignalStop::Asked() && !std::exchange(stopped, true)) (void)FClient.Post("/api/v1/stop");
      const auto now = std::chrono::steady_clock::now();
      if (!FEnded && !events.Ended() && now - asked < kAskEvery) continue;
      asked = now;
      FEnded = false;
      TJson run = FClient.Get(FPath);
      if (!run.at("outcome").is_null()) return run;
      if (!lease.Beat() && !std::exchange(FTold, true)) FConsole.Say(Tr("somebody else has taken over control"));
    }
  }

 private:
  void Take(const TWireEvent& event) {
    const TJson& data = event.Data;
    if (event.Name == "signals") {
      FNow = SnapshotOf(data, FNow);
      const std::uint64_t ms = data.value("machineMs", std::uint64_t{0});
      if (FLook && FBegun != 0) FLook(ms > FStartMs ? ms - FStartMs : 0, FNow, FBegun);
    } else if (event.Name == "step" && data.value("run", std::uint64_t{0}) == FId) {
      ++FBegun;
      FConsole.Write({.Diagnostic = true,
                      .Level = dlProgress,
                      .TimeMs = data.value("startMs", std::uint64_t{0}),
                      .Text = Format("%d/%d: %s", data.value("number", 0), data.value("count", 0),
                                     data.value("description", "").c_str())});
    } else if (event.Name == "log" && IsWarning(data)) {
      const std::uint64_t ms = data.value("machineMs", FStartMs);
      FConsole.Write({.Kind = data.value("kind", 0),
                      .TimeMs = ms > FStartMs ? ms - FStartMs : 0,
                      .Text = data.value("text", ""),
                      .Source = data.value("source", "")});
    } else if (event.Name == "run" && data.value("id", std::uint64_t{0}) == FId) {
      FEnded = FEnded || (data.contains("outcome") && !data.at("outcome").is_null());
      if (FEvent) FEvent(data);
    }
  }

  TWireClient& FClient;
  const std::string FPath;
  const std::uint64_t FId;
  TConsole& FConsole;
  const TWireLook& FLook;
  const TWireTold& FEvent;
  const std::uint64_t FStartMs;  // of the machine's clock
  TMachineSnapshot FNow;
  std::uint64_t FBegun = 0;
  bool FEnded = false;
  bool FTold = false;
};

}  // namespace

TWireRun RunOnController(TWireClient& client, const TWireOrder& order, TConsole& console, const TWireLook& look,
                         const TWireTold& event) {
  TClientLease lease(client, order.TakeOver);
  TWireEvents events(client, "?kinds=step,run,signals,log&rate=50");
  TJson body = order.Body;
  if (order.Detach) body["detach"] = true;
  TWireRun run;
  client.Post(order.Path, body).at("id").get_to(run.Id);
  if (order.Detach) return run;
  const TJson status = client.Get("/api/v1/status");
  const std::uint64_t startMs = status.value("machineMs", std::uint64_t{0}) -
                                (status.at("run").is_object() ? status.at("run").value("runMs", std::uint64_t{0}) : 0);
  run.Json = TFollower(client, run.Id, startMs, console, look, event).Follow(events, lease);
  run.Report = ReportFromJson(run.Json, run.Json.value("problem", TJson()));
  return run;
}

TMotionTrace TraceOf(TWireClient& client, std::uint64_t run) {
  TMotionTrace trace;
  const TJson answer = client.Get(Format("/api/v1/runs/%llu/trace", static_cast<unsigned long long>(run)));
  for (const TJson& point : answer.at("points")) {
    TMachineSnapshot now;
    point.at(0).get_to(now.Ms);
    point.at(1).get_to(now.Pos.X);
    point.at(2).get_to(now.Pos.Y);
    point.at(3).get_to(now.Z);
    point.at(4).get_to(now.Focus);
    trace.Sample(now);
  }
  return trace;
}

}  // namespace ixocut
