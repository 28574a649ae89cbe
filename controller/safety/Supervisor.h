// The supervisor: watches the running machine from outside the machine logic and steps in when something lasts too
// long.
//
// One round per 20 ms of the clock, on a thread of its own or called by a virtual clock; one caller at a time. Apart
// from its actions a round reads atomics only, so nothing that hangs can hold it up. Times are monotonic ms.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "ixocamglue/platform/states/NcWatch.h"
#include "ixocamglue/platform/xml/Bounds.h"

namespace ixocontroller {
using namespace ixocamglue;

// Called with the reason, an operator text. What one throws is logged and changes nothing.
struct TSupervisorActions {
  using TAction = std::function<void(const std::string& reason)>;
  TAction Fail;            // ends the procedure with an error
  TAction Alarm;           // raises an alarm that ends the procedure
  TAction Stop;            // stops the procedure
  TAction Latch;           // laser and emission off until reset by hand
  TAction Emergency = {};  // the same, as the emergency stop's own
};

inline constexpr std::uint32_t kSupervisorRoundMs = 20;
inline constexpr std::uint32_t kDarkWithinMs = 100;
inline constexpr std::uint32_t kStaysLitMs = 1000;
inline constexpr const char* kSupervisorAlarmPrefix = "TPSupervisor";

//   something is broken     | since    | action
//   ------------------------+----------+--------
//   first seen              | 0        | Alarm; Fail, when what has failed is a height calibration
//   still, or another thing | StepMs   | Stop
//   still, or another thing | 2 StepMs | Latch
//   nothing any more        |          | the next time starts with Alarm again
//
// A beam that the state framework has not made dark kDarkWithinMs after its cause gets Latch and Stop, past the ladder;
// and one that reads as lit for kStaysLitMs although it was told to go off, or nobody asks for it, in whatever state.
class TSupervisor {
 public:
  // `state` gives the number of the current machine state and reads an atomic. `watch` outlives the supervisor.
  TSupervisor(const TNcWatch& watch, std::function<std::int32_t()> state, const TMachineBounds& machine,
              TSupervisorActions actions);

  void Round(std::uint64_t nowMs);
  // Stop and latch at once, past everything else. Any thread, also during a round.
  void EmergencyStop();
  // What lasts too long, an operator text. Any thread.
  [[nodiscard]] std::optional<std::string> Broken(std::uint64_t nowMs) const;

 private:
  enum class TRung : std::uint8_t { Watching, Alarmed, Stopped, Latched };

  struct TBroken {
    std::string Reason;
    bool Fails = false;  // no alarm: the procedure ends with an error
  };
  [[nodiscard]] std::optional<TBroken> TooLong(std::uint64_t nowMs) const;
  [[nodiscard]] std::optional<TBroken> WaitTooLong(std::uint64_t nowMs) const;
  void SeeProgress(std::uint64_t nowMs);
  void WatchBeam(std::uint64_t nowMs);
  void Climb(const TBroken& broken, std::uint64_t nowMs);
  void LatchAndStop(const TSupervisorActions::TAction& latch, const std::string& reason);

  // constant after construction
  const TNcWatch& FWatch;
  const std::function<std::int32_t()> FState;
  const TSupervisorConfig FLimits;  // in force
  const std::int32_t FEmissionMs;   // emission asked for and absent: this long
  const TSupervisorActions FActions;

  TRung FRung = TRung::Watching;
  std::uint64_t FNextAt = 0;  // when the next rung is due
  TNcSince FBeamCause;        // seen by the rounds
  TNcSince FStaysLit;         // the same
  bool FBeamAnswered = false;
  std::array<double, kWatchAxes> FPos{};  // when an axis last made way
  std::atomic<std::uint64_t> FWayMadeAt{0};
};

}  // namespace ixocontroller
