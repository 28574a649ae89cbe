// Moments that are stored: in UTC and with their offset, so that no change of the clocks reorders them. Any thread.
// Nothing throws but AskedMoment.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "ixocamglue/platform/services/Clock.h"

namespace ixocamglue {

// Now, in UTC. A clock that is not the system's has no zone: its wall time counts as UTC.
[[nodiscard]] TDateTime UtcNow();
// "YYYY-MM-DDThh:mm:ss.zzz+00:00"; sorts as the moments do.
[[nodiscard]] std::string FormatUtc(TDateTime utc);
// As the wall clock of this place showed it then, with its offset: "YYYY-MM-DD hh:mm:ss.zzz+08:00".
[[nodiscard]] std::string FormatLocal(TDateTime utc);
// The same of a moment that was stored or told as text; what is none stays as it is.
[[nodiscard]] std::string ShownTime(const std::string& stored);

// The moment of "YYYY-MM-DD", of that with "hh:mm", "hh:mm:ss" or "hh:mm:ss.zzz" behind a blank or a T, and of each of
// these with "Z" or an offset ("+08:00") behind it; without one it is a time of this place. Nothing for anything else.
[[nodiscard]] std::optional<TDateTime> ParseMoment(std::string_view text);
// The same of what somebody asked for; throws EProblem that says what to write, and for what (`where`).
[[nodiscard]] TDateTime AskedMoment(const std::string& text, const char* where);

// Whole milliseconds since 1970, and back.
[[nodiscard]] std::int64_t UnixMs(TDateTime utc);
[[nodiscard]] TDateTime FromUnixMs(std::int64_t ms);  // negative: before 1970
// So many minutes later, to the whole millisecond; a negative number of them earlier.
[[nodiscard]] TDateTime MinutesLater(TDateTime utc, std::int64_t minutes);

}  // namespace ixocamglue
