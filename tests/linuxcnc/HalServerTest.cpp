// ixocut-hal's end of the wire, without LinuxCNC: its pins are made of memory, its time by hand, its socket is real.
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>

#include "fixture/Sockets.h"
#include "ixocamglue/support/Files.h"
#include "machines/linuxcnc/hal/HalServer.h"

namespace ixocamglue::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class TMemoryPins final : public IHalPins {
 public:
  [[nodiscard]] double Read(std::size_t pin) const override { return Values.at(pin); }
  void Write(std::size_t pin, double value) override { Values.at(pin) = value; }
  [[nodiscard]] double ServoSeconds() const override { return Servo; }
  void SetHeartbeat(bool on) override {
    Beats += on != Heartbeat ? 1 : 0;
    Heartbeat = on;
  }
  void SetRearm(bool on) override { Rearm = on; }
  void SetClient(bool on) override { Client = on; }

  std::vector<double> Values = std::vector<double>(4);
  double Servo = 0.0;
  int Beats = 0;
  bool Heartbeat = false, Rearm = false, Client = false;
};

enum TPin : std::size_t { pnLaser, pnVolt, pnTool, pnGap };

class HalServer : public testing::Test {
 protected:
  HalServer()
      : FServer(*ParseHalPins("bit out laser\nfloat out volt\ns32 out tool\nfloat in gap"), FPins,
                [this] { return FNow; }) {
    EXPECT_TRUE(FServer.Listen(FPath).Ok());
  }
  ~HalServer() override {
    for (const int fd : FOpen) close(fd);
  }

  int Connect(const std::string& line) {
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    EXPECT_TRUE(TLocalAddress(FPath).Connect(fd));
    FOpen.push_back(fd);
    Say(fd, line);
    return fd;
  }
  void Say(int fd, const std::string& line) {
    EXPECT_EQ(send(fd, line.data(), line.size(), MSG_NOSIGNAL), static_cast<ssize_t>(line.size()));
    FServer.Round();
  }
  // Rounds of 5 ms.
  void Pass(std::uint64_t ms) {
    for (const std::uint64_t end = FNow + ms; FNow < end;) {
      FNow += 5;
      if (FServoRuns) FPins.Servo += 0.005;
      FServer.Round();
    }
  }
  // What has come; "[end]" when the connection has.
  static std::string Heard(int fd) {
    std::string text;
    char bytes[4096];
    for (;;) {
      const auto count = recv(fd, bytes, sizeof bytes, MSG_DONTWAIT);
      if (count == 0) return text + "[end]";
      if (count < 0) return errno == EAGAIN ? text : text + "[end]";
      text.append(bytes, static_cast<std::size_t>(count));
    }
  }
  [[nodiscard]] bool AllOff() const {
    return FPins.Values[pnLaser] == 0.0 && FPins.Values[pnVolt] == 0.0 && FPins.Values[pnTool] == 0.0 &&
           !FPins.Client && !FPins.Rearm;
  }
  int CommandWithAllOn() {
    const int fd = Connect("hello 1 command\nset 1 laser 1\nset 2 volt 4.5\nset 3 tool -7\nrearm 4\n");
    EXPECT_THAT(FPins.Values, ElementsAre(1.0, 4.5, -7.0, 0.0));
    EXPECT_TRUE(FPins.Rearm && FPins.Client);
    return fd;
  }

  const TTempFolder FFolder{"ixo-hal"};
  const std::string FPath = FFolder.Path() / "hal.sock";
  std::uint64_t FNow = 1000;
  bool FServoRuns = true;
  TMemoryPins FPins;
  THalServer FServer;
  std::vector<int> FOpen;
};

TEST_F(HalServer, GreetsWithItsPinsAndTellsThemAll) {
  struct stat facts {};
  ASSERT_EQ(stat(FPath.c_str(), &facts), 0);
  EXPECT_EQ(facts.st_mode & 0777U, 0600U);
  FPins.Values[pnGap] = 1.5;
  const int fd = Connect("hello 1 watch\n");
  Pass(10);
  EXPECT_EQ(Heard(fd),
            "hello 1 4 watch\npin bit out laser\npin float out volt\npin s32 out tool\npin float in gap\n"
            "full 1 10 0 laser=0 volt=0 tool=0 gap=1.5\n");
  FPins.Values[pnGap] = 1.25;
  Pass(20);
  EXPECT_EQ(Heard(fd), "state 2 20 0 gap=1.25\nstate 3 30 0\n");
  Pass(970);
  EXPECT_THAT(Heard(fd), HasSubstr("full 100 1000 0 laser=0 volt=0 tool=0 gap=1.25\n"));
}

TEST_F(HalServer, OneCommandsAndIsReadBackOthersWatch) {
  const int first = Connect("hello 1 command\n");
  const int second = Connect("hello 1 command\n");
  Say(first, "set 7 laser 1\n");
  Pass(10);
  EXPECT_THAT(Heard(first), HasSubstr("full 1 10 7 laser=1 "));
  EXPECT_THAT(Heard(second), testing::AllOf(HasSubstr("hello 1 4 watch\n"), HasSubstr("full 1 10 0 laser=1 ")));
  Say(second, "set 8 laser 0\n");
  EXPECT_THAT(Heard(second), testing::EndsWith("bye wrong\n[end]"));
  EXPECT_EQ(FPins.Values[pnLaser], 1.0);
  close(first);
  FOpen.erase(FOpen.begin());
  FServer.Round();
  EXPECT_TRUE(AllOff());
  EXPECT_THAT((Pass(10), Heard(Connect("hello 1 command\n"))), HasSubstr("hello 1 4 command\n"));
}

