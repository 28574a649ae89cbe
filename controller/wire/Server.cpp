#include "controller/wire/Server.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <exception>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <optional>
#include <sys/socket.h>
#include <thread>
#include <unordered_map>
#include <utility>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/address.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>

#include "controller/process/RoundThread.h"
#include "controller/service/Lease.h"
#include "controller/wire/Dispatch.h"
#include "controller/wire/WireSession.h"
#include "ixocamglue/platform/comm/HostText.h"
#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/platform/services/ThreadTable.h"
#include "ixocamglue/support/Faults.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {

namespace asio = boost::asio;

using TWireTask = std::function<void()>;

// The way to the wire's thread, which others may still have when it has ended.
class TWirePostbox {
 public:
  explicit TWirePostbox(asio::io_context& context) : FContext(&context) {}
  // Runs it when what runs now is done.
  void Post(TWireTask task) {
    TGuard guard(FLock);
    if (FContext) asio::post(*FContext, std::move(task));
  }
  // Runs it now where it is called on the wire's thread.
  void Run(TWireTask task) {
    if (FThread.load() == std::this_thread::get_id()) return task();
    Post(std::move(task));
  }
  void IsHere() { FThread = std::this_thread::get_id(); }
  void Shut() {
    TGuard guard(FLock);
    FContext = nullptr;
  }

 private:
  std::atomic<std::thread::id> FThread;
  TCriticalSection FLock;
  asio::io_context* FContext IXO_GUARDED_BY(FLock);
};

namespace {

constexpr const char* kWireThread = "ixo-wire";
constexpr std::size_t kReserved = 64;  // descriptors that connections leave free
constexpr std::size_t kAcceptAtOnce = 16;
constexpr std::uint64_t kWatchMs = 250;    // between two looks at what takes too long
constexpr std::uint64_t kPauseMs = 20;     // when there is no descriptor for a newcomer
constexpr std::uint64_t kKeyMs = 1000;     // since the last word of who holds a key
constexpr std::uint64_t kTellMs = 10'000;  // between two lines of who has not come to TLS
constexpr std::string_view kPanelPath = "/api/v1/panel/";

TPeer PeerOf(int fd, const sockaddr_storage& address) {
  TPeer peer;
  if (address.ss_family == AF_UNIX) {
    ucred user{};
    socklen_t size = sizeof user;
    peer.User = ::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &user, &size) == 0 ? user.uid : ~0U;
    return peer;
  }
  if (address.ss_family == AF_INET6) {
    asio::ip::address_v6::bytes_type bytes;
    std::ranges::copy(reinterpret_cast<const sockaddr_in6*>(&address)->sin6_addr.s6_addr, bytes.begin());
    const asio::ip::address_v6 six(bytes);
    peer.Address =
        six.is_v4_mapped() ? asio::ip::make_address_v4(asio::ip::v4_mapped, six).to_string() : six.to_string();
  } else {
    peer.Address =
        asio::ip::address_v4(ntohl(reinterpret_cast<const sockaddr_in*>(&address)->sin_addr.s_addr)).to_string();
  }
  return peer;
}

// Answers go out at once, and a machine that has gone is noticed within 15 s.
void SetUpTcp(int fd, bool local) {
  const auto set = [fd](int level, int name, int value) { ::setsockopt(fd, level, name, &value, sizeof value); };
  set(IPPROTO_TCP, TCP_NODELAY, 1);
  if (local) return;
  set(SOL_SOCKET, SO_KEEPALIVE, 1);
  set(IPPROTO_TCP, TCP_KEEPIDLE, 5);
  set(IPPROTO_TCP, TCP_KEEPINTVL, 2);
  set(IPPROTO_TCP, TCP_KEEPCNT, 4);
  set(IPPROTO_TCP, TCP_USER_TIMEOUT, 15'000);
}

}  // namespace

class TWireServer::TCore final : public IWireDesk {
 public:
  TCore(TApi& api, TService& service, TWireOptions options);
  ~TCore() { End(); }

  void Start();
  void End();
  void SetTls(std::shared_ptr<const TServerTls> tls);

  const TWireOptions Options;
  std::uint16_t Port = 0;
  std::string Url;

 private:
  struct TListener {
    TListener(asio::io_context& context, int fd, bool secure)
        : Descriptor(context, fd), Pause(context), Secure(secure) {}
    asio::posix::stream_descriptor Descriptor;
    asio::steady_timer Pause;
    const bool Secure;  // by TLS
  };

