#include <cerrno>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>

#include "ixocamglue/platform/comm/FdWait.h"
#include "ixocamglue/platform/comm/RealComm.h"
#include "ixocamglue/support/Locks.h"

namespace ixocamglue {
namespace asio = boost::asio;
namespace {

// The user's thread alone opens, closes, reads and writes; FHandle lets another thread shut a connection down without
// meeting a descriptor that the user has closed meanwhile, and is never held over a wait.
class TRealTcp final : public TVkTcpClient {
 public:
  ~TRealTcp() override { TRealTcp::Disconnect(); }

  void SetRemote(std::vector<std::string> addresses, std::int32_t port) override {
    Disconnect();
    FAddresses = std::move(addresses);
    FPort = port;
  }

  bool Connect(std::uint32_t timeoutMs) override {
    Disconnect();
    FError = 0;
    if (FPort < 1 || FPort > 0xFFFF) return false;
    const std::uint64_t end = Clock().MonotonicMs() + timeoutMs;
    for (const std::string& text : FAddresses) {
      const std::uint64_t now = Clock().MonotonicMs();
      if (now >= end) break;
      boost::system::error_code error;
      const auto address = asio::ip::make_address(text, error);
      if (!error && ConnectTo({address, static_cast<std::uint16_t>(FPort)}, static_cast<std::uint32_t>(end - now)))
        return true;
    }
    return false;
  }

  int ConnectError() const override { return FError; }

  void Disconnect() override {
    TGuard guard(FHandle);
    FConnected = false;
    if (!FSocket.is_open()) return;
    boost::system::error_code ignored;
    FSocket.set_option(asio::socket_base::linger(true, 0), ignored);  // nothing that is still queued is sent
    FSocket.close(ignored);
  }

  bool Connected() const override { return FConnected; }

  bool StreamEnded() override {
    if (!FConnected) return true;
    std::uint8_t byte = 0;
    const auto got = ::recv(FSocket.native_handle(), &byte, 1, MSG_PEEK | MSG_DONTWAIT);
    return got == 0 || (got < 0 && errno != EAGAIN && errno != EINTR);
  }

  int Send(std::span<const std::uint8_t> bytes) override {
    if (!FConnected) return -1;
    std::size_t done = 0;
    for (std::uint64_t end = 0; done < bytes.size();) {
      boost::system::error_code error;
      done += FSocket.send(asio::buffer(bytes.data() + done, bytes.size() - done), 0, error);
      if (!error || error == asio::error::interrupted) continue;
      if (error != asio::error::would_block) return -1;
      const std::uint64_t now = Clock().MonotonicMs();
      if (end == 0) end = now + kSendLimitMs;
      if (now >= end) return -1;
      (void)WaitFd(FSocket.native_handle(), POLLOUT, static_cast<std::uint32_t>(end - now));
    }
    return static_cast<int>(done);
  }

  bool WaitReadable(std::uint32_t ms) override { return FConnected && WaitFd(FSocket.native_handle(), POLLIN, ms); }

  int Receive(std::span<std::uint8_t> buffer) override {
    if (!FConnected) return 0;
    boost::system::error_code error;
    const auto got = FSocket.receive(asio::buffer(buffer.data(), buffer.size()), 0, error);
    if (error == asio::error::would_block || error == asio::error::interrupted) return -1;
    return error ? 0 : static_cast<int>(got);
  }

  std::uint64_t ConnectionId() const override { return FId; }

  void ShutDown(std::uint64_t connectionId) override {
    TGuard guard(FHandle);
    if (FConnected && FId == connectionId) ::shutdown(FSocket.native_handle(), SHUT_RDWR);
  }

 private:
  // Asio's own connect waits without a limit.
  bool ConnectTo(const asio::ip::tcp::endpoint& peer, std::uint32_t timeoutMs) {
    boost::system::error_code error;
    {
      TGuard guard(FHandle);
      FSocket.open(peer.protocol(), error);
      if (error) {
        FError = error.value();
        return false;
      }
      CloseOnExec(FSocket.native_handle());
      FSocket.non_blocking(true, error);
      if (!error) FSocket.set_option(asio::ip::tcp::no_delay(true), error);
      const unsigned limitMs = kSendLimitMs;
      (void)::setsockopt(FSocket.native_handle(), IPPROTO_TCP, TCP_USER_TIMEOUT, &limitMs, sizeof limitMs);
    }
    const int fd = FSocket.native_handle();
    if (!error && Established(fd, peer, timeoutMs)) {
      TGuard guard(FHandle);
      ++FId;
      FConnected = true;
      return true;
    }
    Disconnect();
    return false;
  }

  bool Established(int fd, const asio::ip::tcp::endpoint& peer, std::uint32_t timeoutMs) {
    if (::connect(fd, peer.data(), static_cast<socklen_t>(peer.size())) == 0) return true;
    FError = errno == EINPROGRESS ? 0 : errno;
    if (FError != 0 || !WaitFd(fd, POLLOUT, timeoutMs)) return false;
    socklen_t size = sizeof FError;
    return ::getsockopt(fd, SOL_SOCKET, SO_ERROR, &FError, &size) == 0 && FError == 0;
  }

  asio::io_context FContext{1};
  TCriticalSection FHandle;  // opening, closing, and the shutting down of FSocket
  asio::ip::tcp::socket FSocket{FContext};
  std::vector<std::string> FAddresses;
  std::int32_t FPort = 0;
  bool FConnected = false;  // written under FHandle by the user's thread, read by it without
  std::uint64_t FId = 0;    // as FConnected
  int FError = 0;           // of the last Connect
};

}  // namespace

std::unique_ptr<TVkTcpClient> MakeRealTcp() { return std::make_unique<TRealTcp>(); }

}  // namespace ixocamglue