TEST_F(HalServer, OnlyABeatTogglesTheHeartbeat) {
  const int fd = CommandWithAllOn();
  std::uint64_t number = 10;
  for (int i = 0; i < 5; ++i) {
    Say(fd, "beat " + std::to_string(++number) + "\n");
    Pass(20);
  }
  EXPECT_EQ(FPins.Beats, 5);
  for (int i = 0; i < 40; ++i) {
    Say(fd, "alive " + std::to_string(++number) + "\n");
    Pass(20);
  }
  EXPECT_EQ(FPins.Beats, 5);
  EXPECT_EQ(FPins.Values[pnLaser], 1.0);  // what is off and on is the controller's matter as long as it lives
  EXPECT_FALSE(FPins.Rearm);              // a pulse
  FServer.End();
  EXPECT_EQ(FPins.Beats, 5);
}

TEST_F(HalServer, EveryOutputIsOffWhenTheClientIsSilentOrWrong) {
  const int silent = CommandWithAllOn();
  Pass(300);
  EXPECT_FALSE(AllOff());
  Pass(5);
  EXPECT_TRUE(AllOff());
  EXPECT_THAT(Heard(silent), testing::EndsWith("bye silent\n[end]"));
  for (const char* const line : {"set 5 gap 1\n", "set 5 nothing 1\n", "set 5 laser 2\n", "set 5 tool 0.5\n",
                                 "set 5 tool 3e9\n", "set 4 volt 1\n", "hello 1 command\n", "rearm\n"}) {
    const int fd = CommandWithAllOn();
    Say(fd, line);
    EXPECT_TRUE(AllOff()) << line;
    EXPECT_THAT(Heard(fd), testing::EndsWith("bye wrong\n[end]")) << line;
  }
  const int fd = CommandWithAllOn();
  Say(fd, std::string(kHalAskMax + 1, 'x'));
  EXPECT_TRUE(AllOff());
  EXPECT_THAT(Heard(fd), testing::EndsWith("bye wrong\n[end]"));
}

TEST_F(HalServer, WhatWaitedWhileItWasHeldUpIsNotCarriedOut) {
  const int fd = CommandWithAllOn();
  const std::string late = "beat 5\nset 6 laser 0\nset 7 laser 1\nrearm 8\n";
  ASSERT_EQ(send(fd, late.data(), late.size(), 0), static_cast<ssize_t>(late.size()));
  FNow += kHalStallMs + 1;
  FPins.Servo += 0.1;
  FServer.Round();
  EXPECT_TRUE(AllOff());
  EXPECT_EQ(FPins.Beats, 0);
  EXPECT_THAT(Heard(fd), testing::EndsWith("bye stalled\n[end]"));
  Connect("hello 1 command\n");
  EXPECT_TRUE(FPins.Client);
}

// Nobody's beam comes back when the realtime process goes on: for the latch no time has passed.
TEST_F(HalServer, EveryOutputIsOffWhileTheRealtimeProcessStandsStill) {
  const int fd = CommandWithAllOn();
  FServoRuns = false;
  Pass(kHalStallMs);
  EXPECT_FALSE(AllOff());
  Pass(5);
  EXPECT_TRUE(AllOff());
  EXPECT_THAT(Heard(fd), testing::EndsWith("bye realtime\n[end]"));
  EXPECT_EQ(Heard(Connect("hello 1 command\nset 1 laser 1\n")), "bye realtime\n[end]");
  EXPECT_TRUE(AllOff());
}

TEST_F(HalServer, EveryOutputIsOffWhenItEnds) {
  const int fd = CommandWithAllOn();
  FServer.End();
  EXPECT_TRUE(AllOff());
  EXPECT_THAT(Heard(fd), testing::EndsWith("bye ends\n[end]"));
  EXPECT_NE(access(FPath.c_str(), F_OK), 0);
}

// As for a pin that was netted after it was written, to a signal that a killed one has left.
TEST_F(HalServer, OutputsAreWrittenOffAgainWhileNobodyCommands) {
  FPins.Values[pnLaser] = 1.0;
  Pass(10);
  EXPECT_TRUE(AllOff());
}

TEST_F(HalServer, RefusesStrangersAndAPathThatIsTaken) {
  EXPECT_EQ(Heard(Connect("hello 2 command\n")), "bye version\n[end]");
  EXPECT_EQ(Heard(Connect("set 1 laser 1\n")), "bye wrong\n[end]");
  const int mute = Connect("");
  Pass(305);
  EXPECT_EQ(Heard(mute), "bye silent\n[end]");
  for (std::size_t i = 0; i < THalServer::kClientsMax; ++i) Connect("hello 1 watch\n");
  EXPECT_EQ(Heard(Connect("hello 1 watch\n")), "bye crowded\n[end]");

  TMemoryPins pins;
  THalServer other({}, pins, [] { return std::uint64_t{0}; });
  EXPECT_THAT(other.Listen(FPath).Problem().Text(), HasSubstr("another ixocut-hal listens here"));
  EXPECT_THAT(other.Listen(FFolder.Path()).Problem().Text(), HasSubstr("this is no socket"));
  EXPECT_FALSE(other.Listen(std::string(200, 'x')).Ok());
  FServer.End();
  const int dead = socket(AF_UNIX, SOCK_STREAM, 0);  // leaves its file behind
  ASSERT_TRUE(TLocalAddress(FPath).Bind(dead));
  close(dead);
  EXPECT_TRUE(other.Listen(FPath).Ok());
}

}  // namespace
}  // namespace ixocamglue::test
