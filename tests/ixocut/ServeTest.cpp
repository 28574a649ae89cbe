// The controller that stays up, as its users meet it: the real program, its sockets, its files and its signals.
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <sstream>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "controller/client/WireClient.h"
#include "fixture/Certificates.h"
#include "fixture/Paths.h"
#include "fixture/Program.h"
#include "fixture/Waiting.h"
#include "ixocamglue/support/ChildProcess.h"
#include "ixocamglue/support/Files.h"

namespace ixocamglue::test {
namespace {

using namespace std::chrono_literals;
using ixocontroller::TWireClient;
using testing::HasSubstr;

class Serve : public TProgramTest {
 protected:
  Serve() {
    FLanguage = "en";
    ::setenv("XDG_STATE_HOME", FDir.Path().c_str(), 1);
    ::setenv("IXOCUT_LANG", "en", 1);
  }
  ~Serve() override {
    ::unsetenv("XDG_STATE_HOME");
    ::unsetenv("IXOCUT_LANG");
  }

  // A controller whose machine lives 50 times as fast, on a port of its own; its address.
  std::string Start(const std::string& more = {}) {
    std::vector<std::string> words{"ixocut", "serve", "--json", "--port", "0"};
    std::istringstream in(more.empty() ? "--virtual 50" : more);
    words.insert(words.end(), std::istream_iterator<std::string>(in), {});
    FServe = std::make_unique<TChildProcess>(IxocutBinary(), words, FDir.Path(), FDir.Path() / "serve.out");
    for (const auto end = std::chrono::steady_clock::now() + 10s; std::chrono::steady_clock::now() < end;) {
      if (FServe->Wait(5ms)) break;
      if (const auto document = Document(); document.is_object()) return document.at("result").at("url");
    }
    ADD_FAILURE() << Read("serve.out");
    return {};
  }

  // What it says of itself; its log stands around it where that is the journal's.
  [[nodiscard]] nlohmann::json Document() const {
    const std::string said = Read("serve.out");
    const std::size_t at = std::min(said.find('{'), said.size());
    return nlohmann::json::parse(said.substr(at, said.find('\n', at) - at), nullptr, false);
  }

