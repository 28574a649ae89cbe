#include <stdexcept>

#include <gtest/gtest.h>

#include "controller/links/DeviceLink.h"
#include "fixture/CommWorld.h"
#include "ixocamglue/devcomm/Udevthrdcomm.h"
#include "ixocamglue/platform/comm/Crc.h"
#include "machines/simulated/LoadingPlc.h"

namespace ixocamglue::test {
namespace {

using ixocontroller::SpacedHex;

TBytes Bytes(const std::string& spaced) {
  std::string hex;
  for (const char c : spaced)
    if (c != ' ') hex += c;
  TBytes bytes;
  HexStrToBytes("$" + hex, bytes);
  return bytes;
}

TBytes Crc(TBytes bytes) {
  const auto crc = CalcCRC(bytes.data(), bytes.size(), 0xFFFF);
  bytes.push_back(static_cast<std::uint8_t>(crc & 0xFF));
  bytes.push_back(static_cast<std::uint8_t>(crc >> 8));
  return bytes;
}

struct TPanel final : INcAlarmTable20, INcAlarmReport20 {
  void RegisterAlarm(std::int32_t id, TNcAlarmAttrs a) override { Add("table ", id, " " + std::to_string(a)); }
  void RaiseAlarm(std::int32_t id) override { Add("raise ", id, ""); }
  void ClearAlarm(std::int32_t id) override { Add("clear ", id, ""); }
  void Add(const char* what, std::int32_t id, const std::string& more) {
    Calls.push_back(what + std::to_string(id) + more);
  }
  TTexts Calls;
};

class Modbus : public testing::TestWithParam<bool>, protected TCommWorld {
 protected:
  explicit Modbus(bool tcp = GetParam()) : OverTcp(tcp) {
    Device.IsTCP = tcp;
    Device.SetDataTransIntf(Transport);
    for (std::size_t i = 0; i < 300; ++i) Bank.Registers[i] = static_cast<std::uint16_t>(i * 7);
  }
  void Answer(std::uint32_t gapMs = 5) {
    Script.Wire.OnSend = [this, gapMs](const TBytes& bytes) {
      for (auto& answer : Plc.Take(bytes)) Script.Wire.Say(gapMs + answer.DelayMs, std::move(answer.Bytes));
    };
  }
  void Reply(TBytes bytes) {
    Script.Wire.OnSend = [this, bytes](const TBytes&) {
      if (!bytes.empty()) Script.Wire.Say(5, bytes);
    };
  }
  void Strict(TModbusStrictOptions options = {}) {
    Device.PreDelay = 0;
    Device.SetProfile(mpStrict, options);
  }

