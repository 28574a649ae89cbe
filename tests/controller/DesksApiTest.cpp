// Panel, gas, recordings, links and log as they are asked for over the wire: on a service in virtual time, without a
// socket; and the document that describes everything that can be asked.
#include <set>

#include <gmock/gmock.h>

#include "controller/process/StateFolder.h"
#include "fixture/ServiceWorld.h"
#include "ixocamglue/support/Files.h"

namespace ixocamglue::test {
namespace {

using testing::HasSubstr;

class DesksApi : public testing::Test {
 protected:
  TApiReply Ask(const std::string& method, const std::string& path, nlohmann::json body = nullptr,
                TAsker who = TServiceWorld::Operator()) {
    return World.Ask(method, path, std::move(body), std::move(who));
  }
  TJson Good(const std::string& method, const std::string& path, nlohmann::json body = nullptr) {
    const TApiReply reply = Ask(method, path, std::move(body));
    EXPECT_LT(reply.Status, 300) << method << " " << path << ": " << reply.Body.dump();
    return reply.Body;
  }
  void Refused(int status, const char* says, const std::string& method, const std::string& path,
               nlohmann::json body = nullptr, TAsker who = TServiceWorld::Operator()) {
    const TApiReply reply = Ask(method, path, std::move(body), std::move(who));
    EXPECT_EQ(reply.Status, status) << reply.Body.dump();
    EXPECT_THAT(reply.Body.value("detail", ""), HasSubstr(says));
  }
  nlohmann::json Press(const char* key, const char* id) { return {{"key", key}, {"press", id}, {"atMs", RealMs()}}; }
  std::vector<TJson> Events(TEventKind kind) {
    std::vector<TJson> bodies;
    for (const TServiceEvent& event : World.Service.Events().Read(0).Events)
      if (event.Kind == kind) bodies.push_back(event.Body());
    return bodies;
  }

