#include "controller/service/LogLines.h"

#include <algorithm>

#include "controller/process/RealTime.h"

namespace ixocontroller {

void TLogLines::Write(const TLogRecord& record) {
  if (record.Diagnostic) return;
  TLogLine line{.UnixMs = RealUnixMs(),
                .MachineMs = record.TimeMs,
                .Kind = record.Kind,
                .Text = record.Text,
                .Source = record.Source};
  TGuard guard(FLock);
  line.Number = ++FLast;
  if (FLines.size() == kLines) FLines.pop_front();
  FLines.push_back(std::move(line));
}

std::vector<TLogLine> TLogLines::After(std::uint64_t number, std::size_t most) const {
  TGuard guard(FLock);
  // Numbers have no gaps.
  const std::uint64_t newer = number < FLast ? FLast - number : 0;
  const auto count = std::min({newer, static_cast<std::uint64_t>(most), static_cast<std::uint64_t>(FLines.size())});
  return {FLines.end() - static_cast<std::ptrdiff_t>(count), FLines.end()};
}

const char* LogLevelWord(std::int32_t kind) {
  switch (kind) {
    case lkTrace: return "trace";
    case lkWarning: return "warning";
    case lkDevice: return "device";
    case lkError:
    case lkException: return "error";
    default: return "info";
  }
}

}  // namespace ixocontroller
