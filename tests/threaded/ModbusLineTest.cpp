// A line of Modbus stations on real sockets and pseudo-terminals, against slaves of ours.
#include <array>
#include <map>
#include <mutex>

#include <gmock/gmock.h>

#include "tests/threaded/ModbusLineWorld.h"
#include "tests/threaded/ModbusRecorder.h"

namespace ixocamglue::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

TEST_F(ModbusLine, ReadsACycleInAsFewRequestsAsTheAddressesAllow) {
  TRecording slave;
  Station.CycleMs = 10'000;
  Station.StaleMs = 20'000;
  Make(slave.Port);
  for (const char* address : {"io:coil:3", "io:coil:40", "io:input:9", "io:hreg:7.3"}) Point(pkInput, address);
  for (const char* address : {"io:hreg:9", "io:hreg:20", "io:ireg:5", "io:ireg:300"}) Point(pkAnalogIn, address);
  EXPECT_EQ(Connect(), "");
  EXPECT_TRUE(Comes([&] { return Line->Statistics().Attempts == 10; }));  // connecting, and one cycle
  Clock().Sleep(50);
  EXPECT_EQ(Line->Statistics().Attempts, 10u);
  EXPECT_THAT(Line->StationFacts()[0].Value, HasSubstr("5 requests every 10000 ms"));
}

TEST_F(ModbusLine, ReadsAtItsRateAndTellsTheNewestValueWithItsAge) {
  TRecording slave;
  slave.Recorder.Put(ptInputRegisters, 5, 16384);
  Make(slave.Port);
  const auto pressure = Point(pkAnalogIn, "io:ireg:5 0..16 0..32768");
  const auto bit = Point(pkInput, "io:hreg:7.3");
  EXPECT_FALSE(Line->AgeMs(bit));
  EXPECT_THAT(Read(bit), HasSubstr("no value has come yet"));
  EXPECT_EQ(Connect(), "");
  EXPECT_EQ(Line->Read(pressure), 8.0);
  slave.Recorder.Put(ptRegisters, 7, 0x0008);
  EXPECT_TRUE(ComesTo(bit, 1.0));
  EXPECT_LT(Line->AgeMs(bit), 400u);
  const auto before = Line->Statistics().Attempts;
  Clock().Sleep(1000);
  const auto cycles = (Line->Statistics().Attempts - before) / 2;
  EXPECT_GE(cycles, 25u);  // 50 on a machine with nothing else to do
  EXPECT_LE(cycles, 52u);
}

TEST_F(ModbusLine, ReadsAroundHolesAndNamesTheAddressThatIsNotThere) {
  TRecording slave;
  slave.Recorder.Hole(ptRegisters, 8, true);
  slave.Recorder.Put(ptRegisters, 9, 99);
  Make(slave.Port);
  Point(pkAnalogIn, "io:hreg:7");
  const auto nine = Point(pkAnalogIn, "io:hreg:9");
  EXPECT_EQ(Connect(), "");
  EXPECT_EQ(Line->Read(nine), 99.0);
  slave.Recorder.Hole(ptRegisters, 10, true);
  Make(slave.Port);
  Point(pkAnalogIn, "io:hreg:9");
  Point(pkAnalogIn, "io:hreg:10");
  EXPECT_THAT(Connect(), HasSubstr("io:hreg:10: exception 2 (illegal data address)"));
  EXPECT_EQ(slave.Recorder.Written(), TLines());
}

