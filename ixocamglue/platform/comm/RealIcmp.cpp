#include <algorithm>
#include <array>
#include <atomic>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <mutex>
#include <netinet/icmp6.h>
#include <netinet/ip_icmp.h>
#include <random>
#include <thread>
#include <unistd.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/icmp.hpp>

#include "ixocamglue/platform/comm/FdWait.h"
#include "ixocamglue/platform/comm/RealComm.h"
#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/support/Texts.h"

namespace ixocamglue {
namespace asio = boost::asio;
namespace {

constexpr std::size_t kHeader = 8;   // type, code, checksum, identifier, sequence
constexpr std::size_t kCookie = 16;  // own bytes behind it, by which a reply is known to be ours
constexpr std::uint32_t kSliceMs = 20;

using TEcho = std::array<std::uint8_t, kHeader + kCookie>;

// An ICMP socket of one address family: a datagram socket, which many accounts may open, else a raw one.
class TPingSocket {
 public:
  explicit TPingSocket(bool ipv6) : FFamily(ipv6 ? AF_INET6 : AF_INET) {
    const int protocol = ipv6 ? int{IPPROTO_ICMPV6} : int{IPPROTO_ICMP};
    FFd = ::socket(FFamily, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, protocol);
    if (FFd >= 0) {
      FMeans = pmDatagram;
      return;
    }
    FFd = ::socket(FFamily, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, protocol);
    if (FFd >= 0) FMeans = pmRaw;
  }
  ~TPingSocket() {
    if (FFd >= 0) ::close(FFd);
  }
  TPingSocket(const TPingSocket&) = delete;
  TPingSocket& operator=(const TPingSocket&) = delete;

  [[nodiscard]] TPingMeans Means() const { return FMeans; }
  [[nodiscard]] int Fd() const { return FFd; }

  void Send(const TEcho& echo, const asio::ip::icmp::endpoint& peer) const {
    ::sendto(FFd, echo.data(), echo.size(), MSG_NOSIGNAL, peer.data(), static_cast<socklen_t>(peer.size()));
  }

  // Takes one packet; true for the echo reply to `echo` from `peer`.
  [[nodiscard]] bool TakeReply(const TEcho& echo, const asio::ip::icmp::endpoint& peer) const {
    std::array<std::uint8_t, 1500> packet{};
    asio::ip::icmp::endpoint sender;
    socklen_t size = static_cast<socklen_t>(sender.capacity());
    const auto got = ::recvfrom(FFd, packet.data(), packet.size(), 0, sender.data(), &size);
    if (got <= 0) return false;
    sender.resize(size);
    std::size_t start = 0;
    if (FMeans == pmRaw && FFamily == AF_INET) start = std::size_t{4} * (packet[0] & 0x0Fu);  // the IP header
    if (static_cast<std::size_t>(got) < start + echo.size()) return false;
    const std::uint8_t* const reply = packet.data() + start;
    const std::uint8_t wanted = FFamily == AF_INET ? std::uint8_t{ICMP_ECHOREPLY} : std::uint8_t{ICMP6_ECHO_REPLY};
    return sender.address() == peer.address() && reply[0] == wanted &&
           std::memcmp(reply + 6, echo.data() + 6, 2) == 0 &&
           std::memcmp(reply + kHeader, echo.data() + kHeader, kCookie) == 0;
  }

 private:
  const int FFamily;
  int FFd = -1;
  TPingMeans FMeans = pmNone;
};

TEcho MakeEcho(bool ipv6, std::uint16_t sequence) {
  static thread_local std::mt19937_64 random{std::random_device{}()};
  TEcho echo{};
  echo[0] = ipv6 ? std::uint8_t{ICMP6_ECHO_REQUEST} : std::uint8_t{ICMP_ECHO};
  const auto id = static_cast<std::uint16_t>(::getpid());
  std::memcpy(&echo[4], &id, sizeof id);
  std::memcpy(&echo[6], &sequence, sizeof sequence);
  for (std::size_t at = kHeader; at < echo.size(); at += 8) {
    const std::uint64_t bits = random();
    std::memcpy(&echo[at], &bits, sizeof bits);
  }
  if (ipv6) return echo;  // the kernel writes that checksum
  std::uint32_t sum = 0;
  for (std::size_t at = 0; at < echo.size(); at += 2) sum += static_cast<std::uint32_t>(echo[at] << 8 | echo[at + 1]);
  while (sum > 0xFFFF) sum = (sum & 0xFFFF) + (sum >> 16);
  sum = ~sum;
  echo[2] = static_cast<std::uint8_t>(sum >> 8 & 0xFF);
  echo[3] = static_cast<std::uint8_t>(sum & 0xFF);
  return echo;
}

void ExplainMissingRightOnce() {
  static std::atomic<bool> told{false};
  if (!told.exchange(true))
    LogMsg(lkInfo, 0, Tr("this account may not ping: hosts count as reachable, and connecting decides"), "ICMP");
}

// One echo request to one address; the answer is waited for with others.
struct TProbe {
  TProbe(const asio::ip::address& address, std::uint16_t sequence)
      : Socket(address.is_v6()), Peer(address, 0), Echo(MakeEcho(address.is_v6(), sequence)) {}
  TPingSocket Socket;
  asio::ip::icmp::endpoint Peer;
  TEcho Echo;
};

class TRealIcmp final : public TIcmpClient {
 public:
  ~TRealIcmp() override {
    {
      const std::lock_guard guard(FLock);
      FEnding = true;
    }
    FWork.notify_all();
    if (FThread.joinable()) FThread.join();
  }

