// The panel with its threads: refresh and presses side by side, and stop keys while everything else hangs.
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>

#include <gtest/gtest.h>

#include "controller/client/WireClient.h"
#include "controller/panel/PanelHost.h"
#include "controller/panel/TerminalKeys.h"
#include "fixture/Paths.h"
#include "fixture/TempDir.h"
#include "fixture/Waiting.h"
#include "ixocamglue/platform/ports/CutCommands.h"
#include "ixocamglue/support/ChildProcess.h"
#include "machines/simulated/Machine.h"

namespace ixocamglue::test {
using namespace ixocontroller;
namespace {

TControllerOptions Realtime() { return {.Machines = {SimulatedMachine()}, .Realtime = true}; }

// The program in a pseudo-terminal of 80 columns; what it has written so far.
class TTerminalProgram {
 public:
  explicit TTerminalProgram(const std::filesystem::path& state) {
    winsize size{};
    size.ws_col = 80;
    size.ws_row = 24;
    FProgram = forkpty(&FTerminal, nullptr, nullptr, &size);
    if (FProgram == 0) {
      execl(IxocutBinary().c_str(), "ixocut", "panel", "--lang", "en", "--state", state.c_str(), nullptr);
      _exit(127);
    }
  }
  ~TTerminalProgram() {
    if (FProgram > 0) kill(FProgram, SIGKILL), waitpid(FProgram, nullptr, 0);
    if (FTerminal >= 0) close(FTerminal);
  }
  TTerminalProgram(const TTerminalProgram&) = delete;
  TTerminalProgram& operator=(const TTerminalProgram&) = delete;

