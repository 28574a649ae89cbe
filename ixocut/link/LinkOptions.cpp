#include "ixocut/link/LinkOptions.h"

#include <atomic>
#include <charconv>
#include <csignal>
#include <thread>

#include <CLI/CLI.hpp>

#include "ixocamglue/platform/comm/SerialSettings.h"

namespace ixocut {
namespace {

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

void AddLinkOptions(CLI::App& command, TLinkOptions& options) {
  CLI::Option* const tcp = command.add_option("--tcp", options.Tcp, "The device's host and port (502 unless given)")
                               ->type_name("HOST[:PORT]");
  command.add_option("--serial", options.Serial, "The serial device and its settings (9600,n,8,1 unless given)")
      ->type_name("DEVICE[,BAUD,PARITY,DATA,STOP]")
      ->excludes(tcp);
  command.add_option("--framing", options.Framing, "rtu or tcp (by the link unless given)")
      ->check(CLI::IsMember({"rtu", "tcp"}))
      ->type_name("FRAMING");
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
  if (const auto settings = ParseSerialSettings(link.Settings); !settings)
    throw EProblem(pbRequest, "--serial: " + settings.Problem().Text());
  return link;
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
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) ::sigaddset(&FImpl->Signals, signal);
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

}  // namespace ixocut
