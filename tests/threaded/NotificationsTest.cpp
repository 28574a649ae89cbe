// Whoever does not watch is told by a command or a webhook.
#include <fstream>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

#include <gmock/gmock.h>

#include "controller/process/RealTime.h"
#include "controller/service/Notifications.h"
#include "fixture/Sockets.h"
#include "fixture/TempDir.h"
#include "fixture/Waiting.h"

namespace ixocamglue::test {
using namespace ixocontroller;
namespace {

using nlohmann::ordered_json;
using testing::HasSubstr;

// Answers each connection with `Answer` and keeps what it was asked.
class THook {
 public:
  explicit THook(std::string answer) : FAnswer(std::move(answer)), FHandle(::socket(AF_INET, SOCK_STREAM, 0)) {
    EXPECT_TRUE(TLocalAddress(0).Bind(FHandle));
    EXPECT_EQ(::listen(FHandle, 8), 0);
    Url = "http://127.0.0.1:" + std::to_string(PortOf(FHandle)) + "/told";
    if (!FAnswer.empty()) FThread = std::thread([this] { Serve(); });
  }
  ~THook() {
    ::shutdown(FHandle, SHUT_RDWR);
    if (FThread.joinable()) FThread.join();
    ::close(FHandle);
  }
  std::string Url;
  std::string Asked;  // once its client has its answer

 private:
  void Serve() {
    for (int client = 0; (client = ::accept(FHandle, nullptr, nullptr)) >= 0; ::close(client)) {
      char text[2000];
      while (Asked.empty() || Asked.back() != '\n') {
        const auto got = ::recv(client, text, sizeof text, 0);
        if (got <= 0) break;
        Asked.append(text, static_cast<std::size_t>(got));
      }
      EXPECT_GT(::send(client, FAnswer.data(), FAnswer.size(), MSG_NOSIGNAL), 0);
    }
  }

  const std::string FAnswer;
  const int FHandle;
  std::thread FThread;
};

class Notifications : public testing::Test {
 protected:
  void Configure(const ordered_json& rows) {
    std::ofstream(FDir.Path() / "new") << ordered_json{{"notifications", rows}};
    std::filesystem::rename(FDir.Path() / "new", FDir.Path() / "notifications.json");
  }
  TTellRule Rule(const ordered_json& row) {
    Configure(ordered_json::array({row}));
    return ReadTellRules(FDir.Path() / "notifications.json").OrThrow(pbUnusable).at(0);
  }
  static bool Never() { return false; }

