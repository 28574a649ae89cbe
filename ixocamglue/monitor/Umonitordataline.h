// The fast way through a data line: a line exactly as the writer makes it, or nothing. Any thread; nothing throws.
#pragma once

#include "ixocamglue/monitor/Usystemmonitordef.h"

namespace ixocamglue {

// How far ParseExactLine may read behind a line's end.
inline constexpr std::size_t kParseSlack = 16;

// Parses the line at `p`, which ends in a line end. Returns where the next line starts, or null for a line in which
// anything is out of the ordinary (blanks, more or fewer values than announced, a number in another form); the frame
// then holds nothing of use. What it takes, it takes as ParseInt and ParseFloat do.
[[nodiscard]] const char* ParseExactLine(const char* p, TMonitorDataFrame& frame);

}  // namespace ixocamglue
