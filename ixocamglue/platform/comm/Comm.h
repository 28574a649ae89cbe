// Port: the parts that carry bytes to outside devices, the serial port and the TCP, ICMP and UDP clients.
//
// Every blocking call is bounded by its argument, any number of ms, or by the limit named here. A part belongs to one
// user at a time; what another thread may call says so. Nothing throws for what a device, a driver or the network does.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "ixocamglue/platform/comm/Bytes.h"
#include "ixocamglue/support/Installed.h"
#include "ixocamglue/support/Problem.h"

namespace ixocamglue {

inline constexpr std::uint32_t kSendLimitMs = 2000;     // a send that cannot be completed within it has failed
inline constexpr std::uint32_t kResolveLimitMs = 2000;  // a name that is not resolved within it is given up

// A serial port. Raw, no flow control.
class TCommCtrl {
 public:
  virtual ~TCommCtrl() = default;
  // Opens the port of this number with settings like "9600,n,8,1" (see SerialSettings.h), its queues empty; or why it
  // stays closed, as for a number that is no port's.
  [[nodiscard]] virtual TResult<> Open(std::int32_t port, const std::string& settings) = 0;
  virtual void Close() = 0;
  [[nodiscard]] virtual bool Active() const = 0;
  // All bytes, within kSendLimitMs and the wire time; else -1.
  [[nodiscard]] virtual int Write(std::span<const std::uint8_t> bytes) = 0;
  // What is there now; 0 for nothing, for an error and for a line that was hung up.
  [[nodiscard]] virtual std::size_t Read(std::span<std::uint8_t> buffer) = 0;
  // True as soon as a read has something to say, its error included.
  [[nodiscard]] virtual bool WaitReadable(std::uint32_t ms) = 0;
  // The last read met an error or a hang-up: only opening again helps.
  [[nodiscard]] virtual bool Lost() const = 0;
};

// A TCP client connection.
class TVkTcpClient {
 public:
  virtual ~TVkTcpClient() = default;
  // Numeric addresses, tried in this order; with a port outside 1 to 65535 no Connect succeeds.
  virtual void SetRemote(std::vector<std::string> addresses, std::int32_t port) = 0;
  [[nodiscard]] virtual bool Connect(std::uint32_t timeoutMs) = 0;
  // Why the last Connect failed, as an errno value; 0: nothing answered in time.
  [[nodiscard]] virtual int ConnectError() const { return 0; }
  // What was sent and has not reached the peer's system yet never does: a command that nobody waits for any more must
  // not come minutes later, when a broken line is whole again.
  virtual void Disconnect() = 0;
  [[nodiscard]] virtual bool Connected() const = 0;
  // Without blocking: the stream has ended (or failed) and nothing is left to read.
  [[nodiscard]] virtual bool StreamEnded() = 0;
  // All bytes, within kSendLimitMs; else -1. What the peer's system does not take within that time ends the connection.
  [[nodiscard]] virtual int Send(std::span<const std::uint8_t> bytes) = 0;
  [[nodiscard]] virtual bool WaitReadable(std::uint32_t ms) = 0;
  // Without blocking: the number of bytes, 0 when the stream has ended or failed, -1 when nothing is there.
  [[nodiscard]] virtual int Receive(std::span<std::uint8_t> buffer) = 0;
  // A number for this connection, never used again.
  [[nodiscard]] virtual std::uint64_t ConnectionId() const = 0;
  // Any thread: shuts that connection down, if it still stands; its user then sees an ended stream.
  virtual void ShutDown(std::uint64_t connectionId) = 0;
};

class TIcmpClient {
 public:
  virtual ~TIcmpClient() = default;
  virtual void SetRemote(std::vector<std::string> addresses) = 0;
  // True when one of the addresses answers. Where this account may not ping, every ping counts as answered.
  [[nodiscard]] virtual bool Ping(std::uint32_t timeoutMs) = 0;
  // At once; `noReply` is called on a thread of the client's own when the ping fails or times out. The destructor
  // waits for a call under way.
  virtual void PingAsync(std::uint32_t timeoutMs, std::function<void()> noReply) = 0;
};

class TUDPClient {
 public:
  virtual ~TUDPClient() = default;
  // A new socket, bound to `address` with a port of the system's choice. When the bind fails, the socket is unbound and
  // still sends.
  [[nodiscard]] virtual TResult<> Bind(const std::string& address) = 0;
  // To a port outside 1 to 65535 nothing is sent.
  virtual void SendTo(std::span<const std::uint8_t> bytes, const std::string& address, std::int32_t port) = 0;
  [[nodiscard]] virtual bool WaitReadable(std::uint32_t ms) = 0;
  // Without blocking: one datagram of any sender, cut to the buffer; 0 when there is none.
  [[nodiscard]] virtual std::size_t Receive(std::span<std::uint8_t> buffer) = 0;
};

// Makes the parts, and answers what the network knows. Any thread.
class TCommParts {
 public:
  virtual ~TCommParts() = default;
  virtual std::unique_ptr<TCommCtrl> MakeSerial() = 0;
  virtual std::unique_ptr<TVkTcpClient> MakeTcp() = 0;
  virtual std::unique_ptr<TIcmpClient> MakeIcmp() = 0;
  virtual std::unique_ptr<TUDPClient> MakeUdp() = 0;
  // The numeric addresses of a host; a numeric one is its own. Empty when it is not resolved within the time.
  [[nodiscard]] virtual std::vector<std::string> Resolve(const std::string& host, std::uint32_t timeoutMs) = 0;
  // IPv4 addresses of interfaces that are up, loopback included.
  [[nodiscard]] virtual std::vector<std::string> LocalAddresses(std::size_t atMost) = 0;
};

IXO_DECLARE_SERVICE(TCommParts, InstalledCommParts);
// The installed parts; the machine's real ones while none are installed.
[[nodiscard]] TCommParts& CommParts();

// Where a ping is sent from: neither socket may be opened where the account has no right to.
enum class TPingMeans : std::uint8_t { pmDatagram, pmRaw, pmNone };
using enum TPingMeans;
[[nodiscard]] TPingMeans PingMeans(bool ipv6);

// The device path of a serial port number: as set, else the n-th standard serial device ("/dev/ttyS0" for 1), of any
// number. Any thread.
[[nodiscard]] std::string SerialPortPath(std::int32_t port);
void SetSerialPortPath(std::int32_t port, std::string path);  // of any number; an empty path restores the standard one

}  // namespace ixocamglue
