// Alarms and configuration as they are asked for over the wire: on a service in virtual time, without a socket.
#include <filesystem>
#include <fstream>
#include <future>
#include <optional>
#include <regex>
#include <string>

#include <gtest/gtest.h>

#include "controller/config/ConfigHistory.h"
#include "controller/config/LiveConfig.h"
#include "controller/procedures/Procedures.h"
#include "controller/texts/HostTexts.h"
#include "fixture/ServiceWorld.h"
#include "ixocamglue/config/Uassistconfig.h"
#include "ixocamglue/motion/Usequence.h"
#include "ixocamglue/platform/xml/JogSections.h"
#include "ixocamglue/support/Files.h"

namespace ixocamglue::test {
namespace {

class TServiceApi : public testing::Test {
 protected:
  TServiceWorld& World() {
    if (!FWorld) FWorld.emplace(false, 50.0, TWorldExtras{.Example = true, .Folder = Dir.Path()});
    return *FWorld;
  }
  TService& Service() { return World().Service; }
  void Restart() { FWorld.reset(); }
  TApiReply Ask(const std::string& method, const std::string& path, nlohmann::json body = {}, const char* lang = "en") {
    return World().Ask(method, path, std::move(body), TServiceWorld::Operator(), lang);
  }
  TApiReply Set(const std::string& path, nlohmann::json value, const std::string& version = "*") {
    return Ask("PUT", "config/" + path, {{"value", std::move(value)}, {"version", version}});
  }
  // On the interface thread.
  void Do(const std::function<void(TController&)>& what) {
    World().Do([&] { what(Service().Controller()); });
  }
  nlohmann::ordered_json AlarmEvents() {
    auto list = nlohmann::ordered_json::array();
    for (const TServiceEvent& event : Service().Events().Read(0).Events)
      if (event.Kind == evAlarm) list.push_back(event.Body());
    return list;
  }
  std::string Bytes() {
    (void)World();
    return ReadFile(File).OrThrow(pbUnusable);
  }

  const TTempDir Dir;
  const std::filesystem::path File = Dir.Path() / "machine.xml";

