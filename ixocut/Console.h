// What the program shows: the lines of both logs as they come, then its own results; or, with JSON, one document at the
// end and nothing else. Any thread; lines keep their order.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <span>
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

// What the command line says of what a command shows.
struct TOutputSettings {
  std::string Language = "zh";
  bool Json = false;   // one document instead of text
  bool Trace = false;  // every line of the diagnostic channel, with its level; otherwise the progress of procedures,
                       // and errors in the operator's words. The application log is shown always.
};

class TConsole final : public ILogSink {
 public:
  // `out` outlives the console. `command`: "gas show".
  TConsole(std::ostream& out, std::string command, const TOutputSettings& settings = {});
  ~TConsole() override;

  // The levels to listen to.
  [[nodiscard]] TDiagMask Mask() const { return FSettings.Trace ? kDiagAll : DiagBit(dlProgress) | DiagBit(dlError); }
  // The monotonic time at which the shown times start; set before the first line.
  void SetStart(std::uint64_t ms) { FStartMs = ms; }

  void Write(const TLogRecord& record) override;
  [[nodiscard]] const TOutputSettings& Settings() const { return FSettings; }
  // A line of the program itself; not with JSON.
  void Say(std::string_view line);
  // Several in one piece, so that none of another thread comes between, and who reads them has all.
  void SayLines(std::span<const std::string> lines);
  void SayTable(const TRows& rows) { SayLines(DrawTable(rows)); }
  [[nodiscard]] bool OnTerminal() const { return FTerminal; }
  // A TStatusLine; not with JSON. Where the machine is, with the time.
  void Draw(std::string_view line);
  void Status(std::uint64_t ms, std::string_view text);
  // The log so far, as an array; only with JSON.
  [[nodiscard]] nlohmann::ordered_json Log() const;
  // The one document of the command, or with `lines` one of many, in a line; only with JSON. Returns the exit code of a
  // command that has come to this: "otherwise" with a problem.
  int Print(const nlohmann::ordered_json& result, const std::optional<TProblem>& problem = {}, bool lines = false);
  // A line on the error output, behind the program's and the command's name; takes no lock.
  void Note(std::string_view text) const;
  // Nobody takes any more what is shown.
  [[nodiscard]] bool Broken() const;

 private:
  struct TLine {
    std::uint64_t Ms;
    const char* Level;
    std::string Text;
    std::string Source;
  };

  std::ostream& FOut;
  const std::string FCommand;
  const TOutputSettings FSettings;
  const bool FTerminal;
  std::uint64_t FStartMs = 0;
  mutable TCriticalSection FLock;
  TStatusLine FStatus IXO_GUARDED_BY(FLock);
  std::vector<TLine> FLines IXO_GUARDED_BY(FLock);  // only with JSON
};

}  // namespace ixocut
