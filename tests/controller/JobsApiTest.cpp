// History, queue and going on as they are asked for over the wire: on a service in virtual time, without a socket.
#include <algorithm>
#include <chrono>
#include <future>
#include <optional>
#include <thread>

#include <gmock/gmock.h>

#include "fixture/ServiceWorld.h"

namespace ixocamglue::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class JobsApi : public testing::Test {
 protected:
  JobsApi() { Start(); }
  void Start() {
    FWorld.reset();
    FWorld.emplace(false, 200.0, TWorldExtras{.Example = true, .Folder = Dir.Path()});
  }
  TService& Service() { return FWorld->Service; }
  TApiReply Ask(const std::string& method, const std::string& path, TJson body = {}) {
    return FWorld->Ask(method, path, std::move(body));
  }
  std::future<TApiReply> Send(const std::string& method, const std::string& path, TJson body) {
    return FWorld->Send(method, path, std::move(body), TServiceWorld::Operator(), "en");
  }
  TJson Get(const std::string& path) {
    const TApiReply reply = Ask("GET", path);
    EXPECT_EQ(reply.Status, 200) << path << ": " << reply.Body;
    return reply.Body;
  }
  // The run as the history has it once it has ended.
  TJson Ended(const TJson& id) {
    TJson run;
    EXPECT_TRUE(Comes([&] {
      const TJson list = Get("runs");
      const auto found = std::ranges::find(list.at("runs"), id, [](const TJson& one) { return one.at("id"); });
      return found != list.at("runs").end() && !(run = *found).at("outcome").is_null();
    })) << "run "
        << id << " does not end";
    return run;
  }
  // "shot done, shot waits | held: why"
  std::string Queue() {
    const TJson queue = Get("queue");
    std::string text;
    for (const char* list : {"ended", "jobs"})
      for (const TJson& job : queue.at(list))
        text +=
            (text.empty() ? "" : ", ") + job.at("name").get<std::string>() + " " + job.at("state").get<std::string>();
    return text + (queue.at("held") == true ? " | held: " + queue.at("why").at("what").get<std::string>() : "");
  }

  const TTempDir Dir;

 private:
  std::optional<TServiceWorld> FWorld;
};

const TJson kLong = {{"name", "long way"},
                     {"commands",
                      {{{"command", "safe-move"}, {"x", 40}, {"y", 30}},
                       {{"command", "delay"}, {"ms", 600000}},
                       {{"command", "safe-move"}, {"x", 80}, {"y", 30}}}}};

TEST_F(JobsApi, RunsAreListedComparedAndFollowedAcrossARestart) {
  const TJson first = Ask("POST", "runs", {{"procedure", "safe-move"}, {"params", {{"x", 40}, {"y", 30}}}}).Body;
  EXPECT_EQ(Ended(first.at("id")).at("outcome"), "success");
  const TJson second = Ask("POST", "runs", {{"procedure", "safe-move"}, {"params", {{"x", 90}, {"y", 30}}}}).Body;
  const TJson run = Ended(second.at("id"));
  EXPECT_TRUE(run.at("startedBy") == "anna" && run.at("params").at("x") == 90 && run.at("durationMs") > 0);
  const TJson long1 =
      Ask("POST", "runs", {{"procedure", "delay"}, {"params", {{"ms", 600000}}}, {"detach", true}}).Body;
  EXPECT_EQ(Get("runs").at("runs").at(0).at("id"), long1.at("id"));
  EXPECT_TRUE(Get("runs").at("runs").at(0).at("outcome").is_null());
  Start();
  const TJson list = Get("runs");
  EXPECT_EQ(list.at("runs").size(), 3U);
  EXPECT_NE(list.at("runs").at(0).at("outcome"), "success");
  EXPECT_EQ(Get("runs?name=safe-move&limit=1").at("runs").at(0).at("id"), second.at("id"));
  EXPECT_EQ(Get("runs?outcome=success").at("runs").size(), 2U);
  EXPECT_EQ(Get("runs?since=" + second.at("start").get<std::string>()).at("runs").size(), 2U);  // and the lost one
  EXPECT_EQ(Ask("GET", "runs?since=lately").Status, 400);
  const TJson steps = Get("runs/" + first.at("id").dump()).at("steps");
  EXPECT_GE(steps.size(), 2U);
  const TJson both = Get("runs/compare?a=" + first.at("id").dump() + "&b=" + second.at("id").dump());
  EXPECT_EQ(both.at("steps").size(), steps.size());
  EXPECT_TRUE(both.at("steps").at(0).at("differenceMs").is_number());
  const TJson trend = Get("runs/trend?name=safe-move");
  EXPECT_EQ(trend.at("runs").size(), 2U);
  EXPECT_GT(trend.at("medianMs"), 0);
  EXPECT_EQ(Ask("GET", "runs/99").Status, 404);
  EXPECT_EQ(Ask("GET", "runs/{id}").Status, 400);
  EXPECT_EQ(Ask("GET", "runs/one").Status, 400);
  EXPECT_EQ(Ask("GET", "runs?limit=0").Status, 400);
  EXPECT_EQ(Ask("GET", "runs/compare?a=1").Status, 400);
}

