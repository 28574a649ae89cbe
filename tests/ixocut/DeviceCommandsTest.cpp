// The device commands as a user meets them: the real binary against the simulated PLC of another process.
#include <array>
#include <cstdlib>
#include <fcntl.h>
#include <optional>
#include <span>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "fixture/Paths.h"
#include "fixture/Program.h"
#include "fixture/Sockets.h"

namespace ixocamglue::test {
namespace {

using testing::HasSubstr;

// `ixocut simulate plc --tcp 0 ...`, until the end of the scope.
struct TPlcProcess {
  explicit TPlcProcess(std::vector<std::string> words = {}) {
    words.insert(words.begin(), {"simulate", "plc", "--tcp", "0"});
    FProgram.emplace(std::move(words));
    Tcp = FProgram->Next().at("link");
  }
  std::string Tcp;

 private:
  std::optional<TJsonProgram> FProgram;
};

class DeviceCommands : public TProgramTest {
 protected:
  TRun English(const std::string& arguments) const { return Ixocut(arguments, "IXOCUT_LANG=en"); }
};

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
    const auto read = Json("modbus read" + link + " --addr 16 --count 4 --frames --profile " + profile, 0);
    EXPECT_EQ(read["values"], nlohmann::json({1, 0x203, 9, 8}));
    EXPECT_EQ(read["frames"].size(), 2u);
  }
  run = English("modbus read" + link + " --addr 9999 --count 2 --profile strict");
  EXPECT_EQ(run.ExitCode, 3);
  EXPECT_THAT(run.All(), HasSubstr("exception 2 (illegal data address)"));
  EXPECT_EQ(Json("link doctor" + link, 0)["steps"].back()["id"], "more");
}

TEST_F(DeviceCommands, ValuesStandInTheirRegistersAndCoilsAsTheirTypeAndOrderSay) {
  const TPlcProcess plc;
  const struct {
    const char* Form;
    const char* Values;
    nlohmann::json Read, Raw;
  } kRows[] = {
      {"--type int16", "-5,32767", {-5, 32767}, {0xFFFB, 0x7FFF}},
      {"--order BADC", "0x1234", {0x1234}, {0x3412}},
      {"--type uint32", "0x12345678 4294967295", {0x12345678, 4294967295}, {0x1234, 0x5678, 0xFFFF, 0xFFFF}},
      {"--type int32 --order CDAB", "-2147483648", {-2147483648}, {0, 0x8000}},
      {"--type uint32 --order BADC", "0x12345678", {0x12345678}, {0x3412, 0x7856}},
      {"--type uint32 --order DCBA", "0x12345678", {0x12345678}, {0x7856, 0x3412}},
      {"--type float32", "1.5,-0.1", {1.5, -0.1}, {0x3FC0, 0, 0xBDCC, 0xCCCD}},
      {"--coils", "1,0,1", {1, 0, 1}, nullptr},
      {"--coils", "1", {1}, nullptr},
  };
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.Form);
    const std::string place = " --addr 40 --tcp " + plc.Tcp + " ";
    EXPECT_EQ(Json("modbus write" + place + row.Form + " --values " + row.Values, 0)["confirmed"], true);
    const std::string count = " --count " + std::to_string(row.Read.size());
    EXPECT_EQ(Json("modbus read" + place + row.Form + count, 0)["values"], row.Read);
    const std::string shown =
        row.Raw.is_null() ? " --discrete" + count : " --input --count " + std::to_string(row.Raw.size());
    EXPECT_EQ(Json("modbus read" + place + shown, 0)["values"], row.Raw.is_null() ? row.Read : row.Raw);
  }
  // No value is put together from two requests: 62 in each.
  EXPECT_EQ(Json("modbus read --addr 0 --type float32 --count 125 --tcp " + plc.Tcp, 0)["requests"], 3);
}

