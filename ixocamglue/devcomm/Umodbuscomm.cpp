#include "ixocamglue/devcomm/Umodbuscomm.h"

#include <utility>

#include "ixocamglue/devcomm/Umodbustexts.h"
#include "ixocamglue/platform/comm/Crc.h"
#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/support/Faults.h"
#include "ixocamglue/support/Format.h"

namespace ixocamglue {
namespace {

constexpr std::uint32_t kReplyMs = 2000;
constexpr std::uint32_t kPollMs = 10;
constexpr std::size_t kLeastReply = 7;
constexpr TNcAlarmAttrs kAlarmAttrs = TNcAlarmAttrs{1} << 7;
constexpr TText* kAlarmTexts[] = {&SCommTimeOut, &SCRCInvalid, &SConnectError, &SFuncCodeError};
constexpr std::int32_t kAlarms = 4;

constexpr std::int32_t DataOffset(bool tcp) { return tcp ? 9 : 3; }

}  // namespace

TModbusComm::TModbusComm(std::string idName) : FIDName(std::move(idName)) {}

void TModbusComm::Fail(std::int32_t state, const char* text, int tag) {
  if (LastError.exchange(state) != kModbusNoError) return;
  LogMsg(lkDevice, 0, tag < 0 ? std::string(text) : Format("%s%d", text, tag), "Modbus");
}

TModbusRequest TModbusComm::Request(std::uint8_t func, std::uint16_t addr, std::uint16_t count,
                                    std::span<const std::uint16_t> values) const {
  return {IsTCP, 0, SlaveAddr, func, addr, count, values};
}

TBytes TModbusComm::GenerateModbusBuf(std::uint8_t funcCode, std::uint16_t startAddr, std::uint16_t count,
                                      std::span<const std::uint16_t> values, std::uint8_t slaveAddr) const {
  TModbusRequest request = Request(funcCode, startAddr, count, values);
  request.Unit = slaveAddr;
  TBytes frame;
  if (!BuildModbusFrame(request, frame)) ReportFault(Format("Modbus function %d cannot be sent", funcCode));
  return frame;
}

bool TModbusComm::SendCommand(std::uint8_t cmd, std::uint8_t funcCode, std::uint16_t startAddr, std::uint16_t count,
                              std::span<const std::uint16_t> values) {
  TGuard guard(FLock);
  if (FProfile == mpStrict) {
    TModbusResult result;
    const bool sent = StrictRequest(cmd, Request(funcCode, startAddr, count, values), result);
    if ((result.Outcome == moOk || result.Outcome == moException) && !FReply.empty() && OnAckData) {
      TBytes reply = std::move(FReply);  // a nested send has its own
      OnAckData(cmd, reply[IsTCP ? 7 : 1], DataOffset(IsTCP), reply);
      FReply = std::move(reply);
    }
    return sent;
  }
  if (!CheckConnection()) {
    FOutcome = moNoConnection;
    Fail(kModbusNoConnection, SConnectFailed.Get());
    return false;
  }
  const auto transport = TransportLocked();
  const TBytes frame = GenerateModbusBuf(funcCode, startAddr, count, values, SlaveAddr);
  if (frame.empty()) {
    FOutcome = moBadRequest;
    return false;
  }
  FSendUs = Clock().MonotonicUs();
  const bool sent = transport->SendBuff(frame);
  FWaitUs = Clock().MonotonicUs();
  FSentBytes = frame.size();
  FFrames.Add(FWaitUs, true, frame);
  WaitforAckData(cmd, kReplyMs);
  return sent;
}

void TModbusComm::WaitforAckData(std::uint8_t cmd, std::uint32_t timeoutMs) {
  TGuard guard(FLock);
  if (PreDelay > 0) Clock().Sleep(static_cast<std::uint32_t>(PreDelay));
  const auto transport = TransportLocked();
  if (!transport || !transport->CheckConnection()) {
    FOutcome = moNoConnection;
    return Fail(kModbusNoConnection, SConnectFailed.Get());
  }
  TBytes buf = transport->GetReceiveBuff();
  const std::uint32_t start = Clock().TickMs();
  while (buf.empty() && Clock().TickMs() - start < timeoutMs) {
    Clock().Sleep(kPollMs);
    buf = transport->GetReceiveBuff();
  }
  if (buf.empty()) {
    FOutcome = moTimeout;
    return Fail(kModbusTimeOut, STimeOut.Get(), cmd);
  }
  FFrames.Add(Clock().MonotonicUs(), false, buf);
  if (!CheckDatavalid(buf)) {
    FOutcome = moInvalid;
    return Fail(kModbusInvalid, SCRCError.Get(), cmd);
  }
  FOutcome = moOk;
  if (!FDeliver) {
    FReply = std::move(buf);
    return;
  }
  const std::size_t funcAt = IsTCP ? 7 : 1;
  const std::uint8_t func = funcAt < buf.size() ? buf[funcAt] : std::uint8_t{0};
  if (OnAckData) OnAckData(cmd, func, DataOffset(IsTCP), buf);
}

bool TModbusComm::CheckDatavalid(const TBytes& buf) {
  if (buf.size() < kLeastReply) return false;
  if (IsTCP) return buf[0] == 0 && buf[1] == 0;
  const std::size_t body = buf.size() - 2;
  return CalcCRC(buf.data(), body, 0xFFFF) == (buf[body] | buf[body + 1] << 8);
}

std::string TModbusComm::GetAlarmIDPrefix() { return "TPModbus" + FIDName; }

void TModbusComm::RegisterAlarms(INcAlarmTable20& table) {
  for (std::int32_t id = 1; id <= kAlarms; ++id) table.RegisterAlarm(id, kAlarmAttrs);
}

void TModbusComm::UpdateAlarms(INcAlarmReport20& report) {
  const std::int32_t state = LastError.load();
  if (state >= 1) return report.RaiseAlarm(state);
  for (std::int32_t id = 1; id <= kAlarms; ++id) report.ClearAlarm(id);
}

void TModbusComm::ResetAlarm(std::int32_t) { LastError.store(kModbusNoError); }

std::string TModbusComm::GetAlarmDesc(std::int32_t id) {
  return id >= 1 && id <= kAlarms ? kAlarmTexts[id - 1]->Get() : std::string();
}

}  // namespace ixocamglue
