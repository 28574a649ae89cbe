#include "ixocut/panel/PanelTerminal.h"

#include <algorithm>
#include <cerrno>
#include <poll.h>
#include <string_view>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include "controller/SignalStop.h"
#include "controller/alarms/RunAlarms.h"
#include "ixocamglue/panel/Uknob.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Problem.h"
#include "ixocut/CommandLine.h"
#include "ixocut/panel/TerminalKeys.h"

namespace ixocut {
namespace {

constexpr std::uint64_t kDrawEveryMs = 100;
constexpr int kPollMs = 10;
constexpr std::uint32_t kStopWithinMs = 2000;
constexpr unsigned kWideScreen = 133;
constexpr std::size_t kNarrowColumns = 4;
constexpr const char* kForms[] = {"Work", "DlgReturnOrg", "DlgLaserTest", "Settings"};  // Tab goes round

// Raw keys, a screen of our own, and release events where the terminal has them; all undone at the end.
class TRawTerminal {
 public:
  TRawTerminal() {
    if (!isatty(STDIN_FILENO) || !isatty(STDOUT_FILENO) || tcgetattr(STDIN_FILENO, &FBefore) != 0)
      throw EProblem(pbRequest, "the panel needs a terminal; --script FILE runs without one");
    termios raw = FBefore;
    cfmakeraw(&raw);
    if (tcsetattr(STDIN_FILENO, TCSANOW, &raw) != 0) throw EProblem(pbUnusable, "the terminal cannot be set up");
    Write("\x1b[?1049h\x1b[?25l\x1b[?7l\x1b[>11u\x1b[2J");
  }
  ~TRawTerminal() {
    Write("\x1b[<u\x1b[?7h\x1b[?25h\x1b[?1049l");
    tcsetattr(STDIN_FILENO, TCSANOW, &FBefore);
  }
  TRawTerminal(const TRawTerminal&) = delete;
  TRawTerminal& operator=(const TRawTerminal&) = delete;

  static void Write(std::string_view text) {
    while (!text.empty()) {
      const ssize_t written = ::write(STDOUT_FILENO, text.data(), text.size());
      if (written < 0 && errno == EINTR) continue;
      if (written <= 0) return;
      text.remove_prefix(static_cast<std::size_t>(written));
    }
  }
  static std::size_t Columns() {
    winsize size{};
    const bool wide = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0 || size.ws_col >= kWideScreen;
    return wide ? kPanelColumns : kNarrowColumns;
  }
  // What was typed within kPollMs. False: the terminal has gone, or a signal asks to end.
  static bool Read(std::string& bytes) {
    bytes.clear();
    pollfd wait{STDIN_FILENO, POLLIN, 0};
    if (poll(&wait, 1, kPollMs) > 0) {
      char buffer[256];
      const ssize_t count = ::read(STDIN_FILENO, buffer, sizeof buffer);
      if (count == 0 || (count < 0 && errno != EINTR && errno != EAGAIN)) return false;
      if (count > 0) bytes.assign(buffer, static_cast<std::size_t>(count));
    }
    return !TSignalStop::Asked();
  }

 private:
  termios FBefore{};
};

const char* LevelName(TSpeedState level) { return level == ssLow ? "low" : level == ssNormal ? "normal" : "high"; }

class TPanelScreen {
 public:
  TPanelScreen(TController& session, TPanelHost& host, const TLastLines& log)
      : FController(session), FHost(host), FLog(log) {}

