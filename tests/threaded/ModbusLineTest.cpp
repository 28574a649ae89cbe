// A line of Modbus stations on real sockets and pseudo-terminals, against slaves of ours and of others.
#include <array>
#include <mutex>

#include <gmock/gmock.h>

#include "fixture/Waiting.h"
#include "machines/modbus/Line.h"
#include "tests/threaded/ModbusRecorder.h"

namespace ixocamglue::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using TLines = std::vector<std::string>;

class ModbusLine : public testing::Test, public IModbusStations {
 protected:
  ModbusLine() {
    Station.Initialize();
    Station.Name = "io";
    Station.Host = "127.0.0.1";
    FBeat.KeepDoing(5, [this] {
      if (Beats) Watch.BeatMs = Clock().MonotonicMs();
    });
  }
  ~ModbusLine() override {
    Line.reset();
    FBeat.End();
  }
  void Make(std::uint16_t port) {
    Station.Port = port;
    Line = std::make_unique<TModbusLine>(Station.Link(), Watch, *this);
    Line->AddStation(Station);
  }
  std::size_t Point(TPointKind kind, const char* address, std::size_t station = 0) {
    return Line->AddPoint(station, kind, TModbusAddress::Parse(kind, address).OrThrow(pbRequest));
  }
  std::string Connect() {
    const auto connected = Line->Connect();
    return connected ? "" : connected.Problem().Text();
  }
  // What a read says: the number, or the reason.
  std::string Read(std::size_t point) {
    try {
      return NumberText(Line->Read(point));
    } catch (const EDeviceAway& away) {
      return away.what();
    }
  }
  bool ComesTo(std::size_t point, double value) {
    return Comes([&] { return Read(point) == NumberText(value); }, 3000);
  }
  void StationAway(const std::string& name, const std::string& why) override {
    const std::lock_guard guard(FLock);
    FEvents.push_back("away " + name + ": " + why);
  }
  void StationBack(const std::string& name) override {
    const std::lock_guard guard(FLock);
    FEvents.push_back("back " + name);
  }
  TLines Events() {
    const std::lock_guard guard(FLock);
    return FEvents;
  }

  TNcWatch Watch;
  std::atomic<bool> Beats{true};
  TModbusStationConfig Station;
  std::unique_ptr<TModbusLine> Line;

 private:
  std::mutex FLock;
  TLines FEvents;
  TSideThreads FBeat;
};

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

// Reads, writes and settles on a slave of whatever make.
void ModbusLineWorks(TModbusLine& line, std::size_t register20, std::size_t register60) {
  line.Write(register20, 1234.0);
  line.Write(register60, 5.0);
  EXPECT_TRUE(Comes([&] { return line.Settled(register20) && line.Settled(register60); }));
  line.Write(register60, 0.0);
  EXPECT_TRUE(Comes([&] { return line.Settled(register60); }));
  EXPECT_EQ(line.Read(register20), 1234.0);
  EXPECT_EQ(line.Read(register60), 0.0);
}

TEST_F(ModbusLine, WorksWithSlavesOfOthersOverTcpAndOnALine) {
  const auto work = [&](const char* what) {
    SCOPED_TRACE(what);
    Line = std::make_unique<TModbusLine>(Station.Link(), Watch, *this);
    Line->AddStation(Station);
    const auto a = Point(pkAnalogOut, "io:hreg:20"), b = Point(pkAnalogOut, "io:hreg:60");
    ASSERT_TRUE(Comes([&] { return Connect().empty(); })) << Connect();  // one of another process needs a while
    ModbusLineWorks(*Line, a, b);
    Line.reset();
  };
  const auto serial = [&](const std::string& device) {
    Station.Host.clear();
    Station.Device = device;
    Station.TimeOutMs = 300;
    Station.StaleMs = 1000;
  };
  {
    TLibmodbusSlave tcp;
    Station.Port = tcp.Tcp();
    work("libmodbus, TCP");
  }
  const TModbusStationConfig overTcp = Station;
  TCable cable;
  {
    TLibmodbusSlave rtu;
    rtu.Serial(cable.B.Device);
    serial(cable.A.Device);
    work("libmodbus, RTU");
  }
  if (!HasPymodbus()) GTEST_SKIP() << "python3-pymodbus is not installed";
  Station = overTcp;
  Station.Port = FreePort();
  const TPymodbusSlave tcp("StartTcpServer(context=c, address=('127.0.0.1', " + std::to_string(Station.Port) + "))\n");
  work("pymodbus, TCP");
  TCable other;
  const TPymodbusSlave rtu("StartSerialServer(context=c, framer=ModbusRtuFramer, port='" + other.B.Device +
                           "', baudrate=9600, timeout=0.01)\n");
  serial(other.A.Device);
  work("pymodbus, RTU");
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

 private:
  void Serve() {
    std::array<TLoadingPlc, 2> plcs{TLoadingPlc(FBanks[0], false), TLoadingPlc(FBanks[1], false)};
    std::uint8_t buffer[256];
    while (!FStop.Asked()) {
      if (!WaitFd(FWire, POLLIN, 20)) continue;
      const auto got = ::read(FWire, buffer, sizeof buffer);
      if (got <= 0) {
        Clock().Sleep(1);  // nobody has the other end open yet
        continue;
      }
      for (TLoadingPlc& plc : plcs)
        for (const TPlcAnswer& answer : plc.Take(std::span(buffer).first(static_cast<std::size_t>(got))))
          if (::write(FWire, answer.Bytes.data(), answer.Bytes.size()) < 0) return;
    }
  }
  const int FWire;
  std::array<TPlcBank, 2> FBanks;
  TStop FStop;
  std::thread FThread;
};

TEST_F(ModbusLine, TwoStationsShareASerialLine) {
  const TPty pty;
  TTwoUnits units(pty.Master);
  Station.Host.clear();
  Station.Device = pty.Device;
  Line = std::make_unique<TModbusLine>(Station.Link(), Watch, *this);
  Line->AddStation(Station);
  Station.Name = "valves";
  Station.Unit = 2;
  Line->AddStation(Station);
  const auto a = Point(pkOutput, "io:coil:1", 0), b = Point(pkOutput, "valves:coil:1", 1);
  ASSERT_EQ(Connect(), "");
  Line->Write(a, 1.0);
  ASSERT_TRUE(Comes([&] { return Line->Settled(a); }));
  EXPECT_EQ(Line->Read(b), 0.0);
  Line->Write(b, 1.0);
  EXPECT_TRUE(Comes([&] { return Line->Settled(b); }));
  EXPECT_EQ(units.Recorders[0].Written(), TLines{"coil 1=1"});
  EXPECT_EQ(units.Recorders[1].Written(), TLines{"coil 1=1"});
  units.Recorders[1].Hole(ptCoils, 1, true);  // the one is away, the other is not
  ASSERT_TRUE(Comes([&] { return !Events().empty(); }));
  EXPECT_THAT(Events()[0], HasSubstr("away valves: "));
  Clock().Sleep(50);
  EXPECT_EQ(Line->Read(a), 1.0);
}

}  // namespace
}  // namespace ixocamglue::test
