// One run of one procedure on the simulated machine with one thing, or two, going wrong, and what the oracle says of
// it. One thread; what fails in the run is a violation.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "ixocamglue/platform/states/NcState.h"
#include "ixocamglue/support/Files.h"
#include "verify/SweepCase.h"
#include "verify/SweepTask.h"

namespace ixoverify {
using namespace ixocontroller;

enum class TSweepEmission : std::uint8_t { Configured, AtOnce, AfterOnePoll, AfterEightPolls, Never };
enum class TSweepCall : std::uint8_t { None, Stop, Alarm, SecondProcedure };
// What happens at the tick, instead of an abort.
enum class TSweepEvent : std::uint8_t { Abort, LaserAlarm, LostEmission, End, PalletExchange };

// What goes wrong in one run.
struct TSweepPoint {
  std::optional<std::uint32_t> AbortTick;  // after so many ticks
  std::int32_t Reason = srStop;
  TSweepEvent Event = TSweepEvent::Abort;
  TSweepEmission Emission = TSweepEmission::Configured;
  std::uint64_t DeviceCall = 0;  // counted from the start of the procedure, or from the abort; 0: none
  bool FromAbort = false;
  bool Sticky = false;
  bool Refused = false;  // the device ignores the call instead of throwing
  TSweepCall Callback = TSweepCall::None;
  std::uint32_t HangMs = 0;  // so long the call takes
  std::uint64_t SinkCall = 0;
  bool SafeEntry = true;
  bool Supervisor = false;
  // Where the clock starts; 0: as usual.
  std::uint32_t FirstTick = 0;
  std::uint64_t FirstMs = 0;

  [[nodiscard]] bool Undisturbed() const;
  [[nodiscard]] std::string Text() const;
};

struct TSweepFacts : TSweepVerdict {
  std::uint32_t Ticks = 0;
  std::uint64_t DeviceCalls = 0;
  std::uint64_t CallsAfterAbort = 0;  // until the procedure has ended
  std::uint64_t SinkCalls = 0;
  std::uint64_t EnteredMs = 0;  // of the clock, since its start
  std::uint64_t LastedMs = 0;
};

// The machine file of the runs: a copy of the example, which procedures may write and each run finds as it was. Lives
// as long as the sweep; its folder goes with it.
class TSweepMachine {
 public:
  TSweepMachine();  // throws EProblem when the example cannot be read or no folder be made
  [[nodiscard]] const std::filesystem::path& Fresh();

 private:
  const std::string FBytes;
  const TTempFolder FFolder{"ixocut-sweep"};
  const std::filesystem::path FFile = FFolder.Path() / "machine.xml";
  std::filesystem::file_time_type FWritten;
};

// In virtual time, on the calling thread. `tracing`: the diagnostic channel is listened to.
[[nodiscard]] TSweepFacts RunSweepPoint(const TSweepCase& what, const TSweepPoint& point, TSweepMachine& machine,
                                        bool tracing = false);

}  // namespace ixoverify