  std::unique_ptr<TChildProcess> FServe;
};

TEST_F(Serve, EveryCommandTalksToTheOneControllerOfItsStateFolder) {
  EXPECT_EQ(Ixocut("status").ExitCode, 1);
  const std::string url = Start();
  const auto status = Json("status", 0);
  EXPECT_EQ(status.at("state"), "standby");
  EXPECT_THAT(Ixocut("status --url " + url).Out, HasSubstr("standby"));

  const TRun second = Ixocut("serve --port 0");
  EXPECT_EQ(second.ExitCode, 1);
  EXPECT_THAT(second.Err, HasSubstr(url));

  // Whoever looks at its threads sees by their names what each is for.
  const std::string process =
      std::to_string(nlohmann::json::parse(Read("ixocut/controller.json")).at("process").get<int>());
  std::vector<std::string> unnamed;
  for (const auto& task : std::filesystem::directory_iterator("/proc/" + process + "/task"))
    if (const std::string name = ReadFile(task.path() / "comm").OrThrow(pbUnusable); name == "ixocut\n")
      unnamed.push_back(task.path().filename());
  EXPECT_THAT(unnamed, testing::ElementsAre(process));

  // The same beam in one controller: its clock is where the run before has left it.
  const auto shot = Json("shot --ms 100", 0);
  EXPECT_EQ(shot.at("outcome"), "success");
  EXPECT_GT(Json("status", 0).at("machineMs"), status.at("machineMs").get<std::uint64_t>() + 900);

  // What needs no rights is shown to everybody on this machine; what commands needs a token.
  const TRun stranger = Ixocut("shot --ms 100 --url " + url);
  EXPECT_EQ(stranger.ExitCode, 1) << stranger.All();
  const std::string token = Ixocut("token add kitchen").Out;
  const TRun known = Ixocut("shot --ms 100 --url " + url, "IXOCUT_TOKEN=" + token.substr(0, token.find('\n')));
  EXPECT_EQ(known.ExitCode, 0) << known.All();

  // Somebody else's program, over both ways.
  const std::string client = "python3 '" + TestSources() + "/../examples/client/ixocut_client.py' ";
  const auto python = [&](const std::string& environment, const std::string& words) {
    const std::string out = (FDir.Path() / "py.out").string();
    return std::system((environment + " " + client + words + " >'" + out + "' 2>&1").c_str());
  };
  const std::string socket = (FDir.Path() / "ixocut" / "controller.sock").string();
  EXPECT_EQ(python("IXOCUT_URL='" + socket + "'", "run shot ms=100"), 0) << Read("py.out");
  EXPECT_EQ(python("IXOCUT_URL=" + url, "watch 0"), 0) << Read("py.out");
  EXPECT_NE(python("IXOCUT_URL=" + url + " IXOCUT_TOKEN=wrong", "run shot ms=100"), 0);
  // A stop gets through although the answer before it was not waited for.
  for (const char* const part : {"", "c.connection.getresponse();"})
    EXPECT_EQ(std::system(("cd '" + TestSources() +
                           "/../examples/client' && python3 -B -c 'import ixocut_client;"
                           "c = ixocut_client.Controller(\"" +
                           url + "\"); c.connection.request(\"GET\", \"/api/v1/status\");" + part +
                           "c.ask(\"POST\", \"/stop\")'")
                              .c_str()),
              0);

  const TRun watched = Ixocut("watch --for 300 --json");
  EXPECT_EQ(watched.ExitCode, 0) << watched.All();

  EXPECT_EQ(FServe->End(3 * 3s), 0);
  EXPECT_EQ(Ixocut("status").ExitCode, 1);
}

TEST_F(Serve, WhatRunsIsStoppedFromAnotherTerminal) {
  (void)Start("--virtual 5");
  TChildProcess shot(IxocutBinary(), {"ixocut", "shot", "--ms", "30000", "--lang", "en"}, FDir.Path(),
                     FDir.Path() / "shot.out");
  ASSERT_TRUE(Comes([&] { return Json("status", 0).at("signals").at("laser").get<bool>(); }));
  EXPECT_EQ(Ixocut("stop").ExitCode, 0);
  EXPECT_EQ(shot.Wait(10s), 1);
  EXPECT_THAT(Read("shot.out"), HasSubstr("Stopped after"));
  EXPECT_FALSE(Json("status", 0).at("signals").at("laser"));
}

TEST_F(Serve, WhatWasPausedGoesOnAndIsFollowedToItsEnd) {
  (void)Start("--virtual 20");
  Write("places.json", R"({"name": "places", "commands": [{"command": "safe-move", "x": 100, "y": 50, "speed": 300},
      {"command": "delay", "ms": 60000}, {"command": "safe-move", "x": 50, "y": 20, "speed": 300}]})");
  TChildProcess run(IxocutBinary(), {"ixocut", "run", "places.json", "--lang", "en"}, FDir.Path(),
                    FDir.Path() / "run.out");
  ASSERT_TRUE(Comes([&] { return Read("run.out").find("Delay") != std::string::npos; })) << Read("run.out");
  EXPECT_EQ(Ixocut("pause").ExitCode, 0);
  EXPECT_EQ(run.Wait(10s), 1) << Read("run.out");
  EXPECT_EQ(Ixocut("continue").ExitCode, 2) << "nobody can be asked";
  const auto went = Json("continue --yes", 0);
  EXPECT_EQ(went.at("outcome"), "success");
  EXPECT_NEAR(went.at("position").at("x").get<double>(), 50.0, 0.01);
}

TEST_F(Serve, PanelKnobQueueAndRecordingAreThoseOfTheControllerThatRuns) {
  const std::string url = Start();
  // A busy machine may be too late with a press, or with a heartbeat, which ends it.
  const auto press = [&](const std::string& words) {
    TRun run;
    for (int tries = 0; tries < 10 && run.ExitCode != 0; ++tries) run = Ixocut("panel press " + words + " --json");
    EXPECT_EQ(run.ExitCode, 0) << run.Err;
    return nlohmann::json::parse(run.Out).at("result");
  };
  EXPECT_EQ(press("GAS").at("key"), "CK_GAS");
  EXPECT_TRUE(Json("status", 0).at("signals").at("gas").at("on"));
  const TRun refused = Ixocut("panel press LASER --form Settings");
  EXPECT_EQ(refused.ExitCode, 1) << refused.All();
  EXPECT_THAT(refused.Err, HasSubstr("form Settings"));
  const double before = Json("status", 0).at("signals").at("position").at("xMm");
  EXPECT_GE(press("RIGHT --ms 300").at("heldMs"), 300);
  EXPECT_GT(Json("status", 0).at("signals").at("position").at("xMm"), before + 1);
  EXPECT_FALSE(press("egystop").is_null());
  EXPECT_TRUE(Json("status", 0).at("latched"));
  EXPECT_EQ(Json("alarms ack TPLatch#1", 0).at("identifier"), "TPLatch#1");
  EXPECT_EQ(Json("alarms suppress TPMaint#1 --minutes 5", 0).at("identifier"), "TPMaint#1");
  EXPECT_EQ(Ixocut("reset").ExitCode, 0);

  EXPECT_EQ(Json("config set AutoCleanHead/CleanCount 4", 0).at("inForce"), "now");
  EXPECT_EQ(Json("config history", 0).at("changes").back().at("to"), "4");
  EXPECT_EQ(Json("knob speed normal --xy 90 --z 33", 0).at("xy").at("normal"), 90);
  EXPECT_EQ(Json("knob state normal", 0).at("JogSpeed"), 90);
  EXPECT_EQ(Json("knob show", 0).at("state"), "normal");

  EXPECT_THAT(Ixocut("queue add shot --ms 100").Out, HasSubstr("held: it was not started"));
  EXPECT_EQ(Ixocut("queue remove 1").ExitCode, 0);

  // What is told in one language is told again in another.
  const TRun chinese = Ixocut("run gas-off --lang zh");
  EXPECT_EQ(chinese.ExitCode, 0) << chinese.All();
  EXPECT_THAT(chinese.Out, testing::AllOf(HasSubstr("1/1: 关气 (142)"), testing::Not(HasSubstr("Success"))));

  const std::string token = Ixocut("token add kitchen").Out;
  const TRun recorded = Ixocut("record --procedure gas-off --signals state --out gas.csv --url " + url,
                               "IXOCUT_TOKEN=" + token.substr(0, token.find('\n')));
  EXPECT_EQ(recorded.ExitCode, 0) << recorded.All();
  EXPECT_EQ(Ixocut("monitor show gas.csv").ExitCode, 0);
}