TEST_F(DeviceCommands, WhatCannotBeWrittenAsAskedIsNotWritten) {
  const TPlcProcess plc;
  for (const char* values :
       {"1,2,,3", "1,2,", ",1", "1 ,2", "1 '' 2", "65536", "-1", "1 --type int16 --order CDAB", "32768 --type int16",
        "1,2 --type float32,", "1e39 --type float32", "nan --type float32", "2 --coils", "1 --coils --type int16",
        "1 --profile exact --timeout 9", "1 --profile exact --coils", "1 --type int8", "1,2 --addr 65535"}) {
    const TRun run = Ixocut("modbus write --tcp " + plc.Tcp + " --addr 0 --values " + values);
    EXPECT_EQ(run.ExitCode, 2) << values << run.All();
  }
  EXPECT_EQ(Json("modbus read --tcp " + plc.Tcp + " --addr 0", 0)["values"], nlohmann::json::array({0}));
  EXPECT_EQ(Ixocut("modbus write --tcp " + plc.Tcp + " --addr 0 --values 1,2 '3, 4'").ExitCode, 0);
  EXPECT_EQ(Json("modbus write --tcp " + plc.Tcp + " --addr 10000 --values 1", 3)["confirmed"], false);
}

// Loopback, where nobody takes a connection: the queue of those that wait is full.
class TFullPort {
 public:
  TFullPort() {
    for (int& end : FEnds) end = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
    (void)TLocalAddress(0).Bind(FEnds[0]);
    (void)::listen(FEnds[0], 0);
    const std::uint16_t port = PortOf(FEnds[0]);
    for (const int end : std::span(FEnds).subspan(1)) (void)TLocalAddress(port).Connect(end);
    Tcp = "127.0.0.1:" + std::to_string(port);
  }
  ~TFullPort() {
    for (const int end : FEnds) ::close(end);
  }
  TFullPort(const TFullPort&) = delete;
  TFullPort& operator=(const TFullPort&) = delete;
  std::string Tcp;

 private:
  std::array<int, 4> FEnds;
};

TEST_F(DeviceCommands, ItEndsWithItsTimeAndWithAnInterruptWhateverItWaitsFor) {
  const TPlcProcess silent({"--misbehave", "silent"});
  const TFullPort full;
  const auto within = [&](const std::string& command, int code, int ms) {
    for (int tries = 2; tries > 0; --tries) {
      const TRun run = English(command + "; code=$?; echo $(($(date +%s%3N) - $from)) >&2; exit $code");
      EXPECT_EQ(run.ExitCode, code) << run.All();
      const int took = std::stoi(run.Err.substr(run.Err.rfind('\n', run.Err.size() - 2) + 1));
      if (took <= 3 * ms) return;
      EXPECT_GT(tries, 1) << command << " took " << took << " ms";
    }
  };
  // It takes interrupts from when it keeps them for itself: until then one is lost, or ends it.
  const std::string takes =
      "for i in $(seq 1000); do "
      "[ $((0x$(sed -n 's/^SigBlk:[[:space:]]*//p' /proc/$!/status) & 2)) = 0 ] || break; "
      "sleep 0.01; done; ";
  for (const std::string& tcp : {silent.Tcp, full.Tcp}) {
    for (const char* what : {"modbus read --timeout 60000 --addr 0", "modbus write --addr 0 --values 1",
                             "modbus read --addr 0 --json", "link doctor"})
      within(what + (" --tcp " + tcp) + " & " + takes + "sleep 0.3; from=$(date +%s%3N); kill -INT $!; wait $!", 1,
             200);
    // With the time that the program needs to start.
    within("--version; from=$(date +%s%3N); " + IxocutBinary() + " modbus read --timeout 400 --addr 0 --tcp " + tcp, 3,
           600);
  }
}

