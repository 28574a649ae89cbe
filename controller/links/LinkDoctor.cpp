#include "controller/links/LinkDoctor.h"

#include <algorithm>
#include <memory>

#include "ixocamglue/platform/comm/Comm.h"
#include "ixocamglue/platform/comm/Crc.h"
#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/support/Format.h"

namespace ixocontroller {
namespace {

constexpr std::uint32_t kListenMs = 300;  // is the line silent when nobody asks
constexpr std::uint32_t kReplyMs = 1500;
constexpr std::uint32_t kLateMs = 3000;  // after that nothing is expected any more
constexpr std::uint32_t kSettleMs = 50;
constexpr std::size_t kShown = 24;  // bytes of a finding

std::string Shown(const TBytes& bytes) {
  TBytes first(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(std::min(bytes.size(), kShown)));
  return SpacedHex(first) + (bytes.size() > kShown ? " ..." : "");
}

bool RtuCrcGood(const TBytes& bytes) {
  if (bytes.size() < 5) return false;
  const std::size_t body = bytes.size() - 2;
  return CalcCRC(bytes.data(), body, 0xFFFF) == (bytes[body] | bytes[body + 1] << 8);
}

class TExamination {
 public:
  TExamination(const TDoctorOptions& options, const std::function<void(const TDoctorStep&)>& tell)
      : FOptions(options), FTell(tell) {}

  bool Run() {
    if (FOptions.Link.IsTcp ? !ReachHost() : !OpenPort()) return false;
    if (!ListenToSilence()) return false;
    return AskUnit();
  }

 private:
  bool Tell(TDoctorMark mark, std::string finding, std::string next = {}) {
    FTell({mark, std::move(finding), std::move(next)});
    return mark != dmBad;
  }

  bool ReachHost() {
    const TLinkAddress& link = FOptions.Link;
    const auto addresses = CommParts().Resolve(link.Host, kResolveLimitMs);
    if (addresses.empty())
      return Tell(dmBad, "The name " + link.Host + " does not resolve within 2 s",
                  "Use the numeric address, or ask whoever runs the name server");
    std::string list;
    for (const std::string& address : addresses) list += (list.empty() ? "" : ", ") + address;
    Tell(dmGood, "The host is " + list);

    const bool ipv6 = addresses.front().find(':') != std::string::npos;
    const TPingMeans means = PingMeans(ipv6);
    if (means == pmNone) {
      Tell(dmNote, "This account may not ping, so the ping is left out",
           "Allow it with net.ipv4.ping_group_range or CAP_NET_RAW; the exact profile then also checks by ping");
    } else {
      Tell(dmGood, means == pmDatagram ? "This account may ping" : "This account may ping (raw socket)");
      const auto icmp = CommParts().MakeIcmp();
      icmp->SetRemote(addresses);
      if (icmp->Ping(1000))
        Tell(dmGood, "The host answers ping");
      else
        Tell(dmNote, "The host does not answer ping within 1 s",
             "Check cable, address and power. If a firewall drops pings only: the strict profile connects without one");
    }
    return Connect(addresses);
  }

  bool Connect(const std::vector<std::string>& addresses) {
    FTransport = MakeTransport(FOptions.Link);
    const std::uint64_t start = Clock().MonotonicMs();
    if (FTransport->Reopen(1000)) return Tell(dmGood, Format("Port %d opens", FOptions.Link.Port));
    const bool refused = Clock().MonotonicMs() - start < 900;
    return Tell(dmBad,
                Format("Port %d of %s %s", FOptions.Link.Port, addresses.front().c_str(),
                       refused ? "refuses the connection" : "does not open within 1 s"),
                refused ? "Check the port number, and that the device's Modbus TCP server is switched on"
                        : "Check address, cable and firewall");
  }

  bool OpenPort() {
    const TLinkAddress& link = FOptions.Link;
    SetSerialPortPath(1, link.Device);
    const auto probe = CommParts().MakeSerial();
    if (const auto opened = probe->Open(1, link.Settings); !opened)
      return Tell(dmBad, "The port does not open: " + opened.Problem().Text(),
                  "Check the device's name, the rights of this account (group dialout) and the settings");
    probe->Close();
    FTransport = MakeTransport(link);
    return Tell(dmGood, "The port " + link.Text() + " opens");
  }

