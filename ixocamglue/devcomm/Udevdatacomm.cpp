#include "ixocamglue/devcomm/Udevdatacomm.h"

#include "ixocamglue/devcomm/Ucommtrans.h"
#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Log.h"

namespace ixocamglue {

bool TDevDataCommBase::CheckDatavalid(const TBytes&) { return true; }

TBytes TDevDataCommBase::GetSendCmdBuff(std::uint8_t, const TBytes&) { return {}; }

bool TDevDataCommBase::CheckConnection() {
  TGuard guard(FLock);
  const auto transport = TransportLocked();
  return transport && transport->CheckConnection();
}

bool TDevDataCommBase::SendCMD(std::uint8_t cmd, const TBytes& data, bool sendNow) {
  TGuard guard(FLock);
  const auto transport = TransportLocked();
  if (!transport || !transport->CheckConnection()) return false;
  const TBytes frame = GetSendCmdBuff(cmd, data);
  if (frame.empty()) return false;
  return sendNow ? transport->SendBuff(frame) : EnqueueCMD(frame);
}

bool TDevDataCommBase::EnqueueCMD(const TBytes& buf) {
  TGuard guard(FLock);
  FCmdQueue.push_back(buf);
  return true;
}

TBytes TDevDataCommBase::DequeueCMD() {
  TGuard guard(FLock);
  if (FCmdQueue.empty()) return {};
  TBytes oldest = std::move(FCmdQueue.front());
  FCmdQueue.pop_front();
  return oldest;
}

bool TDevDataCommBase::ParserBuff(const TBytes& buf) {
  TGuard guard(FLock);
  return CheckDatavalid(buf) && ExtractData(buf);
}

bool TDevDataCommBase::ExtractData(const TBytes& buf) { return OnExtract && OnExtract(*this, buf); }

void TDevDataCommBase::SetDataTransIntf(std::shared_ptr<INcDataTransIntf> transport) {
  TGuard guard(FLock);
  FDataTrans.swap(transport);  // the old one is released with the lock held, before it is given back
  transport.reset();
}

void TDevDataCommBase::DebugInfo(std::string_view msg) {
  TGuard guard(FLock);
  const auto transport = std::dynamic_pointer_cast<TNcCommTransBase>(FDataTrans);
  if (transport && transport->Debug) LogMsg(lkTrace, 0, msg);
}

}  // namespace ixocamglue
