// What a line of Modbus stations owes them, and in which order it is told.
#include <array>
#include <set>

#include <gmock/gmock.h>

#include "fixture/Texts.h"
#include "ixocamglue/platform/services/VirtualClock.h"
#include "machines/modbus/Values.h"

namespace ixocamglue::test {
namespace {

using testing::ElementsAre;

class ModbusValues : public testing::Test {
 protected:
  std::size_t Station(const char* name) {
    TModbusStationConfig config;
    config.Initialize();
    config.Name = name;
    return Values.AddStation(config);
  }
  std::size_t Output(std::size_t station, const char* address, TPointUse use = puOther) {
    const std::size_t point =
        Values.AddPoint(station, pkOutput, TModbusAddress::Parse(pkOutput, address).OrThrow(pbRequest));
    Values.NoteUse(point, use);
    return point;
  }
  void ReadBack(std::size_t station, std::uint16_t number = 1) {
    const std::vector<std::uint16_t> numbers(100, number);
    for (const TModbusTable table : {mtCoil, mtHolding}) Values.Take(station, {{table, 0}, 100}, numbers, Now());
  }
  std::uint64_t Now() { return Time.MonotonicMs(); }
  std::string Name(const TModbusValues::TOrder& order) { return Values.Point(order.Point).Address.Text(); }
  // The zeros that go out one after the other; stations that do not answer keep each for `silentMs`.
  TTexts Zeros(std::set<std::size_t> silent = {}, std::uint32_t silentMs = 150) {
    TTexts sent;
    while (const auto order = Values.NextZero(Now())) {
      const std::size_t station = Values.Point(order->Point).Station;
      sent.push_back(Name(*order));
      if (!silent.contains(station)) {
        Values.Told(*order, 0, Now());
        continue;
      }
      Time.Sleep(silentMs);
      Values.NotTold(*order, false);
      (void)Values.GoAway(station, "time-out", true);
      if (sent.size() > 20) break;
    }
    return sent;
  }
  void Off(const std::vector<std::size_t>& points) {
    for (const std::size_t point : points) EXPECT_TRUE(Values.Write(point, 0.0));
  }