TEST_F(JobsApi, TheQueueRunsStoredSequencesAndProceduresAndIsHeldAfterARestart) {
  const TJson file{
      {"commands", {{{"command", "safe-move"}, {"x", 40}, {"y", 30}}, {{"command", "delay"}, {"ms", 20}}}}};
  EXPECT_EQ(Ask("PUT", "sequences/short", file).Status, 201);
  EXPECT_EQ(Ask("PUT", "sequences/short", file).Status, 200);
  EXPECT_EQ(Ask("PUT", "sequences/..", file).Status, 400);
  EXPECT_EQ(Ask("PUT", "sequences/bad", {{"commands", {{{"command", "safe-move"}, {"x", 40}}}}}).Status, 400);
  EXPECT_EQ(Get("sequences").at("sequences").size(), 1U);
  EXPECT_EQ(TJson::parse(Ask("GET", "sequences/short").Text), file);
  EXPECT_EQ(Ask("POST", "queue", {{"sequence", "other"}}).Status, 404);
  EXPECT_EQ(Ask("POST", "queue", {{"procedure", "shot"}, {"params", {{"ms", -5}}}}).Status, 400);
  EXPECT_EQ(Ask("POST", "queue/start").Status, 409);  // it is empty

  EXPECT_EQ(Ask("POST", "queue", {{"sequence", "short"}}).Status, 201);
  EXPECT_EQ(Ask("DELETE", "sequences/short").Status, 200);  // the job has it
  EXPECT_EQ(Ask("GET", "sequences/short").Status, 404);
  const TJson asked =
      Ask("POST", "queue", {{"procedure", "shot"}, {"params", {{"ms", 60}}}, {"question", "ready?"}}).Body;
  EXPECT_EQ(asked.at("jobs").at(1).at("params"), TJson({{"ms", 60}}));
  EXPECT_EQ(Ask("POST", "queue/start").Status, 200);
  ASSERT_TRUE(Comes([&] { return Queue() == "short done, shot asks"; })) << Queue();
  EXPECT_EQ(Ask("POST", "queue/" + asked.at("id").dump() + "/answer", {{"answer", "perhaps"}}).Status, 400);
  EXPECT_EQ(Ask("POST", "queue/77/answer", {{"answer", "run"}}).Status, 404);
  EXPECT_EQ(Ask("POST", "queue/" + asked.at("id").dump() + "/answer", {{"answer", "run"}}).Status, 200);
  ASSERT_TRUE(Comes([&] { return Queue() == "short done, shot done | held: every job has come to its end"; }))
      << Queue();
  EXPECT_EQ(Get("runs").at("runs").at(0).at("startedBy"), "queue, job 2 (anna)");
  int questions = 0;
  for (const TServiceEvent& event : Service().Events().Read(0).Events)
    questions += event.Kind == evQueue && event.Body().at("event") == "question" ? 1 : 0;
  EXPECT_EQ(questions, 1);

  const TJson third = Ask("POST", "queue", {{"procedure", "shot"}, {"params", {{"ms", 60}}}}).Body;
  EXPECT_EQ(third.at("estimateMs"), Get("runs").at("runs").at(0).at("durationMs"));
  Service().Post([this] {
    Service().Controller().RaiseAlarm({.IdPrefix = "TP", .Desc = "cooling", .Id = 1, .Attrs = naForbidMove});
  });
  EXPECT_EQ(Ask("POST", "queue/start").Status, 200);
  ASSERT_TRUE(Comes([&] { return Get("queue").at("held") == true; }));
  EXPECT_THAT(Queue(), HasSubstr("shot waits | held: an alarm stands"));
  Start();
  EXPECT_THAT(Queue(), HasSubstr("shot waits | held: the controller was started again, and nothing starts by itself"));
  EXPECT_EQ(Ask("DELETE", "queue/" + third.at("id").dump()).Status, 200);
}

