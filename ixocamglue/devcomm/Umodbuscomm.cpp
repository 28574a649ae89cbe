#include "ixocamglue/devcomm/Umodbuscomm.h"

#include <algorithm>
#include <utility>

#include "ixocamglue/devcomm/Umodbustexts.h"
#include "ixocamglue/platform/comm/Crc.h"
#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/support/Faults.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocamglue {
namespace {

constexpr std::uint32_t kReplyMs = 2000;
constexpr std::uint32_t kPollMs = 10;
constexpr std::size_t kLeastReply = 7;
constexpr TNcAlarmAttrs kAlarmAttrs = TNcAlarmAttrs{1} << 7;
constexpr TText* kAlarmTexts[] = {&SCommTimeOut, &SCRCInvalid, &SConnectError, &SFuncCodeError};
constexpr std::int32_t kAlarms = 4;

}  // namespace

TModbusComm::TModbusComm(std::string idName) : FIDName(std::move(idName)) {}

void TModbusComm::Fail(std::int32_t state, const char* text, int tag) {
  if (LastError.exchange(state) != kModbusNoError) return;
  LogMsg(lkDevice, 0, tag < 0 ? std::string(text) : Format("%s%d", text, tag), "Modbus");
}

void TModbusComm::Latch(TModbusOutcome outcome, std::uint8_t cmd, std::uint8_t func) {
  switch (outcome) {
    case moOk:
    case moBadRequest:
    case moStopped: return;
    case moTimeout: return Fail(kModbusTimeOut, STimeOut.Get(), cmd);
    case moInvalid: return Fail(kModbusInvalid, SCRCError.Get(), cmd);
    case moNoConnection: return Fail(kModbusNoConnection, SConnectFailed.Get());
    case moException: return Fail(kModbusFuncCode, Format("%s%02X", SErrorFunctionCode.Get(), func | 0x80u).c_str());
  }
}

void TModbusComm::SetProfile(TModbusProfile profile, const TModbusStrictOptions& options) {
  TGuard guard(FLock);
  FProfile = profile;
  FStrict.Options = options;
}

TModbusStatistics TModbusComm::Statistics() {
  TGuard guard(FLock);
  TModbusStatistics statistics = FStatistics;
  statistics.Proof = FStrict.Proof();
  return statistics;
}

void TModbusComm::Owe() {
  TGuard guard(FLock);
  FStrict.Owe();
}

std::uint32_t TModbusComm::OwedMs() {
  TGuard guard(FLock);
  const auto transport = TransportLocked();
  return transport ? FStrict.OwedMs(*transport) : 0;
}

std::uint32_t TModbusComm::SilenceMs() {
  TGuard guard(FLock);
  return FStrict.SilenceMs();
}

TModbusEnd TModbusComm::AwaitSilence() {
  TGuard guard(FLock);
  const auto transport = TransportLocked();
  return transport ? FStrict.FallSilent(*transport) : TModbusEnd{};
}

std::uint32_t TModbusComm::HeldMs(std::uint8_t func, std::uint16_t addr, std::uint16_t count) {
  TGuard guard(FLock);
  return FStrict.HeldMs(Request(func, addr, count, {}));
}

std::vector<TModbusFrameLog::TEntry> TModbusComm::LastFrames() {
  TGuard guard(FLock);
  return FFrames.Oldest();
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
  const TModbusFunction* const function = FindModbusFunction(funcCode);
  if (!function || !function->Exact || !BuildModbusFrame(request, frame))
    ReportFault(Format("Modbus function %d cannot be sent", funcCode));
  return frame;
}

bool TModbusComm::SendCommand(std::uint8_t cmd, std::uint8_t funcCode, std::uint16_t startAddr, std::uint16_t count,
                              std::span<const std::uint16_t> values) {
  TGuard guard(FLock);
  const TModbusRequest request = Request(funcCode, startAddr, count, values);
  if (FProfile == mpExact) {
    const TModbusAnswer sent = SendExact(request);
    if (sent.Ok()) WaitforAckData(cmd, kReplyMs);
    return sent.Sent;
  }
  TBytes reply;  // a nested send has its own
  const TModbusAnswer answer = AskStrict(cmd, request, reply);
  if ((answer.Ok() || answer.Outcome == moException) && !reply.empty()) Deliver(cmd, reply);
  return answer.Sent;
}