  TServiceWorld World{false, 200.0, {.Example = true}};
};

TEST_F(DesksApi, AKeyNeedsAFormLeaseAndHeartbeatAndAStopKeyNothing) {
  Refused(409, "no form is on screen", "POST", "panel/press", Press("LASER", "a"));
  EXPECT_EQ(Good("POST", "panel/form", {{"form", "Work"}})["form"], "Work");
  TAsker viewer = TServiceWorld::Operator();
  viewer.Role = roViewer;
  Refused(403, "operator", "POST", "panel/press", Press("AIMING", "b"), viewer);
  Refused(400, "no key of the panel", "POST", "panel/press", Press("LASR", "c"));
  Refused(400, "atMs", "POST", "panel/press", {{"key", "AIMING"}, {"press", "d"}});
  Refused(400, "did you mean press?", "POST", "panel/press", {{"key", "AIMING"}, {"pres", "d"}});

  EXPECT_TRUE(Good("POST", "panel/press", Press("aiming", "e"))["sent"]);
  World.Do([] { SkipRealTime(THeldKeys::kGapMs + 1); });
  ASSERT_TRUE(Comes([&] { return !Events(evKey).empty(); }));
  EXPECT_EQ(Events(evKey).back()["up"], "gap");
  Refused(409, "holds no key any more", "POST", "panel/heartbeat", {{"presses", {"e"}}, {"atMs", RealMs()}});
  ASSERT_TRUE(Comes([&] { return !Events(evLed).empty(); }));

  TAsker nobody;
  nobody.Local = true;
  EXPECT_TRUE(World.Request("POST", "panel/press", Press("STOP", "g"), nobody).Body["sent"]);
  EXPECT_EQ(Good("GET", "panel/why?key=START")["key"], "CK_START");
  const auto homing = [&] { return Good("GET", "panel/why?key=RETURN0")["keyCommand"].get<int>(); };
  EXPECT_EQ(homing(), 11);
  const auto command = [](const TJson& panel) { return panel["keys"][KeyIndex(CK_RETURN0)]["keyCommand"].get<int>(); };
  EXPECT_EQ(command(Good("GET", "panel")), 11);
  const TJson alt = Good("POST", "panel/alt");
  EXPECT_EQ(alt["alt"], true);
  EXPECT_TRUE(command(alt) == 13 && homing() == 13);
  const TJson normal = Good("POST", "panel/alt", {{"alt", false}});
  EXPECT_EQ(normal["alt"], false);
  EXPECT_TRUE(command(normal) == 11 && homing() == 11);
  EXPECT_EQ(Good("POST", "panel/form", {{"form", "Work"}, {"open", false}})["form"], nullptr);
}

TEST_F(DesksApi, WhatAKeyWouldDoElsewhereIsAnsweredAndNothingIsChanged) {
  const auto why = [&](const std::string& supposed) { return Good("GET", "panel/why?key=START" + supposed); };
  const TJson now = why("");
  EXPECT_FALSE(now["sent"]);
  EXPECT_TRUE(why("&form=Work")["acts"]);
  EXPECT_EQ(why("&form=Work&state=paused")["conclusion"], "refused");
  const TJson alarmed = why("&form=Work&state=standby&alarms=TPGas#2,104");
  EXPECT_TRUE(alarmed["sent"]);
  EXPECT_FALSE(alarmed["acts"]);
  EXPECT_THAT(alarmed.dump(), HasSubstr("TPGas#2"));

  const TJson keys = Good("GET", "panel/keys?form=DlgManualLubr&state=return-to-origin&alarms=104&warning=true");
  EXPECT_EQ(keys["form"], "DlgManualLubr");
  EXPECT_EQ(keys["stateNumber"], 3);
  EXPECT_EQ(keys["alarms"], TJson({"TPHost#104"}));
  ASSERT_EQ(keys["keys"].size(), kKeys);
  const TJson& stop = keys["keys"][static_cast<std::size_t>(CK_STOP)];
  EXPECT_TRUE(stop["acts"]);
  const TJson forms = Good("GET", "panel/forms");
  EXPECT_EQ(forms["states"][2]["state"], "paused");
  EXPECT_THAT(forms["alarms"].dump(), HasSubstr("TPGas#2"));
  Refused(400, "did you mean", "GET", "panel/why?key=START&alarms=TPGass#2");
  Refused(400, "form", "GET", "panel/keys?form=Wrok");
  Refused(400, "true", "GET", "panel/keys?warning=yes");

  EXPECT_EQ(why(""), now);
  EXPECT_EQ(Good("GET", "alarms")["alarms"].size(), 0U);
  EXPECT_EQ(Good("GET", "panel")["form"], nullptr);
}

TEST_F(DesksApi, TheEmergencyStopKeyIsResetWithEverythingElse) {
  const auto latched = [&] { return World.Service.Status()->Machine.LatchTripped; };
  EXPECT_TRUE(Good("POST", "panel/press", Press("EGYSTOP", "a"))["sent"]);
  Good("POST", "panel/release", {{"press", "a"}});
  ASSERT_TRUE(Comes(latched));
  EXPECT_EQ(Good("POST", "reset")["state"], "standby");
  EXPECT_TRUE(Comes([&] { return !latched(); }));
}

TEST_F(DesksApi, AKeyThatIsHeldGoesUpWhenTheFormChangesAndNeedsANewPress) {
  Good("POST", "panel/form", {{"form", "Work"}});
  const auto replies = World.AskInOneGo({{"POST", "panel/press", Press("RIGHT", "a")},
                                         {"POST", "panel/form", {{"form", "DlgEdgeSeek"}}},
                                         {"POST", "panel/heartbeat", {{"presses", {"a"}}, {"atMs", RealMs()}}}});
  EXPECT_EQ(replies[0].Body["sent"], true) << replies[0].Body;
  EXPECT_EQ(replies[1].Body["form"], "DlgEdgeSeek");
  EXPECT_EQ(replies[2].Status, 409) << replies[2].Body;
  ASSERT_EQ(Events(evKey).size(), 1U);
  EXPECT_EQ(Events(evKey).front()["up"], "form");
  std::vector<std::string> keys;
  for (const TJournalEntry& entry : World.Service.Controller().Journal().Entries())
    if (entry.Verb.starts_with("Key")) keys.push_back(entry.Verb + " " + entry.Args);
  EXPECT_THAT(keys, testing::ElementsAre("KeyDown 34 0", "KeyUp 34 0"));
}

TEST_F(DesksApi, TheKnobTurnsByHandAndKeepsItsSpeeds) {
  EXPECT_EQ(Good("POST", "panel/knob", {{"level", "normal"}})["state"], "normal");
  EXPECT_EQ(Good("POST", "panel/knob", {{"counts", 5}})["state"], "high");
  EXPECT_EQ(Good("POST", "panel/knob", {{"level", "low"}, {"z", 3.5}})["z"]["low"], 3.5);
  Refused(409, "mm/s", "POST", "panel/knob", {{"level", "low"}, {"xy", 1e5}});
  World.StartDelay(600'000);
  EXPECT_TRUE(Good("POST", "panel/knob", {{"counts", 1}})["dropped"]);
  Refused(409, "delay", "POST", "panel/knob", {{"level", "high"}});
}

TEST_F(DesksApi, OneCalibrationFollowsAnotherAndEachTellsItsProgressAndItsVerdict) {
  const nlohmann::json air{{"gases", {"Air"}}, {"nozzle", "S"}, {"size", 1.5}, {"descend", true}};
  Refused(400, "no gas", "POST", "gas/calibrate", {{"gases", {"He"}}, {"nozzle", "S"}, {"size", 1.5}});
  Refused(400, "size", "POST", "gas/calibrate", {{"gases", "Air"}, {"nozzle", "S"}, {"size", 101}});
  EXPECT_EQ(Good("GET", "gas")["branches"][0]["text"], "Air");
  const std::uint64_t first = Good("POST", "gas/calibrate", air)["id"];
  const auto chinese = [&](const char* path) {
    return World.Ask("GET", path, {}, TServiceWorld::Operator(), "zh").Body;
  };
  EXPECT_EQ(chinese("gas")["branches"][0]["text"], "空气") << "also while one runs";
  EXPECT_EQ(chinese("machine")["gases"][0]["text"], "空气");
  Refused(409, "gas-calibrate", "POST", "gas/calibrate", air);
  Refused(409, "gas-calibrate", "POST", "gas/use", {{"gases", "Air"}, {"nozzle", "S"}, {"size", 1.5}});
  const TJson report = World.Report(first);
  EXPECT_EQ(report["outcome"], "success") << report.dump();
  EXPECT_EQ(report["params"]["gases"][0], "Air");
  const TJson& gas = report["result"]["gases"][0];
  EXPECT_EQ(gas["result"], "stored");
  EXPECT_GE(gas["points"].size(), 5U);
  std::set<std::string> told;
  for (const TJson& event : Events(evRun)) told.insert(event["event"]);
  EXPECT_THAT(told, testing::IsSupersetOf({"begun", "message", "ended"}));
  const TJson recorded = Good("GET", "gas/recording")["gases"][0];
  EXPECT_TRUE(recorded["points"].back()["descending"]);

  const TJson verdict = Good("GET", "gas/verdict?run=" + std::to_string(first));
  EXPECT_EQ(verdict["gases"][0]["findings"].size(), gas["findings"].size());
  EXPECT_EQ(Good("GET", "gas/tables?nozzle=S")["tables"][0]["points"], gas["curve"]);
  EXPECT_EQ(Good("POST", "gas/use", {{"gases", "Air"}, {"nozzle", "S"}, {"size", 1.5}})["gases"][0], "Air");
  Refused(409, "", "POST", "gas/use", {{"gases", "O2"}, {"nozzle", "X"}, {"size", 1.5}});

  const std::uint64_t second = Good("POST", "gas/calibrate", {{"gases", "N2"}, {"nozzle", "S"}, {"size", 1.5}})["id"];
  EXPECT_EQ(Ask("POST", "stop").Status, 202);
  EXPECT_EQ(World.Report(second)["outcome"], "stopped");
  Refused(409, "only the last calibration", "GET", "gas/verdict?run=" + std::to_string(first));
  const std::uint64_t third = Good("POST", "gas/calibrate", {{"gases", "N2"}, {"nozzle", "S"}, {"size", 1.5}})["id"];
  EXPECT_EQ(World.Report(third)["result"]["gases"].size(), 1U);
  EXPECT_EQ(Good("GET", "gas")["lastRun"], third);
}

TEST_F(DesksApi, ARecordingIsMadeByNameReadThinnedOutAndDeleted) {
  for (const char* const name : {"../machine", "a/b", ".hidden", ""})
    EXPECT_EQ(Ask("POST", "recordings", {{"name", name}}).Status, 400) << name;
  Refused(400, "no signal", "POST", "recordings", {{"name", "a"}, {"signals", {"speeed"}}});
  Refused(409, "more than a recording holds", "POST", "recordings", {{"name", "a"}, {"limitMs", 600'000}});
  Good("POST", "recordings", {{"name", "move"}, {"signals", {"position.1", "state"}}, {"limitMs", 600'000}});
  Refused(409, "move is being made", "POST", "recordings", {{"name", "other"}});
  const std::uint64_t run = World.StartRun({{"procedure", "move-xy"}, {"params", {{"x", 30}, {"y", 20}}}});
  EXPECT_EQ(World.Report(run)["outcome"], "success");
  const std::uint64_t samples = Good("DELETE", "recordings/move/running")["samples"];
  EXPECT_GT(samples, 50U);

  const TJson read = Good("GET", "recordings/move?points=20");
  ASSERT_EQ(read["signals"].size(), 2U);
  const TJson& x = read["signals"][read["signals"][0]["name"] == "position.1" ? 0 : 1];
  EXPECT_LE(x["ms"].size(), 20U);
  EXPECT_NEAR(x["high"].back().get<double>(), 30.0, 0.01);
  const TApiReply file = Ask("GET", "recordings/move/file");
  EXPECT_EQ(file.ContentType, "text/csv");
  EXPECT_EQ(file.Text.size(), read["bytes"]);
  EXPECT_EQ(Good("GET", "recordings")["recordings"][0]["name"], "move");
  Refused(409, "already", "POST", "recordings", {{"name", "move"}});
  Good("DELETE", "recordings/move");
  Refused(404, "there is no recording", "GET", "recordings/move");
  Refused(404, "there is no recording", "GET", "recordings/move/file");

  // One that a run's end meets has all of it, before and after.
  World.StartDelay(600'000);
  ASSERT_TRUE(Comes([&] { return World.Service.Status()->State == nsCustomMotion; }));
  Good("POST", "recordings", {{"name", "end"}, {"signals", {"state"}}, {"limitMs", 600'000}});
  ASSERT_TRUE(Comes([&] { return Ask("GET", "recordings").Body["running"]["recordedMs"] > 0; }));
  EXPECT_EQ(Ask("POST", "stop").Status, 202);
  EXPECT_EQ(World.Report(run + 1)["outcome"], "stopped");
  World.Report(World.StartRun({{"procedure", "delay"}, {"params", {{"ms", 5}}}}));
  Good("DELETE", "recordings/end/running");
  const TJson end = Good("GET", "recordings/end?points=1000")["signals"][0];
  EXPECT_EQ(end["high"].front(), 204);
  EXPECT_THAT(end["low"].get<std::vector<int>>(), testing::Contains(0));

  Good("POST", "recordings", {{"name", "short"}, {"limitMs", 100}});
  ASSERT_TRUE(Comes([&] { return Ask("GET", "recordings").Body["running"].is_null(); }));
  EXPECT_EQ(Good("GET", "recordings/short?signals=laser")["signals"][0]["ms"].size(), 100U);
}

TEST_F(DesksApi, TheLogIsReadFromWhereItWasLeftAndALinkIsNotExaminedInVirtualTime) {
  LogMsg(lkInfo, 0, "one", "here");
  LogMsg(lkWarning, 0, "two", "here");
  const auto lines = [&](const std::string& query) {
    std::vector<std::string> texts;
    const TJson log = Good("GET", "log" + query);
    for (const TJson& line : log["lines"])
      if (line["source"] == "here") texts.push_back(line["text"]);
    return texts;
  };
  ASSERT_TRUE(Comes([&] { return lines("").size() == 2; }));
  EXPECT_THAT(lines("?level=warning"), testing::ElementsAre("two"));
  const std::uint64_t last = Good("GET", "log")["last"];
  EXPECT_THAT(lines("?since=" + std::to_string(last)), testing::IsEmpty());
  Refused(400, "level", "GET", "log?level=loud");
  Refused(400, "since", "GET", "log?since=x");

  EXPECT_EQ(Good("GET", "links")["links"][0]["name"], "modbus-store");
  EXPECT_TRUE(Good("GET", "links")["links"][0]["probeRegister"].is_null());
  EXPECT_EQ(Good("GET", "links")["ports"][0]["limits"], "0..3050 mm");
  Good("PUT", "config/ModbusStore/DataTransConfig/ProbeRegister", {{"value", 7}, {"version", "*"}});
  EXPECT_EQ(Good("GET", "links")["links"][0]["probeRegister"], 7);
  Refused(409, "real time", "POST", "links/modbus-store/doctor");
  Refused(409, "no link", "POST", "links/nothing/doctor");
  Refused(409, "real time", "POST", "links/modbus-store/watch");
  Refused(409, "no link", "POST", "links/nothing/watch");
  Refused(400, "did you mean coils?", "POST", "links/modbus-store/watch", {{"table", "coil"}});
  Refused(400, "65535", "POST", "links/modbus-store/watch", {{"addr", 65'530}, {"count", 7}});
  Refused(400, "everyMs", "POST", "links/modbus-store/watch", {{"everyMs", 50}});
  EXPECT_TRUE(Good("GET", "links/modbus-store/watch")["watched"].is_null());
  TAsker viewer = TServiceWorld::Operator();
  viewer.Role = roViewer;
  Refused(403, "operator", "GET", "links/modbus-store/watch", nullptr, viewer);
}

// What is asked over HTTP is held against the same document by tests/api/ask_everything.py.
TEST(OpenApi, EveryRouteIsDescribedAndNothingElse) {
  const auto document = nlohmann::json::parse(ReadFile(ShareFolder() / "api" / "openapi.json").OrThrow(pbUnusable));
  // The wire's own are no routes.
  std::set<std::string> described, routes{"GET /api/v1/openapi.json This document none",
                                          "GET /api/v1/events What happens, as server-sent events none"};
  for (const auto& [path, methods] : document.at("paths").items())
    for (const auto& [method, operation] : methods.items()) {
      std::string upper = method;
      for (char& c : upper) c = static_cast<char>(std::toupper(c));
      described.insert(upper + " " + path + " " + operation.at("summary").get<std::string>() +
                       (operation.at("x-lease").get<bool>() ? " lease " : " ") +
                       operation.at("x-role").get<std::string>());
    }
  for (const TApiRoute& route : TApi::Routes())
    routes.insert(std::string(route.Method) + " " + route.Path + " " + route.Summary + (route.Lease ? " lease " : " ") +
                  (route.Role == roNone ? "none" : RoleWord(route.Role)));
  EXPECT_EQ(described, routes);
}

}  // namespace
}  // namespace ixocamglue::test
