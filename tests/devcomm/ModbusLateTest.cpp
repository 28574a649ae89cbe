// A serial line that is not left to fall silent: late replies told apart from the one that is waited for.
#include <gtest/gtest.h>

#include "fixture/CommWorld.h"
#include "ixocamglue/devcomm/Udevicelink.h"
#include "ixocamglue/devcomm/Umodbuscomm.h"
#include "machines/simulated/LoadingPlc.h"

namespace ixocamglue::test {
namespace {

using TValues = std::vector<std::uint16_t>;

class ModbusLate : public testing::Test, protected TCommWorld {
 protected:
  ModbusLate() {
    for (std::size_t i = 0; i < 300; ++i) Bank.Registers[i] = static_cast<std::uint16_t>(i * 7);
    Device.SetDataTransIntf(MakeTransport({.Device = "/dev/ttyS0"}));
    Device.PreDelay = 0;
    Device.SetProfile(mpStrict, {.TimeoutMs = 100, .LateReplyMs = 1000, .TellApart = true, .TotalMs = 100});
    Script.Wire.OnSend = [this](const TBytes& bytes) {
      TBytes reply = Plc.Take(bytes).front().Bytes;
      if (Lost) return Owed.push_back(std::move(reply));
      std::uint32_t gap = 5;
      for (TBytes& late : Owed) Script.Wire.Say(gap++, std::move(late));
      Owed.clear();
      Script.Wire.Say(gap, std::move(reply));
    };
  }
  // Nothing comes in time; it comes in front of the reply to a request that is not lost.
  void Lose(std::uint16_t addr, std::uint16_t count) {
    Lost = true;
    EXPECT_EQ(Device.ReadRegisters(addr, count).Outcome, moTimeout);
    Lost = false;
  }

  TPlcBank Bank;
  TLoadingPlc Plc{Bank, false};
  TModbusComm Device{"PLC"};
  bool Lost = false;
  std::vector<TBytes> Owed;
};

TEST_F(ModbusLate, HoldsUpNoWriteAndNoOtherReadAndIsDropped) {
  Lose(10, 1);
  const auto start = Now();
  EXPECT_TRUE(Device.WriteRegisters(5, TValues{0}).Ok());
  EXPECT_LT(Now() - start, 20u);
  EXPECT_EQ(Device.Statistics().Foreign, 1u);
  Lose(10, 1);
  TModbusResult result = Device.ReadRegisters(20, 2);
  EXPECT_EQ(result.Registers, (TValues{140, 147}));
  EXPECT_EQ(Device.HeldMs(kModbusRead, 30, 1), 0u) << "nothing is owed any more";
  EXPECT_EQ(Device.ReadRegisters(30, 1).Registers, TValues{210});
  // What came while nobody waited is known as well.
  Lose(10, 1);
  Script.Wire.Say(5, std::move(Owed.front()));
  Owed.clear();
  Clock.Sleep(50);
  EXPECT_TRUE(Device.WriteRegisters(5, TValues{0}).Ok());
  EXPECT_EQ(Device.HeldMs(kModbusRead, 30, 1), 0u);
}

TEST_F(ModbusLate, HoldsUpAReadThatItCouldBeTakenFor) {
  Lose(10, 1);
  Owed.clear();  // it never comes
  const auto sent = Script.Wire.Out.size();
  EXPECT_EQ(Device.HeldMs(kModbusRead, 20, 1), 900u);
  const TModbusResult held = Device.ReadRegisters(20, 1);
  EXPECT_EQ(held.Outcome, moTimeout);
  EXPECT_FALSE(held.Sent);
  EXPECT_EQ(Script.Wire.Out.size(), sent);
  EXPECT_EQ(Device.HeldMs(kModbusReadInput, 20, 1), 0u);
  EXPECT_EQ(Device.HeldMs(kModbusRead, 20, 2), 0u);
  Device.SlaveAddr = 2;
  EXPECT_EQ(Device.HeldMs(kModbusRead, 20, 1), 0u);
  Device.SlaveAddr = 1;
  Clock.Sleep(900);
  EXPECT_EQ(Device.ReadRegisters(20, 1).Registers, TValues{140});
}

// Else each lost reply of months would make a value that is read again and again another cycle older.
TEST_F(ModbusLate, IsOwedNoMoreBehindAReplyThatNoOlderRequestCouldHave) {
  for (int lost = 0; lost < 5; ++lost) {
    Lose(10, 1);
    Owed.clear();  // it never comes
    (void)Device.ReadRegisters(10, 1);
    EXPECT_GT(Device.HeldMs(kModbusRead, 20, 1), 0u) << "which of the two it answered is not known";
    EXPECT_TRUE(lost % 2 ? Device.WriteRegisters(5, TValues{0}).Ok() : Device.ReadRegisters(20, 2).Ok());
    EXPECT_EQ(Device.HeldMs(kModbusRead, 20, 1), 0u);
    const auto now = Now();
    EXPECT_GE(Device.ReadRegisters(10, 1).AskedMs, now);
  }
}

TEST_F(ModbusLate, ToTheSameReadIsAsOldAsTheFirstOfThem) {
  const auto first = Now();
  Lose(10, 1);
  Bank.Registers[10] = 1;
  TModbusResult result = Device.ReadRegisters(10, 1);  // gets the reply to the first one
  EXPECT_EQ(result.Registers, TValues{70});
  EXPECT_EQ(result.AskedMs, first);
  EXPECT_GT(Device.HeldMs(kModbusRead, 20, 1), 0u) << "its own is still to come";
  Clock.Sleep(1000);
  const auto now = Now();
  result = Device.ReadRegisters(10, 1);
  EXPECT_EQ(result.Registers, TValues{1});
  EXPECT_GE(result.AskedMs, now);
}

}  // namespace
}  // namespace ixocamglue::test