TEST_F(Serve, ComesByTlsWhereItHasACertificateAndReadsANewOneWhenItIsTold) {
  TCertificates own, others;
  own.Make("cutter");
  others.Make("cutter");
  const auto take = [&](const TCertificates& from) {
    for (const char* const name : {"cutter.pem", "cutter.key"})
      std::filesystem::copy_file(from.Of(name), FDir.Path() / name, std::filesystem::copy_options::overwrite_existing);
    std::filesystem::permissions(FDir.Path() / "cutter.key", std::filesystem::perms(0600));
  };
  take(own);
  EXPECT_THAT(Refusal("serve --listen 0.0.0.0 --port 0", 2), HasSubstr("--cert and --key"));
  EXPECT_EQ(Ixocut("serve --cert cutter.pem").ExitCode, 2);
  EXPECT_THAT(Refusal("serve --port 0 --cert cutter.pem --key cutter.pem --state other", 3),
              HasSubstr("others can read the key"));
  EXPECT_FALSE(std::filesystem::exists(FDir.Path() / "other")) << "nothing was begun";

  ::setenv("NOTIFY_SOCKET", (FDir.Path() / "manager").c_str(), 1);  // as a service
  const std::string url = Start("--virtual 50 --cert cutter.pem --key cutter.key");
  ::unsetenv("NOTIFY_SOCKET");
  ASSERT_EQ(url.substr(0, 8), "https://");
  const auto status = [&](const TCertificates& trusted) {
    return Ixocut("status --url " + url + " --ca '" + trusted.Of("ca.pem").string() + "'");
  };
  EXPECT_THAT(status(own).Out, HasSubstr("standby"));
  const TRun stranger = status(others);
  EXPECT_EQ(stranger.ExitCode, 3);
  EXPECT_THAT(stranger.Err, testing::AllOf(HasSubstr(url), HasSubstr("nobody who is trusted"), HasSubstr("--ca")));
  EXPECT_THAT(Ixocut("status --url http" + url.substr(5)).Err, HasSubstr("https://"));
  const auto python = [&](const TCertificates& trusted) {
    return std::system(("IXOCUT_URL=" + url + " IXOCUT_CA='" + trusted.Of("ca.pem").string() + "' python3 '" +
                        TestSources() + "/../examples/client/ixocut_client.py' watch 0 >'" +
                        (FDir.Path() / "py.out").string() + "' 2>&1")
                           .c_str());
  };
  EXPECT_EQ(python(own), 0) << Read("py.out");
  EXPECT_NE(python(others), 0);
  EXPECT_THAT(Read("py.out"), HasSubstr("certificate verify failed"));

  take(others);
  ASSERT_EQ(::kill(Document().at("result").at("process"), SIGHUP), 0);
  EXPECT_TRUE(Comes([&] { return status(others).ExitCode == 0; }));
  EXPECT_EQ(status(own).ExitCode, 3);
}

TEST_F(Serve, AStateFolderWithALongNameWorks) {
  const auto folder = FDir.Path() / std::string(120, 'a');
  ::setenv("XDG_STATE_HOME", folder.c_str(), 1);
  (void)Start();
  EXPECT_EQ(Ixocut("status", "XDG_STATE_HOME=" + folder.string()).ExitCode, 0);
}

TEST_F(Serve, LocalWorksOnACopyAndLeavesTheControllersFilesAlone) {
  (void)Start();
  const std::string before = Read("ixocut/machine.xml");
  const TRun set = Ixocut("gas calibrate --gas Air --nozzle S --size 1.5 --local");
  EXPECT_EQ(set.ExitCode, 0) << set.All();
  EXPECT_THAT(set.Err, HasSubstr("on a copy"));
  EXPECT_EQ(Read("ixocut/machine.xml"), before);
}

}  // namespace
}  // namespace ixocamglue::test
