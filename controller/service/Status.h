// What a controller shows of itself at one moment: made on the interface thread every kStatusEveryMs, never changed
// afterwards, read by any thread. Nothing fails but SnapshotFromJson: a member of another type throws
// nlohmann::json::type_error.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "ixocamglue/platform/Machine.h"
#include "ixocamglue/platform/states/NcState.h"
#include "ixocamglue/support/Locks.h"

namespace ixocontroller {
using namespace ixocamglue;

inline constexpr std::uint32_t kStatusEveryMs = 20;
inline constexpr std::uint32_t kIdleEveryMs = 100;  // while nothing runs and nobody is connected

// A step of the procedure that runs, and the step within it, and so on.
struct TStepPlace {
  std::int32_t Number = 0;  // from 1
  std::int32_t Count = 0;
  std::int32_t Command = 0;
  std::string Desc;
  friend bool operator==(const TStepPlace&, const TStepPlace&) = default;
};

struct TStatus {
  std::uint64_t Number = 0;  // from 1 on
  std::uint64_t RealMs = 0;  // RealMs() then
  std::int64_t UnixMs = 0;
  std::uint64_t MachineMs = 0;  // of the machine's clock, monotonic
  std::uint64_t BeatAgeMs = 0;  // machine time since the state thread's last sign of life
  std::uint32_t Passes = 0;     // of the state loop
  TMachineSnapshot Machine;
  std::int32_t State = nsStandby;
  bool Running = false;      // a procedure, or it is about to
  bool SafePending = false;  // a device has not acknowledged switching off
  bool AllOff = false;       // everything was stopped at once, and nobody has reset it
  bool AllowMove = true;
  bool AllowLaser = true;
  std::uint32_t Alarms = 0;  // that stand
  // The run that is under way; 0: none.
  std::uint64_t Run = 0;
  std::string Procedure;
  std::string Starter;
  std::uint64_t RunMs = 0;  // machine time since its start
  std::vector<TStepPlace> Path;
  std::optional<std::uint64_t> NobodyMs;  // nobody attends the run, which is stopped in so many ms
};

[[nodiscard]] nlohmann::ordered_json StatusJson(const TStatus& status);

// The last status as the text of its JSON, made once for each language: it is asked for far more often than it changes.
// Any thread.
class TStatusTexts {
 public:
  // `language` is the one of the thread's TLanguageScope.
  [[nodiscard]] std::shared_ptr<const std::string> Of(const TStatus& status, const std::string& language);

 private:
  TCriticalSection FLock;
  std::uint64_t FNumber IXO_GUARDED_BY(FLock) = 0;  // of the status that they are made of
  std::map<std::string, std::shared_ptr<const std::string>> FTexts IXO_GUARDED_BY(FLock);
};

// Positions, and what is on: what changes all the time.
[[nodiscard]] nlohmann::ordered_json SignalsJson(const TMachineSnapshot& now);
// The same backwards; what it lacks stays as in `before`.
[[nodiscard]] TMachineSnapshot SnapshotFromJson(const nlohmann::ordered_json& signals, TMachineSnapshot before = {});
// Whether somebody who sees the one would see another picture in the other.
[[nodiscard]] bool SameSignals(const TMachineSnapshot& a, const TMachineSnapshot& b);
// "standby", "procedure"; a literal of the wire, not for people.
[[nodiscard]] const char* StateWord(std::int32_t state);

}  // namespace ixocontroller
