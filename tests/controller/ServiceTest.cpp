// A controller that stays up, in virtual time: requests, runs and their reports, attendance, all-off and the way back.
#include <algorithm>

#include <gmock/gmock.h>

#include "fixture/ServiceWorld.h"
#include "ixocamglue/alarms/Ualarmmanager.h"
#include "ixocamglue/platform/alarms/NcSimpleAlarmSource.h"
#include "ixocamglue/platform/ports/PanelPorts.h"

namespace ixocamglue::test {
namespace {

using testing::HasSubstr;

TEST(Service, ARunIsStartedFollowedAndReportedAndTheNextOneKnowsNothingOfIt) {
  TServiceWorld world(false);
  const nlohmann::json move{{"procedure", "move-xy"}, {"params", {{"x", 30}, {"y", "20"}, {"speed", 300}}}};
  const std::uint64_t first = world.StartRun(move);
  const TJson report = world.Report(first);
  EXPECT_EQ(report["outcome"], "success") << report.dump();
  EXPECT_EQ(report["steps"].size(), 1U);
  EXPECT_EQ(report["position"]["x"], 30.0);
  EXPECT_THAT(report["lines"].back().get<std::string>(), HasSubstr("Succe"));
  const TJson trace = world.Ask("GET", "runs/1/trace").Body;
  EXPECT_EQ(trace["points"].back()[2], 20.0);

  std::vector<std::string> told;
  std::uint64_t last = 0;
  for (const TServiceEvent& event : world.Service.Events().Read(0).Events) {
    EXPECT_GT(event.Number, last);
    last = event.Number;
    if (event.Kind == evRun) told.push_back(event.Body()["event"]);
    if (event.Kind == evStep) told.push_back(event.Body()["description"].is_string() ? "step" : "");
  }
  EXPECT_THAT(told, testing::ElementsAre("begun", "step", "planned", "ended"));

  const TJson second = world.Report(world.StartRun({{"procedure", "delay"}, {"params", {{"ms", 20}}}}));
  EXPECT_EQ(second["outcome"], "success");
  EXPECT_LT(second["journal"].size(), report["journal"].size());
  EXPECT_EQ(second["pathMm"]["xy"], 0.0);
  for (int i = 0; i < 10; ++i) {
    (void)world.Report(world.StartRun({{"procedure", "delay"}, {"params", {{"ms", 1}}}}));
    EXPECT_EQ(world.Service.Status()->Run, 0U) << "it is told as running behind its outcome";
  }
}

TEST(Service, WhatAnEventTellsStandsInTheStatusAlready) {
  TServiceWorld world(false);
  TEventRing& events = world.Service.Events();
  std::uint64_t read = 0;
  std::vector<std::string> told;
  world.Do([&] {
    events.OnAdded([&] {
      const TJson status = StatusJson(*world.Service.Status());
      for (const TServiceEvent& event : events.Read(read).Events) {
        read = event.Number;
        const TJson body = event.Body();
        if (event.Kind == evState) told.push_back(body["state"] == status["state"] ? "state" : "state too early");
        if (event.Kind == evRun)
          told.push_back(body["event"].get<std::string>() + (status["run"].is_null() ? ", none" : ", one"));
      }
    });
  });
  (void)world.Report(world.StartRun({{"procedure", "delay"}, {"params", {{"ms", 20}}}}));
  world.Do([&] { events.OnAdded({}); });
  EXPECT_THAT(told, testing::ElementsAre("begun, one", "state", "state", "ended, none"));
}

TEST(Service, AStatusIsToldAsItIsInEachLanguage) {
  TServiceWorld world(false, 1.0);
  const auto told = [&](const char* language) {
    return TJson::parse(world.Ask("GET", "status", {}, TServiceWorld::Operator(), language).Text);
  };
  EXPECT_EQ(told("en").at("running"), false);
  world.StartRun({{"calls", {{{"command", "delay"}, {"ms", 600'000}}, {{"command", "safe-z"}}}}});
  ASSERT_TRUE(Comes([&] { return !world.Service.Status()->Path.empty(); }));
  const auto step = [&](const char* language) { return told(language).at("run").at("path").at(0).at("description"); };
  EXPECT_EQ(step("en"), "Delay");
  EXPECT_EQ(step("zh"), "延时");
  EXPECT_EQ(step("en"), "Delay");
  const auto first = told("en");
  ASSERT_TRUE(Comes([&] { return told("en").at("machineMs") > first.at("machineMs"); }));
  EXPECT_EQ(world.Ask("POST", "stop").Status, 202);
  (void)world.Report(first.at("run").at("id"));
  const TJson runs = world.Ask("GET", "runs", {}, TServiceWorld::Operator(), "zh").Body["runs"];
  EXPECT_THAT(runs[0]["problem"]["where"].dump(), HasSubstr("1/2 延时"));
}

TEST(Service, SignalsAreReadBackAsTheyWereTold) {
  TMachineSnapshot told;
  told.Pos = {1.5, -2.25};
  told.Z = 3.0, told.Z2 = 4.0, told.Focus = -5.5;
  told.AxesMoving = told.FocusMoving = told.Laser = told.Emission = told.Gas = told.Calibrating = true;
  told.GasBranch = 2, told.GasSetBar = 1.5, told.GasBar = 1.25;
  told.Nozzle = 3, told.DockedTable = 2;
  told.OutputsOn = {4, 7};
  EXPECT_EQ(SnapshotFromJson(SignalsJson(told)), told);
  told.Nozzle = -1;
  EXPECT_EQ(SnapshotFromJson(SignalsJson(told), told), told);
  EXPECT_EQ(SnapshotFromJson({{"laser", false}}, told).OutputsOn, told.OutputsOn) << "what is missing stays";
}

TEST(Service, MonthsOfAlarmsTakeNoMoreMemoryThanTheLastThousandMessages) {
  TServiceWorld world(false);
  TNcAlarmManager& alarms = world.Service.Controller().Alarms();
  for (int i = 0; i < 1000; ++i) {
    alarms.Raise({.IdPrefix = "TP", .Desc = "came and went", .Id = 1, .Attrs = naShownOnly});
    alarms.ClearAll();
  }
  ASSERT_TRUE(Comes([&] { return world.Service.Controller().AlarmsSettled(); }));
  const std::size_t kept = AlarmManager()->GetAlarmFifos(0).Sizes().History;
  EXPECT_GE(kept, 1000U);
  EXPECT_LE(kept, 1250U);
}

TEST(Service, WrongRequestsSayWhatIsWrongAndStartNothing) {
  TServiceWorld world(false);
  const auto fails = [&](nlohmann::json body, int status, const char* says) {
    const TApiReply reply = world.Ask("POST", "runs", std::move(body));
    EXPECT_EQ(reply.Status, status) << reply.Body.dump();
    EXPECT_THAT(reply.Body["detail"].get<std::string>(), HasSubstr(says));
  };
  fails({{"procedure", "move-xz"}}, 400, "did you mean move-xy?");
  fails({{"procedure", "move-xy"}, {"params", {{"x", 1e6}, {"y", 0}}}}, 400, "params.x: 1000000 is not in");
  fails({{"procedure", "move-xy"}, {"params", {{"x", 1}, {"q", 0}}}}, 400, "params.q");
  fails({{"procedure", "move-xy"}, {"params", {{"x", nullptr}}}}, 400, "params.x");
  fails({{"procedure", "delay"}, {"calls", nlohmann::json::array()}}, 400, "one of");
  fails({{"calls", {{{"command", "gas-on"}, {"branch", 99}, {"pressure", 1}}}}}, 400, "commands[1].branch");
  fails({{"sequence", "../machine"}}, 400, "sequence");
  fails({{"calls", {{{"command", 142}}}}, {"faults", {"laser.no-emision"}}}, 400, "did you mean laser.no-emission?");
  fails({{"calls", {{{"command", 142}}}}, {"limitMs", -1}}, 400, "limitMs");
  fails(nlohmann::json::array(), 400, "no JSON object");
  EXPECT_EQ(world.Ask("GET", "nothing").Status, 404);
  EXPECT_EQ(world.Ask("GET", "runs/18446744073709551616").Status, 400);
  EXPECT_EQ(world.Ask("PUT", "stop").Status, 405);
  TAsker viewer = TServiceWorld::Operator();
  viewer.Role = roViewer;
  EXPECT_EQ(world.Ask("POST", "runs", {{"procedure", "delay"}}, viewer).Status, 403);
  TAsker afar;
  EXPECT_EQ(world.Ask("POST", "stop", nullptr, afar).Status, 401);
  EXPECT_EQ(world.Service.Status()->Run, 0U);
}

TEST(Service, WhileAProcedureRunsNothingElseBeginsAndItsStopNamesWhoAsked) {
  TServiceWorld world(false, 1.0);
  world.StartDelay(600'000);
  const TApiReply refused = world.Ask("POST", "runs", {{"procedure", "delay"}, {"params", {{"ms", 1}}}});
  EXPECT_EQ(refused.Status, 409);
  world.Do([&] {
    const TResult<> rest = world.Service.AtRest();
    ASSERT_FALSE(rest);
    EXPECT_THAT(rest.Problem().What, HasSubstr("delay"));
  });
  EXPECT_TRUE(Comes([&] { return !world.Service.Status()->Path.empty(); }));
  const TJson running = world.Ask("GET", "runs/1").Body;
  EXPECT_TRUE(running["outcome"].is_null());
  ASSERT_EQ(running["steps"].size(), 1U);
  EXPECT_EQ(running["steps"][0]["startMs"], 0);
  EXPECT_EQ(world.Ask("POST", "stop").Status, 202);
  const TJson report = world.Report(1);
  EXPECT_EQ(report["outcome"], "stopped");
  EXPECT_EQ(report["cause"], "stopped by anna");

  // Who presses "all off" behind it did not end it.
  world.StartDelay(600'000);
  EXPECT_TRUE(Comes([&] { return !world.Service.Status()->Path.empty(); }));
  EXPECT_EQ(world.Ask("POST", "stop").Status, 202);
  EXPECT_EQ(world.Ask("POST", "all-off").Status, 202);
  EXPECT_EQ(world.Report(2)["cause"], "stopped by anna");
}

TEST(Service, ARunThatIsStoppedBeforeItIsEnteredNamesWhoAsked) {
  TServiceWorld world(false, 20.0, {.Example = true});
  world.StartDelay(1);
  (void)world.Report(1);
  const nlohmann::json delay{{"procedure", "delay"}, {"params", {{"ms", 600'000}}}};
  const nlohmann::json air{{"gases", "Air"}, {"nozzle", "S"}, {"size", 1.5}};
  for (const auto& [path, body] : {std::pair("runs", delay), {"gas/calibrate", air}}) {
    std::future<TApiReply> started;
    world.Do([&, path = path, &body = body] {  // both tasks before the next pass
      started = world.Send("POST", path, body, TServiceWorld::Operator(), "en");
      world.Service.Post([&] { world.Service.Stop(TServiceWorld::Operator()); });
    });
    const TApiReply reply = started.get();
    ASSERT_EQ(reply.Status, 201) << reply.Body.dump();
    const TJson report = world.Report(reply.Body["id"]);
    EXPECT_EQ(report["outcome"], "stopped") << path;
    EXPECT_EQ(report["cause"], "stopped by anna") << path;
  }
}

TEST(Service, ADeviceThatDoesNotAcknowledgeKeepsARunFromItsOutcomeForFiveSeconds) {
  TServiceWorld world(false, 20.0);
  const nlohmann::json delay{{"procedure", "delay"}, {"params", {{"ms", 1}}}};
  world.StartDelay(600'000);
  EXPECT_TRUE(Comes([&] { return !world.Service.Status()->Path.empty(); }));
  TCallGate& gate = world.Machine().Gate();
  world.Do([&] {
    gate.PlanSet({.Call = gate.Calls() + 1, .Fault = gfRefuse, .Sticky = true});
    EXPECT_TRUE(world.Machine().LaserDevice().GetLaser()) << "from now on it says nothing else";
  });
  EXPECT_EQ(world.Ask("POST", "stop").Status, 202);
  const TJson report = world.Report(1);
  EXPECT_EQ(report["outcome"], "stopped");
  const auto waited = report["lengthMs"].get<int>() - report["durationMs"].get<int>();
  EXPECT_GE(waited, 5000);
  EXPECT_LE(waited, 5500);
  const TApiReply refused = world.Ask("POST", "runs", delay);
  EXPECT_EQ(refused.Status, 409);
  EXPECT_THAT(refused.Body["what"].get<std::string>(), HasSubstr("has not acknowledged switching off"));
  world.Do([&] { gate.Reset(); });
  EXPECT_TRUE(Comes([&] { return !world.Service.Status()->SafePending; }));
  EXPECT_EQ(world.Report(world.StartRun(delay))["outcome"], "success");
}

TEST(Service, AStartCanBeCheckedWithoutStarting) {
  TServiceWorld world(false);
  const auto check = [&](nlohmann::json body) { return world.Ask("POST", "runs/check", std::move(body)).Body; };
  const nlohmann::json shot{{"procedure", "shot"}, {"params", {{"ms", 10}}}};
  EXPECT_TRUE(check(shot)["starts"]) << check(shot).dump();
  EXPECT_EQ(check(shot)["unready"].size(), 0U);
  EXPECT_EQ(check({{"procedure", "shoot"}})["refused"].size(), 1U);
  EXPECT_EQ(check({{"procedure", "shot"}, {"params", {{"ms", -1}}}})["starts"], false);

  // A forbidden laser refuses the shot; a delay would start, and a job of the queue would not.
  world.Service.Controller().RaiseAlarm({.IdPrefix = "TPHost", .Desc = "test", .Id = 106, .Attrs = naForbidLaser});
  EXPECT_FALSE(check(shot)["starts"]);
  const TJson delay = check({{"procedure", "delay"}, {"params", {{"ms", 10}}}});
  EXPECT_TRUE(delay["starts"]) << delay.dump();
  EXPECT_EQ(delay["unready"][0]["where"], "TPHost#106");
  world.StartDelay(600'000);
  EXPECT_EQ(check({{"procedure", "delay"}, {"params", {{"ms", 10}}}})["starts"], false);
  EXPECT_EQ(world.Ask("POST", "runs/check", {{"procedur", "delay"}}).Status, 400);
}

TEST(Service, AStoppedNozzleChangeIsToldBeforeTheHeadStrikesTheRack) {
  TServiceWorld world(false, 20.0, {.Example = true});
  const auto check = [&](const char* procedure) {
    return world.Ask("POST", "runs/check", {{"procedure", procedure}, {"params", {{"x", 500}, {"y", 500}}}})
        .Body["unready"];
  };
  const std::uint64_t id = world.StartRun({{"procedure", "change-nozzle"}, {"params", {{"from", 1}, {"to", 2}}}});
  ASSERT_TRUE(Comes([&] { return world.Ask("GET", "runs/" + std::to_string(id)).Body["plan"].size() == 2; }));
  ASSERT_TRUE(Comes([&] {
    const TMachineSnapshot now = world.Service.Status()->Machine;
    return now.Z > world.Service.Controller().Limits().Bounds.SafeZ && std::ranges::count(now.OutputsOn, 8) != 0;
  }));
  EXPECT_EQ(world.Ask("POST", "stop").Status, 202);
  EXPECT_EQ(world.Report(id)["outcome"], "stopped");
  const TJson unready = check("move-xy");
  ASSERT_EQ(unready.size(), 1U);
  EXPECT_THAT(unready[0]["what"].get<std::string>(), HasSubstr("nozzle rack"));
  EXPECT_EQ(check("safe-move").size(), 0U);
  const TJson away = world.Report(world.StartRun({{"procedure", "safe-move"}, {"params", {{"x", 500}, {"y", 500}}}}));
  EXPECT_EQ(away["outcome"], "success");
  EXPECT_EQ(away["plan"], (TJson{{500.0, 500.0}}));
  EXPECT_EQ(check("move-xy").size(), 0U);
}

TEST(Service, WhereXYWillGoIsToldAsSoonAsTheStepsKnowIt) {
  TServiceWorld world(false, 100.0, {.Example = true});  // its work origin is 25, 20; its brush lies at 3010, 40
  const TJson report = world.Report(world.StartRun({{"calls",
                                                     {{{"command", "move-work"}, {"x", 100}, {"y", 200}},
                                                      {{"command", "clean-nozzle-manual"}},
                                                      {{"command", "safe-move"}, {"x", 500}, {"y", 600}}}}}));
  EXPECT_EQ(report["outcome"], "success") << report["problem"].dump();
  std::vector<TJson> told;
  for (const TServiceEvent& event : world.Service.Events().Read(0).Events)
    if (event.Kind == evRun)
      if (const TJson json = event.Body(); json["event"] == "planned") told.push_back(json["plan"]);
  ASSERT_EQ(told.size(), 2U);
  EXPECT_EQ(told[0], (TJson{{125.0, 220.0}, {500.0, 600.0}}));
  // To the brush, three strokes over it, and back to where it was.
  EXPECT_EQ(told[1], (TJson{{125.0, 220.0},
                            {3010.0, 40.0},
                            {2990.0, 34.0},
                            {3030.0, 34.0},
                            {3030.0, 40.0},
                            {2990.0, 40.0},
                            {2990.0, 46.0},
                            {3030.0, 46.0},
                            {125.0, 220.0},
                            {500.0, 600.0}}));
  EXPECT_EQ(report["plan"], told[1]);
  EXPECT_EQ(world.Report(world.StartRun({{"procedure", "lubricate"}, {"params", {{"count", 3}}}}))["plan"].size(), 9U);
}

TEST(Service, ARunThatNobodyAttendsIsStoppedUnlessSomebodyTakesOver) {
  TServiceWorld world(false, 1.0);
  world.Service.Connected(1);
  world.StartDelay(600'000);
  const auto left = [&] { return world.Service.Status()->NobodyMs; };
  world.Service.Disconnected(1);
  ASSERT_TRUE(Comes([&] { return left().has_value(); }));
  world.Service.Connected(2);
  world.Do([&] { world.Service.Runner().Attend(2); });
  SkipRealTime(11'000);  // the lease has run out as well
  ASSERT_TRUE(Comes([&] { return !left(); }));
  EXPECT_EQ(world.Service.Status()->Run, 1U);

  world.Service.Disconnected(2);
  ASSERT_TRUE(Comes([&] { return left().has_value(); }));
  SkipRealTime(9'000);
  ASSERT_TRUE(Comes([&] { return left().value_or(kAttendMs) < 1'000; }));
  SkipRealTime(1'000);
  const TJson report = world.Report(1);
  EXPECT_EQ(report["outcome"], "stopped");
  EXPECT_EQ(report["cause"], "nobody attends");
}

TEST(Service, AllOffKeepsEverythingStillUntilItIsResetAtTheMachineWithoutACauseThatStands) {
  TServiceWorld world(false, 1.0);
  world.StartDelay(600'000);
  EXPECT_EQ(world.Ask("POST", "all-off").Status, 202);
  EXPECT_EQ(world.Ask("POST", "all-off").Status, 202);
  EXPECT_THAT(world.Report(1)["cause"].get<std::string>(), HasSubstr("anna"));
  ASSERT_TRUE(Comes([&] { return world.Service.Status()->Machine.LatchTripped; }));
  EXPECT_EQ(world.Service.Status()->Alarms, 2U);  // its own, once, and the latch's
  EXPECT_FALSE(world.Service.Status()->AllowMove);
  const TJson alarms = world.Ask("GET", "alarms").Body["alarms"];
  EXPECT_EQ(alarms.size(), 2U);
  for (const TJson& alarm : alarms) {
    const bool forbids = alarm["identifier"] == "TPAllOff#1";  // the latch's own message tells, and forbids nothing
    EXPECT_EQ(alarm["forbidsMove"], forbids) << alarm;
    EXPECT_EQ(alarm["forbidsLaser"], forbids) << alarm;
  }
  EXPECT_EQ(world.Ask("POST", "runs", {{"procedure", "delay"}, {"params", {{"ms", 1}}}}).Status, 409);

  const auto reset = [&](TAsker who) { return world.Ask("POST", "reset", nullptr, std::move(who)); };
  EXPECT_EQ(reset(TServiceWorld::Operator(1, false)).Status, 403);
  const std::uint64_t serial =
      world.Service.Controller().Alarms().Raise({.IdPrefix = "TP", .Desc = "door", .Id = 7, .Attrs = naForbidMove});
  const TApiReply refused = reset(TServiceWorld::Operator());
  EXPECT_EQ(refused.Status, 409);
  EXPECT_THAT(refused.Body["why"].get<std::string>(), HasSubstr("door"));
  EXPECT_TRUE(world.Service.IsAllOff());
  world.Service.Controller().Alarms().ClearSerial(serial);
  EXPECT_EQ(reset(TServiceWorld::Operator()).Status, 200);
  EXPECT_FALSE(world.Service.IsAllOff());
  EXPECT_EQ(world.Report(world.StartRun({{"procedure", "delay"}, {"params", {{"ms", 1}}}}))["outcome"], "success");
}

TEST(Service, WhileTheEmergencyStopIsActiveOnlyWhatDarkensStarts) {
  TServiceWorld world(false, 1.0);
  const auto start = [&](const char* procedure, const TJson& params) {
    return world.Ask("POST", "runs", {{"procedure", procedure}, {"params", params}});
  };
  world.Service.Controller().Keys().SetEmergencyStop(true);
  ASSERT_TRUE(Comes([&] { return start("laser-off", TJson::object()).Status == 201; }));
  EXPECT_EQ(world.Report(1)["outcome"], "success");
  const TApiReply refused = start("delay", {{"ms", 1}});
  EXPECT_EQ(refused.Status, 409);
  EXPECT_THAT(refused.Body.dump(), HasSubstr("the emergency stop is active"));
  world.Service.Controller().Keys().SetEmergencyStop(false);
  EXPECT_EQ(world.Report(world.StartRun({{"procedure", "delay"}, {"params", {{"ms", 1}}}}))["outcome"], "success");
}

TEST(Service, AnAllOffThatComesWhileItIsResetStays) {
  TServiceWorld world(false, 1.0);
  struct TAsking final : TNcEmergencyStop {
    explicit TAsking(TService& service) : Service(service) {}
    bool IsActive() override {
      if (++Asked == 2) Service.AllOff(TServiceWorld::Operator());  // behind the reset of the latch
      return false;
    }
    TService& Service;
    int Asked = 0;
  } asking(world.Service);
  world.Service.AllOff(TServiceWorld::Operator());
  ASSERT_TRUE(
      Comes([&] { return world.Service.Status()->Machine.LatchTripped && !world.Service.Status()->SafePending; }));
  world.Do([&] {
    const TInstalled<TNcEmergencyStop> installed(asking);
    const TResult<> reset = world.Service.Reset(TServiceWorld::Operator());
    EXPECT_EQ(asking.Asked, 2);
    EXPECT_FALSE(reset);
    EXPECT_TRUE(world.Service.IsAllOff());
    EXPECT_FALSE(world.Service.Controller().Alarms().AllowMove());
    EXPECT_NE(world.Machine().LaserDevice().LatchReason(), nullptr);
  });
  EXPECT_TRUE(Comes([&] { return world.Ask("POST", "reset").Status == 200; }));
  EXPECT_FALSE(world.Service.IsAllOff());
}

TEST(Service, AnAllOffThatComesWhileItsAlarmStillStandsIsNotResetWithIt) {
  struct TSource final : INcAlarmSource20 {
    std::string GetAlarmIDPrefix() override { return "TPDoor"; }
    void RegisterAlarms(INcAlarmTable20&) override {}
    void UpdateAlarms(INcAlarmReport20&) override {
      if (const auto ask = std::exchange(Ask, nullptr)) ask();  // asked by the reset
    }
    void ResetAlarm(std::int32_t) override {}
    std::string GetAlarmDesc(std::int32_t) override { return {}; }
    std::function<void()> Ask;
  } source;
  TServiceWorld world(false, 1.0);
  TNcAlarmManager& alarms = world.Service.Controller().Alarms();
  alarms.AddSource(source);
  world.Service.AllOff(TServiceWorld::Operator());
  ASSERT_TRUE(
      Comes([&] { return world.Service.Status()->Machine.LatchTripped && !world.Service.Status()->SafePending; }));
  TAsker berta = TServiceWorld::Operator();
  berta.Name = "berta";
  world.Do([&] {
    source.Ask = [&] { world.Service.AllOff(TServiceWorld::Operator()); };
    EXPECT_FALSE(world.Service.Reset(berta));
    EXPECT_EQ(source.Ask, nullptr);
    EXPECT_TRUE(world.Service.IsAllOff());
    EXPECT_FALSE(alarms.AllowMove());
    const std::vector<TNcAlarmRecord> standing = alarms.Standing();
    const auto still = std::ranges::find(standing, "everything was switched off by anna", &TNcAlarmRecord::Desc);
    EXPECT_NE(still, standing.end()) << "who has switched it off, not who resets it";
  });
  EXPECT_TRUE(Comes([&] { return world.Ask("POST", "reset").Status == 200; }));
}

TEST(Service, AStopThatComesWhileARunIsStartedStopsIt) {
  struct TJob final : IRunJob {
    TJob(TService& service, bool stops) : Service(service), Stops(stops) {}
    TResult<> Start() override {
      if (Stops) {
        Service.Stop(TServiceWorld::Operator());
        Service.Controller().RunPass();  // in standby: it is over at once
      }
      return Service.Controller().Start(ShareRoot(MakeShot(600'000)));
    }
    bool Pass(std::uint64_t, std::uint64_t) override { return Service.Controller().Running(); }
    TJson Finish(std::uint64_t, TRunReport&) override { return {}; }
    TService& Service;
    const bool Stops;
  };
  TServiceWorld world(false, 1.0);
  world.Do([&] {
    TRunRequest run;
    run.Procedure = "late";
    run.Job = std::make_shared<TJob>(world.Service, true);
    EXPECT_TRUE(world.Service.Run(std::move(run), TServiceWorld::Operator()));
  });
  const TJson report = world.Report(1);
  EXPECT_EQ(report["outcome"], "stopped");
  EXPECT_EQ(report["cause"], "stopped by anna");

  // One that was decided upon before an end.
  world.Do([&] {
    const std::uint32_t ends = world.Service.Controller().Framework().EndsAsked();
    world.Service.Pause(TServiceWorld::Operator());
    world.Service.Controller().RunPass();
    TRunRequest run;
    run.Procedure = "late";
    run.Job = std::make_shared<TJob>(world.Service, false);
    run.Ends = ends;
    EXPECT_TRUE(world.Service.Run(std::move(run), TServiceWorld::Operator()));
  });
  EXPECT_EQ(world.Report(2)["outcome"], "stopped");
}

TEST(Service, OneResetIsEnoughForAnAlarmWhoseCauseIsOver) {
  TNcSimpleAlarmSource door("TPDoor", {{1, naForbidLaser, "the door is open"}});
  TServiceWorld world(false, 1.0);
  TNcAlarmManager& alarms = world.Service.Controller().Alarms();
  alarms.AddSource(door);
  door.Set(1, true);
  ASSERT_TRUE(Comes([&] { return !alarms.AllowLaser(); }));
  world.Machine().LaserDevice().Trip("by hand");
  ASSERT_TRUE(Comes([&] { return world.Service.Status()->Machine.LatchTripped; }));
  const TApiReply reset = world.Ask("POST", "reset");
  EXPECT_EQ(reset.Status, 200) << reset.Body;
  EXPECT_EQ(world.Machine().LaserDevice().LatchReason(), nullptr);
}

TEST(Service, ACalibrationThatAllOffEndsStoresNothingLeavesTheGasOffAndCanBeRepeated) {
  TServiceWorld world(false, 20.0, {.Example = true});
  const nlohmann::json air{{"gases", "Air"}, {"nozzle", "S"}, {"size", 1.5}};
  const std::uint64_t first = world.Ask("POST", "gas/calibrate", air).Body["id"];
  ASSERT_TRUE(Comes([&] { return world.Machine().Snapshot().Gas; }));
  EXPECT_EQ(world.Ask("POST", "all-off").Status, 202);
  const TJson report = world.Report(first);
  EXPECT_EQ(report["outcome"], "stopped") << report.dump();
  EXPECT_THAT(report["cause"].get<std::string>(), HasSubstr("anna"));
  EXPECT_FALSE(world.Machine().Snapshot().Gas);
  EXPECT_EQ(world.Ask("GET", "gas/tables?nozzle=S").Body["tables"].size(), 0U);
  EXPECT_EQ(world.Ask("POST", "gas/calibrate", air).Status, 409);
  ASSERT_TRUE(Comes([&] { return world.Ask("POST", "reset").Status == 200; }));
  EXPECT_EQ(world.Ask("POST", "gas/calibrate", air).Status, 201);
}

TEST(Service, WhatIsKeptIsBounded) {
  TServiceWorld world(false, 1000.0);
  for (std::size_t i = 0; i < TRunner::kKept + 2; ++i)
    world.Report(world.StartRun({{"procedure", "delay"}, {"params", {{"ms", 1}}}}));
  EXPECT_FALSE(world.Service.Runner().Find(2));
  EXPECT_TRUE(world.Service.Runner().Find(3));

  TEventRing ring;
  for (std::size_t i = 0; i < TEventRing::kEvents + 10; ++i) ring.Add(i % 2 == 0 ? evSignals : evLog, {});
  for (std::size_t i = 0; i < TEventRing::kEvents; ++i) ring.Add(evLog, {});
  const auto read = ring.Read(5);
  EXPECT_EQ(read.MissedFrom, 6U);
  EXPECT_EQ(read.MissedTo, TEventRing::kEvents + 10);
  ASSERT_EQ(read.Events.size(), TEventRing::kEvents + 1);
  EXPECT_EQ(read.Events.back().Number, ring.Last());
  EXPECT_EQ(ring.Read(ring.Last()).Events.size(), 0U);

  TJournal journal;
  journal.Bound(3);
  for (std::uint64_t ms = 0; ms < 5; ++ms) journal.Happened(ms, "a", "b");
  EXPECT_EQ(journal.Size(), 3U);
  EXPECT_EQ(journal.Gone(), 2U);
}

TEST(Service, TheMachinesClockRunsSoManyTimesAsFast) {
  for (const double speed : {1.0, 50.0}) {
    TServiceWorld world(false, speed);
    const auto now = [&] { return world.Service.Controller().VirtualClock()->MonotonicMs(); };
    const auto ran = [&] {
      const std::uint64_t realStart = RealMs();
      const std::uint64_t start = now();
      std::this_thread::sleep_for(std::chrono::milliseconds(200));
      return static_cast<double>(now() - start) / static_cast<double>(RealMs() - realStart);
    };
    // A busy computer lets it fall behind, and then catch up: it may be looked at twice.
    const auto right = testing::AllOf(testing::Gt(speed / 3.0), testing::Lt(speed * 3.0));
    double times = ran();
    if (!testing::Value(times, right)) times = ran();
    EXPECT_THAT(times, right);
  }
}

TEST(Service, ARoundThatFailsIsToldAndTheNextOneComes) {
  TServiceWorld world(false);
  EXPECT_EQ(world.Ask("GET", "health").Body["faults"], 0);  // it has taken the lease
  world.Do([&] {
    world.Service.OnLease([](const TLeaseEvent&) { throw std::runtime_error("nobody hears it"); });
    SkipRealTime(TLease::kLeaseMs + 1);
  });
  ASSERT_TRUE(Comes([&] { return world.Service.Faults() == 1; }));
  const std::uint64_t number = world.Service.Status()->Number;
  EXPECT_TRUE(Comes([&] { return world.Service.Status()->Number > number + 2; }));
  EXPECT_EQ(world.Service.Faults(), 1U);
  EXPECT_TRUE(Comes([&] { return world.Ask("GET", "log").Body.dump().find("nobody hears it") != std::string::npos; }));
}

TEST(Service, TasksAreDoneInOrderAlsoThoseBeforeTheEndAndNoneBehindIt) {
  TServiceWorld world(false);
  std::vector<int> done;
  for (int i = 0; i < 100; ++i) EXPECT_TRUE(world.Service.Post([&done, i] { done.push_back(i); }));
  EXPECT_TRUE(world.Service.Post([] { throw std::runtime_error("a task"); }));
  EXPECT_TRUE(world.Service.Post([&] { done.push_back(100); }));
  world.Service.End();
  EXPECT_EQ(done.size(), 101U);
  EXPECT_TRUE(std::ranges::is_sorted(done));
  EXPECT_FALSE(world.Service.Post([] {}));
  EXPECT_EQ(world.Request("GET", "runs/1", nullptr, TServiceWorld::Operator()).Status, 503);
}

}  // namespace
}  // namespace ixocamglue::test
