// The driver "modbus" as a machine that is put together from its file uses it.

#include <gmock/gmock.h>

#include "controller/Journal.h"
#include "fixture/OwnConfig.h"
#include "fixture/Waiting.h"
#include "ixocamglue/platform/alarms/NcAlarmManager.h"
#include "ixocamglue/platform/states/NcState.h"
#include "ixocamglue/support/Format.h"
#include "machines/modbus/Driver.h"
#include "tests/threaded/ModbusRecorder.h"

namespace ixocamglue::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

// Two stations.
class ModbusDriverWorld : public testing::Test, protected TOwnConfig, public IDriverEvents {
 protected:
  void Make() {
    ASSERT_EQ(Load(Format("<MachineConfig><Modbus><Station Name='a' Host='127.0.0.1' Port='%d' WatchdogRegister='200'/>"
                          "<Station Name='b' Host='127.0.0.1' Port='%d'/></Modbus></MachineConfig>",
                          A.Port, B.Port)),
              "");
    Driver = ModbusDriver().Make({Context, *this}).OrThrow(pbUnusable);
  }
  IMachinePoint& Point(TPointKind kind, const char* address) {
    return *Driver->Point(kind, address).OrThrow(pbRequest);
  }
  void Away(const std::string& why) override { Note("away " + why.substr(0, 9)); }
  void Back() override { Note("back"); }
  void Note(std::string text) {
    const std::lock_guard guard(FLock);
    FEvents.push_back(std::move(text));
  }
  TTexts Events() {
    const std::lock_guard guard(FLock);
    return FEvents;
  }

  TRecording A, B;
  TNcStateFramework Framework;
  TNcAlarmManager Alarms;
  ixocontroller::TJournal Journal;
  TMachineContext Context{Framework, Config, Alarms, Journal};
  std::unique_ptr<IMachineDriver> Driver;

 private:
  std::mutex FLock;
  TTexts FEvents;
};

TEST_F(ModbusDriverWorld, HandsOutEachPointOnceAndRefusesTwoThatWriteTheSame) {
  Make();
  IMachinePoint& volt = Point(pkAnalogOut, "a:hreg:7 0..10 0..100");
  EXPECT_EQ(&Point(pkAnalogOut, " a:hreg:7  0..10  0..100"), &volt);
  EXPECT_NE(&Point(pkAnalogIn, "a:hreg:7 0..10 0..100"), &volt);
  for (const auto& [kind, address] :
       {std::pair(pkAnalogOut, "a:hreg:7 0..5 0..100"), std::pair(pkOutput, "a:hreg:7.1")}) {
    const auto second = Driver->Point(kind, address);
    ASSERT_FALSE(second);
    EXPECT_THAT(second.Problem().What, HasSubstr("writes it already: a:hreg:7 0..10 0..100"));
  }
  (void)Point(pkOutput, "a:hreg:8.1");
  (void)Point(pkOutput, "a:hreg:8.2");
  Driver->NoteUse(Point(pkOutput, "b:coil:1"), puLight);
  EXPECT_FALSE(Driver->Point(pkAnalogOut, "a:hreg:200"));
  Driver->Connect().OrThrow(pbUnusable);
  TTexts warned, ports;
  for (const TPortFacts& facts : Driver->Ports()) {
    ports.push_back(facts.Port);
    EXPECT_TRUE(facts.Readable) << facts.Port;
    if (!facts.Warning.empty()) warned.push_back(facts.Port);
  }
  EXPECT_THAT(ports, testing::IsSupersetOf({"a", "b", "a:hreg:7 0..10 0..100", "a:hreg:8.2", "b:coil:1"}));
  EXPECT_EQ(warned, TTexts{"b"});  // it has a laser and no watchdog
  EXPECT_THAT(A.Recorder.Written(), testing::Each(HasSubstr("hreg 200=")));
  EXPECT_EQ(B.Recorder.Written(), TTexts());
}

TEST_F(ModbusDriverWorld, IsBackWhenEveryStationIs) {
  Make();
  IMachinePoint& a = Point(pkInput, "a:coil:1");
  IMachinePoint& b = Point(pkInput, "b:coil:1");
  Driver->Connect().OrThrow(pbUnusable);
  A.Recorder.Hole(ptCoils, 1, true);
  ASSERT_TRUE(Comes([&] { return Events().size() == 1; }));
  B.Recorder.Hole(ptCoils, 1, true);
  ASSERT_TRUE(Comes([&] { return Events().size() == 2; }));
  EXPECT_THROW((void)a.Read(), EDeviceAway);
  EXPECT_THROW((void)b.Read(), EDeviceAway);
  A.Recorder.Hole(ptCoils, 1, false);
  ASSERT_TRUE(Comes([&] { return Events().size() == 3; }));
  EXPECT_EQ(a.Read(), 0.0);
  B.Recorder.Hole(ptCoils, 1, false);
  ASSERT_TRUE(Comes([&] { return Events().size() == 4; }));
  EXPECT_THAT(Events(), ElementsAre("away station a", "away station b", "away station b", "back"));
}

TEST_F(ModbusDriverWorld, WritesWhatIsToGoOffBeforeItEnds) {
  Make();
  IMachinePoint& beam = Point(pkOutput, "b:coil:1");
  Driver->Connect().OrThrow(pbUnusable);
  beam.Write(1.0);
  ASSERT_TRUE(Comes([&] { return beam.Settled(); }));
  beam.Write(0.0);
  Driver.reset();
  EXPECT_EQ(B.Recorder.Written().back(), "coil 1=0");
}

}  // namespace
}  // namespace ixocamglue::test
