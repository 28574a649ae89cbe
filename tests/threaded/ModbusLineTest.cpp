// A line of Modbus stations on real sockets, against slaves of ours.
#include <array>
#include <cerrno>
#include <future>
#include <linux/filter.h>

#include <gmock/gmock.h>

#include "fixture/Sockets.h"
#include "ixocamglue/platform/comm/Comm.h"
#include "tests/threaded/ModbusLineWorld.h"
#include "tests/threaded/ModbusRecorder.h"

namespace ixocamglue::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

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
  EXPECT_THAT(Line->StationFacts()[0].Value, HasSubstr("5 requests every 10000 ms; 10 sent, 0 of them failed, "));
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
  const std::uint64_t from = Clock().MonotonicMs();
  const auto before = Line->Statistics().Attempts;
  Clock().Sleep(1000);
  const auto cycles = (Line->Statistics().Attempts - before) / 2;
  const auto due = (Clock().MonotonicMs() - from) / 20;
  EXPECT_GE(3 * cycles, due);
  EXPECT_LE(cycles, due + 2);
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
  EXPECT_EQ(slave.Recorder.Written(), TTexts());
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
  slave.Recorder.KeepsWrites = true;
  Line->Write(coil[0], 1.0);  // under way while the others queue up
  ASSERT_TRUE(Comes([&] { return slave.Recorder.HasWrite.load(); }));
  Line->Write(coil[1], 1.0);
  Line->Write(coil[2], 1.0);
  Line->Write(coil[3], 0.0);
  Line->Write(coil[1], 0.0);  // its 1 is not sent any more
  Line->Write(coil[4], 0.0);  // an edge: both are sent
  Line->Write(coil[4], 1.0);
  Line->Write(coil[2], 1.0);
  EXPECT_FALSE(Line->Settled(coil[1]));
  slave.Recorder.KeepsWrites = false;
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
  EXPECT_TRUE(Comes([&] {
    Line->Write(good, 0.0);
    return Clock().MonotonicMs() >= until && Line->Settled(good);
  }));
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
  EXPECT_EQ(Events(), TTexts());
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
  const TTexts written = slave.Recorder.Written();
  EXPECT_EQ(std::ranges::count(written, "coil 4=1"), 1);
  EXPECT_GE(std::ranges::count(written, "coil 4=0"), 1);
}

TEST_F(ModbusLine, AfterAReconnectOnlyKeptZerosAreWritten) {
  const TReservedPort own;
  auto first = std::make_unique<TRecording>(own.Port);
  Make(own.Port);
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
  TRecording second(own.Port);
  ASSERT_TRUE(Comes([&] { return Events().size() == 2; }));
  Clock().Sleep(100);
  EXPECT_EQ(second.Recorder.Written(), TTexts{"coil 1=0"});
  EXPECT_EQ(Events().back(), "back io");
  EXPECT_EQ(Line->Read(gas), 0.0);  // what the device says, not what was written
  EXPECT_TRUE(Line->Settled(gas));
  Line->Write(volt, 2.0);
  EXPECT_TRUE(Comes([&] { return Line->Settled(volt); }));
}

TEST_F(ModbusLine, AnOffWaitsForNoAttemptToConnectThatIsDueLater) {
  for (const bool ends : {false, true}) {
    const TReservedPort own;
    auto first = std::make_unique<TRecording>(own.Port);
    Make(own.Port);
    const auto beam = Point(pkOutput, "io:coil:1");
    ASSERT_EQ(Connect(), "");
    Line->Write(beam, 1.0);
    ASSERT_TRUE(Comes([&] { return Line->Settled(beam); }));
    first.reset();
    ASSERT_TRUE(Comes([&] { return Read(beam) != "1"; }));
    Clock().Sleep(1600);  // the next one is due in more than a second
    const TRecording second(own.Port);
    Line->Write(beam, 0.0);
    if (ends) Line.reset();
    EXPECT_TRUE(Comes([&] { return second.Recorder.Written() == TTexts{"coil 1=0"}; }, 600)) << ends;
    Line.reset();
  }
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
  EXPECT_EQ(Events(), TTexts());  // it is read all the same
  Beats = true;
  EXPECT_TRUE(Comes([&] { return feeds() > last; }));
}

