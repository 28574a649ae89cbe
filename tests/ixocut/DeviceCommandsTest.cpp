// The device commands as a user meets them: the real binary against the simulated PLC of another process.
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <spawn.h>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "fixture/Paths.h"
#include "fixture/Program.h"

extern char** environ;

namespace ixocamglue::test {
namespace {

using testing::HasSubstr;

// `ixocut simulate plc --tcp 0 [--misbehave HOW]`, until the end of the scope.
class TPlcProcess {
 public:
  explicit TPlcProcess(const char* misbehave = nullptr) {
    int ends[2];
    if (::pipe(ends) != 0) throw std::runtime_error("no pipe");
    posix_spawn_file_actions_t files;
    ::posix_spawn_file_actions_init(&files);
    ::posix_spawn_file_actions_adddup2(&files, ends[1], STDOUT_FILENO);
    ::posix_spawn_file_actions_addclose(&files, ends[0]);
    const std::string program = IxocutBinary();
    const std::array<const char*, 8> words{
        program.c_str(), "simulate", "plc", "--tcp", "0", misbehave ? "--misbehave" : nullptr, misbehave, nullptr};
    const int error =
        ::posix_spawn(&FChild, words[0], &files, nullptr, const_cast<char* const*>(words.data()), environ);
    ::posix_spawn_file_actions_destroy(&files);
    ::close(ends[1]);
    FOut = ::fdopen(ends[0], "r");
    if (error != 0 || !FOut) throw std::runtime_error("ixocut does not start");
    std::array<char, 200> line{};
    if (!std::fgets(line.data(), static_cast<int>(line.size()), FOut)) return;
    const std::string text = line.data();
    Tcp = text.substr(text.find("127.0.0.1:"));
    Tcp.resize(Tcp.find_first_of(",\n"));
  }
  ~TPlcProcess() {
    ::kill(FChild, SIGINT);
    int status = -1;
    ::waitpid(FChild, &status, 0);
    EXPECT_EQ(status, 0) << "an interrupt ends it with success";
    std::fclose(FOut);
  }
  TPlcProcess(const TPlcProcess&) = delete;
  TPlcProcess& operator=(const TPlcProcess&) = delete;

  std::string Tcp;

 private:
  pid_t FChild = 0;
  std::FILE* FOut = nullptr;
};

class DeviceCommands : public TProgramTest {};

TEST_F(DeviceCommands, RegistersAreWrittenAndReadBackWithTheirFrames) {
  const TPlcProcess plc;
  const std::string link = " --tcp " + plc.Tcp;
  TRun run = Ixocut("modbus write" + link + " --addr 16 --values 1,0x203 --frames");
  EXPECT_EQ(run.ExitCode, 0) << run.All();
  EXPECT_THAT(run.All(), HasSubstr("-> 00 01 00 00 00 0B 01 10 00 10 00 02 04 00 01 02 03\n"));
  run = Ixocut("modbus write" + link + " --addr 18 --values 9 --frames");
  EXPECT_THAT(run.All(), HasSubstr("01 06 00 12 00 09"));
  run = Ixocut("modbus write" + link + " --addr 19 --values 8 --multiple --frames");
  EXPECT_THAT(run.All(), HasSubstr("01 10 00 13 00 01 02 00 08"));
  for (const char* profile : {"strict", "exact"}) {
    run = Ixocut("modbus read" + link + " --addr 16 --count 4 --json --frames --profile " + profile);
    EXPECT_EQ(run.ExitCode, 0) << run.All();
    const auto document = nlohmann::json::parse(run.Out);
    EXPECT_EQ(document["values"], nlohmann::json({1, 0x203, 9, 8}));
    EXPECT_EQ(document["frames"].size(), 2u);
  }
  run = Ixocut("modbus read" + link + " --addr 9999 --count 2 --profile strict");
  EXPECT_EQ(run.ExitCode, 3);
  EXPECT_THAT(run.All(), HasSubstr("exception 2 (illegal data address)"));
  run = Ixocut("link doctor" + link);
  EXPECT_EQ(run.ExitCode, 0) << run.All();
  EXPECT_THAT(run.All(), HasSubstr("Nothing is wrong with this link."));
}

TEST_F(DeviceCommands, AFieldThatIsMissingFromTheValuesWritesNothing) {
  const TPlcProcess plc;
  for (const char* values : {"1,2,,3", "1,2,", ",1", "1 ,2", "1 '' 2"}) {
    const TRun run = Ixocut("modbus write --tcp " + plc.Tcp + " --addr 0 --values " + values);
    EXPECT_EQ(run.ExitCode, 2) << values << run.All();
  }
  EXPECT_THAT(Ixocut("modbus read --tcp " + plc.Tcp + " --addr 0").All(), HasSubstr("    0      0"));
  EXPECT_EQ(Ixocut("modbus write --tcp " + plc.Tcp + " --addr 0 --values 1,2 3,4").ExitCode, 0);
}

TEST_F(DeviceCommands, AnInterruptEndsASingleRequestWhateverItsTimeout) {
  const TPlcProcess plc("silent");
  const TRun run =
      Ixocut("modbus read --timeout 60000 --frames --addr 0 --tcp " + plc.Tcp + " & sleep 0.5; kill -INT $!; wait $!");
  EXPECT_EQ(run.ExitCode, 3);
  EXPECT_THAT(run.All(), HasSubstr("stopped"));
}

TEST_F(DeviceCommands, WhatWentWrongIsSaidInWords) {
  {
    const TPlcProcess plc("silent");
    const TRun run = Ixocut("modbus read --timeout 100 --addr 0 --tcp " + plc.Tcp);
    EXPECT_EQ(run.ExitCode, 3);
    EXPECT_THAT(run.All(), HasSubstr("time-out"));
    EXPECT_THAT(Ixocut("modbus write --timeout 100 --addr 0 --values 1 --tcp " + plc.Tcp).All(),
                HasSubstr("time-out; the write may have happened"));
    EXPECT_THAT(Ixocut("modbus write --framing rtu --unit 0 --addr 0 --values 1 --tcp " + plc.Tcp).All(),
                HasSubstr("ok: sent to all, not confirmed"));
  }
  {
    const TPlcProcess plc("wrong-unit");
    TRun run = Ixocut("modbus read --addr 0 --tcp " + plc.Tcp);
    EXPECT_THAT(run.All(), HasSubstr("invalid reply: the reply is another unit's"));
    run = Ixocut("link doctor --tcp " + plc.Tcp);
    EXPECT_EQ(run.ExitCode, 3);
    EXPECT_THAT(run.All(), HasSubstr("FAULT Unit 2 answers instead of unit 1\n      -> Try --unit 2"));
  }
  EXPECT_THAT(Ixocut("modbus read --addr 0 --tcp 127.0.0.1:1").All(), HasSubstr("no connection"));
  EXPECT_THAT(Ixocut("link doctor --tcp 127.0.0.1:1").All(), HasSubstr("refuses the connection"));
  EXPECT_THAT(Ixocut("link doctor --tcp name.invalid").All(), HasSubstr("does not resolve"));
  EXPECT_THAT(Ixocut("link doctor --serial /dev/absent").All(), HasSubstr("/dev/absent: No such file or directory"));
}

}  // namespace
}  // namespace ixocamglue::test
