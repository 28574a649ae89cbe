#include "controller/links/LinkDoctor.h"

#include <algorithm>
#include <memory>
#include <span>

#include "ixocamglue/platform/comm/Comm.h"
#include "ixocamglue/platform/comm/Crc.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Lists.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

constexpr std::uint32_t kListenMs = 300;  // is the line silent when nobody asks
constexpr std::uint32_t kReplyMs = 1500;
constexpr std::uint32_t kLateMs = 3000;  // after that nothing is expected any more
constexpr std::uint32_t kSettleMs = 100;
constexpr std::uint32_t kGapMs = 40;    // adapters and networks explain less
constexpr std::uint32_t kSliceMs = 50;  // of a wait, between two looks at the stop
constexpr int kMoreRequests = 4;
constexpr std::size_t kMostBytes = 512;
constexpr std::size_t kMostLeading = 16;
constexpr std::size_t kShown = 24;  // bytes of a finding

std::string Shown(std::span<const std::uint8_t> bytes) {
  const auto first = bytes.first(std::min(bytes.size(), kShown));
  return SpacedHex({first.begin(), first.end()}) + (bytes.size() > kShown ? " ..." : "");
}

unsigned Number(std::uint64_t number) { return static_cast<unsigned>(number); }

bool RtuCrcGood(std::span<const std::uint8_t> bytes) {
  if (bytes.size() < 5) return false;
  const std::size_t body = bytes.size() - 2;
  return CalcCRC(bytes.data(), body, 0xFFFF) == (bytes[body] | bytes[body + 1] << 8);
}

// Of a Modbus TCP reply: the header says as many bytes as the function has.
bool TcpLengthGood(std::span<const std::uint8_t> bytes) {
  if (bytes.size() < 9 || bytes[2] != 0 || bytes[3] != 0) return false;
  const std::size_t length = static_cast<std::size_t>(bytes[4] << 8 | bytes[5]);
  const std::uint8_t func = bytes[7];
  const std::size_t body = (func & 0x80) != 0 ? 3u : func <= kModbusReadInput ? 3u + bytes[8] : 6u;
  return length == body && bytes.size() >= 6 + length;
}

bool StartsWith(const TBytes& bytes, const TBytes& start) {
  return bytes.size() >= start.size() && std::equal(start.begin(), start.end(), bytes.begin());
}

// What came of one request.
struct TExchange {
  TBytes Sent, Bytes;
  bool Echoed = false;  // the request itself came first; it is taken out of Bytes
  bool Closed = false;  // the link ended
  TReplyCheck Check;    // of Bytes
  std::uint64_t WholeMs = 0;
  std::uint64_t GapMs = 0;  // the longest within the reply

  [[nodiscard]] bool Answered() const { return Check.State == rsWhole || Check.State == rsException; }
  [[nodiscard]] std::span<const std::uint8_t> Frame() const { return std::span(Bytes).first(Check.Length); }
  [[nodiscard]] std::span<const std::uint8_t> Rest() const { return std::span(Bytes).subspan(Check.Length); }
};

class TExamination {
 public:
  TExamination(const TDoctorOptions& options, const std::function<void(const TDoctorStep&)>& tell, TStop& stop)
      : FOptions(options), FTell(tell), FStop(stop), FTcpFraming(options.Link.TcpFraming) {}

  bool Run() {
    if (FOptions.Link.IsTcp ? !ReachHost() : !OpenPort()) return false;
    if (!ListenToSilence()) return false;
    return AskUnit();
  }

  // The line on which a reply may still come.
  [[nodiscard]] std::shared_ptr<INcDataTransIntf> Owing() const {
    return FOwed && !FOptions.Link.IsTcp && !FTcpFraming ? FTransport : nullptr;
  }