 private:
  std::optional<TServiceWorld> FWorld;
};

TEST_F(TServiceApi, AValueIsSetInTheControllerAndItsFileAndOthersAreToldSo) {
  const auto shown = Ask("GET", "config?section=AutoCleanHead/CleanCount");
  ASSERT_EQ(shown.Status, 200) << shown.Body;
  EXPECT_EQ(shown.Body["properties"]["AutoCleanHead/CleanCount"], 3);
  EXPECT_EQ('"' + shown.Body["version"].get<std::string>() + '"', shown.ETag);
  auto set = Set("AutoCleanHead/CleanCount", 5, shown.ETag);
  ASSERT_EQ(set.Status, 200) << set.Body;
  EXPECT_EQ(set.Body["inForce"], "now");
  EXPECT_EQ(set.Body["before"], 3);
  Do([](TController&) { EXPECT_EQ(FNozzleCleanCfg->CleanCount, 5); });
  EXPECT_NE(Bytes().find("<CleanCount>5<"), std::string::npos);

  const auto late = Set("AutoCleanHead/CleanCount", 7, shown.ETag);
  EXPECT_EQ(late.Status, 412);
  EXPECT_EQ(late.ETag, set.ETag);
  EXPECT_EQ(Set("AutoCleanHead/CleanCount", 7, set.ETag).Status, 200);

  // What the controller has no record of, and what has its own.
  EXPECT_EQ(Set("Simulator/PlateZ", 99).Body["inForce"], "next start");
  EXPECT_EQ(Set("Axes/Axis[1]/MaxSpeed", 1200).Body["inForce"], "next start");
  EXPECT_EQ(Set("JogXY/LowJogSpeed", 12.5).Body["inForce"], "now");
  Do([](TController& controller) {
    EXPECT_EQ(controller.Jog().XY().LowJogSpeed, 12.5);
    TJogXYSection xy = controller.Jog().XY();
    xy.HighJogSpeed = 222;
    controller.Jog().SetXY(xy);
    EXPECT_TRUE(controller.Jog().Save());  // and nobody undoes what another has set
    EXPECT_TRUE(MachineConfig()->Save());
  });
  const auto all = Ask("GET", "config").Body["properties"];
  const std::pair<const char*, double> kept[] = {{"AutoCleanHead/CleanCount", 7},
                                                 {"Simulator/PlateZ", 99},
                                                 {"Axes/Axis[1]/MaxSpeed", 1200},
                                                 {"JogXY/LowJogSpeed", 12.5},
                                                 {"JogXY/HighJogSpeed", 222}};
  for (const auto& [path, value] : kept) EXPECT_EQ(all.value(path, -1.0), value) << path;

  const auto changes = Ask("GET", "config/history?limit=2").Body["changes"];
  ASSERT_EQ(changes.size(), 2u);
  EXPECT_EQ(changes[1]["path"], "JogXY/LowJogSpeed");
  EXPECT_EQ(changes[1]["who"], "anna");
  EXPECT_EQ(changes[1]["to"], "12.5");
  const auto diff = Ask("GET", "config/diff?against=backup").Body["differences"];
  EXPECT_EQ(diff.size(), 1u) << diff;
  EXPECT_EQ(diff[0]["path"], "JogXY/HighJogSpeed");

  Do([&](TController& controller) {
    TLiveConfig live(*MachineConfig(), Service().Options().Controller.Machines);
    const std::string whole = Bytes();
    std::ofstream(File) << whole.substr(0, 1000);
    EXPECT_THROW(live.Reread(), EProblem);
    EXPECT_EQ(FNozzleCleanCfg->CleanCount, 7) << "an unreadable file changes nothing";
    std::ofstream(File) << std::regex_replace(whole, std::regex("<CleanCount>7<"), "<CleanCount>9<");
    live.Reread();
    EXPECT_EQ(FNozzleCleanCfg->CleanCount, 9);
    EXPECT_EQ(controller.Jog().XY().HighJogSpeed, 222);
  });
  EXPECT_EQ(Ask("POST", "config/restore").Body["restored"], true);
  Do([](TController& controller) { EXPECT_NE(controller.Jog().XY().HighJogSpeed, 222); });
}

TEST_F(TServiceApi, WhatIsWrongIsRefusedWithItsReasonAndNothingIsChanged) {
  const std::string before = Bytes();
  const struct {
    const char* Path;
    nlohmann::json Value;
    int Status;
  } cases[] = {{"AutoCleanHead/CleanCount", "x", 400},   {"AutoCleanHead/CleanCount", nullptr, 400},
               {"AutoCleanHead/CleanCoun", 3, 400},      {"AutoCleanHead", 3, 400},
               {"Axes/Axis[1]/SoftLimitPos", 3000, 400}, {"Laser/EmissionOnDelay", -1, 400},
               {"UCSOrgName/UCSName1", "a\x0b", 400},    {"UCSOrgName/UCSName1", {{"a", 1}}, 400}};
  for (const auto& c : cases) {
    const auto reply = Set(c.Path, c.Value);
    EXPECT_EQ(reply.Status, c.Status) << c.Path << reply.Body;
    EXPECT_FALSE(reply.Body["what"].get<std::string>().empty());
  }
  EXPECT_EQ(Ask("PUT", "config/AutoCleanHead/CleanCount", {{"value", 3}}).Status, 400) << "no version";
  EXPECT_EQ(Ask("PUT", "config/AutoCleanHead/CleanCount", 7).Status, 400);
  EXPECT_EQ(Ask("GET", "config?section=Nowhere").Status, 404);
  EXPECT_EQ(Ask("GET", "config/diff").Status, 404) << "there is no previous version";
  EXPECT_EQ(Ask("GET", "config/diff?against=me").Status, 400);
  EXPECT_EQ(Ask("POST", "config/restore").Status, 503);
  EXPECT_TRUE(Ask("GET", "config/check").Body["inOrder"]);
  EXPECT_GT(Ask("GET", "config/schema").Body["properties"].size(), 400u);
  EXPECT_EQ(Bytes(), before);

  // Whichever comes first is done: a run that begins is not changed under its feet.
  const nlohmann::json four{{"value", 4}, {"version", "*"}};
  const nlohmann::json delay{{"procedure", "delay"}, {"params", {{"ms", 600'000}}}};
  const auto late = World().AskInOneGo({{"POST", "runs", delay}, {"PUT", "config/AutoCleanHead/CleanCount", four}});
  EXPECT_EQ(late[0].Status, 201) << late[0].Body;
  EXPECT_EQ(late[1].Status, 409) << late[1].Body;
  EXPECT_EQ(late[1].Body["what"], "the procedure delay is running");
  EXPECT_EQ(Bytes(), before);
  EXPECT_EQ(Ask("POST", "stop").Status, 202);
  EXPECT_EQ(World().Report(late[0].Body["id"])["outcome"], "stopped");

  Do([](TController& controller) { EXPECT_TRUE(controller.Start(ShareRoot(MakeShot(60'000)))); });
  for (const auto& reply : {Set("AutoCleanHead/CleanCount", 4), Ask("POST", "config/restore")})
    EXPECT_EQ(reply.Status, 409) << reply.Body;
  EXPECT_EQ(Bytes(), before);
  Do([](TController& controller) { EXPECT_EQ(FNozzleCleanCfg->CleanCount, 3), controller.Framework().Stop(); });
}

TEST_F(TServiceApi, TheListOfChangesKeepsTheLastOnesAndPassesOverWhatACrashHasCut) {
  const auto file = Dir.Path() / "changes";
  TConfigHistory history(file);
  std::uintmax_t largest = 0;
  for (int i = 0; i < 3000; ++i) {
    history.Add({.Who = "me", .What = "set", .Path = "p", .From = std::string(1000, 'x'), .To = std::to_string(i)});
    largest = std::max(largest, std::filesystem::file_size(file));
  }
  EXPECT_LT(largest, TConfigHistory::kMostBytes + 1000);
  std::ofstream(file, std::ios::app) << "{\"at\": \"20";
  history.Add({.Who = "me", .What = "set", .Path = "p", .From = {}, .To = "3000"});
  const auto all = history.Read(10'000);
  EXPECT_GE(all.size(), TConfigHistory::kKept);
  EXPECT_EQ(all.back()["to"], "3000");
}

TEST_F(TServiceApi, AlarmsAreToldInEachClientsLanguageAndWhatIsShownOfThemPermitsNothing) {
  Do([](TController& controller) {
    controller.RaiseAlarm({.IdPrefix = "TPLaser", .Desc = "source says 42", .Id = 1, .Attrs = naForbidLaser});
    controller.RaiseAlarm({.IdPrefix = "Mine", .Desc = SAskedAlarm.Get(), .Id = 7, .Attrs = naShownOnly});
  });
  const auto english = Ask("GET", "alarms").Body["alarms"];
  const auto chinese = Ask("GET", "alarms", {}, "zh").Body["alarms"];
  ASSERT_EQ(english.size(), 2u) << english;
  EXPECT_EQ(english[0]["identifier"], "TPLaser#1");
  EXPECT_NE(english[0]["solution"], chinese[0]["solution"]);
  EXPECT_FALSE(english[0]["solution"].get<std::string>().empty());
  EXPECT_EQ(chinese[0]["description"], "source says 42");
  EXPECT_EQ(chinese[0]["lang"], "en") << "the controller's, whoever asks";
  EXPECT_EQ(english[1]["text"], SAskedAlarm.Get());
  EXPECT_EQ(chinese[1]["text"], SAskedAlarm.Default)
      << "one of the controller's own texts, though without a definition";
  const auto keepAsking = [&](const char* lang, const nlohmann::ordered_json& expected) {
    return std::async(std::launch::async, [&, lang] {
      for (int i = 0; i < 50; ++i) EXPECT_EQ(Ask("GET", "alarms", {}, lang).Body["alarms"], expected) << lang;
    });
  };
  { const auto one = keepAsking("en", english), other = keepAsking("zh", chinese); }
  EXPECT_EQ(Ask("GET", "alarms/definitions?identifier=TPLaser#1").Body["definitions"][0]["solution"],
            english[0]["solution"]);
  EXPECT_EQ(Ask("GET", "alarms/definitions?identifier=Nobody#1").Status, 404);

  const auto suppress = [&](const char* id, nlohmann::json minutes) {
    return Ask("POST", "alarms/suppress", {{"identifier", id}, {"minutes", std::move(minutes)}, {"reason", "known"}});
  };
  EXPECT_EQ(suppress("TPLaser#1", 5).Status, 409) << "level 1 is never hidden";
  EXPECT_EQ(suppress("Mine#7", 10'081).Status, 400);
  EXPECT_EQ(suppress("Mine#7", -1).Status, 400);
  EXPECT_EQ(suppress("Mine#7", 5).Status, 200);
  EXPECT_EQ(Ask("POST", "alarms/99/acknowledge").Status, 404);
  const std::string serial = english[0]["serial"].dump();
  EXPECT_EQ(Ask("POST", "alarms/" + serial + "/acknowledge", {{"name", ""}}).Status, 400);
  EXPECT_EQ(Ask("POST", "alarms/" + serial + "/acknowledge", {{"name", "Li"}}).Body["byWhom"], "Li (anna)");
  const auto seen = Ask("GET", "alarms").Body["alarms"];
  EXPECT_EQ(seen[0]["byWhom"], "Li (anna)");
  EXPECT_TRUE(seen[0]["suppressedUntil"].is_null());
  EXPECT_TRUE(seen[1]["suppressedUntil"].is_string());
  Do([](TController& controller) { EXPECT_FALSE(controller.Alarms().AllowLaser()); });

  Do([](TController& controller) { controller.ClearAlarms(); });
  for (int i = 0; i < 500 && AlarmEvents().size() < 6; ++i) Do([](TController&) {});
  std::string told;
  for (const auto& event : AlarmEvents())
    told += event["event"].get<std::string>() + " " + event["identifier"].get<std::string>() + ", ";
  EXPECT_EQ(told,
            "raised TPLaser#1, raised Mine#7, suppressed Mine#7, acknowledged TPLaser#1, cleared TPLaser#1, cleared "
            "Mine#7, ");
}

TEST_F(TServiceApi, TheStoreHasWhatStoodAndTheNextStartClosesWhatACrashHasLeft) {
  Do([](TController& controller) {
    controller.RaiseAlarm({.IdPrefix = "Mine", .Desc = "a note", .Id = 7, .Attrs = naShownOnly});
  });
  const auto settled = [&] {
    bool is = false;
    for (int i = 0; i < 2000 && !is; ++i) Do([&](TController& controller) { is = controller.AlarmsSettled(); });
    return is;
  };
  ASSERT_TRUE(settled());
  EXPECT_EQ(Ask("POST", "alarms/suppress", {{"identifier", "Mine#7"}, {"minutes", 60}}).Status, 200);
  const auto standing = Ask("GET", "alarms/history?active=true").Body;
  ASSERT_EQ(standing["alarms"].size(), 1u) << standing;
  EXPECT_EQ(standing["alarms"][0]["message"], "a note");
  EXPECT_EQ(Ask("GET", "alarms/history?limit=0").Status, 400);
  EXPECT_EQ(Ask("GET", "alarms/history?since=soon").Status, 400);
  const TTempDir left;  // as a crash leaves it
  Do([&](TController&) { std::filesystem::copy(Dir.Path(), left.Path(), std::filesystem::copy_options::recursive); });
  Restart();
  for (const char* const name : {"alarms.db", "alarms.db-wal"}) {
    std::filesystem::remove(Dir.Path() / name);
    if (std::filesystem::exists(left.Path() / name)) std::filesystem::copy_file(left.Path() / name, Dir.Path() / name);
  }
  ASSERT_TRUE(settled());
  const auto closed = Ask("GET", "alarms/history?active=false").Body["alarms"];
  ASSERT_EQ(closed.size(), 1u) << closed;
  EXPECT_EQ(closed[0]["mark"], "restart");
  EXPECT_EQ(closed[0]["suppressed"], true) << "as before";
}

}  // namespace
}  // namespace ixocamglue::test
