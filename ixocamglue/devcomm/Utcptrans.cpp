#include <array>

#include "ixocamglue/devcomm/Ucommtrans.h"
#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/SystemError.h"
#include "ixocamglue/support/Texts.h"

namespace ixocamglue {
namespace {

constexpr std::size_t kTcpChunk = 1024;
constexpr std::uint32_t kKeepAliveMs = 5000;
constexpr std::uint32_t kKeepAlivePingMs = 1000;
constexpr std::uint32_t kGatePingMs = 100;
constexpr std::uint32_t kConnectMs = 1000;
constexpr std::uint32_t kTcpReceiveMs = 200;
constexpr std::uint64_t kResolveAgainMs = 5000;  // a dead name server must not slow every call down

}  // namespace

TNcTcpIPTrans::~TNcTcpIPTrans() { FIcmp.reset(); }

void TNcTcpIPTrans::SetNetParams(const TCommNet& params) {
  FIcmp.reset();
  FTcp.reset();
  FHost = GetUtf16(params.Host);
  FPort = params.Port;
  FLastPing.reset();
  FTcp = CommParts().MakeTcp();
  FIcmp = CommParts().MakeIcmp();
  Resolve();
  if (FAddresses.empty())
    LogMsg(lkError, 0, Format(Tr("The host \"%s\" is not resolved"), FHost.c_str()), "TNcTcpIPTrans");
}

void TNcTcpIPTrans::Resolve() {
  FAddresses = CommParts().Resolve(FHost, kResolveLimitMs);
  FLastResolve = Clock().MonotonicMs();
  FTcp->SetRemote(FAddresses, FPort);
  FIcmp->SetRemote(FAddresses);
}

void TNcTcpIPTrans::ResolveAgain() {
  const bool numeric = FAddresses.size() == 1 && FAddresses.front() == FHost;
  if (!numeric && (!FLastResolve || Clock().MonotonicMs() - *FLastResolve >= kResolveAgainMs)) Resolve();
}

bool TNcTcpIPTrans::CheckConnection() {
  if (!FTcp || !FIcmp) return false;
  if (FTcp->Connected() && FTcp->StreamEnded()) FTcp->Disconnect();
  if (FTcp->Connected()) {
    const std::uint64_t now = Clock().MonotonicMs();
    if (!FLastPing || now - *FLastPing >= kKeepAliveMs) {
      FLastPing = now;
      FIcmp->PingAsync(kKeepAlivePingMs, [this, id = FTcp->ConnectionId()] { IcmpTimeout(id); });
    }
  } else if (!FIcmp->Ping(kGatePingMs) || !Connect(kConnectMs)) {
    ResolveAgain();
  }
  return FTcp->Connected();
}

void TNcTcpIPTrans::IcmpTimeout(std::uint64_t connectionId) { FTcp->ShutDown(connectionId); }

bool TNcTcpIPTrans::SendBuff(const TBytes& buf) {
  if (buf.empty() || !FTcp) return false;
  bool sent = false;
  try {
    sent = FTcp->Send(buf) != -1;
    if (!sent) {
      FTcp->Disconnect();
      LogMsg(lkError, 0, "TNcNetWorkTrans.SendBuff Error!");
    }
  } catch (const std::exception&) {
    LogMsg(lkError, 0, "TNcNetWorkTrans.SendBuff Except Error!");
  }
  DebugPcTo3rdDevInfo(buf);
  return sent;
}

TBytes TNcTcpIPTrans::GetReceiveBuff() {
  if (!CheckConnection()) return {};
  TBytes received;
  std::array<std::uint8_t, kTcpChunk> chunk;
  const std::uint32_t start = Clock().TickMs();
  while (FTcp->WaitReadable(kTcpReceiveMs) && Clock().TickMs() - start < kTcpReceiveMs) {
    const int got = FTcp->Receive(chunk);
    if (got == 0) {
      FTcp->Disconnect();
      break;
    }
    if (got > 0) received.assign(chunk.begin(), chunk.begin() + got);
  }
  Debug3rdDevToPcInfo(received);
  return received;
}

bool TNcTcpIPTrans::Connect(std::uint32_t timeoutMs) {
  NewLink();
  if (FTcp->Connect(timeoutMs)) {
    KeepOpenProblem({});
    return true;
  }
  const int error = FTcp->ConnectError();
  KeepOpenProblem({.What = FAddresses.empty() ? Format(Tr("The host \"%s\" is not resolved"), FHost.c_str())
                           : error != 0       ? SystemErrorText(error)
                                              : Tr("nothing answers at this address in time")});
  return false;
}

bool TNcTcpIPTrans::Linked() const { return FTcp && FTcp->Connected(); }

bool TNcTcpIPTrans::Reopen(std::uint32_t timeoutMs) {
  if (!FTcp) return false;
  if (!Connect(timeoutMs)) ResolveAgain();
  return FTcp->Connected();
}

void TNcTcpIPTrans::CloseLink() {
  if (FTcp) FTcp->Disconnect();
}

bool TNcTcpIPTrans::WaitReadable(std::uint32_t ms) { return FTcp->WaitReadable(ms); }

std::size_t TNcTcpIPTrans::Take(std::span<std::uint8_t> buffer) {
  const int got = FTcp->Receive(buffer);
  if (got == 0) FTcp->Disconnect();
  return got > 0 ? static_cast<std::size_t>(got) : 0;
}

}  // namespace ixocamglue