void TModbusComm::WaitforAckData(std::uint8_t cmd, std::uint32_t timeoutMs) {
  TGuard guard(FLock);
  TBytes reply;
  if (AwaitExact(cmd, timeoutMs, reply) == moOk) Deliver(cmd, reply);
}

void TModbusComm::Deliver(std::uint8_t cmd, const TBytes& reply) {
  const std::size_t funcAt = IsTCP ? 7 : 1;
  if (OnAckData) OnAckData(cmd, funcAt < reply.size() ? reply[funcAt] : std::uint8_t{0}, IsTCP ? 9 : 3, reply);
}

TModbusAnswer TModbusComm::SendExact(const TModbusRequest& request) {
  TModbusAnswer answer;
  answer.Attempts = 1;
  const std::uint64_t start = Clock().MonotonicUs();
  const bool linked = CheckConnection();
  const std::uint64_t opened = Clock().MonotonicUs();
  answer.OpenUs = opened - start;
  if (!linked) {
    answer.Outcome = moNoConnection;
    Latch(moNoConnection, 0);
    return answer;
  }
  const TBytes frame = GenerateModbusBuf(request.Func, request.Addr, request.Count, request.Values, request.Unit);
  if (frame.empty()) {
    answer.Outcome = moBadRequest;
    return answer;
  }
  answer.Sent = TransportLocked()->SendBuff(frame);
  if (answer.Sent) answer.BytesSent = frame.size();
  const std::uint64_t handed = Clock().MonotonicUs();
  answer.SendUs = handed - opened;
  FFrames.Add(handed, true, frame);
  return answer;
}

TModbusOutcome TModbusComm::AwaitExact(std::uint8_t cmd, std::uint32_t timeoutMs, TBytes& reply) {
  const auto end = [&](TModbusOutcome outcome) {
    Latch(outcome, cmd);
    return outcome;
  };
  reply.clear();
  if (PreDelay > 0) (void)Clock().Pause(Stop, static_cast<std::uint32_t>(PreDelay));
  const auto transport = TransportLocked();
  if (!transport || !transport->CheckConnection()) return end(moNoConnection);
  reply = transport->GetReceiveBuff();
  const std::uint32_t start = Clock().TickMs();
  while (reply.empty() && !Stop.Asked() && Clock().TickMs() - start < timeoutMs) {
    Clock().Sleep(kPollMs);
    reply = transport->GetReceiveBuff();
  }
  if (reply.empty()) return end(Stop.Asked() ? moStopped : moTimeout);
  FFrames.Add(Clock().MonotonicUs(), false, reply);
  return end(CheckDatavalid(reply) ? moOk : moInvalid);
}

TModbusAnswer TModbusComm::AskExact(const TModbusRequest& request, TBytes& reply) {
  const std::uint64_t start = Clock().MonotonicUs();
  TModbusAnswer answer = SendExact(request);
  if (answer.Ok()) {
    if (request.Broadcast() && FindModbusFunction(request.Func)->Write) return answer;  // nobody will answer
    answer.Outcome = AwaitExact(0, kReplyMs, reply);
    answer.BytesReceived = reply.size();
  }
  answer.ElapsedUs = Clock().MonotonicUs() - start;
  answer.WaitUs = answer.ElapsedUs - answer.OpenUs - answer.SendUs;
  if (!answer.Ok()) {
    if (answer.Sent && !request.Tcp) FStrict.Owe();
    return answer;
  }
  const TReplyCheck check = CheckModbusReply(request, reply);
  if (check.State == rsWhole) return answer;
  answer.Outcome = check.State == rsException ? moException : moInvalid;
  if (answer.Outcome == moInvalid && !request.Tcp) FStrict.Owe();
  answer.Exception = check.Exception;
  answer.Reason = check.State == rsMore ? TrMark("the reply is incomplete") : check.Reason;
  return answer;
}

TModbusAnswer TModbusComm::AskStrict(std::uint8_t cmd, const TModbusRequest& request, TBytes& reply) {
  const auto transport = TransportLocked();
  const auto preDelay = static_cast<std::uint32_t>(std::max(PreDelay, 0));
  const TModbusAnswer answer = transport ? FStrict.Ask(*transport, request, preDelay, reply)
                                         : TModbusAnswer{{moNoConnection, TrMark("there is no transport")}, {}};
  FStatistics.Count(answer);
  Latch(answer.Outcome, cmd, request.Func);
  if (answer.Ok() && FStrict.Options.ClearOnSuccess) LastError.store(kModbusNoError);
  return answer;
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
