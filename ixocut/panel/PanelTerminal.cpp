#include "ixocut/panel/PanelTerminal.h"

#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include "controller/panel/TerminalKeys.h"
#include "controller/process/SignalStop.h"
#include "ixocamglue/platform/services/Clock.h"
#include "ixocut/Command.h"

namespace ixocut {
namespace {

constexpr std::uint64_t kDrawEveryMs = 100;
constexpr int kPollMs = 10;
constexpr std::uint64_t kLastWriteMs = 500;  // for a terminal that takes nothing
constexpr std::size_t kUsualRows = 24;

// Raw keys, a screen of our own, and release events where the terminal has them; all undone at the end. A terminal that
// takes nothing holds nobody up: what is written waits.
class TRawTerminal {
 public:
  TRawTerminal() {
    CheckTerminal();
    if (tcgetattr(STDIN_FILENO, &FBefore) != 0) throw EProblem(pbUnusable, Tr("the terminal cannot be set up"));
    termios raw = FBefore;
    cfmakeraw(&raw);
    if (tcsetattr(STDIN_FILENO, TCSANOW, &raw) != 0) throw EProblem(pbUnusable, Tr("the terminal cannot be set up"));
    // Opened anew: who else has the terminal open keeps waiting for it.
    if (const char* const name = ttyname(STDOUT_FILENO))
      FFile = open(name, O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    // The last but one asks whether the request before it was understood; TTerminalKeys reads the answer.
    Write("\x1b[?1049h\x1b[?25l\x1b[?7l\x1b[>11u\x1b[?u\x1b[2J");
  }
  ~TRawTerminal() {
    Write("\x1b[0m\x1b[<u\x1b[?7h\x1b[?25h\x1b[?1049l");
    for (const std::uint64_t end = Clock().MonotonicMs() + kLastWriteMs; !Flush() && Clock().MonotonicMs() < end;)
      Clock().Sleep(kPollMs);
    if (FFile >= 0) close(FFile);
    tcsetattr(STDIN_FILENO, TCSANOW, &FBefore);
  }
  TRawTerminal(const TRawTerminal&) = delete;
  TRawTerminal& operator=(const TRawTerminal&) = delete;

  void Write(std::string_view text) {
    FPending += text;
    (void)Flush();
  }
  // What waits to be written; true: nothing any more.
  bool Flush() {
    while (!FPending.empty()) {
      const ssize_t written = ::write(FFile >= 0 ? FFile : STDOUT_FILENO, FPending.data(), FPending.size());
      if (written < 0 && errno == EINTR) continue;
      if (written <= 0) break;
      FPending.erase(0, static_cast<std::size_t>(written));
    }
    return FPending.empty();
  }
  static winsize Size() {
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) size.ws_col = kScreenColumns;
    if (size.ws_row == 0) size.ws_row = kUsualRows;
    return size;
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
  int FFile = -1;  // the terminal, without waiting; -1: the standard output
  std::string FPending;
};

void Draw(TRawTerminal& terminal, const TPanelView& view) {
  const winsize size = TRawTerminal::Size();
  const std::vector<std::string> lines = PanelScreen(view, size.ws_col, size.ws_row);
  std::string text = "\x1b[H";
  for (std::size_t i = 0; i < lines.size(); ++i)
    text += i + 1 < lines.size() ? lines[i] + "\x1b[K\r\n" : "\x1b[J\x1b[7m" + lines[i] + "\x1b[0m";
  terminal.Write(text);
}

}  // namespace

void CheckTerminal() {
  if (!isatty(STDIN_FILENO) || !isatty(STDOUT_FILENO))
    throw EProblem(pbRequest, Tr("the panel needs a terminal; --script FILE runs without one"));
}

int RunPanelTerminal(IPanelSeat& seat) {
  TRawTerminal terminal;
  TTerminalKeys keys = KeysFor(seat);
  std::uint64_t drawAt = 0;
  bool go = true;
  std::string bytes;
  while (go && TRawTerminal::Read(bytes)) {
    seat.Alive();
    const std::uint64_t now = Clock().MonotonicMs();
    auto events = keys.Feed(bytes, now);
    const auto released = keys.Tick(now);
    events.insert(events.end(), released.begin(), released.end());
    for (const TTerminalEvent& event : events) go = Act(seat, event) && go;
    if (!terminal.Flush() || now < drawAt) continue;
    Draw(terminal, seat.View());
    drawAt = now + kDrawEveryMs;
  }
  seat.Leave();
  return kExitSuccess;
}

}  // namespace ixocut
