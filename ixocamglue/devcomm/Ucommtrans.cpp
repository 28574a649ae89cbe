#include "ixocamglue/devcomm/Ucommtrans.h"

#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/support/Format.h"

namespace ixocamglue {
namespace {

std::string AsciiOf(const TBytes& buf) {
  std::string text(buf.size(), '?');
  for (std::size_t i = 0; i < buf.size(); ++i)
    if (buf[i] < 0x80) text[i] = static_cast<char>(buf[i]);
  return text;
}

}  // namespace

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

}  // namespace ixocamglue
