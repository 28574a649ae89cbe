// Modbus stations that share one serial line, a pseudo-terminal, against units of ours: silent, late, slow.
#include <array>
#include <map>

#include <gmock/gmock.h>

#include "tests/threaded/ModbusLineWorld.h"
#include "tests/threaded/ModbusRecorder.h"

namespace ixocamglue::test {
namespace {

using testing::HasSubstr;

// Three units on one serial line, on the thread of this object.
class TThreeUnits {
 public:
  explicit TThreeUnits(int wire) : FWire(wire) {
    for (std::size_t i = 0; i < FBanks.size(); ++i) {
      FBanks[i].Unit = static_cast<std::uint8_t>(1 + i);
      FBanks[i].Device = &Recorders[i];
    }
    FThread = std::thread([this] { Serve(); });
  }
  ~TThreeUnits() {
    FStop.Ask();
    FThread.join();
  }
  std::array<TRecorder, 3> Recorders;
  std::array<std::atomic<bool>, 3> Silent{};
  std::atomic<std::uint8_t> Dumb{0};     // this function is not answered
  std::atomic<std::uint32_t> Lose{0};    // of the next replies
  std::atomic<int> LoseAddr{-1};         // of the next reply to a request of it
  std::atomic<std::uint32_t> LateMs{0};  // of the next reply
  std::atomic<std::uint32_t> EachMs{0};  // each reply takes

 private:
  void Serve() {
    std::array<TLoadingPlc, 3> plcs{TLoadingPlc(FBanks[0], false), TLoadingPlc(FBanks[1], false),
                                    TLoadingPlc(FBanks[2], false)};
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
          if (LoseAddr == (buffer[2] << 8 | buffer[3]))
            LoseAddr = -1;
          else if (Lose > 0)
            --Lose;
          else
            due.emplace(Clock().MonotonicMs() + EachMs + LateMs.exchange(0), std::move(answer.Bytes));
        }
    }
  }
  const int FWire;
  std::array<TPlcBank, 3> FBanks;
  TStop FStop;
  std::thread FThread;
};

class ModbusSerialLine : public ModbusLine {
 protected:
  void Make(std::size_t stations) {
    Station.Host.clear();
    Station.Device = Pty.Device;
    Line = std::make_unique<TModbusLine>(Station.Link(), Watch, *this);
    for (std::size_t i = 0; i < stations; ++i) {
      Station.Name = std::array{"io", "valves", "laser"}[i];
      Station.Unit = static_cast<std::int32_t>(1 + i);
      Line->AddStation(Station);
    }
  }
  // Until the unit is told so; ms.
  std::uint64_t OffTakes(std::size_t point, std::size_t unit) {
    const std::uint64_t from = Clock().MonotonicMs();
    Line->Write(point, 0.0);
    EXPECT_TRUE(Comes([&] { return Units.Recorders[unit].Written().back() == "coil 1=0"; }));
    return Clock().MonotonicMs() - from;
  }
  const TPty Pty;
  TThreeUnits Units{Pty.Master};
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
  EXPECT_EQ(Events(), TTexts());
}

TEST_F(ModbusSerialLine, NorAnOffThatIsABitOfARegister) {
  Station.TimeOutMs = 100;
  Station.StaleMs = 1500;
  Make(1);
  const auto beam = Point(pkOutput, "io:hreg:7.3");
  Point(pkAnalogIn, "io:hreg:400");  // a reply to this one looks like one to the other
  ASSERT_EQ(Connect(), "");
  for (int i = 0; i < 3; ++i) {
    Line->Write(beam, 1.0);
    ASSERT_TRUE(Comes([&] { return Line->Settled(beam); }));
    Units.LoseAddr = 400;
    ASSERT_TRUE(Comes([&] { return Units.LoseAddr == -1; }));
    const std::uint64_t from = Clock().MonotonicMs();
    Line->Write(beam, 0.0);
    ASSERT_TRUE(Comes([&] { return Units.Recorders[0].Written().back() == "hreg 7=0"; }));
    EXPECT_LT(Clock().MonotonicMs() - from, 3u * 150);
    EXPECT_TRUE(Comes([&] { return Line->Settled(beam); }));
  }
  EXPECT_EQ(Events(), TTexts());
}

TEST_F(ModbusSerialLine, TwoDeadStationsLeaveTheThirdItsTime) {
  Units.EachMs = 10;
  Station.StaleMs = 700;
  Make(3);
  const auto beam = Point(pkOutput, "laser:coil:1", 2);
  const std::array others{Point(pkOutput, "io:coil:1", 0), Point(pkOutput, "valves:coil:1", 1)};
  Line->NoteUse(beam, puLight);
  ASSERT_EQ(Connect(), "");
  for (const auto point : others) Line->Write(point, 1.0);
  ASSERT_TRUE(Comes([&] { return Line->Settled(others[0]) && Line->Settled(others[1]); }));
  Units.Silent[0] = Units.Silent[1] = true;
  ASSERT_TRUE(Comes([&] { return Events().size() >= 2; }));
  for (const auto point : others) Line->Write(point, 0.0);
  (void)Comes([&] { return Line->Settled(beam) && Read(beam) == "0"; });
  for (int i = 0; i < 5; ++i) {
    Line->Write(beam, 1.0);
    ASSERT_TRUE(Comes([&] { return Line->Settled(beam); }));
    EXPECT_LT(OffTakes(beam, 2), 3u * 160);
  }
  for (const std::string& event : Events()) EXPECT_THAT(event, testing::Not(HasSubstr("laser")));
  Units.Silent[0] = Units.Silent[1] = false;
  EXPECT_TRUE(Comes([&] { return Read(others[0]) + Read(others[1]) == "00"; }));
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
  EXPECT_EQ(Events(), TTexts());
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
  EXPECT_EQ(Events(), TTexts());
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
  EXPECT_EQ(Units.Recorders[0].Written(), TTexts{"coil 1=1"});
  EXPECT_EQ(Units.Recorders[1].Written(), TTexts{"coil 1=1"});
  Units.Recorders[1].Hole(ptCoils, 1, true);  // the one is away, the other is not
  ASSERT_TRUE(Comes([&] { return !Events().empty(); }));
  EXPECT_THAT(Events()[0], HasSubstr("away valves: "));
  Clock().Sleep(50);
  EXPECT_EQ(Line->Read(a), 1.0);
}

}  // namespace
}  // namespace ixocamglue::test
