// A whole request against a device that follows a script of (gap, bytes, event), in virtual time: it ends within its
// bound and leaves the error state that its outcome demands, and the next good reply is read again.
#include <cstdlib>
#include <memory>

#include "fixture/ScriptedComm.h"
#include "ixocamglue/devcomm/Udevthrdcomm.h"
#include "ixocamglue/platform/comm/Crc.h"
#include "ixocamglue/platform/services/VirtualClock.h"

namespace ixocamglue::fuzz {
namespace {

// Two objects, as each has a thread; the gates stay shut.
TModbusComm& Device(bool tcp) {
  static TModbusComm rtuDevice("rtu");
  static TModbusComm tcpDevice("tcp");
  return tcp ? tcpDevice : rtuDevice;
}

std::shared_ptr<INcDataTransIntf> Transport(bool tcp) {
  if (tcp) {
    auto transport = std::make_shared<TNcTcpIPTrans>();
    TCommNet net;
    net.Initialize();
    SetUtf16(net.Host, "10.0.0.9");
    net.Port = 502;
    transport->SetNetParams(net);
    return transport;
  }
  auto transport = std::make_shared<TNcSerialCommTrans>();
  TCommSerial serial;
  serial.Initialize();
  transport->SetTransType(ttBinary);
  transport->SetCommParams(serial);
  return transport;
}

constexpr std::uint32_t kTotalMs = 1500;

void Request(std::span<const std::uint8_t> input) {
  TVirtualClock clock;
  const TInstalled<IClock> installedClock(clock);
  test::TScript script;
  const TInstalled<TCommParts> installedParts(script);
  const std::uint8_t head = input[0];
  const bool tcp = (head & 1) != 0;
  const bool strict = (head & 2) != 0;
  auto& device = Device(tcp);
  device.IsTCP = tcp;
  device.PreDelay = (head & 4) != 0 ? 50 : 0;
  device.ResetAlarm(0);
  TModbusStrictOptions options;
  options.Retries = 1;
  options.LateReplyMs = 50;
  const bool bounded = (head & 64) != 0;
  if (bounded) {
    options.TotalMs = kTotalMs;
    options.ProbeRegister = 3;
  }
  device.SetProfile(strict ? mpStrict : mpExact, options);
  device.SetDataTransIntf(Transport(tcp));
  script.PingAnswers = (head & 8) == 0;
  script.ConnectWorks = (head & 16) == 0;

  std::size_t at = 1;
  script.Wire.OnSend = [&](const TBytes&) {
    for (std::uint64_t due = 0; at + 2 <= input.size();) {
      const std::uint8_t kind = input[at] >> 6;  // 0, 1 bytes; 2 end; 3 the script of this request is over
      due += input[at] & 0x20u ? (input[at] & 0x1Fu) * 80u : input[at] & 0x1Fu;
      const std::size_t length = std::min<std::size_t>(input[at + 1], input.size() - at - 2);
      at += 2;
      if (kind == 3) return;
      if (kind == 2) {
        script.Wire.End(static_cast<std::uint32_t>(due));
        return;
      }
      const auto bytes = input.subspan(at, length);
      at += length;
      if (!bytes.empty()) script.Wire.Say(static_cast<std::uint32_t>(due), TBytes(bytes.begin(), bytes.end()));
    }
  };
  const bool write = (head & 32) != 0;
  const bool bits = strict && (head & 128) != 0;
  const std::uint16_t values[] = {1, 0};
  const std::uint64_t start = clock.MonotonicMs();
  const TModbusResult result = write ? device.Write(bits ? kModbusWriteCoils : kModbusWriteMany, 16, values)
                                     : device.Read(bits ? kModbusReadCoils : kModbusRead, 16, 2);
  const std::uint64_t took = clock.MonotonicMs() - start;
  // Exact: 2000 ms, and one receive that began before their end (a serial one may take 2000 ms itself).
  // A probe and the silence after it have a time of their own.
  const std::uint64_t bound = strict && bounded ? (write ? 3 * kTotalMs + 3 * 50 : kTotalMs)
                              : strict          ? 2 * (2000 + 50 + 200 + 1 + 3 * 50)
                                                : 50 + 2000 + 10 + 2020 + 2020;
  if (took > bound) std::abort();
  if (result.Ok() && !write && result.Registers.size() != 2 && strict) std::abort();
  constexpr std::int32_t kStates[] = {0, 1, 2, 3, 4, 0};
  if (strict && device.LastError != kStates[result.Outcome == moOk ? 0 : static_cast<int>(result.Outcome)])
    std::abort();
  if (strict && script.ConnectWorks) {
    clock.Sleep(options.BackoffMostMs);
    script.Wire = {};
    script.Wire.OnSend = [&](const TBytes& sent) {
      TBytes reply = tcp ? TBytes{sent[0], sent[1], 0, 0, 0, 5, 1, 3, 2, 0, 9} : TBytes{1, 3, 2, 0, 9};
      const std::uint16_t crc = CalcCRC(reply.data(), reply.size(), 0xFFFF);
      if (!tcp) reply.insert(reply.end(), {static_cast<std::uint8_t>(crc & 0xFF), static_cast<std::uint8_t>(crc >> 8)});
      script.Wire.Say(5, reply);
    };
    if (device.ReadRegisters(16, 1).Registers != std::vector<std::uint16_t>{9}) std::abort();
  }
  if (!device.TryLockData()) std::abort();
  device.UnLockData();
  device.SetDataTransIntf(nullptr);
}

}  // namespace
}  // namespace ixocamglue::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size != 0) ixocamglue::fuzz::Request({data, size});
  return 0;
}