  [[nodiscard]] bool Runs() const { return FProgram > 0; }
  void Type(std::string_view bytes) const {
    EXPECT_EQ(write(FTerminal, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  }
  // Until it has written this, behind what was looked for last: both may come at once.
  bool Shows(const std::string& text, std::chrono::milliseconds limit = std::chrono::seconds(10)) {
    const auto end = std::chrono::steady_clock::now() + limit;
    std::size_t at = 0;
    while ((at = FWritten.find(text)) == std::string::npos && std::chrono::steady_clock::now() < end) {
      pollfd waiting{FTerminal, POLLIN, 0};
      if (poll(&waiting, 1, 10) <= 0) continue;
      char bytes[4096];
      const ssize_t count = read(FTerminal, bytes, sizeof bytes);
      if (count <= 0) break;
      FWritten.append(bytes, static_cast<std::size_t>(count));
    }
    const bool shows = at != std::string::npos;
    FWritten.erase(0, shows ? at + text.size() : FWritten.size());
    return shows;
  }
  int ExitCode() {
    int status = -1;
    waitpid(std::exchange(FProgram, 0), &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  int FTerminal = -1;
  pid_t FProgram = 0;
  std::string FWritten;  // and not looked at
};

TEST(PanelTerminal, AKeyThatATerminalNeverReleasesEndsByItself) {
  const TTempDir state;
  TTerminalProgram program(state.Path());
  ASSERT_TRUE(program.Runs()) << "no pseudo-terminal can be opened: " << std::strerror(errno);
  ASSERT_TRUE(program.Shows("Software is not the emergency stop."));
  program.Type("\x1b[?11u");  // it reports releases
  program.Type("b");
  EXPECT_TRUE(program.Shows("BREAK: the key has no command"));
  bool ended = false;
  for (int attempt = 0; attempt < 2 && !ended; ++attempt) {
    program.Type("\x1b[1;1:1C");
    EXPECT_TRUE(program.Shows("state 4 jogging"));
    ended = program.Shows("state 0 standby", std::chrono::milliseconds(3 * TTerminalKeys::kFirstMs));
  }
  EXPECT_TRUE(ended);
  program.Type("s");
  EXPECT_TRUE(program.Shows("shutter open"));
  program.Type("eq");
  EXPECT_TRUE(program.Shows("\x1b[?1049l")) << "the terminal is as it was";
  EXPECT_EQ(program.ExitCode(), 0);
}

TEST(PanelTerminal, SitsOnTheControllerThatRunsAndLeavesItRunning) {
  const TTempDir state;
  TChildProcess serve(
      IxocutBinary(),
      {"ixocut", "serve", "--port", "0", "--virtual", "2", "--lang", "en", "--state", state.Path().string()},
      state.Path(), state.Path() / "serve.out");
  for (int i = 0; i < 1000 && !std::filesystem::exists(state.Path() / "controller.json"); ++i)
    ASSERT_FALSE(serve.Wait(std::chrono::milliseconds(10)));
  TTerminalProgram program(state.Path());
  ASSERT_TRUE(program.Runs()) << "no pseudo-terminal can be opened: " << std::strerror(errno);
  EXPECT_TRUE(program.Shows("on the controller at"));
  program.Type("b");
  EXPECT_TRUE(program.Shows("the key has no command"));
  program.Type("\x1b[C");
  EXPECT_TRUE(program.Shows("state 4 jogging"));
  EXPECT_TRUE(program.Shows("state 0 standby"));
  program.Type("e");
  EXPECT_TRUE(program.Shows("LATCHED: emergency stop"));
  program.Type("x");
  EXPECT_TRUE(program.Shows("the emergency stop is reset"));
  program.Type("eq");
  EXPECT_TRUE(program.Shows("\x1b[?1049l")) << "the terminal is as it was";
  EXPECT_EQ(program.ExitCode(), 0);
  EXPECT_FALSE(serve.Wait(std::chrono::milliseconds(0)));
  TWireClient client({.Socket = state.Path() / "controller.sock", .Host = {}}, "", "en");
  EXPECT_TRUE(Comes([&] { return client.Get("/api/v1/status").at("latched") == true; }))
      << "an emergency stop is not lost by leaving at once";
}

TEST(PanelThreaded, RefreshAndPressesFromTwoThreads) {
  TController session(Realtime());
  session.StartThreads();
  TPanelHost host(session);
  TSideThreads others;
  others.KeepDoing(0, [&] { host.Guard().Refresh(); });
  others.KeepDoing(0, [&, i = 0]() mutable {
    session.Alarms().Raise({.IdPrefix = "TPTest", .Desc = "flood", .Id = i++, .Attrs = naForbidCut});
    session.ClearAlarms();
  });
  for (int i = 0; i < 200; ++i) {
    host.Forms().Show(i % 2 ? "Work" : "DlgEdgeSeek");
    for (const TKeyCode key : {CK_RIGHT, CK_GAS, CK_RETURN0, CK_STOP}) {
      host.Guard().Press(key);
      host.Guard().Release(key);
    }
    KBPManager()->KeyItem(CK_RESUME)->SetAlt(i % 2 == 0, true);
  }
  others.End();
  EXPECT_EQ(KBPManager()->CurKeyBits(), 0U);
  const auto stops = std::ranges::count_if(session.Journal().Entries(), [](const TJournalEntry& entry) {
    return entry.Verb == "KeyDown" && entry.Args == "4 0";
  });
  EXPECT_EQ(stops, 200);
}

TEST(PanelThreaded, StopArrivesWhileTheStateThreadHangs) {
  std::atomic<bool> hangs{false}, released{false};  // used by the session's threads
  TController session(Realtime());
  session.StartThreads();
  TPanelHost host(session);
  host.Forms().Show("Work");
  ASSERT_TRUE(Comes([&] { return !session.Framework().SafePending(); }));

  host.Guard().Press(CK_DRY_CUT);
  ASSERT_TRUE(Comes([&] { return session.Machine().Snapshot().AxesMoving; }));
  const auto hang = [&] {
    if (!OnStateThread()) return;
    hangs = true;
    while (!released) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  };
  TCallGate& gate = Simulated(session.Machine()).Gate();
  // Which thread makes the planned call is open; it is planned anew until the state thread has made one.
  ASSERT_TRUE(Comes([&] {
    if (!hangs) gate.PlanSet({.Call = gate.Calls() + 2, .Fault = gfCallback, .Callback = hang});
    return hangs.load();
  }));
  host.Guard().Press(CK_STOP);
  EXPECT_TRUE(Comes([&] { return !session.Machine().Snapshot().AxesMoving; }));
  released = true;
}

}  // namespace
}  // namespace ixocamglue::test