  bool ListenToSilence() {
    TBytes heard;
    const std::uint64_t end = Clock().MonotonicMs() + kListenMs;
    for (std::uint64_t now = end - kListenMs; now < end && FTransport->Linked(); now = Clock().MonotonicMs()) {
      const TBytes chunk = FTransport->ReceiveWithin(static_cast<std::uint32_t>(end - now));
      heard.insert(heard.end(), chunk.begin(), chunk.end());
    }
    if (!FTransport->Linked())
      return Tell(dmBad, "The connection is closed before anything is asked",
                  "The device may take one master only: end the other one");
    if (heard.empty()) return Tell(dmGood, "The line is silent while nothing is asked");
    return Tell(dmBad,
                Format("The line babbles: %u bytes came in %u ms without a request: %s",
                       static_cast<unsigned>(heard.size()), kListenMs, Shown(heard).c_str()),
                FOptions.Link.IsTcp ? "Check that this port belongs to a Modbus server"
                                    : "Check for a second master, for termination and for the baud rate");
  }

  // Sends one read and collects what comes in until it is whole or the time is over.
  TReplyCheck Ask(std::uint16_t count, std::uint16_t transaction, std::uint32_t ms, TBytes& reply) {
    FRequest = {FOptions.Link.TcpFraming, transaction, FOptions.Unit, kModbusRead, FOptions.Addr, count, {}};
    TBytes frame;
    (void)BuildModbusFrame(FRequest, frame);
    (void)FTransport->Drain(64 * 1024);
    reply.clear();
    FClosed = !FTransport->SendBuff(frame);
    FSentMs = Clock().MonotonicMs();
    return FClosed ? TReplyCheck{} : Collect(FSentMs + ms, reply);
  }

  TReplyCheck Collect(std::uint64_t end, TBytes& reply) {
    TReplyCheck check = CheckModbusReply(FRequest, reply);
    for (std::uint64_t now = Clock().MonotonicMs(); check.State == rsMore && now < end; now = Clock().MonotonicMs()) {
      const TBytes chunk = FTransport->ReceiveWithin(static_cast<std::uint32_t>(end - now));
      reply.insert(reply.end(), chunk.begin(), chunk.end());
      check = CheckModbusReply(FRequest, reply);
      FClosed = !FTransport->Linked();
      if (FClosed) break;
    }
    if (check.State == rsInvalid) {  // the rest of it, for the finding
      for (TBytes more = FTransport->ReceiveWithin(kSettleMs); !more.empty() && reply.size() < 512;
           more = FTransport->ReceiveWithin(kSettleMs))
        reply.insert(reply.end(), more.begin(), more.end());
    }
    return check;
  }

  bool AskUnit() {
    TBytes reply;
    TReplyCheck check = Ask(1, 1, kReplyMs, reply);
    if (FClosed)
      return Tell(dmBad, "The device closes the connection instead of answering",
                  "It may allow other masters only, or not speak Modbus: check its access list and the port");
    if (check.State == rsMore) return Silence(reply);
    const bool good = Judge(check, reply);
    if (!good) return false;
    // A second request of another length: a device that is one reply behind gives itself away.
    check = Ask(2, 2, kReplyMs, reply);
    if (check.State == rsException) return Judge(check, reply);
    if (check.State != rsWhole) return Stale(check, reply);
    return Tell(dmGood, "A second request is answered with its own reply");
  }

