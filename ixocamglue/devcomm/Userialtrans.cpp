#include <array>

#include "ixocamglue/devcomm/Ucommtrans.h"
#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/platform/services/Log.h"

namespace ixocamglue {
namespace {

constexpr std::size_t kSerialChunk = 2048;
constexpr std::uint32_t kCollectMs = 50;     // an empty read after this time ends a receive
constexpr std::uint32_t kAfterChunkMs = 20;  // binary
constexpr std::uint32_t kAfterTextMs = 1;
constexpr std::uint32_t kAfterNothingMs = 1;
constexpr std::uint32_t kReceiveLimitMs = 2000;
constexpr std::size_t kReceiveLimit = std::size_t{64} * 1024;

// The loop of both ways to receive: `take` gets each chunk.
template <class Take>
void Collect(TCommCtrl& comm, std::uint32_t afterChunkMs, Take take) {
  std::array<std::uint8_t, kSerialChunk> chunk;
  const std::uint32_t start = Clock().TickMs();
  for (std::size_t all = 0; all < kReceiveLimit;) {
    const std::size_t got = comm.Read(chunk);
    const std::uint32_t elapsed = Clock().TickMs() - start;
    if (got == 0 && elapsed > kCollectMs) return;
    if (elapsed >= kReceiveLimitMs) {
      if (got != 0) take(std::span(chunk).first(got));
      return;
    }
    Clock().Sleep(got == 0 ? kAfterNothingMs : afterChunkMs);
    if (got != 0) take(std::span(chunk).first(got));
    all += got;
  }
}

}  // namespace

void TNcSerialCommTrans::SetCommParams(const TCommSerial& params) {
  FComm.reset();  // before the new one: a port may be open once only
  FParams = params;
  FComm = CommParts().MakeSerial();
  if (const auto opened = Open(); !opened) LogMsg(lkError, 0, opened.Problem().Text(), "TNcSerialCommTrans");
}

TResult<> TNcSerialCommTrans::Open() {
  NewLink();
  auto opened = FComm->Open(FParams.Port, GetUtf16(FParams.Settings));
  KeepOpenProblem(opened ? TProblem{} : opened.Problem());
  return opened;
}

bool TNcSerialCommTrans::CheckConnection() { return FComm && FComm->Active(); }

bool TNcSerialCommTrans::SendBuff(const TBytes& buf) {
  if (buf.empty() || !CheckConnection()) return false;
  bool sent = false;
  try {
    sent = FComm->Write(buf) != -1;
    if (!sent) FComm->Close();
  } catch (const std::exception&) {
    LogMsg(lkError, 0, "TNcSerialCommTrans.SendBuff Fail!");
  }
  DebugPcTo3rdDevInfo(buf);
  return sent;
}

TBytes TNcSerialCommTrans::GetReceiveBuff() {
  if (!CheckConnection()) return {};
  TBytes received = TransType == ttBinary ? ReceiveBinary() : ReceiveText();
  Debug3rdDevToPcInfo(received);
  return received;
}

TBytes TNcSerialCommTrans::ReceiveBinary() {
  TBytes all;
  std::size_t last = 0;
  Collect(*FComm, kAfterChunkMs, [&](std::span<const std::uint8_t> chunk) {
    all.insert(all.end(), chunk.begin(), chunk.end());
    last = chunk.size();
  });
  all.resize(last);
  return all;
}

TBytes TNcSerialCommTrans::ReceiveText() {
  TBytes all;
  Collect(*FComm, kAfterTextMs, [&](std::span<const std::uint8_t> chunk) {
    for (const std::uint8_t byte : chunk) all.push_back(byte < 0x80 ? byte : std::uint8_t{'?'});
  });
  return all;
}

bool TNcSerialCommTrans::Linked() const { return FComm && FComm->Active(); }

bool TNcSerialCommTrans::Reopen(std::uint32_t) {
  if (!FComm) return false;
  FComm->Close();
  return Open().Ok();
}

void TNcSerialCommTrans::CloseLink() {
  if (FComm) FComm->Close();
}

bool TNcSerialCommTrans::WaitReadable(std::uint32_t ms) { return FComm->WaitReadable(ms); }

std::size_t TNcSerialCommTrans::Take(std::span<std::uint8_t> buffer) {
  const std::size_t got = FComm->Read(buffer);
  if (FComm->Lost()) FComm->Close();
  return got;
}

}  // namespace ixocamglue
