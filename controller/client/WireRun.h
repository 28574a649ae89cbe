// A run in the controller that is asked: started, followed to its end, stopped when whoever follows it says so. One
// thread, the client's.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include <nlohmann/json.hpp>

#include "controller/client/WireClient.h"
#include "controller/runs/RunReport.h"
#include "ixocamglue/platform/services/Log.h"

namespace ixocontroller {

// What starts it.
struct TWireOrder {
  std::string Path = "/api/v1/runs";
  nlohmann::ordered_json Body;
  bool Detach = false;    // it is only started
  bool TakeOver = false;  // control, from whoever has it
};

// What TWireOrder::Body is for a procedure of the table, whose parameters the controller reads. Nothing fails.
[[nodiscard]] nlohmann::ordered_json ProcedureBody(const std::string& procedure,
                                                   const std::map<std::string, std::string>& params,
                                                   const TRunTriggers& triggers = {});
// The same for a sequence file, which the controller checks. Throws EProblem for one that cannot be read or is no JSON.
[[nodiscard]] nlohmann::ordered_json SequenceBody(const std::string& file, const TRunTriggers& triggers);

// Who follows it; each may be missing.
struct TWireFollower {
  // Asked every 50 ms from the beginning on, also while the controller does not answer; true: the run is stopped, or
  // not started.
  std::function<bool()> Stops;
  // Progress and warnings in the words of a run in this process; times count from the run's start.
  ILogSink* Log = nullptr;
  // Where the machine is: ms of machine time behind the run's start, and how many steps have begun by then.
  std::function<void(std::uint64_t ms, const TMachineSnapshot& now, std::uint64_t begun)> Look;
  // What else is said of the run.
  std::function<void(const nlohmann::ordered_json&)> Event;
};

struct TWireRun {
  std::uint64_t Id = 0;
  nlohmann::ordered_json Json;  // as GET runs/{id} answers it; null: nobody waited for it
  TRunReport Report;            // what it says
};

// Throws EProblem for what is refused, and when the controller ends before the run does.
[[nodiscard]] TWireRun RunOnController(TWireClient& client, const TWireOrder& order, const TWireFollower& follower);
// Where the axes were meanwhile. Throws EProblem where the controller no longer has the run, or has gone.
[[nodiscard]] TMotionTrace TraceOf(TWireClient& client, std::uint64_t run);

// A recording in the controller that is asked, gone with this object. One thread, the client's. Throws EProblem as the
// client does; its end throws nothing.
class TWireRecording {
 public:
  // `signals`: as TRecorder names them; empty: all. The client outlives it.
  TWireRecording(TWireClient& client, const std::string& signals);
  ~TWireRecording();
  TWireRecording(const TWireRecording&) = delete;
  TWireRecording& operator=(const TWireRecording&) = delete;

  // Ends it. Answers its samples.
  [[nodiscard]] std::uint64_t Stop();
  // The monitor file, once it is stopped.
  [[nodiscard]] std::string File() { return FClient.Ask("GET", Path() + "/file").Text; }

 private:
  [[nodiscard]] std::string Path() const { return "/api/v1/recordings/" + FName; }

  TWireClient& FClient;
  const std::string FName;
};

}  // namespace ixocontroller