  bool Judge(const TReplyCheck& check, const TBytes& reply) {
    const std::uint64_t ms = Clock().MonotonicMs() - FSentMs;
    const bool tcp = FOptions.Link.TcpFraming;
    switch (check.State) {
      case rsWhole:
        return Tell(dmGood, Format("Unit %d answers after %llu ms: register %d is %d", FOptions.Unit,
                                   static_cast<unsigned long long>(ms), FOptions.Addr,
                                   reply[tcp ? 9 : 3] << 8 | reply[tcp ? 10 : 4]));
      case rsException: return Exception(check.Exception);
      case rsForeign: return Stale(check, reply);
      case rsMore:
      case rsInvalid: break;
    }
    Tell(dmGood, "The device sends: " + Shown(reply));
    const std::size_t unitAt = tcp ? 6 : 0;
    const bool whole = tcp ? reply.size() >= 9 && reply[2] == 0 && reply[3] == 0 : RtuCrcGood(reply);
    if (whole && reply[unitAt] != FOptions.Unit)
      return Tell(dmBad, Format("Unit %d answers instead of unit %d", reply[unitAt], FOptions.Unit),
                  Format("Try --unit %d, and check the device's unit address", reply[unitAt]));
    if (whole) return Tell(dmBad, std::string("The reply does not fit: ") + check.Reason, "Run the doctor again");
    if (tcp)
      return Tell(dmBad, std::string("Framing: ") + check.Reason,
                  "The device may speak RTU over this link: try --framing rtu, or another port");
    return Tell(dmBad, "The CRC is wrong: the bytes are damaged, or this is no Modbus RTU",
                "Check baud rate, parity and data bits, then wiring, shield and termination");
  }

  bool Exception(std::uint8_t code) {
    const std::string what =
        Format("Unit %d answers with exception %d (%s)", FOptions.Unit, code, ModbusExceptionName(code));
    switch (code) {
      case 1: return Tell(dmBad, what, "The device does not read holding registers: check its manual");
      case 2: return Tell(dmBad, what, "The link works. Try another --addr; some manuals count from 40001 or from 1");
      case 10:
      case 11: return Tell(dmBad, what, "A gateway answers for the device: check the unit address behind it");
      default: return Tell(dmBad, what, "The link works; look at the device's own diagnosis");
    }
  }

  bool Stale(const TReplyCheck& check, const TBytes& reply) {
    if (reply.empty())
      return Tell(dmBad, "The first request is answered and the second is not",
                  "The device may need a pause between "
                  "requests: try --pre-delay, and a slower --watch");
    return Tell(
        dmBad,
        std::string("A stale reply: the device answers an earlier request (") + check.Reason + "): " + Shown(reply),
        "Restart the device or the gateway; use the strict profile, which drops such replies over TCP");
  }

  // Nothing whole within the time: half, late, one behind, or silent.
  bool Silence(TBytes& reply) {
    if (!reply.empty())
      return Tell(
          dmBad,
          Format("The reply stops after %u bytes: %s", static_cast<unsigned>(reply.size()), Shown(reply).c_str()),
          FOptions.Link.IsTcp ? "Check the gateway's time-out towards the device"
                              : "Check wiring and termination, and the device's own send buffer");
    const TReplyCheck late = Collect(FSentMs + kLateMs, reply);
    if (FClosed)
      return Tell(dmBad, "The device closes the connection instead of answering", "Check its access list and the port");
    if (late.State == rsWhole || late.State == rsException)
      return Tell(dmBad,
                  Format("The reply is late: it came after %llu ms",
                         static_cast<unsigned long long>(Clock().MonotonicMs() - FSentMs)),
                  "Raise --timeout, and find out what keeps the device busy");
    const TReplyCheck second = Ask(2, 2, kReplyMs, reply);
    if (!reply.empty() && (second.State == rsInvalid || second.State == rsForeign)) return Stale(second, reply);
    if (second.State == rsWhole)
      return Tell(dmNote, "The first request was not answered, the second was", "Run the doctor again");
    return Tell(dmBad, Format("Unit %d does not answer: no byte within 3 s", FOptions.Unit),
                FOptions.Link.IsTcp
                    ? "Try another --unit (1, 0 and 255 are usual over TCP), and check that the device runs"
                    : "Check --unit, the two wires (A and B may be swapped), baud rate and power");
  }

  const TDoctorOptions& FOptions;
  const std::function<void(const TDoctorStep&)>& FTell;
  std::shared_ptr<TNcCommTransBase> FTransport;
  TModbusRequest FRequest;
  std::uint64_t FSentMs = 0;
  bool FClosed = false;
};

}  // namespace

bool ExamineLink(const TDoctorOptions& options, const std::function<void(const TDoctorStep&)>& tell) {
  return TExamination(options, tell).Run();
}

}  // namespace ixocontroller