TEST_F(ModbusLine, SendsWritesAtOnceInTheirOrderWithZerosFirst) {
  TRecording slave;
  Station.CycleMs = 5000;
  Station.StaleMs = 20'000;
  Station.TimeOutMs = 10'000;
  Make(slave.Port);
  std::array<std::size_t, 6> coil{};
  for (std::size_t i = 0; i < coil.size(); ++i) coil[i] = Point(pkOutput, ("io:coil:" + std::to_string(i)).c_str());
  EXPECT_EQ(Connect(), "");
  EXPECT_TRUE(Comes([&] { return Line->Statistics().Attempts >= 2; }));
  slave.Recorder.Held = true;
  Line->Write(coil[0], 1.0);  // under way while the others queue up
  Clock().Sleep(100);
  Line->Write(coil[1], 1.0);
  Line->Write(coil[2], 1.0);
  Line->Write(coil[3], 0.0);
  Line->Write(coil[1], 0.0);  // its 1 is not sent any more
  Line->Write(coil[4], 0.0);  // an edge: both are sent
  Line->Write(coil[4], 1.0);
  Line->Write(coil[2], 1.0);
  EXPECT_FALSE(Line->Settled(coil[1]));
  slave.Recorder.Held = false;
  EXPECT_TRUE(Comes([&] { return slave.Recorder.Written().size() == 6; }, 1000));  // no cycle is due
  EXPECT_THAT(slave.Recorder.Written(),
              ElementsAre("coil 0=1", "coil 3=0", "coil 1=0", "coil 4=0", "coil 2=1", "coil 4=1"));
}

TEST_F(ModbusLine, AWriteSettlesWhenItIsReadBackAndBitsOfARegisterStayAsTheyAre) {
  TRecording slave;
  slave.Recorder.Deafen(4);
  slave.Recorder.Put(ptRegisters, 7, 0xF000);
  Make(slave.Port);
  const auto good = Point(pkOutput, "io:coil:3"), deaf = Point(pkOutput, "io:coil:4"),
             bit = Point(pkOutput, "io:hreg:7.3");
  const auto volt = Point(pkAnalogOut, "io:hreg:100 0..10 0..32767");
  EXPECT_EQ(Connect(), "");
  EXPECT_TRUE(Line->Settled(good));
  for (const auto point : {good, deaf, bit}) Line->Write(point, 1.0);
  Line->Write(volt, 3.3);
  EXPECT_FALSE(Line->Settled(volt));
  EXPECT_TRUE(Comes([&] { return Line->Settled(good) && Line->Settled(bit) && Line->Settled(volt); }));
  EXPECT_EQ(Line->Read(good), 1.0);
  EXPECT_NEAR(Line->Read(volt), 3.3, 1e-3);
  EXPECT_EQ(slave.Recorder.Get(ptRegisters, 7), 0xF008);
  EXPECT_FALSE(Line->Settled(deaf));
  EXPECT_EQ(Line->Read(deaf), 0.0);
  // Said again and again, as by a state thread that waits for it, it settles all the same, and is not sent again.
  const auto sent = slave.Recorder.Written().size();
  const std::uint64_t until = Clock().MonotonicMs() + 200;
  for (Line->Write(good, 0.0); Clock().MonotonicMs() < until; Clock().Sleep(1)) Line->Write(good, 0.0);
  EXPECT_TRUE(Line->Settled(good));
  EXPECT_EQ(slave.Recorder.Written().size(), sent + 1);
  Line->Write(deaf, 1.0);  // what was not taken is sent again
  EXPECT_TRUE(Comes([&] { return slave.Recorder.Written().size() == sent + 2; }));
  slave.Recorder.Put(ptCoils, 4, 1);
  Line->Write(deaf, 0.0);  // a zero without being asked
  EXPECT_TRUE(Comes([&] { return std::ranges::count(slave.Recorder.Written(), "coil 4=0") > 3; }));
  EXPECT_FALSE(Line->Settled(deaf));
  slave.Recorder.Put(ptCoils, 4, 0);
  EXPECT_TRUE(Comes([&] { return Line->Settled(deaf); }));
  slave.Recorder.Put(ptCoils, 3, 1);  // and what the device has changed by itself
  ASSERT_TRUE(ComesTo(good, 1.0));
  Line->Write(good, 0.0);
  EXPECT_TRUE(Comes([&] { return Line->Settled(good) && Read(good) == "0"; }));
  EXPECT_THROW(Line->Write(volt, std::numeric_limits<double>::quiet_NaN()), std::invalid_argument);
  EXPECT_EQ(Events(), TLines());
}