  TVirtualClock Time;
  TInstalled<IClock> Installed{Time};
  TModbusValues Values;
};

TEST_F(ModbusValues, WhatIsDangerousGoesOffFirstOnAllStationsOfALine) {
  const auto io = Station("io"), laser = Station("laser"), gas = Station("gas");
  const auto lamp = Output(io, "io:coil:1"), cover = Output(gas, "gas:coil:1"),
             valve = Output(gas, "gas:coil:2", puGas), pilot = Output(laser, "laser:coil:1"),
             emission = Output(laser, "laser:coil:2", puLight), beam = Output(laser, "laser:coil:3", puLight);
  for (const auto station : {laser, gas, io}) {  // who has answered last
    ReadBack(station);
    Time.Sleep(1);
  }
  Off({lamp, cover, valve, pilot, beam, emission});
  EXPECT_THAT(Zeros(),
              ElementsAre("laser:coil:3", "laser:coil:2", "gas:coil:2", "laser:coil:1", "gas:coil:1", "io:coil:1"));
}

TEST_F(ModbusValues, ASilentStationCostsTheOthersOneTimeOutAndThenComesBehindThem) {
  const auto laser = Station("laser"), gas = Station("gas"), io = Station("io");
  const auto beam = Output(laser, "laser:coil:1", puLight), valve = Output(gas, "gas:coil:1", puGas),
             other = Output(gas, "gas:coil:2", puGas), lamp = Output(io, "io:coil:1");
  for (const auto station : {laser, gas, io}) ReadBack(station);
  Off({other, valve, lamp, beam});
  const TTexts sent = Zeros({gas});
  EXPECT_THAT(sent, ElementsAre("laser:coil:1", "gas:coil:2", "io:coil:1", "gas:coil:2"));
  EXPECT_FALSE(Values.NextZero(Now()));  // there is time for those that live
  for (const auto station : {laser, io}) ReadBack(station);
  Off({beam, lamp});
  EXPECT_THAT(Zeros({gas}), ElementsAre("laser:coil:1", "io:coil:1"));
  Time.Sleep(TModbusValues::kRetryMs);
  EXPECT_THAT(Zeros({gas}), ElementsAre("gas:coil:2"));
}

TEST_F(ModbusValues, SilentStationsAreTriedInTurnWithTimeInBetweenAndANewZeroAtOnce) {
  const auto laser = Station("laser"), gas = Station("gas"), io = Station("io");
  const auto beam = Output(laser, "laser:coil:1", puLight), emission = Output(laser, "laser:coil:2", puLight),
             valve = Output(gas, "gas:coil:1", puGas), lamp = Output(io, "io:coil:1");
  for (const auto station : {laser, gas, io}) ReadBack(station);
  Off({beam, valve, lamp});
  (void)Zeros({laser, gas, io});
  TTexts sent;
  std::uint64_t idle = 0;
  for (const auto until = Now() + 3000; Now() < until; Time.Sleep(1), ++idle)
    for (const std::string& zero : Zeros({laser, gas, io})) sent.push_back(zero);
  EXPECT_GE(idle, 3000u * 100 / 250 - 100);
  ASSERT_GE(sent.size(), 9u);
  for (std::size_t i = 0; i + 3 < sent.size(); ++i) EXPECT_EQ(sent[i], sent[i + 3]) << i;
  EXPECT_THAT((TTexts{sent[0], sent[1], sent[2]}),
              testing::UnorderedElementsAre("laser:coil:1", "gas:coil:1", "io:coil:1"));
  (void)Zeros({laser, gas, io});  // whoever is due just now
  Off({emission});
  const auto next = Values.NextZero(Now());
  ASSERT_TRUE(next);
  EXPECT_EQ(Values.Point(next->Point).Station, laser);
}

TEST_F(ModbusValues, AZeroThatIsRefusedKeepsNoOtherFromBeingTold) {
  const auto io = Station("io");
  const auto beam = Output(io, "io:coil:1", puLight), emission = Output(io, "io:coil:2", puLight),
             valve = Output(io, "io:coil:3", puGas);
  ReadBack(io);
  Off({beam, emission, valve});
  TTexts told;
  for (int i = 0; i < 5; ++i) {
    const auto order = Values.NextZero(Now());
    if (!order) break;
    if (order->Point == valve) {
      told.push_back(Name(*order));
      Values.Told(*order, 0, Now());
      continue;
    }
    Values.NotTold(*order, true);
    (void)Values.GoAway(io, "exception 2", false);
  }
  EXPECT_THAT(told, ElementsAre("io:coil:3"));
  EXPECT_FALSE(Values.ComeBack(io));
  TTexts again;  // and those that are refused take turns
  for (int i = 0; i < 4; ++i) {
    Time.Sleep(TModbusValues::kRetryMs);
    const auto order = Values.NextZero(Now());
    ASSERT_TRUE(order);
    again.push_back(Name(*order));
    Values.NotTold(*order, true);
    (void)Values.GoAway(io, "exception 2", false);
  }
  EXPECT_NE(again[0], again[1]);
  EXPECT_EQ(again[0], again[2]);
  EXPECT_EQ(again[1], again[3]);
}

TEST_F(ModbusValues, ARegisterIsKnownAsItWasReadOrToldLast) {
  const auto io = Station("io");
  const auto one = Output(io, "io:hreg:7.0"), other = Output(io, "io:hreg:7.1");
  EXPECT_FALSE(Values.Register(one));
  ReadBack(io, 0xF003);
  EXPECT_EQ(Values.Register(one), 0xF003);
  ASSERT_TRUE(Values.Write(one, 0.0));
  const auto order = Values.NextZero(Now());
  ASSERT_TRUE(order);
  const auto asked = Now();
  Time.Sleep(5);
  Values.Told(*order, 0xF002, asked);
  EXPECT_EQ(Values.Register(other), 0xF002);
  Values.Take(io, {{mtHolding, 7}, 1}, std::array<std::uint16_t, 1>{0xF003}, asked);  // asked for before
  EXPECT_EQ(Values.Register(other), 0xF002);
  Time.Sleep(1000);
  EXPECT_FALSE(Values.Register(other));
}

}  // namespace
}  // namespace ixocamglue::test