  void SetRemote(std::vector<std::string> addresses) override {
    const std::lock_guard guard(FLock);
    FAddresses = std::move(addresses);
  }

  bool Ping(std::uint32_t timeoutMs) override {
    std::vector<std::string> addresses;
    {
      const std::lock_guard guard(FLock);
      addresses = FAddresses;
    }
    return PingAny(addresses, timeoutMs);
  }

  void PingAsync(std::uint32_t timeoutMs, std::function<void()> noReply) override {
    {
      const std::lock_guard guard(FLock);
      FAsked.push_back({FAddresses, timeoutMs, std::move(noReply)});
      if (!FThread.joinable()) FThread = std::thread([this] { Work(); });
    }
    FWork.notify_all();
  }

 private:
  struct TAsked {
    std::vector<std::string> Addresses;
    std::uint32_t TimeoutMs;
    std::function<void()> NoReply;
  };

  void Work() {
    constexpr const char* kName = "ixo-ping";
    pthread_setname_np(pthread_self(), kName);
    TThreadSign sign(kName, tkOther);
    for (;;) {
      TAsked asked;
      sign.Park();
      {
        std::unique_lock lock(FLock);
        FWork.wait(lock, [this] { return FEnding || !FAsked.empty(); });
        if (FEnding) return;
        asked = std::move(FAsked.front());
        FAsked.pop_front();
      }
      sign.Beat();
      if (!PingAny(asked.Addresses, asked.TimeoutMs) && !FEnding) asked.NoReply();
    }
  }

  bool PingAny(const std::vector<std::string>& addresses, std::uint32_t timeoutMs) {
    std::deque<TProbe> probes;
    for (const std::string& text : addresses) {
      boost::system::error_code error;
      const auto address = asio::ip::make_address(text, error);
      if (error) continue;
      const TProbe& probe = probes.emplace_back(address, ++FSequence);
      if (probe.Socket.Means() == pmNone) {
        ExplainMissingRightOnce();
        return true;
      }
      probe.Socket.Send(probe.Echo, probe.Peer);
    }
    if (probes.empty()) return false;
    const std::uint64_t end = Clock().MonotonicMs() + timeoutMs;
    for (std::uint64_t now = end - timeoutMs; now < end && !FEnding; now = Clock().MonotonicMs()) {
      std::vector<pollfd> waits;
      waits.reserve(probes.size());
      for (const TProbe& probe : probes) waits.push_back({probe.Socket.Fd(), POLLIN, 0});
      const auto slice = static_cast<int>(std::min<std::uint64_t>(end - now, kSliceMs));
      if (::poll(waits.data(), waits.size(), slice) <= 0) continue;
      for (std::size_t i = 0; i < probes.size(); ++i)
        if (waits[i].revents != 0 && probes[i].Socket.TakeReply(probes[i].Echo, probes[i].Peer)) return true;
    }
    return false;
  }

  std::mutex FLock;  // FAddresses, FAsked, and starting FThread
  std::condition_variable FWork;
  std::vector<std::string> FAddresses;
  std::deque<TAsked> FAsked;
  std::thread FThread;
  std::atomic<bool> FEnding{false};
  std::atomic<std::uint16_t> FSequence{0};
};

}  // namespace

std::unique_ptr<TIcmpClient> MakeRealIcmp() { return std::make_unique<TRealIcmp>(); }

TPingMeans PingMeans(bool ipv6) { return TPingSocket(ipv6).Means(); }

}  // namespace ixocamglue
