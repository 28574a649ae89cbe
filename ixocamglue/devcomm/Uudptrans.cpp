#include <array>

#include "ixocamglue/devcomm/Ucommtrans.h"
#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocamglue {
namespace {

constexpr std::size_t kUdpChunk = 1024;
constexpr std::uint32_t kUdpReceiveMs = 100;
constexpr std::size_t kLocalAddresses = 8;

}  // namespace

TNcUDPTrans::TNcUDPTrans() : FUdp(CommParts().MakeUdp()) { FNet.Initialize(); }

void TNcUDPTrans::SetNetParams(const TCommNet& params) {
  FUdp = CommParts().MakeUdp();
  FNet.Initialize();
  FAddress.clear();
  if (CommParts().LocalAddresses(kLocalAddresses).empty()) {
    LogMsg(lkError, 0, Tr("This machine has no local IP address"), "TNcUDPTrans");
    return;
  }
  FNet = params;
  MakeSocket();
  LogMsg(lkTrace, 0, "UDP LocallIP:" + GetUtf16(FNet.Host));
}

void TNcUDPTrans::MakeSocket() {
  NewLink();
  const auto addresses = CommParts().Resolve(GetUtf16(FNet.Host), kResolveLimitMs);
  FAddress = addresses.empty() ? std::string() : addresses.front();
  if (const auto bound = FUdp->Bind(FAddress); !bound)
    LogMsg(
        lkError, 0,
        Format(Tr("The UDP socket stays unbound: %s: %s"), GetUtf16(FNet.Host).c_str(), bound.Problem().What.c_str()),
        "TNcUDPTrans");
}

bool TNcUDPTrans::CheckConnection() { return Linked(); }

bool TNcUDPTrans::SendBuff(const TBytes& buf) {
  FUdp->SendTo(buf, FAddress, FNet.Port);
  DebugPcTo3rdDevInfo(buf);
  return true;
}

TBytes TNcUDPTrans::GetReceiveBuff() {
  TBytes received;
  std::array<std::uint8_t, kUdpChunk> chunk;
  const std::uint32_t start = Clock().TickMs();
  while (FUdp->WaitReadable(kUdpReceiveMs) && Clock().TickMs() - start < kUdpReceiveMs) {
    const std::size_t got = FUdp->Receive(chunk);
    received.assign(chunk.begin(), chunk.begin() + static_cast<std::ptrdiff_t>(got));
  }
  Debug3rdDevToPcInfo(received);
  return received;
}

bool TNcUDPTrans::Linked() const { return FUdp && FNet.Port != 0; }

bool TNcUDPTrans::Reopen(std::uint32_t) {
  if (Linked()) MakeSocket();
  return Linked();
}

bool TNcUDPTrans::WaitReadable(std::uint32_t ms) { return FUdp->WaitReadable(ms); }

std::size_t TNcUDPTrans::Take(std::span<std::uint8_t> buffer) { return FUdp->Receive(buffer); }

}  // namespace ixocamglue
