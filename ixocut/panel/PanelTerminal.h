// The key panel in a terminal, in real time: the keys with their LEDs, the machine below, the last lines of the log.
#pragma once

#include "ixocut/panel/PanelHost.h"

namespace ixocut {

struct TPanelTerminalOptions {
  std::string Form = "Work";  // shown at the start
};

// The last lines of both logs for the screen. Any thread.
class TLastLines final : public ILogSink {
 public:
  static constexpr std::size_t kLines = 6;
  void Write(const TLogRecord& record) override;
  [[nodiscard]] std::vector<std::string> Lines() const;

 private:
  mutable TCriticalSection FLock;
  std::vector<std::string> FLines IXO_GUARDED_BY(FLock);
};

// Until the operator quits or a signal ends it; then everything is stopped and the terminal is as it was. Throws
// EProblem when standard input or output is no terminal. The session's threads run.
int RunPanelTerminal(TController& session, const TLastLines& log, const TPanelTerminalOptions& options);

}  // namespace ixocut
