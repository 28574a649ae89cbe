// The operator texts of the program: catalogue section "IxoCut", the key is the constant's name.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <type_traits>

#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
using namespace ixocamglue;

extern constinit TText SRowState, SRowEmission, SRowLaser, SRowGas;  // names of the timeline's rows
extern constinit TText SShotTitle, SShotEnded, SShotTooEarly, SShotNotDark;
extern constinit TText SEndSuccess, SEndStopped, SEndPaused, SEndAlarm, SEndError, SEndRefused, SEndNever;
extern constinit TText SAskedAlarm, SSignalStop;
extern constinit TText SWatchBusy, SWatchEmission, SWatchLaser, SWatchGas, SWatchBeat, SWatchEmergency;
extern constinit TText SWatchAlarm, SWatchStop, SWatchLatch;
extern constinit TText SLinesDropped;
extern constinit TText SRunSteps, SRunPath, SRunStillOn, SRunFailed, SRunFailedAt;
extern constinit TText SRowOutput, SRowFollow, SPlotPath, SPlotZ, SPlotSignals;

[[nodiscard]] std::span<TText* const> HostTexts();

// An operator text with its arguments. The locale reader lets only texts with the default's conversions in, so what
// fits the default fits every language.
template <class... Args>
[[nodiscard]] std::string Show(const TText& text, Args... args) {
  static_assert(((std::is_same_v<Args, int> || std::is_same_v<Args, const char*>)&&...));
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
  return Format(text.Get(), args...);
#pragma GCC diagnostic pop
}

// Milliseconds for a %d.
[[nodiscard]] int ShownMs(std::uint64_t ms);

}  // namespace ixocontroller