  void Listen(TOwnFd fd, bool secure);
  void WaitForNewcomers(TListener& listener);
  void Accept(TListener& listener);
  void Welcome(TOwnFd fd, const sockaddr_storage& address, bool secure);
  // The connection that is missed least is closed; false: there is none.
  bool MakeRoom();
  [[nodiscard]] std::pair<int, std::uint64_t> Worth(const TWireSession& session, std::uint64_t nowMs) const;

  void Serve(TWireSession& session, const TWireRequest& request) override;
  void NotAgreed(const TWireSession& session, const std::string& why) override;
  void Ended(TWireSession& session) override;
  void Follow(TWireSession& session, TFeedWish wish, std::function<bool()> may);

  void Run();
  void Tick();
  [[nodiscard]] TWireHosts HostsOf() const;
  [[nodiscard]] std::string UrlOf() const;

  TService& FService;
  asio::io_context FContext{1};
  const std::shared_ptr<TWirePostbox> FPostbox = std::make_shared<TWirePostbox>(FContext);
  const std::shared_ptr<std::atomic<bool>> FPumpAsked = std::make_shared<std::atomic<bool>>(false);
  asio::steady_timer FTimer{FContext};
  std::vector<std::unique_ptr<TListener>> FListeners;
  TEventHub FHub;
  std::optional<TWireDispatch> FDispatch;
  std::unordered_map<std::uint64_t, std::shared_ptr<TWireSession>> FSessions;
  std::uint64_t FLastSession = 0;
  std::size_t FMost = 0;  // connections
  std::uint64_t FWatchedMs = 0;
  std::shared_ptr<const TServerTls> FTls;  // the wire's thread, once it runs
  std::optional<std::uint64_t> FToldMs;    // of one who has not come to TLS
  std::size_t FUntold = 0;                 // others since
  std::optional<TThreadSign> FSign;
  bool FEnded = false;
  std::thread FThread;
};

TWireServer::TCore::TCore(TApi& api, TService& service, TWireOptions options)
    : Options(std::move(options)), FService(service), FHub(service.Events()), FTls(Options.Tls) {
  if (!IsLoopback(Options.Address) && !Options.Tls && !Options.Insecure)
    throw EProblem(pbRequest, {.What = Format(Tr("the controller does not listen on %s"), Options.Address.c_str()),
                               .Where = "--listen",
                               .Why = Tr("what is said there is not encrypted, and others can read it"),
                               .Remedy = Tr("give a certificate with --cert and --key, stay with 127.0.0.1 and come "
                                            "by ssh, or accept that with --insecure")});
  FMost = std::min(Options.Limits.Connections, std::max<std::size_t>(RoomForConnections(kReserved), 1));
  TOwnFd tcp = ListenTcp(Options.Address, Options.Port).OrThrow(pbUnusable);
  Port = PortOf(tcp.Get());
  Url = UrlOf();
  Listen(std::move(tcp), FTls != nullptr);
  if (!Options.StateFolder.empty()) Listen(ListenUnix(Options.StateFolder).OrThrow(pbUnusable), false);
  FDispatch.emplace(api, service,
                    TDispatchOptions{.Hosts = HostsOf(),
                                     .OpenApi = Options.OpenApi,
                                     .Pages = Options.Pages,
                                     .OnWireThread = [box = FPostbox](TWireTask task) { box->Run(std::move(task)); }});
  service.Access().SetAddress(Url);
  // The ring outlives this.
  service.Events().OnAdded([box = FPostbox, asked = FPumpAsked, this] {
    if (!asked->exchange(true))
      box->Post([this] {
        FPumpAsked->store(false);
        FHub.Pump(RealMs());
      });
  });
}

TWireHosts TWireServer::TCore::HostsOf() const {
  std::vector<std::string> names = Options.Hosts;
  const std::string& own = Options.Address;
  // Every address of the machine is none to be asked under: those are given as names.
  if (!IsLoopback(own) && own != "0.0.0.0" && own != "::") names.push_back(HostText(own));
  return TWireHosts(std::move(names));
}

// A name is what a certificate is for.
std::string TWireServer::TCore::UrlOf() const {
  const bool named = !Options.Hosts.empty() && !IsLoopback(Options.Address);
  return Format("%s://%s:%d", Options.Tls ? "https" : "http",
                named ? Options.Hosts.front().c_str() : HostText(Options.Address).c_str(), Port);
}

void TWireServer::TCore::Listen(TOwnFd fd, bool secure) {
  FListeners.push_back(std::make_unique<TListener>(FContext, fd.Get(), secure));
  (void)fd.Release();
}

