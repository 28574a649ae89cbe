#include "controller/client/WireRun.h"

#include <chrono>
#include <thread>
#include <unistd.h>
#include <utility>

#include "controller/client/ClientLease.h"
#include "controller/service/Status.h"
#include "ixocamglue/support/Files.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/JsonText.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

using TJson = nlohmann::ordered_json;

constexpr std::uint32_t kEventWaitMs = 50;
constexpr auto kAskEvery = std::chrono::milliseconds(1000);  // keeps the lease, and the connection that attends

class TFollowed {
 public:
  TFollowed(TWireClient& client, const TWireFollower& follower) : FClient(client), FFollower(follower) {
    FClient.WhileWaiting([this] { StopIfAsked(); });
  }
  ~TFollowed() { FClient.WhileWaiting({}); }
  TFollowed(const TFollowed&) = delete;
  TFollowed& operator=(const TFollowed&) = delete;

  // From now on there may be something to stop. Throws where that was asked already.
  void Order() {
    StopIfAsked();
    FOrdered = true;
  }

  // The run has begun by now: what was asked before it did may have stopped nothing.
  void Begun(std::uint64_t id) {
    FId = id;
    FStopped = false;
    StopIfAsked();
  }

  // The run, once it has ended.
  TJson Follow(TWireEvents& events, TClientLease& lease) {
    const TJson status = FClient.Get("/api/v1/status");
    const TJson& running = status.at("run");
    FStartMs = status.value("machineMs", std::uint64_t{0}) -
               (running.is_object() ? running.value("runMs", std::uint64_t{0}) : std::uint64_t{0});
    const std::string path = "/api/v1/runs/" + std::to_string(FId);
    auto asked = std::chrono::steady_clock::now();
    for (;;) {
      if (const auto event = events.Next(kEventWaitMs)) Take(*event);
      // A controller that needs room lets go of who follows: then the run is asked for, as often as events would come.
      if (events.Ended()) std::this_thread::sleep_for(std::chrono::milliseconds(kEventWaitMs));
      StopIfAsked();
      const auto now = std::chrono::steady_clock::now();
      if (!FEnded && !events.Ended() && now - asked < kAskEvery) continue;
      asked = now;
      FEnded = false;
      TJson run = FClient.Get(path);
      if (!run.at("outcome").is_null()) {
        FStopped = true;  // whatever runs next is another's
        return run;
      }
      if (!lease.Beat() && !std::exchange(FTold, true))
        Write({.Kind = lkWarning, .TimeMs = FNowMs, .Text = Tr("somebody else has taken over control")});
    }
  }

 private:
  // Over a connection of its own: what this one waits for may never come.
  void StopIfAsked() {
    if (FStopped || !FFollower.Stops || !FFollower.Stops()) return;
    FStopped = true;
    if (!FOrdered) throw EProblem(pbRefused, Tr("it was not started"));
    (void)TWireClient(FClient.Address(), FClient.Token(), FClient.Language()).Post("/api/v1/stop");
  }

  void Write(const TLogRecord& record) {
    if (FFollower.Log) FFollower.Log->Write(record);
  }

  [[nodiscard]] std::uint64_t SinceStart(std::uint64_t machineMs) const {
    return machineMs > FStartMs ? machineMs - FStartMs : 0;
  }

  void Take(const TWireEvent& event) {
    const TJson& data = event.Data;
    if (event.Name == "signals") {
      FNow = SnapshotFromJson(data, std::move(FNow));
      FNowMs = SinceStart(data.value("machineMs", std::uint64_t{0}));
      if (FFollower.Look && FBegun != 0) FFollower.Look(FNowMs, FNow, FBegun);
    } else if (event.Name == "step" && data.value("run", std::uint64_t{0}) == FId) {
      ++FBegun;
      Write({.Diagnostic = true,
             .Level = dlProgress,
             .TimeMs = data.value("startMs", std::uint64_t{0}),
             .Text = Format("%d/%d: %s", data.value("number", 0), data.value("count", 0),
                            data.value("description", "").c_str())});
    } else if (event.IsWarning()) {
      Write({.Kind = data.value("kind", 0),
             .TimeMs = SinceStart(data.value("machineMs", FStartMs)),
             .Text = data.value("text", ""),
             .Source = data.value("source", "")});
    } else if (event.Name == "run" && data.value("id", std::uint64_t{0}) == FId) {
      FEnded = FEnded || (data.contains("outcome") && !data.at("outcome").is_null());
      if (FFollower.Event) FFollower.Event(data);
    }
  }

  TWireClient& FClient;
  const TWireFollower& FFollower;
  std::uint64_t FId = 0;
  std::uint64_t FStartMs = 0;  // of the machine's clock
  std::uint64_t FNowMs = 0;    // since then, as far as it is known
  TMachineSnapshot FNow;
  std::uint64_t FBegun = 0;
  bool FOrdered = false;
  bool FStopped = false;
  bool FEnded = false;
  bool FTold = false;
};

void AddTriggers(TJson& body, const TRunTriggers& triggers) {
  if (!triggers.Faults.empty()) body["faults"] = triggers.Faults;
  if (triggers.StopAt) body["stopAt"] = *triggers.StopAt;
  if (triggers.AlarmAt) body["alarmAt"] = *triggers.AlarmAt;
}

}  // namespace

TJson ProcedureBody(const std::string& procedure, const std::map<std::string, std::string>& params,
                    const TRunTriggers& triggers) {
  TJson body{{"procedure", procedure}, {"params", params}};
  AddTriggers(body, triggers);
  return body;
}

TJson SequenceBody(const std::string& file, const TRunTriggers& triggers) {
  TJson sequence = ParseJson(ReadFile(std::filesystem::path(file)).OrThrow(pbUnusable), file).OrThrow(pbRequest);
  TJson body = TJson::object();
  if (!sequence.is_object() || !sequence.contains("commands")) {
    body["calls"] = std::move(sequence);
  } else {
    body["calls"] = std::move(sequence["commands"]);
    if (sequence.contains("name")) body["name"] = sequence["name"];
  }
  AddTriggers(body, triggers);
  return body;
}

TWireRun RunOnController(TWireClient& client, const TWireOrder& order, const TWireFollower& follower) {
  TFollowed followed(client, follower);
  TClientLease lease(client, order.TakeOver);
  TWireEvents events(client, "?kinds=step,run,signals,log&rate=50");
  TJson body = order.Body;
  if (order.Detach) body["detach"] = true;
  TWireRun run;
  followed.Order();
  client.Post(order.Path, body).at("id").get_to(run.Id);
  followed.Begun(run.Id);
  if (order.Detach) return run;
  run.Json = followed.Follow(events, lease);
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

TWireRecording::TWireRecording(TWireClient& client, const std::string& signals)
    : FClient(client), FName(Format("record-%d", static_cast<int>(::getpid()))) {
  TJson body{{"name", FName}};
  if (!signals.empty()) body["signals"] = TJson::array({signals});
  (void)FClient.Post("/api/v1/recordings", body);
}

TWireRecording::~TWireRecording() {
  try {
    (void)FClient.AskAny("DELETE", Path() + "/running");
    (void)FClient.AskAny("DELETE", Path());
  } catch (const EProblem&) {  // the controller has gone
  }
}

std::uint64_t TWireRecording::Stop() {
  return FClient.Ask("DELETE", Path() + "/running").Body.at("samples").get<std::uint64_t>();
}

}  // namespace ixocontroller
