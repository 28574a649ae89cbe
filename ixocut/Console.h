// What the program shows: the lines of both logs as they come, then its own results; or, with JSON, one document at the
// end and nothing else. Any thread; lines keep their order.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "commandline/StatusLine.h"
#include "commandline/Table.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/support/Locks.h"
#include "ixocamglue/support/Problem.h"

namespace ixocut {
using namespace ixocamglue;
using namespace ixocommandline;

class TConsole final : public ILogSink {
 public:
  // `out` outlives the console. `trace`: every line of the diagnostic channel, with its level; otherwise the progress
  // of procedures, and errors in the operator's words. The application log is shown always.
  TConsole(std::ostream& out, bool json, bool trace);

  // The levels to listen to.
  [[nodiscard]] TDiagMask Mask() const { return FTrace ? kDiagAll : DiagBit(dlProgress) | DiagBit(dlError); }
  // The monotonic time at which the shown times start; set before the first line.
  void SetStart(std::uint64_t ms) { FStartMs = ms; }

  void Write(const TLogRecord& record) override;
  // A line of the program itself; not with JSON.
  void Say(std::string_view line);
  void SayTable(const TRows& rows);
  [[nodiscard]] bool OnTerminal() const { return FTerminal; }
  // Where the machine is, as a TStatusLine; not with JSON.
  void Status(std::uint64_t ms, std::string_view text);
  // The log so far, as an array; only with JSON.
  [[nodiscard]] nlohmann::ordered_json Log() const;
  // The one document of a command; only with JSON.
  void Print(std::string_view command, const nlohmann::ordered_json& result,
             const std::optional<TProblem>& problem = {});

 private:
  struct TLine {
    std::uint64_t Ms;
    const char* Level;
    std::string Text;
    std::string Source;
  };

  std::ostream& FOut;
  const bool FJson;
  const bool FTrace;
  const bool FTerminal;
  std::uint64_t FStartMs = 0;
  mutable TCriticalSection FLock;
  TStatusLine FStatus IXO_GUARDED_BY(FLock);
  std::vector<TLine> FLines IXO_GUARDED_BY(FLock);  // only with JSON
};

}  // namespace ixocut