// --- newcomers ---

void TWireServer::TCore::WaitForNewcomers(TListener& listener) {
  listener.Descriptor.async_wait(asio::posix::stream_descriptor::wait_read,
                                 [this, &listener](const boost::system::error_code& error) {
                                   if (!error) Accept(listener);
                                 });
}

void TWireServer::TCore::Accept(TListener& listener) {
  for (std::size_t i = 0; i < kAcceptAtOnce; ++i) {
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    TOwnFd fd(::accept4(listener.Descriptor.native_handle(), reinterpret_cast<sockaddr*>(&address), &size,
                        SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (fd.Get() >= 0) {
      try {
        Welcome(std::move(fd), address, listener.Secure);
      } catch (...) {  // the next one is welcome all the same
        LogFault("TWireServer", std::current_exception());
      }
      continue;
    }
    const int error = errno;
    if (error == EINTR || error == ECONNABORTED) continue;
    if (error != EMFILE && error != ENFILE && error != ENOBUFS && error != ENOMEM) break;
    if (MakeRoom()) continue;
    // Others in this process have the descriptors; the newcomer waits in the system's queue.
    listener.Pause.expires_after(std::chrono::milliseconds(kPauseMs));
    listener.Pause.async_wait([this, &listener](const boost::system::error_code& ended) {
      if (!ended) WaitForNewcomers(listener);
    });
    return;
  }
  WaitForNewcomers(listener);
}

void TWireServer::TCore::Welcome(TOwnFd fd, const sockaddr_storage& address, bool secure) {
  while (FSessions.size() >= FMost && MakeRoom()) {
  }
  TPeer peer = PeerOf(fd.Get(), address);
  peer.Connection = ++FLastSession;
  peer.Secure = secure;
  if (!peer.IsUnix()) SetUpTcp(fd.Get(), peer.IsLocal());
  const auto session = std::make_shared<TWireSession>(*this, FContext, std::move(fd), std::move(peer), Options.Limits,
                                                      secure ? FTls.get() : nullptr);
  FSessions.emplace(FLastSession, session);
  FService.Connected(FLastSession);
  session->Start();
}

// The least goes first. Idle ones, those that are slow to ask or to take their answer; then who follows events; who
// waits for an answer; who has the lease or holds a key.
std::pair<int, std::uint64_t> TWireServer::TCore::Worth(const TWireSession& session, std::uint64_t nowMs) const {
  if (session.KeptUntilMs > nowMs) return {3, session.UsedMs()};
  switch (session.Stage()) {
    case TWireStage::wsEnding:
    case TWireStage::wsGreeting:
    case TWireStage::wsIdle:
    case TWireStage::wsReading:
    case TWireStage::wsAnswering: return {0, session.UsedMs()};
    case TWireStage::wsFollowing: return {1, session.UsedMs()};
    case TWireStage::wsAsked: break;
  }
  return {2, session.UsedMs()};
}

bool TWireServer::TCore::MakeRoom() {
  const std::uint64_t nowMs = RealMs();
  std::shared_ptr<TWireSession> least;
  std::tuple<int, std::uint64_t, std::uint64_t> lowest;
  for (const auto& [number, session] : FSessions) {
    const auto [kind, used] = Worth(*session, nowMs);
    const std::tuple worth(kind, used, number);
    if (least && worth >= lowest) continue;
    least = session;
    lowest = worth;
  }
  if (least) least->Close();
  return least != nullptr;
}

// --- requests ---

void TWireServer::TCore::Serve(TWireSession& session, const TWireRequest& request) {
  const bool panel = request.Target.starts_with(kPanelPath) && IsCommand(request.Method);
  const std::weak_ptr<TWireSession> asker = session.shared_from_this();
  const auto answer = [asker, panel](const TWireReply& reply) {
    const auto open = asker.lock();
    if (!open) return;
    // By what was answered: anybody can send a header, or a key that is refused.
    const std::uint64_t keptMs = reply.Leased ? TLease::kLeaseMs : panel && reply.Status < 400 ? kKeyMs : 0;
    if (keptMs != 0) open->KeptUntilMs = std::max(open->KeptUntilMs, RealMs() + keptMs);
    open->Answer(reply);
  };
  const auto follow = [this, asker, lastId = request.LastEventId](TFeedWish wish, std::function<bool()> may) {
    wish.LastId = lastId;
    if (const auto open = asker.lock()) Follow(*open, std::move(wish), std::move(may));
  };
  try {
    FDispatch->Serve(session.Peer(), request, {answer, follow});
  } catch (...) {
    session.Answer(Refuse(500, {.What = DescribeException(std::current_exception())}));
  }
}

void TWireServer::TCore::Follow(TWireSession& session, TFeedWish wish, std::function<bool()> may) {
  if (FHub.Feeds() >= Options.Limits.Feeds) {
    TWireReply reply = Refuse(503, {.What = Format(Tr("%zu connections follow the events already"), FHub.Feeds()),
                                    .Where = {},
                                    .Why = {},
                                    .Remedy = Tr("end one of them, or ask for the status instead")});
    reply.RetryAfterS = 5;
    return session.Answer(reply);
  }
  const auto more = [this, follower = std::weak_ptr(session.shared_from_this())] {
    asio::post(FContext, [follower] {
      if (const auto open = follower.lock()) open->SendEvents();
    });
  };
  session.Follow(FHub.Open(std::move(wish), RealMs(), more), std::move(may));
  Tick();
}

// A line now and then: whoever comes to a port can make many.
void TWireServer::TCore::NotAgreed(const TWireSession& session, const std::string& why) {
  const std::uint64_t nowMs = RealMs();
  if (FToldMs && nowMs - *FToldMs < kTellMs) {
    ++FUntold;
    return;
  }
  FToldMs = nowMs;
  LogMsg(lkWarning, 0,
         Format(Tr("TLS with %s has come to nothing: %s (%zu more before)"), session.Peer().Text().c_str(), why.c_str(),
                std::exchange(FUntold, 0)),
         "TWireServer");
}

void TWireServer::TCore::Ended(TWireSession& session) {
  if (session.Feed()) FHub.Close(session.Feed());
  const std::uint64_t number = session.Peer().Connection;
  FSessions.erase(number);
  FService.Disconnected(number);
}

// --- the thread ---

// Signals that were too early for their client, connections that take too long, the thread's sign of life.
void TWireServer::TCore::Tick() {
  // First, so that nothing which is thrown below ends it.
  FTimer.expires_after(std::chrono::milliseconds(FHub.Feeds() != 0 ? TEventHub::kRoundMs : kWatchMs));
  FTimer.async_wait([this](const boost::system::error_code& error) {
    if (!error) Tick();
  });
  const std::uint64_t nowMs = RealMs();
  if (FSign) FSign->Beat();
  if (FHub.Feeds() != 0) FHub.Pump(nowMs);
  if (nowMs - FWatchedMs >= kWatchMs) {
    FWatchedMs = nowMs;
    FHub.Beat(nowMs, Options.Limits.BeatMs);
    std::vector<std::shared_ptr<TWireSession>> open;
    open.reserve(FSessions.size());
    for (const auto& [number, session] : FSessions) open.push_back(session);
    for (const auto& session : open) session->Watch(nowMs);
  }
}

void TWireServer::TCore::Run() {
  pthread_setname_np(pthread_self(), kWireThread);
  FPostbox->IsHere();
  FSign.emplace(kWireThread, tkOther);
  for (const auto& listener : FListeners) WaitForNewcomers(*listener);
  Tick();
  for (;;) {
    try {
      FContext.run();
      break;
    } catch (...) {
      LogFault("TWireServer", std::current_exception());
    }
  }
  FSign.reset();
}

void TWireServer::TCore::Start() {
  FThread = std::thread([this] { Run(); });
}

void TWireServer::TCore::End() {
  if (std::exchange(FEnded, true)) return;
  FPostbox->Shut();
  FContext.stop();
  if (FThread.joinable()) FThread.join();
  while (!FSessions.empty()) FSessions.begin()->second->Close();
  FListeners.clear();
  if (!Options.StateFolder.empty()) RemoveUnix(Options.StateFolder);
}

void TWireServer::TCore::SetTls(std::shared_ptr<const TServerTls> tls) {
  FPostbox->Post([this, tls = std::move(tls)] { FTls = tls; });
}

TWireServer::TWireServer(TApi& api, TService& service, TWireOptions options)
    : FCore(std::make_unique<TCore>(api, service, std::move(options))) {}
TWireServer::~TWireServer() = default;

void TWireServer::Start() { FCore->Start(); }
void TWireServer::End() { FCore->End(); }
void TWireServer::SetTls(std::shared_ptr<const TServerTls> tls) { FCore->SetTls(std::move(tls)); }
std::uint16_t TWireServer::Port() const { return FCore->Port; }
std::string TWireServer::Url() const { return FCore->Url; }

}  // namespace ixocontroller