TEST_F(ModbusLine, TheWatchdogIsFedAsSoonAsTheStateThreadLives) {
  TRecording slave;
  Station.WatchdogRegister = 200;
  Station.WatchdogPeriodMs = 5000;
  Make(slave.Port);
  Point(pkOutput, "io:coil:3");
  Beats = false;
  Clock().Sleep(300);
  ASSERT_EQ(Connect(), "");
  Clock().Sleep(50);
  EXPECT_EQ(slave.Recorder.Written(), TTexts());
  Beats = true;
  EXPECT_TRUE(Comes([&] { return slave.Recorder.Written() == TTexts{"hreg 200=1"}; }, 300));
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
  EXPECT_EQ(Line->StationFacts()[0].Warning, "io:ireg:9: exception 2 (illegal data address)");
  EXPECT_THAT(Line->StationFacts()[0].Value, Not(HasSubstr(" 0 of them failed")));
  EXPECT_THAT(Read(nine), HasSubstr("illegal data address"));
  Line->Write(beam, 0.0);  // the device is there: it does not wait
  EXPECT_TRUE(Comes([&] { return slave.Recorder.Written().back() == "coil 1=0"; }, 300));
  slave.Recorder.Hole(ptInputRegisters, 9, false);
  ASSERT_TRUE(Comes([&] { return Events().size() == 2; }));
  EXPECT_TRUE(Line->Settled(beam));
}

TEST_F(ModbusLine, AnOffThatTheDeviceRefusesKeepsNoOtherFromBeingSent) {
  TRecording slave;
  Make(slave.Port);
  const auto beam = Point(pkOutput, "io:coil:1"), valve = Point(pkOutput, "io:coil:2");
  ASSERT_EQ(Connect(), "");
  for (const auto point : {beam, valve}) Line->Write(point, 1.0);
  ASSERT_TRUE(Comes([&] { return Line->Settled(beam) && Line->Settled(valve); }));
  slave.Recorder.Hole(ptCoils, 1, true);
  for (const auto point : {beam, valve}) Line->Write(point, 0.0);
  EXPECT_TRUE(Comes([&] { return slave.Recorder.Written().back() == "coil 2=0"; }, 300));
}

TEST_F(ModbusLine, NorAtTheEndOfTheLine) {
  TRecording slave;
  Station.CycleMs = 5000;
  Station.StaleMs = 20'000;
  Station.TimeOutMs = 10'000;
  Make(slave.Port);
  const auto beam = Point(pkOutput, "io:coil:1"), emission = Point(pkOutput, "io:coil:2"),
             valve = Point(pkOutput, "io:coil:3"), lamp = Point(pkOutput, "io:coil:4");
  ASSERT_EQ(Connect(), "");
  ASSERT_TRUE(Comes([&] { return Line->Statistics().Attempts >= 2; }));
  slave.Recorder.KeepsWrites = true;
  Line->Write(lamp, 1.0);  // under way when the line is to end
  ASSERT_TRUE(Comes([&] { return slave.Recorder.HasWrite.load(); }));
  for (const std::size_t addr : {1U, 2U}) slave.Recorder.Hole(ptCoils, addr, true);
  for (const auto point : {beam, emission, valve}) Line->Write(point, 0.0);
  const auto ended = std::async(std::launch::async, [&] { Line.reset(); });
  Clock().Sleep(100);
  slave.Recorder.KeepsWrites = false;
  ended.wait();
  EXPECT_EQ(slave.Recorder.Written().back(), "coil 3=0");
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
  const TReservedPort nobodys;
  Make(nobodys.Port);
  Point(pkInput, "io:coil:3");
  EXPECT_THAT(Connect(), HasSubstr("cannot be reached"));
}