TEST_F(ModbusLine, ASilentStationIsAwayWithinItsLimitKeepsZerosAndComesBack) {
  TRecording slave;
  Make(slave.Port);
  const auto lamp = Point(pkOutput, "io:coil:3"), beam = Point(pkOutput, "io:coil:4");
  EXPECT_EQ(Connect(), "");
  Line->Write(beam, 1.0);
  ASSERT_TRUE(Comes([&] { return Line->Settled(beam); }));
  const std::uint64_t from = Clock().MonotonicMs();
  slave.Recorder.Held = true;
  Line->Write(lamp, 1.0);  // goes unanswered, or is still queued
  ASSERT_TRUE(Comes([&] { return !Events().empty(); }));
  EXPECT_LT(Clock().MonotonicMs() - from, 3u * 400);
  EXPECT_THAT(Events()[0], HasSubstr("away io: "));
  EXPECT_THAT(Read(beam), HasSubstr("station io has been away for"));
  EXPECT_THROW(Line->Write(lamp, 1.0), EDeviceAway);
  Line->Write(beam, 0.0);
  EXPECT_FALSE(Line->Settled(beam));
  slave.Recorder.Held = false;
  ASSERT_TRUE(Comes([&] { return Events().size() == 2; }));
  EXPECT_EQ(Events()[1], "back io");
  EXPECT_EQ(Line->Read(beam), 0.0);
  EXPECT_TRUE(Line->Settled(beam));
  Clock().Sleep(100);
  const TLines written = slave.Recorder.Written();
  EXPECT_EQ(std::ranges::count(written, "coil 4=1"), 1);
  EXPECT_GE(std::ranges::count(written, "coil 4=0"), 1);
}

TEST_F(ModbusLine, AfterAReconnectOnlyKeptZerosAreWritten) {
  auto first = std::make_unique<TRecording>();
  const std::uint16_t port = first->Port;
  Make(port);
  const auto beam = Point(pkOutput, "io:coil:1"), gas = Point(pkOutput, "io:coil:2");
  const auto volt = Point(pkAnalogOut, "io:hreg:9");
  EXPECT_EQ(Connect(), "");
  for (const auto point : {beam, gas, volt}) Line->Write(point, 1.0);
  ASSERT_TRUE(Comes([&] { return Line->Settled(volt) && Line->Settled(beam); }));
  first.reset();
  ASSERT_TRUE(Comes([&] { return !Events().empty(); }));
  EXPECT_THAT(Events()[0], HasSubstr("the connection has ended"));
  Line->Write(beam, 0.0);
  EXPECT_THROW(Line->Write(volt, 2.0), EDeviceAway);
  Clock().Sleep(300);  // some attempts to connect fail
  TRecording second(port);
  ASSERT_TRUE(Comes([&] { return Events().size() == 2; }));
  Clock().Sleep(100);
  EXPECT_EQ(second.Recorder.Written(), TLines{"coil 1=0"});
  EXPECT_EQ(Events().back(), "back io");
  EXPECT_EQ(Line->Read(gas), 0.0);  // what the device says, not what was written
  EXPECT_TRUE(Line->Settled(gas));
  Line->Write(volt, 2.0);
  EXPECT_TRUE(Comes([&] { return Line->Settled(volt); }));
}

TEST_F(ModbusLine, TheWatchdogIsFedWhileTheStateThreadBeatsAndNoLonger) {
  TRecording slave;
  Station.WatchdogRegister = 200;
  Station.WatchdogPeriodMs = 20;
  Make(slave.Port);
  Point(pkOutput, "io:coil:3");
  EXPECT_EQ(Connect(), "");
  const auto feeds = [&] { return slave.Recorder.Written().size(); };
  EXPECT_TRUE(Comes([&] { return feeds() >= 5; }));
  EXPECT_EQ(slave.Recorder.Written()[0], "hreg 200=1");
  EXPECT_EQ(slave.Recorder.Written()[1], "hreg 200=2");
  EXPECT_EQ(Line->StationFacts()[0].Warning, "");
  Beats = false;
  Clock().Sleep(3 * 200);
  const auto last = feeds();
  Clock().Sleep(300);
  EXPECT_EQ(feeds(), last);
  EXPECT_EQ(Events(), TLines());  // it is read all the same
  Beats = true;
  EXPECT_TRUE(Comes([&] { return feeds() > last; }));
}