 private:
  bool Good(const char* id, std::string finding) { return Tell(dmGood, id, std::move(finding), {}); }
  bool Note(const char* id, std::string finding, std::string next) {
    return Tell(dmNote, id, std::move(finding), std::move(next));
  }
  bool Bad(const char* id, std::string finding, std::string next) {
    return Tell(dmBad, id, std::move(finding), std::move(next));
  }
  bool Tell(TDoctorMark mark, const char* id, std::string finding, std::string next) {
    if (!FStop.Asked()) FTell({mark, id, std::move(finding), std::move(next)});
    return mark != dmBad && !FStop.Asked();
  }

  bool ReachHost() {
    const TLinkAddress& link = FOptions.Link;
    const auto addresses = CommParts().Resolve(link.Host, kResolveLimitMs);
    if (addresses.empty())
      return Bad("name", Format(Tr("The name %s does not resolve within 2 s"), link.Host.c_str()),
                 Tr("Use the numeric address, or ask whoever runs the name server"));
    const std::string list = Joined(addresses);
    Good("name", Format(Tr("The host is %s"), list.c_str()));

    const bool ipv6 = addresses.front().find(':') != std::string::npos;
    const TPingMeans means = PingMeans(ipv6);
    if (means == pmNone) {
      Note("ping-right", Tr("This account may not ping, so the ping is left out"),
           Tr("Allow it with net.ipv4.ping_group_range or CAP_NET_RAW; the exact profile then also checks by ping"));
    } else {
      Good("ping-right", means == pmDatagram ? Tr("This account may ping") : Tr("This account may ping (raw socket)"));
      const auto icmp = CommParts().MakeIcmp();
      icmp->SetRemote(addresses);
      if (icmp->Ping(1000))
        Good("ping", Tr("The host answers ping"));
      else
        Note("ping", Tr("The host does not answer ping within 1 s"),
             Tr("Check cable, address and power. If a firewall drops pings only: the strict profile connects without "
                "one"));
    }
    return Connect(addresses);
  }

  bool Connect(const std::vector<std::string>& addresses) {
    FTransport = MakeTransport(FOptions.Link);
    const std::uint64_t start = Clock().MonotonicMs();
    if (FTransport->Reopen(1000)) return Good("port", Format(Tr("Port %d opens"), FOptions.Link.Port));
    if (Clock().MonotonicMs() - start < 900)
      return Bad("refused",
                 Format(Tr("Port %d of %s refuses the connection"), FOptions.Link.Port, addresses.front().c_str()),
                 Tr("Check the port number, and that the device's Modbus TCP server is switched on"));
    return Bad("unreachable",
               Format(Tr("Port %d of %s does not open within 1 s"), FOptions.Link.Port, addresses.front().c_str()),
               Tr("Check address, cable and firewall"));
  }

  bool OpenPort() {
    const TLinkAddress& link = FOptions.Link;
    const auto probe = CommParts().MakeSerial();
    if (const auto opened = probe->Open(SerialPortOf(link.Device), link.Settings); !opened)
      return Bad("port", Format(Tr("The port does not open: %s"), opened.Problem().Text().c_str()),
                 Tr("Check the device's name, the rights of this account (group dialout) and the settings"));
    probe->Close();
    FTransport = MakeTransport(link);
    return Good("port", Format(Tr("The port %s opens"), link.Text().c_str()));
  }

  bool ListenToSilence() {
    TBytes heard;
    const std::uint64_t end = Clock().MonotonicMs() + kListenMs;
    for (std::uint64_t now = end - kListenMs; now < end && FTransport->Linked() && !FStop.Asked();
         now = Clock().MonotonicMs()) {
      const TBytes chunk =
          FTransport->ReceiveWithin(static_cast<std::uint32_t>(std::min<std::uint64_t>(end - now, kSliceMs)));
      heard.insert(heard.end(), chunk.begin(), chunk.end());
    }
    if (!FTransport->Linked()) {
      if (!FOptions.Link.IsTcp) return HungUp();
      return Bad("closed-early", Tr("The connection is closed before anything is asked"),
                 Tr("The device may take one master only: end the other one"));
    }
    if (heard.empty()) return Good("silence", Tr("The line is silent while nothing is asked"));
    return Bad("babble",
               Format(Tr("The line babbles: %u bytes came in %u ms without a request: %s"), Number(heard.size()),
                      kListenMs, Shown(heard).c_str()),
               FOptions.Link.IsTcp ? Tr("Check that this port belongs to a Modbus server")
                                   : Tr("Check for a second master, for termination and for the baud rate"));
  }

