#include "controller/links/DeviceLink.h"

#include <atomic>
#include <charconv>
#include <csignal>
#include <thread>

#include <CLI/CLI.hpp>

#include "ixocamglue/platform/comm/SerialSettings.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Problem.h"

namespace ixocontroller {
namespace {

constexpr std::int32_t kSerialPort = 1;

// HOST, HOST:PORT, IPV6 or [IPV6]:PORT.
void ParseTcp(const std::string& text, TLinkAddress& link) {
  const auto wrong = [&](const char* what) { return EProblem(pbRequest, "--tcp: \"" + text + "\": " + what); };
  std::string port;
  const std::size_t colon = text.rfind(':');
  if (text.starts_with('[')) {
    const std::size_t bracket = text.find(']');
    if (bracket == std::string::npos) throw wrong("the \"]\" is missing");
    link.Host = text.substr(1, bracket - 1);
    if (bracket + 1 < text.size()) {
      if (text[bracket + 1] != ':') throw wrong("a \":\" is expected after the \"]\"");
      port = text.substr(bracket + 2);
      if (port.empty()) throw wrong("the port is missing");
    }
  } else if (colon != std::string::npos && text.find(':') == colon) {
    link.Host = text.substr(0, colon);
    port = text.substr(colon + 1);
    if (port.empty()) throw wrong("the port is missing");
  } else {
    link.Host = text;
  }
  if (link.Host.empty()) throw wrong("the host is missing");
  if (port.empty()) return;
  const char* const end = port.data() + port.size();
  const auto [stopped, error] = std::from_chars(port.data(), end, link.Port);
  if (error != std::errc{} || stopped != end || link.Port < 1 || link.Port > 0xFFFF)
    throw wrong("the port is a number from 1 to 65535");
}

}  // namespace

void AddLinkOptions(CLI::App& command, TLinkOptions& options, bool framing) {
  CLI::Option* const tcp = command.add_option("--tcp", options.Tcp, "The device's host and port (502 unless given)")
                               ->type_name("HOST[:PORT]");
  command.add_option("--serial", options.Serial, "The serial device and its settings (9600,n,8,1 unless given)")
      ->type_name("DEVICE[,BAUD,PARITY,DATA,STOP]")
      ->excludes(tcp);
  if (!framing) return;
  command.add_option("--framing", options.Framing, "rtu or tcp (by the link unless given)")
      ->check(CLI::IsMember({"rtu", "tcp"}))
      ->type_name("FRAMING");
}

std::string TLinkAddress::Text() const {
  if (!IsTcp) return Device + " " + Settings;
  return (Host.find(':') == std::string::npos ? Host : "[" + Host + "]") + ":" + std::to_string(Port);
}

TLinkAddress ParseLink(const TLinkOptions& options) {
  if (options.Tcp.empty() == options.Serial.empty())
    throw EProblem(pbRequest, "one of --tcp HOST[:PORT] and --serial DEVICE is needed");
  TLinkAddress link;
  link.IsTcp = !options.Tcp.empty();
  link.TcpFraming = options.Framing.empty() ? link.IsTcp : options.Framing == "tcp";
  if (link.IsTcp) {
    ParseTcp(options.Tcp, link);
    return link;
  }
  const std::size_t comma = options.Serial.find(',');
  link.Device = options.Serial.substr(0, comma);
  if (comma != std::string::npos) link.Settings = options.Serial.substr(comma + 1);
  if (link.Device.empty()) throw EProblem(pbRequest, "--serial: the device is missing");
  TSerialSettings settings;
  if (const std::string problem = ParseSerialSettings(link.Settings, settings); !problem.empty())
    throw EProblem(pbRequest, "--serial: " + problem);
  return link;
}

std::shared_ptr<TNcCommTransBase> MakeTransport(const TLinkAddress& link) {
  if (link.IsTcp) {
    TCommNet net;
    net.Initialize();
    SetUtf16(net.Host, link.Host);
    net.Port = link.Port;
    auto transport = std::make_shared<TNcTcpIPTrans>();
    transport->SetTransType(ttBinary);
    transport->SetNetParams(net);
    return transport;
  }
  SetSerialPortPath(kSerialPort, link.Device);
  TCommSerial serial;
  serial.Initialize();
  serial.Port = kSerialPort;
  SetUtf16(serial.Settings, link.Settings);
  auto transport = std::make_shared<TNcSerialCommTrans>();
  transport->SetTransType(ttBinary);
  transport->SetCommParams(serial);
  return transport;
}

std::string SpacedHex(const TBytes& bytes) {
  std::string text;
  for (const std::uint8_t byte : bytes) text += Format(text.empty() ? "%02X" : " %02X", byte);
  return text;
}

const char* OutcomeWord(TModbusOutcome outcome) {
  switch (outcome) {
    case moOk: return "ok";
    case moTimeout: return "time-out";
    case moInvalid: return "invalid reply";
    case moNoConnection: return "no connection";
    case moException: return "exception";
    case moBadRequest: return "bad request";
  }
  return "";
}

std::string OutcomeText(const TModbusResult& result) {
  std::string text = OutcomeWord(result.Outcome);
  if (result.Outcome == moException)
    text += Format(" %d (%s)", result.Exception, ModbusExceptionName(result.Exception));
  if (*result.Reason != 0) text += std::string(": ") + result.Reason;
  return text;
}

// Signals are blocked in the whole process and taken by a thread of their own, which may lock what it likes.
struct TStopOnSignal::TImpl {
  sigset_t Signals{};
  sigset_t Before{};
  std::atomic<bool> Ending{false};
  std::thread Thread;
};

TStopOnSignal::TStopOnSignal(TStop& stop) : FImpl(std::make_unique<TImpl>()) {
  ::sigemptyset(&FImpl->Signals);
  ::sigaddset(&FImpl->Signals, SIGINT);
  ::sigaddset(&FImpl->Signals, SIGTERM);
  ::pthread_sigmask(SIG_BLOCK, &FImpl->Signals, &FImpl->Before);
  FImpl->Thread = std::thread([&stop, impl = FImpl.get()] {
    constexpr timespec kSlice{0, 20'000'000};
    while (!impl->Ending)
      if (::sigtimedwait(&impl->Signals, nullptr, &kSlice) > 0) stop.Ask();
  });
}

TStopOnSignal::~TStopOnSignal() {
  FImpl->Ending = true;
  FImpl->Thread.join();
  ::pthread_sigmask(SIG_SETMASK, &FImpl->Before, nullptr);
}

}  // namespace ixocontroller