TEST_F(ModbusLine, ARegisterThatIsNoLongerThereMakesTheStationAwayWithItsReason) {
  TRecording slave;
  Make(slave.Port);
  const auto nine = Point(pkAnalogIn, "io:ireg:9");
  const auto beam = Point(pkOutput, "io:coil:1");
  EXPECT_EQ(Connect(), "");
  Line->Write(beam, 1.0);
  ASSERT_TRUE(Comes([&] { return Line->Settled(beam); }));
  slave.Recorder.Hole(ptInputRegisters, 9, true);
  ASSERT_TRUE(Comes([&] { return !Events().empty(); }));
  EXPECT_EQ(Events()[0], "away io: io:ireg:9: exception 2 (illegal data address)");
  EXPECT_THAT(Read(nine), HasSubstr("illegal data address"));
  Line->Write(beam, 0.0);  // the device is there: it does not wait
  EXPECT_TRUE(Comes([&] { return slave.Recorder.Written().back() == "coil 1=0"; }, 300));
  slave.Recorder.Hole(ptInputRegisters, 9, false);
  ASSERT_TRUE(Comes([&] { return Events().size() == 2; }));
  EXPECT_TRUE(Line->Settled(beam));
}

TEST_F(ModbusLine, ConnectingIsRefusedWithItsReason) {
  const auto said = [&](TPlcFault fault, std::int32_t unit = 1) {
    TServing slave(fault);
    Station.Unit = unit;
    Make(slave.Tcp());
    Point(pkInput, "io:coil:3");
    return Connect();
  };
  EXPECT_THAT(said(pfNone, 7), HasSubstr("exception 11"));
  EXPECT_THAT(said(pfWrongUnit), HasSubstr("station io (127.0.0.1:"));
  EXPECT_THAT(said(pfLate), HasSubstr("time-out"));
  EXPECT_THAT(said(pfException), HasSubstr("io:coil:3: exception 4"));
  EXPECT_THAT(said(pfHalf), HasSubstr("the reply is incomplete"));
  Make(FreePort());
  Point(pkInput, "io:coil:3");
  EXPECT_THAT(Connect(), HasSubstr("cannot be reached"));
}

TEST_F(ModbusLine, ALateReplyIsNotTakenForAnothers) {
  TRecording slave;
  slave.Recorder.Put(ptInputRegisters, 1, 11);
  slave.Recorder.Put(ptInputRegisters, 400, 44);
  Station.TimeOutMs = 60;
  Station.StaleMs = 2000;
  Make(slave.Port);
  const auto one = Point(pkAnalogIn, "io:ireg:1"), other = Point(pkAnalogIn, "io:ireg:400");
  EXPECT_EQ(Connect(), "");
  for (int i = 0; i < 10; ++i) {
    slave.Recorder.Held = true;
    Clock().Sleep(100);
    slave.Recorder.Held = false;
    Clock().Sleep(20);
    EXPECT_EQ(Read(one), "11");
    EXPECT_EQ(Read(other), "44");
  }
  EXPECT_GE(Line->Statistics().Foreign, 1u);
  EXPECT_EQ(Events(), TLines());
}

// Two units on one serial line, on the thread of this object.
class TTwoUnits {
 public:
  explicit TTwoUnits(int wire) : FWire(wire) {
    FBanks[1].Unit = 2;
    for (TPlcBank& bank : FBanks) bank.Device = &Recorders[static_cast<std::size_t>(&bank - FBanks.data())];
    FThread = std::thread([this] { Serve(); });
  }
  ~TTwoUnits() {
    FStop.Ask();
    FThread.join();
  }
  std::array<TRecorder, 2> Recorders;
  std::array<std::atomic<bool>, 2> Silent{};
  std::atomic<std::uint8_t> Dumb{0};     // this function is not answered
  std::atomic<std::uint32_t> Lose{0};    // of the next replies
  std::atomic<std::uint32_t> LateMs{0};  // of the next reply
  std::atomic<std::uint32_t> EachMs{0};  // each reply takes

