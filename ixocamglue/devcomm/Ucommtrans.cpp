#include "ixocamglue/devcomm/Ucommtrans.h"

#include <array>

#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/support/Format.h"

namespace ixocamglue {
namespace {

constexpr std::size_t kDrainChunk = 2048;

std::string AsciiOf(const TBytes& buf) {
  std::string text(buf.size(), '?');
  for (std::size_t i = 0; i < buf.size(); ++i)
    if (buf[i] < 0x80) text[i] = static_cast<char>(buf[i]);
  return text;
}

}  // namespace

void TNcCommTransBase::NewLink() {
  static std::atomic<std::uint64_t> links{0};
  FLinkId = ++links;
}

void TNcCommTransBase::DebugPcTo3rdDevInfo(const TBytes& buf) {
  if (buf.empty()) return;
  LastSendTick = Clock().TickMs();
  if (Debug) LogMsg(lkTrace, 0, "PC-> 3rdDev: " + (TransType == ttBinary ? BytesToHexStr(buf) : AsciiOf(buf)));
}

void TNcCommTransBase::Debug3rdDevToPcInfo(const TBytes& buf) const {
  if (buf.empty() || !Debug) return;
  std::string line = "3rdDev-> PC: ";
  if (TransType == ttBinary)
    line += BytesToHexStr(buf);
  else
    line += AsciiOf(buf) + Format(" RecvDelay: %u", Clock().TickMs() - LastSendTick);
  LogMsg(lkTrace, 0, line);
}

std::size_t TNcCommTransBase::Drain(std::size_t atMost) {
  std::array<std::uint8_t, kDrainChunk> chunk;
  std::size_t drained = 0;
  for (std::size_t got = 1; got != 0 && Linked() && drained < atMost; drained += got) got = Take(chunk);
  return drained;
}

TBytes TNcCommTransBase::ReceiveWithin(std::uint32_t ms) {
  if (!Linked() || !WaitReadable(ms)) return {};
  std::array<std::uint8_t, kDrainChunk> chunk;
  const std::size_t got = Take(chunk);
  TBytes received(chunk.begin(), chunk.begin() + static_cast<std::ptrdiff_t>(got));
  Debug3rdDevToPcInfo(received);
  return received;
}

}  // namespace ixocamglue