  TTempDir FDir;
};

TEST_F(Notifications, ACommandGetsTheEventOnItsInputAndAWebhookItsPost) {
  const auto out = (FDir.Path() / "out").string();
  const auto command = Rule({{"on", {"alarm"}}, {"command", {"/bin/sh", "-c", "cat /dev/stdin > \"$0\"; pwd", out}}});
  EXPECT_TRUE(Tell(command, "{\"a\": \"; touch /tmp/x\"}\n", &Never));
  EXPECT_EQ(ReadFile(std::filesystem::path(out)).OrThrow(pbUnusable), "{\"a\": \"; touch /tmp/x\"}\n");
  EXPECT_EQ(Tell(Rule({{"on", {"end"}}, {"command", {"/bin/false"}}}), "{}", &Never).Problem().What, "it ended with 1");
  EXPECT_FALSE(Tell(Rule({{"on", {"end"}}, {"command", {"/no/such"}}}), "{}", &Never));
  const std::uint64_t start = RealMs();
  EXPECT_FALSE(Tell(Rule({{"on", {"end"}}, {"command", {"/bin/sleep", "60"}}}), "{}",
                    [start] { return RealMs() > start + 50; }));
  EXPECT_LT(RealMs() - start, 3000U) << "the end waits for no command";

  THook hook("HTTP/1.1 204 No Content\r\n\r\n"), angry("HTTP/1.1 500 No\r\n\r\n"), silent("");
  EXPECT_TRUE(Tell(Rule({{"on", {"end"}}, {"webhook", hook.Url}}), "{\"b\": 1}\n", &Never));
  EXPECT_THAT(hook.Asked, testing::AllOf(HasSubstr("POST /told HTTP/1.1\r\n"), HasSubstr("Content-Length: 9\r\n"),
                                         HasSubstr("\r\n\r\n{\"b\": 1}\n")));
  const std::string byName = "http://localhost" + hook.Url.substr(hook.Url.rfind(':'));
  hook.Asked.clear();
  EXPECT_TRUE(Tell(Rule({{"on", {"end"}}, {"webhook", byName}}), "{}\n", &Never));
  EXPECT_THAT(hook.Asked, HasSubstr("Host: localhost:"));
  EXPECT_THAT(Tell(Rule({{"on", {"end"}}, {"webhook", angry.Url}}), "{}\n", &Never).Problem().What, HasSubstr("500"));
  EXPECT_FALSE(
      Tell(Rule({{"on", {"end"}}, {"webhook", silent.Url}}), "{}\n", [start] { return RealMs() > start + 200; }));
  EXPECT_FALSE(Tell(Rule({{"on", {"end"}}, {"webhook", "http://127.0.0.1:1"}}), "{}\n", &Never));
}

TEST_F(Notifications, AWrongFileIsNamedWithItsRow) {
  const auto wrong = [&](const ordered_json& row) {
    Configure({{{"on", {"end"}}, {"command", {"/bin/true"}}}, row});
    return ReadTellRules(FDir.Path() / "notifications.json").Problem();
  };
  for (const auto& row :
       {ordered_json(3), ordered_json{{"on", {"end"}}}, ordered_json{{"on", {"never"}}, {"command", {"/x"}}},
        ordered_json{{"on", "end"}, {"command", {"/x"}}}, ordered_json{{"on", {"end"}}, {"command", "/x y"}},
        ordered_json{{"on", {"end"}}, {"command", {"relative"}}},
        ordered_json{{"on", {"end"}}, {"webhook", "ftp://1.2.3.4/"}},
        ordered_json{{"on", {"end"}}, {"webhook", "http://a@by.name/"}},
        ordered_json{{"on", {"end"}}, {"webhook", "http://by.name:0/"}},
        ordered_json{{"on", {"end"}}, {"webhook", "https://by.name/"}, {"ca", 1}},
        ordered_json{{"on", {"end"}}, {"webhook", "http://1.2.3.4/ HTTP/1.1\r\nX: y"}}})
    EXPECT_THAT(wrong(row).Where, HasSubstr("notifications[1]")) << row;
  EXPECT_TRUE(ReadTellRules(FDir.Path() / "none").OrThrow(pbUnusable).empty());
}

TEST_F(Notifications, WhatTheRuleNamesIsToldAndNothingThatWasBefore) {
  TEventRing events;
  const auto add = [&](TEventKind kind, const char* event, int serial) {
    events.Add(kind, [event, serial] { return ordered_json{{"event", event}, {"serial", serial}}; });
  };
  const auto out = (FDir.Path() / "out").string();
  Configure({{{"on", {"alarm"}}, {"command", {"/bin/sh", "-c", "cat >> \"$0\"", out}}}});
  add(evAlarm, "raised", 1);
  {
    TNotifications notifications(events, FDir.Path());
    add(evAlarm, "cleared", 2);
    add(evRun, "ended", 3);
    add(evAlarm, "raised", 4);
    std::error_code error;
    ASSERT_TRUE(Comes([&] { return std::filesystem::file_size(out, error) + 1 >= 2; }));
    Clock().Sleep(2 * TNotifications::kLookEveryMs);
  }
  const auto told = ordered_json::parse(ReadFile(std::filesystem::path(out)).OrThrow(pbUnusable));
  EXPECT_EQ(told["on"], "alarm");
  EXPECT_EQ(told["serial"], 4);
}

}  // namespace
}  // namespace ixocamglue::test