 private:
  void Serve() {
    std::array<TLoadingPlc, 2> plcs{TLoadingPlc(FBanks[0], false), TLoadingPlc(FBanks[1], false)};
    std::multimap<std::uint64_t, TBytes> due;
    std::uint8_t buffer[256];
    while (!FStop.Asked()) {
      for (; !due.empty() && due.begin()->first <= Clock().MonotonicMs(); due.erase(due.begin()))
        if (::write(FWire, due.begin()->second.data(), due.begin()->second.size()) < 0) return;
      if (!WaitFd(FWire, POLLIN, due.empty() ? 20 : 1)) continue;
      const auto got = ::read(FWire, buffer, sizeof buffer);
      if (got <= 0) {
        Clock().Sleep(1);  // nobody has the other end open yet
        continue;
      }
      for (std::size_t i = 0; i < plcs.size(); ++i)
        for (TPlcAnswer& answer : plcs[i].Take(std::span(buffer).first(static_cast<std::size_t>(got)))) {
          if (Silent[i] || answer.Bytes[1] == Dumb) continue;
          if (Lose > 0)
            --Lose;
          else
            due.emplace(Clock().MonotonicMs() + EachMs + LateMs.exchange(0), std::move(answer.Bytes));
        }
    }
  }
  const int FWire;
  std::array<TPlcBank, 2> FBanks;
  TStop FStop;
  std::thread FThread;
};

class ModbusSerialLine : public ModbusLine {
 protected:
  // The second one is "valves".
  void Make(std::size_t stations) {
    Station.Host.clear();
    Station.Device = Pty.Device;
    Line = std::make_unique<TModbusLine>(Station.Link(), Watch, *this);
    Line->AddStation(Station);
    if (stations == 1) return;
    Station.Name = "valves";
    Station.Unit = 2;
    Line->AddStation(Station);
  }
  // Until the unit is told so; ms.
  std::uint64_t OffTakes(std::size_t point, std::size_t unit) {
    const std::uint64_t from = Clock().MonotonicMs();
    Line->Write(point, 0.0);
    EXPECT_TRUE(Comes([&] { return Units.Recorders[unit].Written().back() == "coil 1=0"; }));
    return Clock().MonotonicMs() - from;
  }
  const TPty Pty;
  TTwoUnits Units{Pty.Master};
};

TEST_F(ModbusSerialLine, ALostReplyNeitherHoldsUpAnOffNorMakesTheStationAway) {
  Station.TimeOutMs = 100;
  Station.StaleMs = 1500;
  Make(1);
  const auto beam = Point(pkOutput, "io:coil:1");
  const auto one = Point(pkAnalogIn, "io:ireg:1");
  ASSERT_EQ(Connect(), "");
  for (int i = 0; i < 5; ++i) {
    Line->Write(beam, 1.0);
    ASSERT_TRUE(Comes([&] { return Line->Settled(beam); }));
    Units.Lose = 1;
    ASSERT_TRUE(Comes([&] { return Units.Lose == 0; }));
    EXPECT_LT(OffTakes(beam, 0), 3u * 100);
    EXPECT_TRUE(Comes([&] { return Line->Settled(beam); }));
  }
  EXPECT_EQ(Read(one), "0");
  EXPECT_EQ(Events(), TLines());
}

TEST_F(ModbusSerialLine, ALateReplyIsNotTakenForAnothersThatLooksTheSame) {
  Units.Recorders[0].Put(ptInputRegisters, 1, 11);
  Units.Recorders[0].Put(ptInputRegisters, 400, 44);
  Station.TimeOutMs = 60;
  Station.StaleMs = 3000;
  Station.LateReplyMs = 500;
  Make(1);
  const auto one = Point(pkAnalogIn, "io:ireg:1"), other = Point(pkAnalogIn, "io:ireg:400");
  ASSERT_EQ(Connect(), "");
  for (const std::uint32_t ms : {80u, 140u, 200u, 260u, 320u}) {
    Units.LateMs = ms;
    for (const std::uint64_t until = Clock().MonotonicMs() + 700; Clock().MonotonicMs() < until; Clock().Sleep(1)) {
      ASSERT_EQ(Read(one), "11");
      ASSERT_EQ(Read(other), "44");
    }
  }
  EXPECT_EQ(Events(), TLines());
}