  bool HungUp() {
    return Bad(
        "hang-up", Tr("The line was hung up: the serial device went away while it was in use"),
        Tr("Check the adapter's plug and supply; if another program or a virtual line holds the other end, start it "
           "again"));
  }

  bool Closed() {
    if (!FOptions.Link.IsTcp) return HungUp();
    if (OtherFraming()) return false;
    return Bad("closed", Tr("The device closes the connection instead of answering"),
               Tr("It may allow other masters only, or not speak Modbus: check its access list and the port"));
  }

  // Sends one read and collects what comes in until it is whole and quiet, or the time is over.
  TExchange Ask(std::uint16_t count, std::uint32_t ms) {
    TExchange exchange;
    FRequest = {FTcpFraming, ++FTransaction, FOptions.Unit, kModbusRead, FOptions.Addr, count, {}};
    (void)BuildModbusFrame(FRequest, exchange.Sent);
    FStray += FTransport->Drain(65'536);
    exchange.Closed = !FTransport->SendBuff(exchange.Sent);
    FSentMs = Clock().MonotonicMs();
    FOwed = !exchange.Closed;
    if (!exchange.Closed) Collect(exchange, FSentMs + ms);
    return exchange;
  }

  void Collect(TExchange& exchange, std::uint64_t end) {
    std::uint64_t last = Clock().MonotonicMs();
    for (std::uint64_t now = last; exchange.Check.State == rsMore && now < end && !FStop.Asked();
         now = Clock().MonotonicMs()) {
      const TBytes chunk =
          FTransport->ReceiveWithin(static_cast<std::uint32_t>(std::min<std::uint64_t>(end - now, kSliceMs)));
      exchange.Closed = !FTransport->Linked();
      if (chunk.empty() && exchange.Closed) return;
      if (chunk.empty()) continue;
      const std::uint64_t came = Clock().MonotonicMs();
      if (!exchange.Bytes.empty()) exchange.GapMs = std::max(exchange.GapMs, came - last);
      last = came;
      exchange.Bytes.insert(exchange.Bytes.end(), chunk.begin(), chunk.end());
      Look(exchange);
      exchange.WholeMs = came - FSentMs;
    }
    if (exchange.Answered() || exchange.Check.Damaged) FOwed = false;
    if (exchange.Check.State == rsMore || exchange.Closed) return;
    while (exchange.Bytes.size() < kMostBytes && !FStop.Asked()) {  // what follows it
      const TBytes more = FTransport->ReceiveWithin(kSettleMs);
      if (more.empty()) return;
      exchange.Bytes.insert(exchange.Bytes.end(), more.begin(), more.end());
    }
  }

  void Look(TExchange& exchange) const {
    if (!exchange.Echoed && StartsWith(exchange.Bytes, exchange.Sent)) {
      exchange.Echoed = true;
      exchange.GapMs = 0;
      exchange.Bytes.erase(exchange.Bytes.begin(),
                           exchange.Bytes.begin() + static_cast<std::ptrdiff_t>(exchange.Sent.size()));
    }
    const bool echoBegun = !exchange.Echoed && StartsWith(exchange.Sent, exchange.Bytes);
    exchange.Check = echoBegun ? TReplyCheck{} : CheckModbusReply(FRequest, exchange.Bytes);
  }

  bool AskUnit() {
    TExchange first = Ask(1, kReplyMs);
    if (!first.Closed && first.Bytes.empty()) {
      Collect(first, FSentMs + kLateMs);
      if (first.Answered())
        return Bad("late", Format(Tr("The reply is late: it came after %u ms"), Number(first.WholeMs)),
                   Tr("Raise --timeout, and find out what keeps the device busy"));
    }
    const bool unanswered = !first.Closed && !first.Echoed && first.Bytes.empty();
    return (unanswered ? Silence() : Judge(first)) && AskAgain(unanswered);
  }

  // Nothing at all: one behind, in the other framing, or silent. True when a second request is answered.
  bool Silence() {
    const TExchange second = Ask(2, kReplyMs);
    if (second.Closed || second.Echoed || !second.Bytes.empty()) return Judge(second);
    if (FStop.Asked() || OtherFraming()) return false;
    return Bad("silent", Format(Tr("Unit %d does not answer: no byte within 3 s"), FOptions.Unit),
               FOptions.Link.IsTcp
                   ? Tr("Try another --unit (1, 0 and 255 are usual over TCP), and check that the device runs")
                   : Tr("Check --unit, the two wires (A and B may be swapped), baud rate and power"));
  }

  // More requests, of changing length: a device that is one reply behind gives itself away.
  bool AskAgain(bool firstUnanswered) {
    int silent = 0;
    int gaps = 0;
    std::uint64_t longest = 0;
    for (int i = 0; i < kMoreRequests && !FStop.Asked(); ++i) {
      const TExchange more = Ask(i % 2 == 0 ? 2 : 1, kReplyMs);
      if (more.Closed && FOptions.Link.IsTcp)
        return Bad(
            "closes-after", Tr("The device closes the connection after a reply"),
            Tr("It may have a short idle time-out or serve one request a connection: use the strict profile, which "
               "connects again"));
      if (more.Closed) return HungUp();
      if (!more.Echoed && more.Bytes.empty()) {
        ++silent;
        continue;
      }
      if (more.Echoed || !more.Answered()) return Judge(more);
      if (!Surroundings(more)) return false;
      if (more.Check.State == rsException) return Exception(more.Check.Exception);
      gaps += more.GapMs >= kGapMs ? 1 : 0;
      longest = std::max(longest, more.GapMs);
    }
    if (silent == kMoreRequests)
      return Bad("fades", Tr("The first request is answered and those after it are not"),
                 Tr("The device may need a pause between requests: try --pre-delay, and a slower --watch"));
    if (FStray != 0)
      return Bad("trailing", Format(Tr("Bytes came long after a reply, %u of them"), Number(FStray)),
                 Tr("Check for a second device with the same unit address, and for a gateway that repeats requests"));
    if (gaps > 1)
      return Bad(
          "gaps", Format(Tr("The reply comes with gaps: up to %u ms between its bytes"), Number(longest)),
          FOptions.Link.IsTcp
              ? Tr("Check the gateway's packing time; the exact profile reads only a part of such a reply")
              : Tr("Check the adapter's latency timer and the device's sending; the exact profile reads only a part "
                   "of such a reply"));
    if (firstUnanswered)
      return Bad(
          "first-unanswered", Tr("The first request is not answered, those after it are"),
          Tr("The device or a gateway sleeps until the first request, or loses it: ask it twice, or more often than it "
             "falls asleep"));
    if (silent != 0)
      return Bad(
          "intermittent", Format(Tr("%d of %d requests are not answered"), silent, kMoreRequests + 1),
          Tr("Check wiring and termination, and whether the device needs a pause between requests: try --pre-delay"));
    return Good("more", Tr("Further requests are answered with their own replies"));
  }

  // True for the reply to this request and nothing else.
  bool Judge(const TExchange& exchange) {
    if (exchange.Closed) return Closed();
    if (exchange.Echoed) return Echo(exchange);
    switch (exchange.Check.State) {
      case rsWhole: {
        if (!Surroundings(exchange)) return false;
        const std::size_t data = FTcpFraming ? 9 : 3;
        return Good("answer", Format(Tr("Unit %d answers after %u ms: register %d is %d"), FOptions.Unit,
                                     Number(exchange.WholeMs), FOptions.Addr,
                                     exchange.Bytes[data] << 8 | exchange.Bytes[data + 1]));
      }
      case rsException: return Surroundings(exchange) && Exception(exchange.Check.Exception);
      case rsForeign: return Stale(exchange);
      case rsMore: return Half(exchange);
      case rsInvalid: return Invalid(exchange);
    }
    return false;
  }

  bool Echo(const TExchange& exchange) {
    if (exchange.Bytes.empty())
      return Bad("echo", Tr("The line only echoes: what comes back is the request itself (echo), and no reply"),
                 FOptions.Link.IsTcp
                     ? Tr("This port is an echo service or a looped line behind a gateway: check the port "
                          "and the wiring behind it")
                     : Tr("Nobody answers but the line itself: check for a loop plug, for A and B bridged "
                          "to a second pair, and that the device is on"));
    if (exchange.Answered())
      return Bad("local-echo", Tr("A local echo comes in front of the reply: the adapter hears what it sends"),
                 Tr("Switch the echo off: receiver disabled while sending (RE tied to DE), or \"no local echo\" in the "
                    "adapter's or the gateway's settings"));
    return Bad("local-echo",
               Format(Tr("A local echo comes first, and then what is no reply: %s"), Shown(exchange.Bytes).c_str()),
               Tr("Switch the adapter's echo off first, then run the doctor again"));
  }

  // What came behind the reply.
  bool Surroundings(const TExchange& exchange) {
    const auto rest = exchange.Rest();
    if (rest.empty()) return true;
    if (std::ranges::equal(rest, exchange.Frame()))
      return Bad(
          "doubled", Format(Tr("Each reply comes twice: %s"), Shown(exchange.Frame()).c_str()),
          Tr("Check for two devices with the same unit address, and for two ways to the device (a repeater, a second "
             "gateway)"));
    return Bad("trailing",
               Format(Tr("Stray bytes follow the reply, %u of them: %s"), Number(rest.size()), Shown(rest).c_str()),
               FTcpFraming
                   ? Tr("The device's header says less than it sends: ask its maker, or use the strict profile, "
                        "which drops them")
                   : Tr("Check the biasing and termination of the line: the sender's switching off makes stray "
                        "bytes; the strict profile drops them"));
  }

  bool Half(const TExchange& exchange) {
    return Bad(
        "half",
        Format(Tr("The reply stops after %u bytes: %s"), Number(exchange.Bytes.size()), Shown(exchange.Bytes).c_str()),
        FOptions.Link.IsTcp ? Tr("Check the gateway's time-out towards the device")
                            : Tr("Check wiring and termination, and the device's own send buffer"));
  }

  bool Invalid(const TExchange& exchange) {
    const TBytes& reply = exchange.Bytes;
    Good("bytes", Format(Tr("The device sends: %s"), Shown(reply).c_str()));
    const std::size_t unitAt = FTcpFraming ? 6 : 0;
    const bool whole = FTcpFraming ? TcpLengthGood(reply) : RtuCrcGood(reply);
    if (whole && reply[unitAt] != FOptions.Unit)
      return Bad("wrong-unit", Format(Tr("Unit %d answers instead of unit %d"), reply[unitAt], FOptions.Unit),
                 Format(Tr("Try --unit %d, and check the device's unit address"), reply[unitAt]));
    for (std::size_t at = 1; at <= kMostLeading && at < reply.size(); ++at)
      if (const auto state = CheckModbusReply(FRequest, std::span(reply).subspan(at)).State;
          state == rsWhole || state == rsException)
        return Bad("leading",
                   Format(Tr("Stray bytes come in front of the reply, %u of them: %s"), Number(at),
                          Shown(std::span(reply).first(at)).c_str()),
                   Tr("Check the biasing of the line, and when the adapter switches from sending to receiving"));
    if (whole) return Stale(exchange);
    if (OtherFraming()) return false;
    if (FTcpFraming)
      return Bad(
          "framing",
          Format(Tr("What comes is no Modbus TCP: %s"),
                 exchange.Check.Framed ? Tr("the header's length does not fit the reply") : Tr(exchange.Check.Reason)),
          Tr("Check that this port belongs to a Modbus server"));
    return Bad("crc", Tr("The CRC is wrong: the bytes are damaged, or this is no Modbus RTU"),
               FOptions.Link.IsTcp
                   ? Tr("Check --framing, and that this port belongs to a gateway; then baud rate and parity in the "
                        "gateway's settings and the wiring behind it")
                   : Tr("Check baud rate, parity and data bits, then wiring, shield and termination"));
  }

  // Whether the device answers in the other framing; said if it does.
  bool OtherFraming() {
    if (!FOptions.Link.IsTcp || !FTransport->Reopen(1000)) return false;
    FTcpFraming = !FTcpFraming;
    const bool rtu = !FTcpFraming;
    const TExchange other = Ask(1, kReplyMs);
    FTcpFraming = !FTcpFraming;
    if (!other.Answered()) return false;
    if (rtu)
      Bad("framing-rtu", Tr("The device speaks RTU behind this TCP port, not Modbus TCP"), Tr("Use --framing rtu"));
    else
      Bad("framing-tcp", Tr("The device speaks Modbus TCP, not RTU"), Tr("Use --framing tcp"));
    return true;
  }

  bool Exception(std::uint8_t code) {
    const std::string what =
        Format(Tr("Unit %d answers with exception %d (%s)"), FOptions.Unit, code, Tr(ModbusExceptionName(code)));
    switch (code) {
      case 1:
        return Bad("exception", what,
                   Tr("The link works. The device has no holding registers: try modbus read --input"));
      case 2:
        return Bad("exception", what,
                   Tr("The link works. Try another --addr; some manuals count from 40001 or from 1"));
      case 10:
      case 11: return Bad("exception", what, Tr("A gateway answers for the device: check the unit address behind it"));
      default: return Bad("exception", what, Tr("The link works; look at the device's own diagnosis"));
    }
  }

  bool Stale(const TExchange& exchange) {
    return Bad("stale",
               Format(Tr("A stale reply: the device answers an earlier request (%s): %s"), Tr(exchange.Check.Reason),
                      Shown(exchange.Bytes).c_str()),
               FTcpFraming
                   ? Tr("Restart the device or the gateway; use the strict profile, which drops such replies over TCP")
                   : Tr("Restart the device or the gateway; after a request without its reply leave the line silent "
                        "for 3 s, as the strict profile does"));
  }

  const TDoctorOptions& FOptions;
  const std::function<void(const TDoctorStep&)>& FTell;
  TStop& FStop;
  bool FTcpFraming;
  std::shared_ptr<TNcCommTransBase> FTransport;
  TModbusRequest FRequest;
  std::uint16_t FTransaction = 0;
  std::uint64_t FSentMs = 0;
  bool FOwed = false;      // the last request's reply has not come
  std::size_t FStray = 0;  // bytes that came between two requests
};

}  // namespace

std::uint16_t TDoctorOptions::RegisterOf(const TLinkAddress& link) {
  constexpr std::uint16_t kLast = kModbusAddresses - 2;
  return std::min(link.ProbeRegister.value_or(0), kLast);
}

bool ExamineLink(const TDoctorOptions& options, const std::function<void(const TDoctorStep&)>& tell, TStop& stop,
                 std::shared_ptr<INcDataTransIntf>* owing) {
  TExamination examination(options, tell, stop);
  const bool good = examination.Run();
  if (owing) *owing = examination.Owing();
  return good;
}

}  // namespace ixocontroller
