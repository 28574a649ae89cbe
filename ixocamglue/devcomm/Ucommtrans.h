// The transports: serial port, TCP connection, UDP socket. Each moves raw bytes and, with Debug on, traces them to the
// application log. A transport is shared by reference and used by one thread at a time. Times in ms. Nothing throws:
// what does not open, go out or come in is answered.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "ixocamglue/devcomm/Ucommtypes.h"
#include "ixocamglue/platform/comm/Comm.h"
#include "ixocamglue/support/Problem.h"

namespace ixocamglue {

class TNcCommTransBase : public INcDataTransIntf, public INcStreamIntf {
 public:
  std::atomic<bool> Debug{false};  // any thread: trace every buffer
  TTransType TransType = ttText;
  std::uint32_t LastSendTick = 0;  // tick of the last send

  void SetTransType(TTransType type) { TransType = type; }

  std::size_t Drain(std::size_t atMost) override;
  TBytes ReceiveWithin(std::uint32_t ms) override;
  std::uint64_t LinkId() const override { return FLinkId; }
  // Why the link did not open the last time; empty once it did.
  [[nodiscard]] const TProblem& OpenProblem() const { return FOpenProblem; }

 protected:
  void NewLink();  // one was opened
  void KeepOpenProblem(TProblem problem) { FOpenProblem = std::move(problem); }
  // True as soon as Take has something to say.
  [[nodiscard]] virtual bool WaitReadable(std::uint32_t ms) = 0;
  // What is there now; 0 for nothing. Closes a link found ended.
  [[nodiscard]] virtual std::size_t Take(std::span<std::uint8_t> buffer) = 0;
  // Called after every attempt to send, and with what was received.
  void DebugPcTo3rdDevInfo(const TBytes& buf);
  void Debug3rdDevToPcInfo(const TBytes& buf) const;

 private:
  std::uint64_t FLinkId = 0;
  TProblem FOpenProblem;
};

// TransType decides how it receives: text ends at the first empty read after 50 ms and turns bytes above 0x7F into "?";
// binary likewise, but waits 20 ms after each chunk. A Modbus RTU master needs the binary type, and whoever builds it
// sets it.
class TNcSerialCommTrans final : public TNcCommTransBase {
 public:
  // A new port component, opened at once; a port that cannot be opened stays closed and is logged.
  void SetCommParams(const TCommSerial& params);

  bool CheckConnection() override;
  // A failed write closes the port until SetCommParams (or Reopen).
  bool SendBuff(const TBytes& buf) override;
  // At most 2000 ms (plus the last pause) or 64 KiB.
  // Kept: the binary result is what was read, cut to the length of the last chunk that was not empty.
  TBytes GetReceiveBuff() override;

  bool Linked() const override;
  bool Reopen(std::uint32_t timeoutMs) override;
  void CloseLink() override;

 private:
  bool WaitReadable(std::uint32_t ms) override;
  std::size_t Take(std::span<std::uint8_t> buffer) override;
  [[nodiscard]] TResult<> Open();
  [[nodiscard]] TBytes ReceiveBinary();
  [[nodiscard]] TBytes ReceiveText();

  TCommSerial FParams{};
  std::unique_ptr<TCommCtrl> FComm;  // none until SetCommParams
};

// Connects lazily: CheckConnection pings and connects. A connection that stands is pinged every 5000 ms, and shut down
// when the ping fails.
class TNcTcpIPTrans final : public TNcCommTransBase {
 public:
  ~TNcTcpIPTrans() override;

  // New clients; does not connect. A name is resolved within 2000 ms, and again after a failed connect.
  void SetNetParams(const TCommNet& params);

  // Blocks for at most a ping of 100 ms, a connect of 1000 ms and, after it failed, a resolver's 2000 ms.
  bool CheckConnection() override;
  bool SendBuff(const TBytes& buf) override;
  // At most 200 ms after a first readability of at most 200 ms.
  // Kept: the result is the last chunk received, at most 1024 bytes.
  TBytes GetReceiveBuff() override;

  // What a failed ping of that connection calls, on the ping's thread: shuts down that connection and no later one.
  void IcmpTimeout(std::uint64_t connectionId);

  bool Linked() const override;
  bool Reopen(std::uint32_t timeoutMs) override;
  void CloseLink() override;
  bool ClosingForgets() const override { return true; }

 private:
  bool WaitReadable(std::uint32_t ms) override;
  std::size_t Take(std::span<std::uint8_t> buffer) override;
  bool Connect(std::uint32_t timeoutMs);
  void Resolve();
  void ResolveAgain();

  std::string FHost;
  std::int32_t FPort = 0;
  std::vector<std::string> FAddresses;
  std::optional<std::uint64_t> FLastResolve;  // monotonic
  std::optional<std::uint64_t> FLastPing;     // monotonic; none: never
  std::unique_ptr<TVkTcpClient> FTcp;         // none until SetNetParams
  std::unique_ptr<TIcmpClient> FIcmp;         // its thread calls IcmpTimeout: freed before FTcp
};

// Sending is always true. Any sender's datagrams are received.
class TNcUDPTrans final : public TNcCommTransBase {
 public:
  TNcUDPTrans();

  // A new socket for this peer. Kept: the peer's own address serves as the address to bind to; a bind that fails leaves
  // the socket unbound. On a machine without a local address there is no peer, and no connection.
  void SetNetParams(const TCommNet& params);

  bool CheckConnection() override;
  bool SendBuff(const TBytes& buf) override;
  // At most 100 ms after a first readability of at most 100 ms. Kept: the result is the last datagram.
  TBytes GetReceiveBuff() override;

  bool Linked() const override;
  bool Reopen(std::uint32_t timeoutMs) override;
  void CloseLink() override {}

 private:
  bool WaitReadable(std::uint32_t ms) override;
  std::size_t Take(std::span<std::uint8_t> buffer) override;
  void MakeSocket();

  std::unique_ptr<TUDPClient> FUdp;
  TCommNet FNet{};       // the peer
  std::string FAddress;  // of the peer, numeric; empty when its name is not resolved
};

}  // namespace ixocamglue
