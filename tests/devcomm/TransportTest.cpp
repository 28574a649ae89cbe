#include <stdexcept>

#include <gtest/gtest.h>

#include "fixture/CommWorld.h"
#include "ixocamglue/devcomm/Udevthrdcomm.h"
#include "ixocamglue/platform/comm/SerialSettings.h"

namespace ixocamglue::test {
namespace {

TBytes Numbered(std::size_t size, std::uint8_t first) {
  TBytes bytes(size);
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<std::uint8_t>(first + i);
  return bytes;
}

TEST(HexText, PairsAreAppendedAndABrokenPairLeavesTheArrayAlone) {
  const struct {
    const char* Text;
    TBytes Wanted;
  } kRows[] = {{"AB", {}},
               {"$0A0B", {0x0A, 0x0B}},
               {"0A0B0C", {0x0A, 0x0B, 0x0C}},
               {"0A0B0", {0x0A, 0x0B}},
               {"$AB", {0xAB}},
               {"abCD", {0xAB, 0xCD}},
               {"$ab", {0xAB}},
               {"", {}}};
  for (const auto& row : kRows) {
    TBytes bytes{0x77};
    HexStrToBytes(row.Text, bytes);
    TBytes wanted{0x77};
    wanted.insert(wanted.end(), row.Wanted.begin(), row.Wanted.end());
    EXPECT_EQ(bytes, wanted) << row.Text;
  }
  for (const char* bad : {"0A0G", "$$0A0B", "0A 0B", "0x0A", "+1-1"}) {
    TBytes bytes{0x77};
    EXPECT_THROW(HexStrToBytes(bad, bytes), std::invalid_argument) << bad;
    EXPECT_EQ(bytes, TBytes{0x77});
  }
  EXPECT_EQ(BytesToHexStr(TBytes{}), "");
  EXPECT_EQ(BytesToHexStr(TBytes{0x01, 0xAB}), "01AB");
}

TEST(Records, TextsAreCutWithoutSplittingAPair) {
  TCommSerial serial;
  serial.Initialize();
  EXPECT_EQ(serial.Port, 1);
  EXPECT_EQ(GetUtf16(serial.Settings), "9600,n,8,1");
  EXPECT_EQ(serial.BaudRate, 9600);
  TCommNet net;
  net.Initialize();
  const std::string laser = "激光";
  SetUtf16(net.Host, std::string(254, 'a') + "\xF0\x9F\x98\x80" + "b");
  EXPECT_EQ(GetUtf16(net.Host), std::string(254, 'a'));
  SetUtf16(net.Host, std::string(253, 'a') + "\xF0\x9F\x98\x80" + "b");
  EXPECT_EQ(GetUtf16(net.Host), std::string(253, 'a') + "\xF0\x9F\x98\x80");
  SetUtf16(net.Host, laser + "\xFF");
  EXPECT_EQ(GetUtf16(net.Host), laser + "\xEF\xBF\xBD");
}

TEST(SerialText, FourFieldsInAnyCaseAndNothingElse) {
  const TSerialSettings s = ParseSerialSettings(" 19200 , E ,7, 2 ").Value();
  EXPECT_EQ(s.Baud, 19200u);
  EXPECT_EQ(s.Parity, 'e');
  EXPECT_EQ(s.DataBits, 7);
  EXPECT_EQ(s.Stop, TSerialSettings::sbTwo);
  EXPECT_EQ(s.WireMs(1), 1u);  // 11 bits
  EXPECT_EQ(ParseSerialSettings("12345,m,5,1.5").Value().Baud, 12345u);
  for (const char* bad : {"", "9600,n,8", "9600,n,8,1,", "0,n,8,1", "-1,n,8,1", "9600,x,8,1", "9600,n,9,1",
                          "9600,n,8,1.5", "9600,n,8,3", "99999999999,n,8,1", "9600,nn,8,1"})
    EXPECT_FALSE(ParseSerialSettings(bad)) << bad;
}

class Transports : public testing::Test, protected TCommWorld {
 protected:
  TNcSerialCommTrans& Serial(TTransType type) {
    FSerial.SetTransType(type);
    TCommSerial params;
    params.Initialize();
    FSerial.SetCommParams(params);
    return FSerial;
  }
  TNcTcpIPTrans& Tcp() {
    FTcp.SetNetParams(Net());
    return FTcp;
  }
  static TCommNet Net() {
    TCommNet net;
    net.Initialize();
    SetUtf16(net.Host, "10.0.0.9");
    net.Port = 502;
    return net;
  }
  TNcSerialCommTrans FSerial;
  TNcTcpIPTrans FTcp;
};

TEST_F(Transports, ABinarySerialReadIsCutToTheLengthOfItsLastChunk) {
  auto& serial = Serial(ttBinary);
  Script.Wire.Say(0, Numbered(10, 0));
  Script.Wire.Say(5, Numbered(4, 10));
  EXPECT_EQ(serial.GetReceiveBuff(), Numbered(4, 0));
  Script.Wire.Say(0, Numbered(10, 0));
  Script.Wire.Say(5, Numbered(4, 10));
  Script.Wire.Say(30, Numbered(8, 14));
  const auto start = Now();
  EXPECT_EQ(serial.GetReceiveBuff(), Numbered(8, 0));
  EXPECT_EQ(Now() - start, 60u);  // three chunks of 20 ms, then the first empty read
  const auto empty = Now();
  EXPECT_EQ(serial.GetReceiveBuff(), TBytes());
  EXPECT_EQ(Now() - empty, 51u);
}

TEST_F(Transports, ASerialLineThatNeverFallsSilentIsLeftAfterItsLimit) {
  auto& serial = Serial(ttBinary);
  for (std::uint32_t ms = 0; ms < 5000; ms += 10) Script.Wire.Say(ms, Numbered(3, 0));
  const auto start = Now();
  EXPECT_EQ(serial.GetReceiveBuff().size(), 3u);
  EXPECT_LE(Now() - start, 2020u);
}

TEST_F(Transports, ATextReadKeepsAsciiAndTracesIt) {
  auto& serial = Serial(ttText);
  serial.Debug = true;
  EXPECT_TRUE(serial.SendBuff({'A', 0xFF}));
  Script.Wire.Say(3, {'o', 'k', 0x80});
  Script.Wire.Say(40, {'!'});
  EXPECT_EQ(serial.GetReceiveBuff(), (TBytes{'o', 'k', '?', '!'}));
  EXPECT_EQ(Log(), (TTexts{"3 PC-> 3rdDev: A?", "3 3rdDev-> PC: ok?! RecvDelay: 51"}));
  serial.SetTransType(ttBinary);
  EXPECT_TRUE(serial.SendBuff({0x01, 0xAB}));
  EXPECT_EQ(Log(), TTexts{"3 PC-> 3rdDev: 01AB"});
}

TEST_F(Transports, AFailedSerialWriteClosesThePortUntilItIsSetUpAgain) {
  auto& serial = Serial(ttBinary);
  EXPECT_FALSE(serial.SendBuff({}));
  Script.Wire.SendFails = true;
  EXPECT_FALSE(serial.SendBuff({1}));
  EXPECT_FALSE(serial.CheckConnection());
  Serial(ttBinary);
  EXPECT_TRUE(serial.CheckConnection());
  Script.OpenWorks = false;
  Serial(ttBinary);
  EXPECT_FALSE(serial.CheckConnection());
  EXPECT_EQ(Log(), TTexts{"6 no such device"});
}

TEST_F(Transports, TcpPingsBeforeItConnectsAndKeepsThePingOfAConnectionApart) {
  auto& tcp = Tcp();
  EXPECT_EQ(Script.Calls, TTexts{});
  Script.PingAnswers = false;
  EXPECT_FALSE(tcp.CheckConnection());
  EXPECT_EQ(std::exchange(Script.Calls, {}), TTexts{"ping 100"});  // never a connect
  Script.PingAnswers = true;
  EXPECT_TRUE(tcp.CheckConnection());
  EXPECT_TRUE(tcp.CheckConnection());
  Clock.Sleep(4999);
  EXPECT_TRUE(tcp.CheckConnection());
  EXPECT_EQ(std::exchange(Script.Calls, {}), (TTexts{"ping 100", "connect", "ping later 1000"}));
  Clock.Sleep(1);
  EXPECT_TRUE(tcp.CheckConnection());
  Script.NoReply();
  EXPECT_EQ(std::exchange(Script.Calls, {}), (TTexts{"ping later 1000", "shut down 7"}));
  Script.Wire.End(0);  // what the shut-down connection reads as
  EXPECT_TRUE(tcp.CheckConnection());
  EXPECT_EQ(Script.Calls, (TTexts{"disconnect", "ping 100", "connect"}));
}

TEST_F(Transports, TcpReturnsItsLastChunkAndEndsWithItsTimes) {
  auto& tcp = Tcp();
  ASSERT_TRUE(tcp.CheckConnection());
  Script.Wire.Say(50, {1, 2, 3});
  Script.Wire.Say(120, {4, 5});
  Script.Wire.Say(210, {6});  // readable, but beyond 200 ms
  auto start = Now();
  EXPECT_EQ(tcp.GetReceiveBuff(), (TBytes{4, 5}));
  EXPECT_EQ(Now() - start, 210u);
  Script.Wire.In.clear();
  start = Now();
  EXPECT_EQ(tcp.GetReceiveBuff(), TBytes());
  EXPECT_EQ(Now() - start, 200u);
  Script.Wire.Say(10, Numbered(1500, 0));
  EXPECT_EQ(tcp.GetReceiveBuff().size(), 1500u - 1024u);
  Script.Wire.Say(10, {9});
  Script.Wire.End(11);
  EXPECT_EQ(tcp.GetReceiveBuff(), TBytes{9});  // the chunk is kept
  EXPECT_FALSE(tcp.Linked());
}

TEST_F(Transports, AFailedTcpSendDisconnectsAndIsLogged) {
  auto& tcp = Tcp();
  ASSERT_TRUE(tcp.CheckConnection());
  Script.Wire.SendFails = true;
  EXPECT_FALSE(tcp.SendBuff({1}));
  EXPECT_FALSE(tcp.Linked());
  EXPECT_EQ(Log(), TTexts{"6 TNcNetWorkTrans.SendBuff Error!"});
}

TEST_F(Transports, UdpHasNoPeerWithoutALocalAddressAndOtherwiseAlwaysSends) {
  TNcUDPTrans udp;
  EXPECT_FALSE(udp.CheckConnection());
  Script.HasAddress = false;
  udp.SetNetParams(Net());
  EXPECT_FALSE(udp.CheckConnection());
  Script.HasAddress = true;
  udp.SetNetParams(Net());
  EXPECT_TRUE(udp.CheckConnection());
  Script.Wire.SendFails = true;
  EXPECT_TRUE(udp.SendBuff({1}));
  const TTexts log = Log();
  ASSERT_EQ(log.size(), 3u);
  EXPECT_EQ(log.back(), "3 UDP LocallIP:10.0.0.9");
  Script.Wire.Say(10, {1, 2});
  Script.Wire.Say(20, {3});
  const auto start = Now();
  EXPECT_EQ(udp.GetReceiveBuff(), TBytes{3});
  EXPECT_EQ(Now() - start, 120u);
}

// A device object made without the factory: its gate is shut, and the test runs its rounds.
struct TRoundDevice final : TDevDataCommBase {
  ~TRoundDevice() override { EndUse(); }
  void UpdateStatus() override {
    ++Rounds;
    if (Throws) throw std::runtime_error("boom");
  }
  TBytes GetSendCmdBuff(std::uint8_t cmd, const TBytes& data) override { return cmd == 0 ? TBytes() : data; }
  bool CheckDatavalid(const TBytes& buf) override { return !buf.empty(); }
  int Rounds = 0;
  bool Throws = false;
};

TEST_F(Transports, CommandsAreSentQueuedOrRefused) {
  TRoundDevice device;
  EXPECT_FALSE(device.CheckConnection());
  EXPECT_FALSE(device.SendCMD(1, {1}, true));
  device.SetDataTransIntf(std::shared_ptr<INcDataTransIntf>(&Serial(ttBinary), [](auto*) {}));
  EXPECT_FALSE(device.SendCMD(0, {1}, false));
  EXPECT_EQ(device.DequeueCMD(), TBytes());
  EXPECT_TRUE(device.SendCMD(1, {1}, false));
  EXPECT_TRUE(device.SendCMD(1, {2}, false));
  EXPECT_TRUE(Script.Wire.Out.empty());
  EXPECT_EQ(device.DequeueCMD(), TBytes{1});
  EXPECT_EQ(device.DequeueCMD(), TBytes{2});
  EXPECT_TRUE(device.SendCMD(1, {3}, true));
  EXPECT_EQ(Script.Wire.Out, std::vector<TBytes>{{3}});
  EXPECT_FALSE(device.ParserBuff({1}));
  device.OnExtract = [](TDevDataCommBase&, const TBytes& buf) { return buf.size() == 2; };
  EXPECT_FALSE(device.ParserBuff({}));
  EXPECT_FALSE(device.ParserBuff({1}));
  EXPECT_TRUE(device.ParserBuff({1, 2}));
  device.DebugInfo("unseen");
  FSerial.Debug = true;
  device.DebugInfo("seen");
  EXPECT_EQ(Log(), TTexts{"3 seen"});
}

TEST_F(Transports, AFaultOfARoundIsLoggedOnceAndKept) {
  TRoundDevice device;
  EXPECT_TRUE(device.Thread().RunRound());
  EXPECT_EQ(device.Rounds, 1);
  EXPECT_STREQ(device.Thread().FatalError(), "");
  device.Throws = true;
  EXPECT_FALSE(device.Thread().RunRound());
  EXPECT_STREQ(device.Thread().FatalError(), "TNcUpdateStateThrd Error Message");
  EXPECT_FALSE(device.Thread().RunRound());
  EXPECT_EQ(Log(), (TTexts{"0 std::runtime_error: boom", "8 uDevThrdComm Error!"}));
  ASSERT_TRUE(device.TryLockData());  // the lock was given back
  device.UnLockData();
}

}  // namespace
}  // namespace ixocamglue::test