TEST_F(ModbusSerialLine, OfTwoStationsNeitherASlowNorADeadOneKeepsTheOtherFromWorking) {
  Units.EachMs = 25;  // longer than a cycle
  Station.TimeOutMs = 100;
  Station.StaleMs = 1000;
  Make(2);
  const auto beam = Point(pkOutput, "valves:coil:1", 1);
  const auto first = Point(pkOutput, "io:coil:1", 0), last = Point(pkOutput, "io:coil:2", 0);
  ASSERT_EQ(Connect(), "");
  for (const auto point : {beam, first, last}) Line->Write(point, 1.0);
  ASSERT_TRUE(Comes([&] { return Line->Settled(beam) && Line->Settled(first); }));
  Clock().Sleep(1500);
  EXPECT_EQ(Events(), TLines());
  Units.Silent[0] = true;
  for (const auto point : {first, last}) Line->Write(point, 0.0);
  EXPECT_LT(OffTakes(beam, 1), 3u * 200) << "behind a read and a zero that nobody answers";
  ASSERT_TRUE(Comes([&] { return !Events().empty(); }));
  for (int i = 0; i < 5; ++i) {
    Line->Write(beam, 1.0);
    ASSERT_TRUE(Comes([&] { return Line->Settled(beam); }));
    EXPECT_LT(OffTakes(beam, 1), 3u * 100);
  }
  Units.Silent[0] = false;
  ASSERT_TRUE(Comes([&] { return Events().size() == 2; }));
  EXPECT_EQ(Events()[1], "back io");
  EXPECT_EQ(Read(first) + Read(last), "00");
}

TEST_F(ModbusSerialLine, AStationThatAnswersWritesOnlyIsAwayAllTheSame) {
  Station.WatchdogRegister = 200;
  Station.WatchdogPeriodMs = 20;
  Make(1);
  const auto lit = Point(pkInput, "io:input:1"), beam = Point(pkOutput, "io:coil:1");
  ASSERT_EQ(Connect(), "");
  Line->Write(beam, 1.0);
  ASSERT_TRUE(Comes([&] { return Line->Settled(beam); }));
  Units.Dumb = 2;
  ASSERT_TRUE(Comes([&] { return !Events().empty(); }, 3 * 400));
  EXPECT_THAT(Events()[0], HasSubstr("io:input:1"));
  EXPECT_THROW((void)Line->Read(lit), EDeviceAway);
  EXPECT_LT(OffTakes(beam, 0), 3u * 150);
  Units.Dumb = 0;
  EXPECT_TRUE(Comes([&] { return Events().size() == 2; }));
}

TEST_F(ModbusSerialLine, TwoStationsShareIt) {
  Make(2);
  const auto a = Point(pkOutput, "io:coil:1", 0), b = Point(pkOutput, "valves:coil:1", 1);
  ASSERT_EQ(Connect(), "");
  Line->Write(a, 1.0);
  ASSERT_TRUE(Comes([&] { return Line->Settled(a); }));
  EXPECT_EQ(Line->Read(b), 0.0);
  Line->Write(b, 1.0);
  EXPECT_TRUE(Comes([&] { return Line->Settled(b); }));
  EXPECT_EQ(Units.Recorders[0].Written(), TLines{"coil 1=1"});
  EXPECT_EQ(Units.Recorders[1].Written(), TLines{"coil 1=1"});
  Units.Recorders[1].Hole(ptCoils, 1, true);  // the one is away, the other is not
  ASSERT_TRUE(Comes([&] { return !Events().empty(); }));
  EXPECT_THAT(Events()[0], HasSubstr("away valves: "));
  Clock().Sleep(50);
  EXPECT_EQ(Line->Read(a), 1.0);
}

}  // namespace
}  // namespace ixocamglue::test
