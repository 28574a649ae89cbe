#include "ixocut/link/LinkOptions.h"

#include <atomic>
#include <charconv>
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

sigset_t StopSignals() {
  sigset_t signals;
  ::sigemptyset(&signals);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) ::sigaddset(&signals, signal);
  return signals;
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

TSignalsBlocked::TSignalsBlocked() {
  const sigset_t signals = StopSignals();
  ::pthread_sigmask(SIG_BLOCK, &signals, &FBefore);
}

TSignalsBlocked::~TSignalsBlocked() { ::pthread_sigmask(SIG_SETMASK, &FBefore, nullptr); }

// The signals are taken by a thread of their own, which may lock what it likes.
struct TStopOnSignal::TImpl {
  std::atomic<bool> Ending{false};
  std::thread Thread;
};

TStopOnSignal::TStopOnSignal(TStop& stop, std::function<void()> giveUp) : FImpl(std::make_unique<TImpl>()) {
  FImpl->Thread = std::thread([&stop, giveUp = std::move(giveUp), impl = FImpl.get()] {
    constexpr std::uint32_t kSliceMs = 20;
    constexpr timespec kSlice{0, kSliceMs * 1'000'000};
    const sigset_t signals = StopSignals();
    while (!impl->Ending)
      if (::sigtimedwait(&signals, nullptr, &kSlice) > 0) {
        stop.Ask();
        for (std::uint32_t ms = 0; ms < kGiveUpMs && !impl->Ending; ms += kSliceMs) Clock().Sleep(kSliceMs);
        if (giveUp && !impl->Ending) giveUp();
      }
  });
}

TStopOnSignal::~TStopOnSignal() {
  FImpl->Ending = true;
  FImpl->Thread.join();
}

}  // namespace ixocut
