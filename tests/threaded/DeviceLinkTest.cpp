// The transports and the master against real sockets and pseudo-terminals, and against slaves that are not ours.
#include <atomic>
#include <random>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>

#include "controller/links/LinkDoctor.h"
#include "fixture/Sockets.h"
#include "fixture/Waiting.h"
#include "ixocamglue/devcomm/Udevthrdcomm.h"
#include "ixocamglue/platform/comm/Crc.h"
#include "ixocamglue/platform/comm/FdWait.h"
#include "tests/threaded/ModbusSlaves.h"

namespace ixocamglue::test {
using namespace ixocontroller;
namespace {

TDevicePtr<TModbusComm> Master(const TLinkAddress& link, TModbusProfile profile, std::uint32_t timeoutMs = 1000) {
  auto device = MakeDevice<TModbusComm>("test");
  device->IsTCP = link.TcpFraming;
  device->PreDelay = 0;
  device->SetProfile(profile, {.TimeoutMs = timeoutMs, .LateReplyMs = timeoutMs});
  device->SetDataTransIntf(MakeTransport(link));
  return device;
}

// Functions 3, 6 and 16, as every slave must answer them.
void ReadAndWrite(const TLinkAddress& link) {
  for (const TModbusProfile profile : {mpStrict, mpExact}) {
    SCOPED_TRACE(link.Text() + (profile == mpStrict ? " strict" : " exact"));
    const auto device = Master(link, profile);
    const std::vector<std::uint16_t> three{7, 0xABCD, profile == mpStrict ? std::uint16_t{1} : std::uint16_t{2}};
    auto result = device->WriteRegisters(20, three);
    EXPECT_TRUE(result.Ok()) << OutcomeText(result);
    result = device->WriteRegisters(20, std::vector<std::uint16_t>{0x1234});
    EXPECT_TRUE(result.Ok()) << OutcomeText(result);
    result = device->ReadRegisters(20, 3);
    EXPECT_TRUE(result.Ok()) << OutcomeText(result);
    EXPECT_EQ(result.Registers, (std::vector<std::uint16_t>{0x1234, three[1], three[2]}));
    result = device->ReadRegisters(20, 100);  // a frame longer than a FIFO
    EXPECT_EQ(result.Registers.size(), 100u);
    EXPECT_EQ(device->LastError, 0);
  }
}

TEST(RealLink, TheSimulatedPlcIsReadAndWrittenInBothFramings) {
  TServing tcp;
  ReadAndWrite(TcpLink(tcp.Tcp()));
  TCable cable;
  TServing serial;
  serial.Serial(cable.B.Device);
  ReadAndWrite(SerialLink(cable.A.Device));
}

// Coils, discrete inputs and input registers of a slave that is not ours.
void ReadAndWriteBits(const TLinkAddress& link) {
  SCOPED_TRACE(link.Text());
  const auto device = Master(link, mpStrict);
  std::vector<std::uint16_t> coils(2100);
  for (std::size_t i = 0; i < coils.size(); ++i) coils[i] = i % 3 == 0 || i % 7 == 0;
  EXPECT_TRUE(device->Write(kModbusWriteCoils, 5, coils).Ok());  // two requests each
  EXPECT_EQ(device->Read(kModbusReadCoils, 5, 2100).Registers, coils);
  EXPECT_TRUE(device->Write(kModbusWriteCoil, 6, std::vector<std::uint16_t>{1}).Ok());
  EXPECT_TRUE(device->Write(kModbusWriteCoil, 5, std::vector<std::uint16_t>{0}).Ok());
  EXPECT_EQ(device->Read(kModbusReadCoils, 4, 3).Registers, (std::vector<std::uint16_t>{0, 0, 1}));
  EXPECT_EQ(device->Read(kModbusReadDiscrete, 0, 10).Registers,
            (std::vector<std::uint16_t>{0, 0, 0, 1, 0, 0, 0, 0, 0, 1}));
  EXPECT_EQ(device->Read(kModbusReadInput, 0, 3).Registers, (std::vector<std::uint16_t>{0, 0, 0xBEEF}));
  const auto beyond = device->Read(kModbusReadDiscrete, 60'000, 1);
  EXPECT_EQ(beyond.Exception, 2) << OutcomeText(beyond);
}

TEST(RealLink, LibmodbusIsReadAndWrittenInBothFramings) {
  {
    TLibmodbusSlave tcp;
    const TLinkAddress link = TcpLink(tcp.Tcp());
    ReadAndWrite(link);
    ReadAndWriteBits(link);
  }
  TCable cable;
  TLibmodbusSlave serial;
  serial.Serial(cable.B.Device);
  ReadAndWrite(SerialLink(cable.A.Device));
  ReadAndWriteBits(SerialLink(cable.A.Device));
}

bool Answers(const TLinkAddress& link) {
  const auto device = Master(link, mpStrict, 200);
  return Comes([&] { return device->ReadRegisters(0, 1).Ok(); }, kPymodbusStartsMs);
}

TEST(RealLink, PymodbusIsReadAndWrittenInBothFramings) {
  if (!HasPymodbus()) GTEST_SKIP() << "python3-pymodbus is not installed";
  const TReservedPort own;
  const TPymodbusSlave tcp(TPymodbusSlave::Tcp(own));
  TCable cable;
  const TPymodbusSlave serial("StartSerialServer(context=c, framer=ModbusRtuFramer, port='" + cable.B.Device +
                              "', baudrate=9600, timeout=0.01)\n");
  ASSERT_TRUE(Answers(TcpLink(own.Port)));
  ReadAndWrite(TcpLink(own.Port));
  ASSERT_TRUE(Answers(SerialLink(cable.A.Device)));
  ReadAndWrite(SerialLink(cable.A.Device));
}

// What the doctor finds wrong: the findings' names, and whether it says so.
std::string Findings(const TLinkAddress& link, const std::string& expected) {
  TDoctorOptions options;
  options.Link = link;
  TStop stop;
  std::string bad;
  const auto tell = [&](const TDoctorStep& step) {
    if (step.Mark != dmBad) return;
    bad += step.Id;
    EXPECT_FALSE(step.Finding.empty() || step.NextThing.empty());
    EXPECT_TRUE(expected != "stale" || link.TcpFraming || step.NextThing.find("TCP") == std::string::npos);
    EXPECT_TRUE(expected != "framing-rtu" || step.NextThing.find("--framing rtu") != std::string::npos);
  };
  const bool fine = ExamineLink(options, tell, stop);
  EXPECT_EQ(fine, bad.empty());
  return bad;
}

// It tells faults apart by gaps of milliseconds, which a loaded machine stretches: it may look twice.
void Examine(const TLinkAddress& link, const std::string& expected) {
  SCOPED_TRACE(link.Text() + " " + expected);
  std::string found = Findings(link, expected);
  if (found != expected) found = Findings(link, expected);
  EXPECT_EQ(found, expected);
}

TEST(RealLink, TheDoctorNamesTheFault) {
  const struct {
    TPlcFault Fault;
    const char* Tcp;
    const char* Serial;
  } kRows[] = {{pfNone, "", ""},
               {pfSilent, "silent", "silent"},
               {pfWrongUnit, "wrong-unit", "wrong-unit"},
               {pfWrongCrc, "framing", "crc"},
               {pfException, "exception", "exception"},
               {pfLate, "late", "late"},
               {pfStale, "stale", "stale"},
               {pfHalf, "half", "half"},
               {pfBabble, "babble", "babble"},
               {pfClose, "closed", "silent"},
               {pfCloseAfter, "closes-after", ""},
               {pfDeaf, "first-unanswered", "first-unanswered"},
               {pfEcho, "echo", "echo"},
               {pfLocalEcho, "local-echo", "local-echo"},
               {pfDouble, "doubled", "doubled"},
               {pfTrailing, "trailing", "trailing"},
               {pfLeading, "leading", "leading"},
               {pfGaps, "gaps", "gaps"}};
  std::vector<std::thread> patients;
  for (const auto& row : kRows) {
    patients.emplace_back([&row] {
      TServing serving(row.Fault);
      Examine(TcpLink(serving.Tcp()), row.Tcp);
    });
    patients.emplace_back([&row] {
      TCable cable;
      TServing serving(row.Fault);
      serving.Serial(cable.B.Device);
      Examine(SerialLink(cable.A.Device), row.Serial);
    });
  }
  for (const bool rtu : {true, false})
    patients.emplace_back([rtu] {
      TServing serving;
      serving.Plc.RtuOverTcp = rtu;
      TLinkAddress link = TcpLink(serving.Tcp());
      link.TcpFraming = rtu;
      Examine(link, rtu ? "framing-rtu" : "framing-tcp");
    });
  auto pty = std::make_unique<TPty>();
  const TLinkAddress link = SerialLink(pty->Device);
  std::thread pulled([pty = std::move(pty)]() mutable {
    (void)WaitFd(pty->Master, POLLIN, 5000);  // the first request
    pty.reset();
  });
  Examine(link, "hang-up");
  pulled.join();
  for (std::thread& patient : patients) patient.join();
}

TEST(RealLink, AHungUpLineAndAClosedConnectionAreOpenedAgain) {
  const TReservedPort own;
  auto first = std::make_unique<TServing>();
  const auto port = first->Tcp(own.Port);
  const auto device = Master(TcpLink(port), mpStrict);
  ASSERT_TRUE(device->ReadRegisters(0, 1).Ok());
  first.reset();
  EXPECT_EQ(device->ReadRegisters(0, 1).Outcome, moNoConnection);
  TServing second;
  ASSERT_TRUE(second.Plc.ListenTcp(port));
  TStop stop;
  std::thread serve([&] { second.Plc.Run(stop); });
  Clock().Sleep(250);  // the back-off
  const auto result = device->ReadRegisters(0, 1);
  EXPECT_TRUE(result.Ok()) << OutcomeText(result);
  stop.Ask();
  serve.join();

  auto pty = std::make_unique<TPty>();
  auto transport = std::make_shared<TNcSerialCommTrans>();
  SetSerialPortPath(1, pty->Device);
  TCommSerial serial;
  serial.Initialize();
  transport->SetTransType(ttBinary);
  transport->SetCommParams(serial);
  ASSERT_TRUE(transport->CheckConnection());
  pty.reset();
  EXPECT_EQ(transport->GetReceiveBuff(), TBytes());
  EXPECT_EQ(transport->ReceiveWithin(10), TBytes());
  EXPECT_FALSE(transport->Linked());
  const TPty refusing;
  SetSerialPortPath(1, refusing.Device);
  const auto port1 = CommParts().MakeSerial();
  const auto opened = port1->Open(1, "19200,e,8,1");
  ASSERT_FALSE(opened);
  EXPECT_NE(opened.Problem().Text().find("pseudo-terminal"), std::string::npos) << opened.Problem().Text();
  EXPECT_TRUE(port1->Open(1, opened.Problem().Remedy.substr(5, 11)));
}

// A slave that is not ours: it answers every request in its turn, some late, on a thread of its own.
class TQueueingSlave {
 public:
  static constexpr std::uint32_t kSoonMs = 80, kLateMs = 250;  // the late ones' times

  explicit TQueueingSlave(int wire) : FWire(wire), FThread([this] { Serve(); }) {}
  ~TQueueingSlave() {
    FStop.Ask();
    FThread.join();
  }
  std::atomic<std::uint64_t> LongestMs{0};  // a busy machine may keep it longer

 private:
  void Serve() {
    std::mt19937 schedule(15);
    std::uint8_t request[8];
    for (std::size_t got = 0; !FStop.Asked();) {
      if (!WaitFd(FWire, POLLIN, 20)) continue;
      const auto more = ::read(FWire, request + got, sizeof request - got);
      if (more <= 0) Clock().Sleep(1);  // nobody has the other end open yet
      got += more > 0 ? static_cast<std::size_t>(more) : 0;
      if (got < sizeof request) continue;
      got = 0;
      const std::uint64_t start = Clock().MonotonicMs();
      if (schedule() % 800 == 0)
        Clock().Sleep(kSoonMs + static_cast<std::uint32_t>(schedule() % (kLateMs - kSoonMs + 1)));
      TBytes reply{1, 3, 2, request[2], request[3]};  // the register's value is its address
      const std::uint16_t crc = CalcCRC(reply.data(), reply.size(), 0xFFFF);
      reply.push_back(static_cast<std::uint8_t>(crc & 0xFF));
      reply.push_back(static_cast<std::uint8_t>(crc >> 8));
      LongestMs = std::max(LongestMs.load(), Clock().MonotonicMs() - start);
      if (::write(FWire, reply.data(), reply.size()) < 0) return;
    }
  }
  const int FWire;
  TStop FStop;
  std::thread FThread;
};

TEST(RealLink, NoLateReplyIsTakenForAnothers) {
  for (int round = 0; round < 2; ++round) {
    const TPty pty;
    const auto device = Master(SerialLink(pty.Device), mpStrict);
    device->SetProfile(mpStrict, {.TimeoutMs = TQueueingSlave::kSoonMs, .LateReplyMs = TQueueingSlave::kLateMs});
    const TQueueingSlave slave(pty.Master);
    std::size_t good = 0, wrong = 0;
    for (std::uint32_t i = 0; i < 10'000; ++i) {
      const auto addr = static_cast<std::uint16_t>(i * 7);
      const auto result = device->ReadRegisters(addr, 1);
      if (!result.Ok()) continue;
      ++(result.Registers == std::vector<std::uint16_t>{addr} ? good : wrong);
    }
    if (round == 0 && slave.LongestMs > TQueueingSlave::kLateMs + TQueueingSlave::kSoonMs / 2) continue;
    EXPECT_EQ(wrong, 0u);
    EXPECT_GT(good, 9'900u);
    EXPECT_GE(device->Statistics().Owed, 3u);  // 9 on a machine that is never held up itself
    return;
  }
}

TEST(RealLink, DatagramsGoThereAndBack) {
  TNcUDPTrans a;
  const int peer = ::socket(AF_INET, SOCK_DGRAM, 0);
  ASSERT_TRUE(TLocalAddress(0).Bind(peer));
  TCommNet net;
  net.Initialize();
  SetUtf16(net.Host, "127.0.0.1");
  net.Port = PortOf(peer);
  a.SetNetParams(net);
  EXPECT_TRUE(a.SendBuff({1, 2, 3}));
  char buffer[2000];
  sockaddr_in sender{};
  socklen_t size = sizeof sender;
  ASSERT_EQ(::recvfrom(peer, buffer, sizeof buffer, 0, reinterpret_cast<sockaddr*>(&sender), &size), 3);
  ::sendto(peer, buffer, sizeof buffer, 0, reinterpret_cast<const sockaddr*>(&sender), sizeof sender);
  EXPECT_EQ(a.GetReceiveBuff().size(), 1024u);
  ::close(peer);
}

struct TCountingDevice final : TModbusComm {
  explicit TCountingDevice(std::atomic<int>& rounds) : TModbusComm("x"), Rounds(rounds) {}
  ~TCountingDevice() override { EndUse(); }
  void UpdateStatus() override {
    ++Rounds;
    Clock().Sleep(5);
  }
  std::atomic<int>& Rounds;
};

TEST(DeviceThread, RunsRoundsAndEndsInTheMiddleOfOneAndWithARequestUnderWay) {
  std::atomic<int> rounds{0}, none{0};
  {
    const TCountingDevice shut(none);  // without the factory: no round
    const auto device = MakeDevice<TCountingDevice>(rounds);
    device->StartUpdates();
    while (rounds < 2) Clock().Sleep(1);
    device->StopUpdates();
    const int stopped = rounds;
    device->StopUpdates();
    EXPECT_EQ(rounds, stopped);
  }
  EXPECT_EQ(none, 0);
  TServing silent(pfSilent);
  const auto port = silent.Tcp();
  for (int i = 0; i < 5; ++i) {
    auto device = MakeDevice<TCountingDevice>(rounds);
    const int before = rounds;
    while (rounds == before) Clock().Sleep(1);
    device->IsTCP = true;
    device->SetProfile(mpStrict, {.TimeoutMs = 100, .Retries = 0});
    device->SetDataTransIntf(MakeTransport(TcpLink(port)));
    std::atomic<bool> begun{false}, answered{true};
    std::thread request([&, raw = device.get()] {
      begun = true;
      answered = raw->ReadRegisters(0, 1).Ok();
    });
    while (!begun || device->Statistics().Connects == 0) Clock().Sleep(1);
    device.reset();
    const int ended = rounds;
    request.join();
    EXPECT_FALSE(answered);
    EXPECT_EQ(rounds, ended);
  }
}

TEST(DeviceThread, TheTransportIsSwappedAndASecondCallerComesInTheMiddleOfAWait) {
  TServing silent(pfSilent), good;
  const auto dead = silent.Tcp(), alive = good.Tcp();
  const auto device = Master(TcpLink(dead), mpStrict, 150);
  std::thread first([&] { (void)device->ReadRegisters(0, 1); });
  std::thread second([&] { (void)device->SendCommand(1, 3, 0, 1, {}); });
  std::thread swap([&] { device->SetDataTransIntf(MakeTransport(TcpLink(alive))); });
  for (int i = 0; i < 20; ++i) {
    (void)device->GetAlarmDesc(device->LastError);  // never waits
    device->ResetAlarm(1);
  }
  first.join();
  second.join();
  swap.join();
  EXPECT_TRUE(device->ReadRegisters(0, 1).Ok());
}

}  // namespace
}  // namespace ixocamglue::test
