// The last lines of the application log, for who asks later. Any thread. Nothing throws but for memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/support/Locks.h"

namespace ixocontroller {
using namespace ixocamglue;

struct TLogLine {
  std::uint64_t Number = 0;  // from 1 on
  std::int64_t UnixMs = 0;
  std::uint64_t MachineMs = 0;
  std::int32_t Kind = lkInfo;
  std::string Text;  // in the controller's language
  std::string Source;
};

class TLogLines final : public ILogSink {
 public:
  static constexpr std::size_t kLines = 2000;

  void Write(const TLogRecord& record) override;
  // Those behind this number, the newest `most` of them, in order.
  [[nodiscard]] std::vector<TLogLine> After(std::uint64_t number, std::size_t most) const;

 private:
  mutable TCriticalSection FLock;
  std::deque<TLogLine> FLines IXO_GUARDED_BY(FLock);
  std::uint64_t FLast IXO_GUARDED_BY(FLock) = 0;
};

// "info", "trace", "warning", "device", "error".
[[nodiscard]] const char* LogLevelWord(std::int32_t kind);

}  // namespace ixocontroller