TEST_F(DeviceCommands, WhatWentWrongIsSaidInWords) {
  {
    const TPlcProcess plc({"--misbehave", "silent"});
    const TRun run = English("modbus read --timeout 100 --addr 0 --tcp " + plc.Tcp);
    EXPECT_EQ(run.ExitCode, 3);
    EXPECT_THAT(run.All(), HasSubstr("time-out"));
    EXPECT_THAT(English("modbus write --timeout 100 --addr 0 --values 1 --tcp " + plc.Tcp).All(),
                HasSubstr("time-out; the write may have happened"));
    EXPECT_THAT(English("modbus write --framing rtu --unit 0 --addr 0 --values 1 --tcp " + plc.Tcp).All(),
                HasSubstr("ok: sent to all, not confirmed"));
  }
  {
    const TPlcProcess plc({"--misbehave", "wrong-unit"});
    TRun run = English("modbus read --addr 0 --tcp " + plc.Tcp);
    EXPECT_THAT(run.All(), HasSubstr("invalid reply: the reply is another unit's"));
    run = English("modbus read --addr 0 --json --tcp " + plc.Tcp);
    const auto log = nlohmann::json::parse(run.Out).at("result").at("log");
    EXPECT_EQ(log, nlohmann::json({"Character check failed, CMD0"})) << "in the language that was asked for";
    run = English("link doctor --tcp " + plc.Tcp);
    EXPECT_EQ(run.ExitCode, 3);
    EXPECT_THAT(run.All(), HasSubstr("FAULT Unit 2 answers instead of unit 1\n      -> Try --unit 2"));
  }
  {
    const TPlcProcess plc({"--framing", "rtu", "--misbehave", "close"});
    EXPECT_THAT(English("modbus read --framing rtu --addr 0 --tcp " + plc.Tcp).All(), HasSubstr("connection ended"));
  }
  {
    const TPlcProcess plc({"--framing", "rtu"});
    const std::string write = "modbus write --framing rtu --addr 0 --values 1 --tcp " + plc.Tcp;
    EXPECT_THAT(English(write).Out, HasSubstr("echo probe: unproved"));
    EXPECT_THAT(English(write + " --probe-register 0").Out, HasSubstr("echo probe: proved"));
  }
  {
    const TPlcProcess plc({"--misbehave", "echo"});
    const std::string write = "modbus write --addr 0 --values 1 --tcp " + plc.Tcp;
    EXPECT_EQ(English(write).ExitCode, 0);  // nothing tells it from a reply
    EXPECT_EQ(Json(write + " --probe-register 0", 3)["written"], 0);

    const auto set = [&](const char* name, const std::string& value) {
      EXPECT_EQ(English(std::string("config set ModbusStore/DataTransConfig/") + name + " " + value).ExitCode, 0);
    };
    set("UseTcp", "True");
    set("IsModbusTcp", "True");
    set("TcpPort", plc.Tcp.substr(plc.Tcp.find(':') + 1));
    const std::string named = " --link modbus-store ";
    EXPECT_EQ(Json("modbus write --addr 0 --values 1" + named, 0)["echoProbe"], "unproved");
    set("ProbeRegister", "7");
    EXPECT_EQ(Json("modbus write --addr 0 --values 1" + named, 3)["echoProbe"], "echoed");
    EXPECT_EQ(Json("link doctor" + named, 3)["addr"], 7);
    EXPECT_THAT(English("modbus read --addr 0 --link store").Err, HasSubstr("the links are: modbus-store"));
  }
  EXPECT_THAT(English("modbus read --addr 0 --tcp 127.0.0.1:1").All(), HasSubstr("(Connection refused)"));
  EXPECT_THAT(English("modbus read --addr 0 --tcp name.invalid").All(), HasSubstr("is not resolved"));
  const TTempFolder folder("ixo-line");
  const int line = ::posix_openpt(O_RDWR | O_NOCTTY);
  char name[64] = "";
  ASSERT_TRUE(::grantpt(line) == 0 && ::unlockpt(line) == 0 && ::ptsname_r(line, name, sizeof name) == 0);
  const std::string read = std::string("modbus read --timeout 100 --addr 0 --serial ") + name;
  EXPECT_THAT(English(read + ",9600,e,8,1").All(), HasSubstr("pseudo-terminal"));
  // Nobody answers: the next process would take the late reply.
  const std::string told = (folder.Path() / "told").string();
  EXPECT_THAT(English(read + " 2>" + told + " & until grep -q waiting " + told +
                      "; do sleep 0.05; done; kill -INT $!; wait $!; cat " + told + " >&2")
                  .Err,
              testing::AllOf(HasSubstr("until the line has been silent"), HasSubstr("wait 3 s before the next")));
  ::close(line);
  EXPECT_THAT(English("link doctor --tcp 127.0.0.1:1").All(), HasSubstr("refuses the connection"));
  EXPECT_THAT(English("link doctor --tcp name.invalid").All(), HasSubstr("does not resolve"));
  EXPECT_THAT(English("link doctor --serial /dev/absent").All(), HasSubstr("/dev/absent: No such file or directory"));
}

}  // namespace
}  // namespace ixocamglue::test