  const bool OverTcp;
  TPlcBank Bank;
  TLoadingPlc Plc{Bank, OverTcp};
  const std::shared_ptr<TNcCommTransBase> Transport =
      ixocontroller::MakeTransport({.IsTcp = OverTcp, .Host = "10.0.0.9"});
  TModbusComm Device{"PLC"};
};
INSTANTIATE_TEST_SUITE_P(Framing, Modbus, testing::Bool(), [](const auto& p) { return p.param ? "Tcp" : "Rtu"; });

TEST(ModbusFrames, AreTheBytesThatPeopleWriteDown) {
  TFaultWatch faults;
  TModbusComm rtu("");
  TModbusComm tcp("");
  tcp.IsTCP = true;
  const std::vector<std::uint16_t> two{1, 0x0203};
  EXPECT_EQ(SpacedHex(rtu.GenerateModbusBuf(3, 0x10, 2, {}, 1)), "01 03 00 10 00 02 C5 CE");
  EXPECT_EQ(SpacedHex(tcp.GenerateModbusBuf(3, 0x10, 2, {}, 1)), "00 00 00 00 00 06 01 03 00 10 00 02");
  EXPECT_EQ(SpacedHex(rtu.GenerateModbusBuf(16, 0x10, 2, two, 1)), "01 10 00 10 00 02 04 00 01 02 03 E2 02");
  EXPECT_EQ(SpacedHex(tcp.GenerateModbusBuf(16, 0x10, 2, two, 1)),
            "00 00 00 00 00 0B 01 10 00 10 00 02 04 00 01 02 03");
  EXPECT_EQ(SpacedHex(tcp.GenerateModbusBuf(6, 0x10, 9, two, 7)), "00 00 00 00 00 06 07 06 00 10 00 01");
  // 8-bit counts, every value written
  const std::vector<std::uint16_t> many(300, 1);
  const TBytes frame = tcp.GenerateModbusBuf(16, 0, 300, many, 1);
  EXPECT_EQ(frame.size(), 13u + 600u);
  EXPECT_EQ(frame[5], (2 * 44 + 7) & 0xFF);
  EXPECT_EQ(frame[12], 2 * 44);
  EXPECT_TRUE(faults.Claim().empty());
  EXPECT_EQ(rtu.GenerateModbusBuf(4, 0, 1, {}, 1), TBytes());
  EXPECT_EQ(rtu.GenerateModbusBuf(6, 0, 1, {}, 1), TBytes());
  EXPECT_EQ(faults.Claim().size(), 2u);
}

// What libmodbus answers is read elsewhere; here is what is no reply to a request of the strict profile's functions.
TEST(ModbusFrames, OfTheStrictProfilesFunctionsAreCheckedInUnitFunctionCountAndEcho) {
  const struct {
    std::uint8_t Func;
    const char* Request;
    const char* Reply;
    TTexts Wrong;
  } kRows[] = {
      {1, "01 01 00 13 00 0A", "01 01 02 CD 01", {"01 02 02 CD 01", "02 01 02 CD 01", "01 01 01 CD"}},
      {2, "01 02 00 13 00 0A", "01 02 02 AC 00", {"01 01 02 AC 00", "01 02 03 AC 00 00"}},
      {5, "01 05 00 13 FF 00", "01 05 00 13 FF 00", {"01 05 00 14 FF 00", "01 05 00 13 00 00"}},
      {15, "01 0F 00 13 00 0A 02 CD 01", "01 0F 00 13 00 0A", {"01 0F 00 12 00 0A", "01 0F 00 13 00 09"}},
  };
  const std::vector<std::uint16_t> values{1, 0, 1, 1, 0, 0, 1, 1, 1, 0};
  for (const auto& row : kRows) {
    const TModbusRequest request{.Func = row.Func, .Addr = 0x13, .Count = 10, .Values = values};
    TBytes frame;
    ASSERT_TRUE(BuildModbusFrame(request, frame));
    EXPECT_EQ(frame, Crc(Bytes(row.Request)));
    EXPECT_EQ(CheckModbusReply(request, Crc(Bytes(row.Reply))).State, rsWhole);
    for (const std::string& wrong : row.Wrong)
      EXPECT_EQ(CheckModbusReply(request, Crc(Bytes(wrong))).State, rsInvalid) << wrong;
  }
}

TEST_P(Modbus, AnExactRequestWaitsItsTimesAndHandsTheReplyOver) {
  TTexts seen;
  Device.OnAckData = [&](std::uint8_t cmd, std::uint8_t func, std::int32_t offset, const TBytes& buf) {
    seen.push_back(std::to_string(cmd) + " " + std::to_string(func) + " " + std::to_string(offset) + " " +
                   std::to_string(buf.size()));
  };
  Answer();
  ASSERT_TRUE(Device.CheckConnection());
  const auto start = Now();
  EXPECT_TRUE(Device.SendCommand(9, 3, 0x10, 2, {}));
  // 50 ms, then TCP: the reply is there and 200 ms more; RTU: 20 ms for the chunk, up to the first empty read after 50.
  EXPECT_EQ(Now() - start, GetParam() ? 250u : 101u);
  Bank.Fault = pfException;
  EXPECT_TRUE(Device.SendCommand(9, 3, 0x10, 2, {}));
  EXPECT_EQ(seen, (GetParam() ? TTexts{"9 3 9 13", "9 131 9 9"} : TTexts{"9 3 3 9"}));
  EXPECT_EQ(Device.LastError, GetParam() ? 0 : 2);  // an RTU exception is too short to be valid
  EXPECT_EQ(Device.SendCMD(1, {1}, true), false);
}

TEST_P(Modbus, AFailureIsLatchedAndLoggedOnce) {
  Device.PreDelay = -1;
  EXPECT_TRUE(Device.SendCommand(7, 3, 0, 1, {}));  // silence
  EXPECT_EQ(Device.LastError, 1);
  Reply(Bytes("01 03 02 00 01 00"));
  EXPECT_TRUE(Device.SendCommand(7, 3, 0, 1, {}));  // 6 bytes
  EXPECT_EQ(Device.LastError, 2);
  EXPECT_EQ(Log(), TTexts{"5 数据接受超时，CMD7"});
  Device.ResetAlarm(5);
  EXPECT_EQ(Device.LastError, 0);
  EXPECT_TRUE(Device.SendCommand(7, 3, 0, 1, {}));
  Answer();
  EXPECT_TRUE(Device.SendCommand(7, 3, 0, 1, {}));
  EXPECT_EQ(Device.LastError, 2);  // success clears nothing
  EXPECT_EQ(Log(), TTexts{"5 字符校验失败，CMD7"});
  Device.SetDataTransIntf(nullptr);
  EXPECT_FALSE(Device.SendCommand(7, 3, 0, 1, {}));
  EXPECT_EQ(Device.LastError, 3);
  Device.ResetAlarm(1);
  Device.WaitforAckData(7, 0);
  EXPECT_EQ(Log(), TTexts{"5 无法建立通讯，请检查通讯参数配置"});
}

TEST_P(Modbus, AnUnknownFunctionIsADesignFaultAndNoError) {
  EXPECT_FALSE(Device.SendCommand(1, 4, 0, 1, {}));
  EXPECT_EQ(Device.LastError, 0);
  EXPECT_TRUE(Script.Wire.Out.empty());
  EXPECT_EQ(Faults.Claim().size(), 1u);
}

TEST_P(Modbus, AHandlerMaySendAgainAndWhatItThrowsReachesTheCaller) {
  Answer();
  int depth = 0;
  Device.OnAckData = [&](auto...) {
    if (++depth == 1) {
      EXPECT_TRUE(Device.SendCommand(2, 3, 0, 1, {}));
      throw std::runtime_error("handler");
    }
  };
  EXPECT_THROW(Device.SendCommand(1, 3, 0, 1, {}), std::runtime_error);
  EXPECT_EQ(depth, 2);
  ASSERT_TRUE(Device.TryLockData());
  Device.UnLockData();
}

TEST(ModbusAlarms, FollowTheErrorStateWithoutTheDataLock) {
  TModbusComm device("PLC");
  TPanel panel;
  EXPECT_EQ(device.GetAlarmIDPrefix(), "TPModbusPLC");
  device.RegisterAlarms(panel);
  device.UpdateAlarms(panel);
  device.LastError = 4;
  device.UpdateAlarms(panel);
  EXPECT_EQ(panel.Calls, (TTexts{"table 1 128", "table 2 128", "table 3 128", "table 4 128", "clear 1", "clear 2",
                                 "clear 3", "clear 4", "raise 4"}));
  EXPECT_EQ(device.GetAlarmDesc(2), "CRC校验错误");
  EXPECT_EQ(device.GetAlarmDesc(0) + device.GetAlarmDesc(5), "");
}

TEST_P(Modbus, StrictTakesTheReplyAsSoonAsItIsWholeHoweverItIsSplit) {
  Strict();
  for (std::size_t cut = 1; cut < 9; ++cut)
    for (const std::uint32_t gap : {1u, 30u, 300u, 1900u}) {
      Script.Wire.OnSend = [&](const TBytes& bytes) {
        const TBytes reply = Plc.Take(bytes).front().Bytes;
        const auto at = reply.begin() + static_cast<std::ptrdiff_t>(cut);
        Script.Wire.Say(5, TBytes(reply.begin(), at));
        Script.Wire.Say(5 + gap, TBytes(at, reply.end()));
      };
      const auto start = Now();
      const TModbusResult result = Device.ReadRegisters(16, 2);
      EXPECT_TRUE(result.Ok()) << cut << " " << gap << " " << result.Reason;
      EXPECT_EQ(result.Registers, (std::vector<std::uint16_t>{112, 119}));
      EXPECT_EQ(Now() - start, 5 + gap);
    }
  EXPECT_EQ(Device.Statistics().Of(moOk), 32u);
}

TEST_P(Modbus, StrictTakesNoReplyWithAnyBitFlipped) {
  Strict({.Retries = 0, .LateReplyMs = 1});
  TBytes good;
  Script.Wire.OnSend = [&](const TBytes& bytes) { good = Plc.Take(bytes).front().Bytes; };
  (void)Device.ReadRegisters(16, 2);
  const std::size_t data = good.size() - 4;
  for (std::size_t bit = 0; bit < good.size() * 8; ++bit) {
    Script.Wire.In.clear();
    Script.Wire.OnSend = [&](const TBytes& bytes) {
      TBytes bad = Plc.Take(bytes).front().Bytes;
      bad[bit / 8] ^= static_cast<std::uint8_t>(1u << bit % 8);
      Script.Wire.Say(5, bad);
    };
    const auto start = Now();
    const TModbusResult result = Device.ReadRegisters(16, 2);
    // Over TCP nothing but TCP's own checksum guards the registers themselves.
    EXPECT_EQ(result.Ok(), GetParam() && bit / 8 >= data) << "bit " << bit;
    EXPECT_LE(Now() - start, 2005u);
  }
}

TEST_P(Modbus, StrictThrowsStaleInputAwayAndStopsAtBabble) {
  Strict();
  Answer();
  Script.Wire.Say(0, Bytes("01 03 04 FF FF FF FF"));
  TModbusResult result = Device.ReadRegisters(16, 1);
  EXPECT_TRUE(result.Ok());
  EXPECT_EQ(result.StaleBytes, 7u);
  Script.Wire.OnSend = {};
  for (std::uint32_t ms = 0; ms < 20'000; ms += 2) Script.Wire.Say(ms, Bytes("A5 5A 11"));
  const auto start = Now();
  result = Device.ReadRegisters(16, 1);
  EXPECT_EQ(result.Outcome, moInvalid);
  EXPECT_LE(Now() - start, GetParam() ? 1000u : 9010u);  // RTU: the line is not silent
}

TEST_P(Modbus, StrictDecodesExceptionsChecksLimitsAndSplitsLongRanges) {
  Strict({.ClearOnSuccess = true});
  Answer();
  TModbusResult result = Device.ReadRegisters(9999, 2);
  EXPECT_EQ(result.Outcome, moException);
  EXPECT_EQ(result.Exception, 2);
  EXPECT_EQ(Device.LastError, 4);
  EXPECT_EQ(Log(), TTexts{"5 Modebus功能码异常83"});
  Script.Wire.Out.clear();
  result = Device.ReadRegisters(0, 300);
  EXPECT_TRUE(result.Ok());
  EXPECT_EQ(Script.Wire.Out.size(), 3u);
  EXPECT_EQ(result.Registers[299], 299 * 7);
  EXPECT_EQ(Device.LastError, 0);
  const std::vector<std::uint16_t> values(200, 42);
  EXPECT_EQ(Device.WriteRegisters(500, values).Done, 200u);
  EXPECT_EQ(Bank.Registers[699], 42);
  Script.Wire.Out.clear();
  for (std::uint8_t func = 1; func <= 4; ++func) {
    EXPECT_EQ(Device.Read(func, 65'535, 2).Outcome, moBadRequest);
    EXPECT_EQ(Device.Read(func, 16, 0xFFFF'FFF8u).Outcome, moBadRequest);  // address and count are 8 in 32 bits
    EXPECT_FALSE(Device.SendCommand(1, func, 0, func < 3 ? 2001 : 126, {}));
    EXPECT_EQ(Device.Write(func, 0, values).Outcome, moBadRequest);
  }
  const std::vector<std::uint16_t> coils(1969, 1);
  EXPECT_FALSE(Device.SendCommand(1, 15, 0, 1969, coils));
  EXPECT_EQ(Device.Write(15, 65'535, coils).Outcome, moBadRequest);
  EXPECT_EQ(Device.Write(5, 0, coils).Outcome, moBadRequest);    // one only
  EXPECT_EQ(Device.Write(15, 0, values).Outcome, moBadRequest);  // 42 is no coil
  EXPECT_EQ(Device.Read(5, 0, 1).Outcome, moBadRequest);
  Device.SetProfile(mpExact);
  EXPECT_EQ(Device.Read(1, 0, 1).Outcome, moBadRequest);
  EXPECT_TRUE(Script.Wire.Out.empty());
  EXPECT_EQ(Device.LastError, 0);
}

TEST_P(Modbus, AnExactRangeTakesOnlyTheReplyToItsRequestAndCountsWhatCame) {
  const auto framed = [](const char* pdu) {
    const TBytes bytes = Bytes(pdu);
    if (!GetParam()) return Crc(bytes);
    TBytes frame{0, 0, 0, 0, 0, static_cast<std::uint8_t>(bytes.size())};
    frame.insert(frame.end(), bytes.begin(), bytes.end());
    return frame;
  };
  Device.PreDelay = 0;
  // The request's own echo, another function, another count.
  for (const char* pdu : {"01 03 00 10 00 02", "01 04 04 00 01 00 02", "01 03 06 00 01 00 02 00 03"}) {
    Reply(framed(pdu));
    const TModbusResult result = Device.ReadRegisters(16, 2);
    EXPECT_EQ(result.Outcome, moInvalid) << pdu;
    EXPECT_EQ(result.BytesReceived, framed(pdu).size());
  }
  Reply(framed("01 10 00 11 00 02"));  // another address
  EXPECT_EQ(Device.WriteRegisters(16, std::vector<std::uint16_t>{1, 2}).Outcome, moInvalid);
  EXPECT_EQ(Device.LastError, 0);  // SendCommand's check is another's
  TBytes broken = framed("01 03 04 00 01 00 02");
  (GetParam() ? broken.front() : broken.back()) ^= 1;
  Reply(broken);
  EXPECT_EQ(Device.ReadRegisters(16, 2).BytesReceived, broken.size());
  EXPECT_EQ(Device.LastError, 2);
}

TEST_P(Modbus, AWriteIsConfirmedByItsReplyOnlyAndOnlyReadsAreRepeated) {
  const std::vector<std::uint16_t> one{1};
  for (const bool strict : {false, true}) {
    Device.PreDelay = 0;
    Device.SetProfile(strict ? mpStrict : mpExact);
    Script.Wire.OnSend = {};
    Script.Wire.Out.clear();
    TModbusResult silence = Device.WriteRegisters(0, one);
    EXPECT_TRUE(silence.Outcome == moTimeout && !silence.Confirmed);
    EXPECT_EQ(Script.Wire.Out.size(), 1u);
    silence = Device.ReadRegisters(0, 1);
    EXPECT_TRUE(silence.Outcome == moTimeout && silence.Confirmed);
    EXPECT_EQ(Script.Wire.Out.size(), strict ? 3u : 2u);
    Answer();
    EXPECT_TRUE(Device.WriteRegisters(0, one).Confirmed);
    // An exception says that nothing was written; the exact profile's check takes none over a line.
    EXPECT_EQ(Device.WriteRegisters(10'000, one).Confirmed, GetParam() || strict);
    if (!GetParam()) {
      Device.SlaveAddr = 0;  // to all
      Bank.Registers[0] = 0;
      Device.ResetAlarm(1);
      const TModbusResult all = Device.WriteRegisters(0, one);
      EXPECT_TRUE(all.Ok() && !all.Confirmed) << strict;
      EXPECT_EQ(Bank.Registers[0], 1);
      EXPECT_EQ(Device.LastError, 0);
      Device.SlaveAddr = 1;
    }
    Script.Wire.SendFails = true;
    EXPECT_TRUE(Device.WriteRegisters(0, one).Confirmed);  // nothing went out
    Script.Wire.SendFails = false;
  }
}

// The probe register's address is the one whose echo looks most like a reply.
TEST_P(Modbus, AWriteIsRefusedOnALineThatOnlyEchoesAndEachLinkIsProvedOnce) {
  const struct {
    const char* Name;
    bool Probe, Echoes, AnswersReads;
    TPlcFault Fault;
    TModbusProof Proof;
    std::size_t First, Second;  // requests of the first write on a link, and of the next
  } kRows[] = {
      {"no probe register", false, true, false, pfNone, mpfUnproved, 1, 1},
      {"echo", true, true, false, pfNone, mpfEchoed, 1, 0},
      {"echo, then the reply", true, true, true, pfNone, mpfEchoed, 1, 0},
      {"reads have no reply", true, false, false, pfNone, mpfUnanswered, 2, 1},
      {"a reply", true, false, true, pfNone, mpfProved, 2, 1},
      {"an exception", true, false, true, pfException, mpfException, 2, 1},
  };
  const std::vector<std::uint16_t> one{1};
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.Name);
    TModbusStrictOptions options{.TimeoutMs = 500, .Retries = 0, .LateReplyMs = 50, .TotalMs = 2000};
    if (row.Probe) options.ProbeRegister = 0x0203;
    Strict(options);
    Transport->CloseLink();
    Bank.Fault = pfNone;
    Bank.Registers[0] = 0;
    Script.Wire.OnSend = [&](const TBytes& bytes) {
      const bool read = bytes[GetParam() ? 7 : 1] == 3;
      Bank.Fault = read ? row.Fault : pfNone;
      if (row.Echoes) Script.Wire.Say(1, bytes);
      auto answers = Plc.Take(bytes);
      if (read ? row.AnswersReads : !row.Echoes) Script.Wire.Say(40, std::move(answers.front().Bytes));
    };
    for (const std::size_t sent : {row.First, row.Second}) {
      Script.Wire.Out.clear();
      const TModbusResult result = Device.WriteRegisters(0, one);
      EXPECT_EQ(Script.Wire.Out.size(), sent);
      EXPECT_TRUE(result.Ok() == (row.Proof != mpfEchoed) && result.Sent == result.Ok() && result.Confirmed);
      EXPECT_EQ(Device.Statistics().Proof, row.Proof) << ModbusProofName(Device.Statistics().Proof);
    }
    EXPECT_EQ(Bank.Registers[0], row.Proof == mpfEchoed ? 0 : 1);
    Script.Wire.OnSend = {};
    Clock.Sleep(100);
  }
}

TEST_P(Modbus, NoAttemptBeginsThatCannotEndWithinTheTotalTime) {
  const auto attempts = [&](std::uint32_t timeoutMs, std::uint32_t totalMs, std::uint64_t endMs) {
    Strict({.TimeoutMs = timeoutMs, .Retries = 9, .LateReplyMs = 200, .TotalMs = totalMs});
    Clock.Sleep(1000);
    const auto start = Now();
    const TModbusResult result = Device.ReadRegisters(0, 1);
    EXPECT_EQ(Now() - start, endMs);
    return result.Attempts;
  };
  EXPECT_EQ(attempts(500, 2000, GetParam() ? 2000 : 1900), GetParam() ? 4u : 3u);  // RTU: 200 ms of silence between
  EXPECT_EQ(attempts(500, 1200, GetParam() ? 1000 : 1200), 2u);
  EXPECT_EQ(attempts(2000, 2000, 2000), 1u);
  if (!GetParam()) {
    const auto start = Now();
    const TModbusResult result = Device.ReadRegisters(0, 1);  // the line has to fall silent, and 2000 ms no longer fit
    EXPECT_TRUE(result.Outcome == moTimeout && !result.Sent);
    EXPECT_EQ(Now() - start, 0u);
  }
  // A probe lies within it too, and what it leaves must do for all the requests that share it.
  const struct {
    std::uint32_t GapMs, Requests;
    std::uint64_t EndMs;
  } kProbes[] = {{300, 1, 600}, {300, 2, 300}, {0, 1, 700}};
  for (const auto& row : kProbes) {
    Clock.Sleep(10'000);
    Transport->CloseLink();
    Strict({.TimeoutMs = 700, .LateReplyMs = 1, .TotalMs = 700, .ProbeRegister = 7, .ProbeFor = row.Requests});
    Script.Wire.OnSend = {};
    if (row.GapMs != 0) Answer(row.GapMs);
    const auto start = Now();
    EXPECT_EQ(Device.WriteRegisters(0, std::vector<std::uint16_t>{1}).Sent, row.EndMs == 600);
    EXPECT_EQ(Now() - start, row.EndMs);
  }
  Strict({.TimeoutMs = 2000, .Retries = 9, .LateReplyMs = 200, .TotalMs = 2000});
  Clock.Sleep(10'000);
  for (const std::uint32_t gap : {5u, 1100u}) {  // a damaged reply, early and late
    int replies = 0;
    Script.Wire.OnSend = [&](const TBytes& bytes) {
      TBytes reply = Plc.Take(bytes).front().Bytes;
      if (replies++ == 0) ++reply[GetParam() ? 6 : 4];
      Script.Wire.Say(gap, reply);
    };
    Clock.Sleep(1000);
    EXPECT_EQ(Device.ReadRegisters(16, 1).Outcome, gap == 5 ? moOk : moInvalid);
  }
}

TEST_P(Modbus, AStopEndsTheRequestUnderWayAndLatchesNothing) {
  for (const bool strict : {true, false}) {
    TModbusComm device("PLC");
    device.IsTCP = GetParam();
    device.SetProfile(strict ? mpStrict : mpExact, {.TimeoutMs = 60'000});
    device.SetDataTransIntf(Transport);
    const auto start = Now();
    const auto handle = Clock.OnStep([&](std::uint64_t now) {
      if (now == start + 500) device.Stop.Ask();
    });
    EXPECT_EQ(device.ReadRegisters(0, 1).Outcome, moStopped);
    EXPECT_LE(Now() - start, strict ? 550u : 760u);
    EXPECT_EQ(device.LastError, 0);
    Clock.Remove(handle);
  }
}

TEST_P(Modbus, StrictReconnectsAndBacksOff) {
  Strict();
  Answer();
  ASSERT_TRUE(Device.ReadRegisters(0, 1).Ok());
  Script.Wire.End(0);
  if (!GetParam()) Script.Wire.In.clear(), Script.Wire.SendFails = true;
  Script.ConnectWorks = Script.OpenWorks = false;
  Script.Calls.clear();
  for (int i = 0; i < 5; ++i) EXPECT_EQ(Device.ReadRegisters(0, 1).Outcome, moNoConnection);
  const auto tries = [&] {
    return std::ranges::count_if(Script.Calls, [](const auto& c) { return c == "connect" || c.starts_with("open"); });
  };
  EXPECT_EQ(tries(), 1);
  EXPECT_EQ(Device.LastError, 3);
  Clock.Sleep(200);
  EXPECT_FALSE(Device.ReadRegisters(0, 1).Ok());
  EXPECT_EQ(tries(), 2);
  Script.ConnectWorks = Script.OpenWorks = true;
  Script.Wire.SendFails = false;
  Clock.Sleep(400);
  EXPECT_TRUE(Device.ReadRegisters(0, 1).Ok());
}

class ModbusRtu : public Modbus {
 protected:
  ModbusRtu() : Modbus(false) {}
};

// What came was another request's reply, so this one's is still under way.
TEST_F(ModbusRtu, AReplyThatDoesNotFitLeavesItsOwnToBeWaitedFor) {
  Strict({.LateReplyMs = 300});
  int requests = 0;
  Script.Wire.OnSend = [&](const TBytes& bytes) {
    if (++requests == 1) Script.Wire.Say(5, Crc(Bytes("01 03 04 00 00 00 00")));
    Script.Wire.Say(100, Plc.Take(bytes).front().Bytes);
  };
  for (std::uint16_t addr = 1; addr < 9; ++addr)
    EXPECT_EQ(Device.ReadRegisters(addr, 1).Registers,
              std::vector<std::uint16_t>{static_cast<std::uint16_t>(7 * addr)});
  EXPECT_EQ(Device.Statistics().Owed, 1u);
}

TEST_F(ModbusRtu, ALateByteRestartsTheSilenceForThreeTimesAtMostAndAStopEndsIt) {
  Strict({.TimeoutMs = 100, .Retries = 0, .LateReplyMs = 1000});
  (void)Device.ReadRegisters(0, 1);
  Clock.Sleep(400);  // counts
  Answer();
  auto start = Now();
  EXPECT_TRUE(Device.ReadRegisters(0, 1).Ok());
  EXPECT_EQ(Now() - start, 605u);
  Script.Wire.OnSend = {};
  (void)Device.ReadRegisters(0, 1);
  for (std::uint32_t ms = 0; ms < 20'000; ms += 900) Script.Wire.Say(ms, {0x55});
  Script.Wire.Out.clear();
  start = Now();
  TModbusResult result = Device.ReadRegisters(0, 1);
  EXPECT_EQ(result.Outcome, moInvalid);
  EXPECT_STREQ(result.Reason, "line not silent");
  EXPECT_LE(Now() - start, 3000u);
  EXPECT_TRUE(Script.Wire.Out.empty());
  start = Now();
  const auto handle = Clock.OnStep([&](std::uint64_t now) {
    if (now == start + 100) Device.Stop.Ask();
  });
  EXPECT_EQ(Device.ReadRegisters(0, 1).Outcome, moStopped);
  EXPECT_LE(Now() - start, 150u);
  Clock.Remove(handle);
}

TEST_F(ModbusRtu, WhatIsOwedCanBeWaitedForAndItsSilenceOutlastsRequestsWithoutTimeForIt) {
  for (const TModbusProfile profile : {mpExact, mpStrict}) {
    Device.SetProfile(profile, {.TimeoutMs = 100, .Retries = 0, .LateReplyMs = 1000, .TotalMs = 500});
    EXPECT_EQ(Device.OwedMs(), 0u);
    (void)Device.ReadRegisters(0, 1);
    EXPECT_EQ(Device.OwedMs(), 1000u);
    Script.Wire.Say(400, {0x55});
    const auto start = Now();
    EXPECT_TRUE(Device.AwaitSilence().Ok());
    EXPECT_EQ(Now() - start, 1400u);
    EXPECT_EQ(Device.OwedMs(), 0u);
  }
  TModbusResult result = Device.ReadRegisters(0, 1);
  EXPECT_TRUE(result.Owed == 1 && result.TimedOut == 1);
  for (std::uint32_t ms = 0; ms < 20'000; ms += 400) Script.Wire.Say(ms, {0x55});
  int rounds = 0;
  for (; rounds < 30 && result.Outcome == moTimeout; ++rounds) {
    result = Device.ReadRegisters(0, 1);
    Clock.Sleep(300);
  }
  EXPECT_STREQ(result.Reason, "line not silent");
  EXPECT_EQ(rounds, 11);  // at 3000 ms
}

class ModbusTcp : public Modbus {
 protected:
  ModbusTcp() : Modbus(true) {}
};

TEST_F(ModbusTcp, RtuFramingOpensAnotherConnectionInsteadOfWaiting) {
  Device.IsTCP = false;
  Strict({.TimeoutMs = 100, .Retries = 0});
  (void)Device.ReadRegisters(0, 1);
  Script.Calls.clear();
  const auto start = Now();
  (void)Device.ReadRegisters(0, 1);
  EXPECT_EQ(Now() - start, 100u);
  EXPECT_EQ(Script.Calls, (std::vector<std::string>{"disconnect", "connect"}));

  // A probe without a reply has the connection made anew, and that one is not asked again.
  Strict({.TimeoutMs = 100, .ProbeRegister = 7});
  Transport->CloseLink();
  Script.Wire.Out.clear();
  Script.Wire.OnSend = [this](const TBytes& bytes) {
    if (bytes[1] == kModbusWriteOne) Script.Wire.Say(5, bytes);
  };
  for (int i = 0; i < 2; ++i) EXPECT_TRUE(Device.WriteRegisters(0, std::vector<std::uint16_t>{1}).Ok());
  EXPECT_EQ(Script.Wire.Out.size(), 3u);
  EXPECT_EQ(Device.Statistics().Proof, mpfUnanswered);
}

TEST_F(ModbusTcp, ALateReplyIsDroppedByItsTransactionAndAReplyOfSevenBytesHasFunctionZero) {
  int func = -1;
  Device.OnAckData = [&](auto, std::uint8_t f, auto, const auto&) { func = f; };
  Reply(Bytes("00 00 00 00 00 01 01"));
  EXPECT_TRUE(Device.SendCommand(1, 3, 0, 1, {}));
  EXPECT_EQ(func, 0);
  Reply(Bytes("00 01 00 00 00 05 01 03 02 00 01"));
  EXPECT_TRUE(Device.SendCommand(1, 3, 0, 1, {}));
  EXPECT_EQ(Device.LastError, 2);
  Strict();
  Script.Wire.OnSend = [this](const TBytes& bytes) {
    Script.Wire.Say(5, Bytes("F0 01 00 00 00 05 01 03 02 00 63"));
    Script.Wire.Say(6, Plc.Take(bytes).front().Bytes);
  };
  const TModbusResult result = Device.ReadRegisters(16, 1);
  EXPECT_EQ(result.Foreign, 1u);
  EXPECT_EQ(result.Registers, std::vector<std::uint16_t>{112});
}

}  // namespace
}  // namespace ixocamglue::test
