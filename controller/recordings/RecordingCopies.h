// Files that are made of a recording: a plain table, and what a killed writer has left of it. Any thread.
#pragma once

#include <cstdint>
#include <string>

#include "controller/recordings/Recording.h"
#include "ixocamglue/monitor/Umonitorsink.h"

namespace ixocontroller {

inline constexpr const char* kTimeColumn = "time (ms)";  // what a table begins with
// One row per sample time, one column per signal, parted by commas; a field is empty where the signal has no sample
// then. Answers the rows behind the head. Throws EProblem where the sink does.
std::uint64_t WriteTable(const TRecording& recording, IMonitorSink& sink);

struct TWholeLines {
  std::uint64_t Copied = 0;  // bytes
  std::string Dropped;       // a last line that was cut off
};
// Every whole line of the file, whatever it holds. Throws EProblem for a file that cannot be read or has none.
[[nodiscard]] TWholeLines CopyWholeLines(const std::string& file, IMonitorSink& sink);

}  // namespace ixocontroller