TEST_F(JobsApi, ADiskThatHangsKeepsNobodyWaitingButWhoAskedForIt) {
  EXPECT_EQ(Ask("POST", "queue/start").Status, 409);
  std::promise<void> disk;
  ASSERT_TRUE(Service().PostFiles([answers = disk.get_future().share()] { answers.wait(); }));
  std::vector<std::future<TApiReply>> waiting;
  waiting.push_back(Send("POST", "queue", {{"procedure", "shot"}, {"params", {{"ms", 60}}}}));
  waiting.push_back(Send("POST", "recordings", {{"name", "one"}}));
  waiting.push_back(Send("GET", "recordings", {}));
  EXPECT_EQ(Get("queue").at("jobs").size(), 0U);
  EXPECT_EQ(Ask("POST", "recordings", {{"name", "two"}}).Status, 409);
  EXPECT_EQ(Ask("DELETE", "recordings/one/running").Status, 409);
  EXPECT_EQ(Ask("POST", "queue", {{"procedure", "shot"}, {"params", {{"ms", -5}}}}).Status, 400);
  for (auto& one : waiting) EXPECT_EQ(one.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
  disk.set_value();
  EXPECT_EQ(waiting[0].get().Body.at("jobs").size(), 1U);
  EXPECT_EQ(waiting[1].get().Status, 201);
  EXPECT_EQ(waiting[2].get().Body.at("running").at("name"), "one");

  // What ends the controller waits for what a disk has begun, and it counts.
  std::promise<void> again;
  ASSERT_TRUE(Service().PostFiles([answers = again.get_future().share()] { answers.wait(); }));
  auto removed = Send("DELETE", "queue/1", {});
  EXPECT_EQ(Get("queue").at("jobs").size(), 1U);
  again.set_value();
  Start();
  EXPECT_EQ(removed.get().Status, 200);
  EXPECT_EQ(Get("queue").at("jobs").size(), 0U);
  EXPECT_EQ(Get("recordings").at("recordings").at(0).at("name"), "one");

  // A job that was marked too late never runs.
  EXPECT_EQ(Ask("POST", "queue", {{"procedure", "shot"}, {"params", {{"ms", 60}}}}).Status, 201);
  ASSERT_TRUE(Service().PostFiles([&service = Service()] {
    while (service.Post([] {})) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }));
  EXPECT_EQ(Ask("POST", "queue/start").Status, 200);
  const std::uint64_t number = Service().Status()->Number;
  ASSERT_TRUE(Comes([&] { return Service().Status()->Number > number + 2; }));
  Start();
  EXPECT_THAT(Queue(), HasSubstr("shot waits | held: the controller was started again"));
  EXPECT_EQ(Get("runs").at("runs").size(), 0U);
}

TEST_F(JobsApi, ARunThatWasEndedGoesOnOnlyWithWhatWasShownConfirmed) {
  EXPECT_EQ(Ask("POST", "continue").Status, 409);
  const TJson run = Ask("POST", "runs", {{"name", "long way"}, {"calls", kLong.at("commands")}, {"detach", true}}).Body;
  ASSERT_TRUE(Comes([&] {
    const auto status = Service().Status();
    return !status->Path.empty() && status->Path.front().Number == 2;
  }));
  EXPECT_EQ(Ask("POST", "continue").Status, 409);  // it runs
  EXPECT_EQ(Ask("POST", "pause").Status, 202);
  EXPECT_EQ(Ended(run.at("id")).at("outcome"), "paused");

  const TApiReply offer = Ask("POST", "continue");
  EXPECT_EQ(offer.Status, 409);
  EXPECT_EQ(offer.Body.at("from"), 1);
  EXPECT_EQ(offer.Body.at("again"), nlohmann::ordered_json({"safe-move --x 40 --y 30", "delay --ms 600000"}));
  EXPECT_EQ(offer.Body.at("lightsBeam"), false);
  EXPECT_EQ(Ask("POST", "continue", {{"confirm", "0123456789abcdef"}}).Status, 409);
  EXPECT_EQ(Ask("POST", "continue", {{"confirm", offer.Body.at("confirm")}}).Status, 409);  // used up
  const TJson confirm = Ask("POST", "continue").Body.at("confirm");
  const TApiReply on = Ask("POST", "continue", {{"confirm", confirm}});
  ASSERT_EQ(on.Status, 201) << on.Body;
  EXPECT_EQ(on.Body.at("calls").size(), 3U);
  EXPECT_EQ(Ask("POST", "stop").Status, 202);
  EXPECT_EQ(Ended(on.Body.at("id")).at("outcome"), "stopped");
}

}  // namespace
}  // namespace ixocamglue::test