// Answers whatever it is sent with this, and keeps the connection.
class TOtherService {
 public:
  explicit TOtherService(std::string answer, std::uint16_t port = 0)
      : FContext(modbus_new_tcp("127.0.0.1", port)), FAnswer(std::move(answer)) {
    FListener = modbus_tcp_listen(FContext, 1);
    Port = PortOf(FListener);
    FThread = std::thread([this] { Serve(); });
  }
  ~TOtherService() {
    FStop.Ask();
    FThread.join();
    ::close(FListener);
    modbus_free(FContext);
  }
  std::uint16_t Port = 0;
  std::atomic<int> Peer{-1};  // the connection
  std::atomic<std::size_t> Received{0};

 private:
  void Serve() {
    char buffer[512];
    while (!FStop.Asked()) {
      if (!WaitFd(FListener, POLLIN, 20)) continue;
      Peer = ::accept(FListener, nullptr, nullptr);
      for (ssize_t got = 1; got > 0 && !FStop.Asked();) {
        if (!WaitFd(Peer, POLLIN, 20)) continue;
        got = ::recv(Peer, buffer, sizeof buffer, 0);
        if (got > 0) Received += static_cast<std::size_t>(got);
        if (got > 0 && ::send(Peer, FAnswer.data(), FAnswer.size(), MSG_NOSIGNAL) < 0) break;
      }
      ::close(Peer.exchange(-1));
    }
  }
  modbus_t* const FContext;
  const std::string FAnswer;
  int FListener = -1;
  TStop FStop;
  std::thread FThread;
};

TEST_F(ModbusLine, WhatDoesNotTalkModbusTcpIsNamedSo) {
  const char* const kAnswer = "HTTP/1.1 400 Bad Request\r\n\r\n";
  const TReservedPort own;
  {
    const TOtherService web(kAnswer);
    Make(web.Port);
    Point(pkInput, "io:coil:3");
    const std::string said = Connect();
    EXPECT_THAT(said, HasSubstr("this is no Modbus TCP header"));
    EXPECT_THAT(said, HasSubstr("look at Host and Port"));
  }
  {
    const TRecording slave(own.Port);
    Make(own.Port);
    Point(pkInput, "io:coil:3");
    ASSERT_EQ(Connect(), "");
  }
  const TOtherService web(kAnswer, own.Port);
  EXPECT_TRUE(Comes([&] { return Read(0).find("this is no Modbus TCP header") != std::string::npos; })) << Read(0);
}

// A command that is given up must not come when a broken line is whole again.
TEST_F(ModbusLine, WhatAConnectionHasNotDeliveredWhenItIsGivenUpNeverComes) {
  for (const bool byHand : {true, false}) {
    TOtherService peer("");
    const auto link = MakeTransport(TcpLink(peer.Port));
    ASSERT_TRUE(link->Reopen(1000));
    ASSERT_TRUE(link->SendBuff({1, 2}));
    ASSERT_TRUE(Comes([&] { return peer.Received == 2; }));
    sock_filter nothing = BPF_STMT(BPF_RET | BPF_K, 0);  // as behind a cut cable
    const sock_fprog cut{1, &nothing};
    const int attached = ::setsockopt(peer.Peer, SOL_SOCKET, SO_ATTACH_FILTER, &cut, sizeof cut) == 0 ? 0 : errno;
    if (attached == EPERM) GTEST_SKIP() << "this kernel lets no ordinary user cut a connection by a filter";
    ASSERT_EQ(attached, 0);
    ASSERT_TRUE(link->SendBuff({3, 4, 5}));
    if (byHand)
      link->CloseLink();
    else
      EXPECT_TRUE(Comes([&] { return link->ReceiveWithin(10).empty() && !link->Linked(); }, 3 * kSendLimitMs));
    const int none = 0;
    ASSERT_EQ(::setsockopt(peer.Peer, SOL_SOCKET, SO_DETACH_FILTER, &none, sizeof none), 0);
    Clock().Sleep(1500);  // it would be repeated by now
    EXPECT_EQ(peer.Received, 2u) << byHand;
  }
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
  EXPECT_EQ(Events(), TTexts());
}

}  // namespace
}  // namespace ixocamglue::test