  void Draw() {
    std::string text = "\x1b[H";
    const auto line = [&](const std::string& words) { text += words + "\x1b[K\r\n"; };
    line("ixocut panel      q quit  x reset emergency stop  Tab form  m alt mode");
    line("");
    for (const std::string& row : DrawPanel(FHost.Guard().Leds(), true, TRawTerminal::Columns())) line(row);
    line("");
    const TMachineSnapshot now = FController.Machine().Snapshot();
    const auto& open = FHost.Forms().Open();
    line(Format("form %s   state %d %s   knob %s %.1f mm/s", open.empty() ? "-" : open.back().c_str(), now.State,
                CutStateName(ClassifyCutState(now.State)), LevelName(Knob().GetSpeedState()),
                FController.Params().GetDouble("JogSpeed", FController.Jog().XY().LowJogSpeed)));
    line(Format("X %8.2f  Y %8.2f  Z %7.2f  %s", now.Pos.X, now.Pos.Y, now.Z, now.Moving() ? "moving" : "at rest"));
    line(Format("shutter %s  laser %s  gas %s%s%s", now.Emission ? "open" : "closed", now.Laser ? "ON" : "off",
                now.Gas ? Format("%.1f bar", now.GasBar).c_str() : "off", now.Following ? "  following" : "",
                now.LatchTripped ? ("  LATCHED: " + now.LatchReason).c_str() : ""));
    for (const TNcAlarmRecord& alarm : FController.Alarms().Standing()) line(TRunAlarm::Of(alarm).Words());
    line("");
    for (const std::string& logged : FLog.Lines()) line(logged);
    text += "\x1b[J\x1b[7mSoftware is not the emergency stop.\x1b[0m";
    TRawTerminal::Write(text);
  }

 private:
  TController& FController;
  TPanelHost& FHost;
  const TLastLines& FLog;
};

// False: quit.
bool Command(TPanelHost& host, char command) {
  TKBPManager& manager = *KBPManager();
  switch (command) {
    case 'q': return false;
    case 'x': host.ResetEmergencyStop(); break;
    case 'm':
      for (const TKeyCode key : {CK_RETURN0, CK_RESUME, CK_BREAK_LOCATE}) {
        const bool alt = !manager.KeyItem(key)->GetIsAlt();
        manager.KeyItem(key)->SetAlt(alt, alt);
      }
      break;
    case '\t': {
      const auto& open = host.Forms().Open();
      const std::string top = open.empty() ? "" : open.back();
      const auto it = std::ranges::find(kForms, top);
      const std::size_t next =
          it == std::end(kForms) ? 0 : (static_cast<std::size_t>(it - kForms) + 1) % std::size(kForms);
      host.Guard().ReleaseAll();
      if (!top.empty()) host.Forms().Hide(top);
      host.Forms().Show(kForms[next]);
      break;
    }
    default: break;
  }
  return true;
}

}  // namespace

void TLastLines::Write(const TLogRecord& record) {
  TGuard guard(FLock);
  if (FLines.size() == kLines) FLines.erase(FLines.begin());
  FLines.push_back(record.Text);
}

std::vector<std::string> TLastLines::Lines() const {
  TGuard guard(FLock);
  return FLines;
}

int RunPanelTerminal(TController& session, const TLastLines& log, const TPanelTerminalOptions& options) {
  TRawTerminal terminal;
  TPanelHost host(session);
  host.Forms().Show(options.Form);
  TTerminalKeys keys;
  TPanelScreen screen(session, host, log);
  std::uint64_t drawAt = 0;
  bool go = true;
  std::string bytes;
  while (go && TRawTerminal::Read(bytes)) {
    host.Guard().Alive();
    const std::uint64_t now = Clock().MonotonicMs();
    auto events = keys.Feed(bytes, now);
    const auto released = keys.Tick(now);
    events.insert(events.end(), released.begin(), released.end());
    for (const TTerminalEvent& event : events) {
      switch (event.Kind) {
        case TTerminalEvent::TKind::Press:
          host.Guard().Press(event.Key);
          if (event.Key == CK_KNOB) host.TurnKnob();
          break;
        case TTerminalEvent::TKind::Release: host.Guard().Release(event.Key); break;
        case TTerminalEvent::TKind::Command: go = Command(host, event.Command) && go; break;
      }
    }
    if (now < drawAt) continue;
    screen.Draw();
    drawAt = now + kDrawEveryMs;
  }
  host.Guard().ReleaseAll();
  host.Guard().Press(CK_STOP);
  host.Guard().Release(CK_STOP);
  // The stop is carried out before the threads end.
  for (const std::uint64_t end = Clock().MonotonicMs() + kStopWithinMs; Clock().MonotonicMs() < end;) {
    Clock().Sleep(kPollMs);
    if (session.Framework().CurrentState() == nsStandby && !session.Framework().SafePending() &&
        !session.Machine().Snapshot().Moving())
      break;
  }
  return kExitSuccess;
}

}  // namespace ixocut
