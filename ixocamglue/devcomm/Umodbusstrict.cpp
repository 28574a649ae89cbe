// The strict profile of TModbusComm, and the requests on register vectors of both profiles.
#include <algorithm>
#include <utility>

#include "ixocamglue/devcomm/Umodbuscomm.h"
#include "ixocamglue/devcomm/Umodbustexts.h"
#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/support/Format.h"

namespace ixocamglue {
namespace {

constexpr std::size_t kDrainLimit = 64 * 1024;  // a device that never falls silent must not hold a request up
constexpr std::uint32_t kQuietMs = 20;          // silence after a broken reply, before the request is repeated
constexpr std::uint32_t kQuietLimitMs = 200;
constexpr std::uint32_t kPollMs = 10;
constexpr std::uint32_t kAddresses = 0x10000;

// For a transport of the user's own, which has only the three operations.
class TPlainStream final : public INcStreamIntf {
 public:
  explicit TPlainStream(INcDataTransIntf& transport) : FTransport(transport) {}
  bool Linked() const override { return FLinked; }
  bool Reopen(std::uint32_t) override { return FLinked = FTransport.CheckConnection(); }
  void CloseLink() override {}
  std::size_t Drain(std::size_t) override { return 0; }
  TBytes ReceiveWithin(std::uint32_t ms) override {
    const std::uint64_t end = Clock().MonotonicMs() + ms;
    for (;;) {
      TBytes received = FTransport.GetReceiveBuff();
      if (!received.empty() || Clock().MonotonicMs() >= end) return received;
      Clock().Sleep(kPollMs);
    }
  }

 private:
  INcDataTransIntf& FTransport;
  bool FLinked = false;
};

void Set(TModbusResult& result, TModbusOutcome outcome, const char* reason) {
  result.Outcome = outcome;
  result.Reason = reason;
}

void Clear(TModbusResult& result) {
  auto registers = std::move(result.Registers);
  registers.clear();
  result = {};
  result.Registers = std::move(registers);
}

// Why this request must not be sent, or an empty text.
const char* Refusal(const TModbusRequest& request) {
  if (request.Func == kModbusWriteOne) return request.Values.empty() ? "there is no value to write" : "";
  const bool many = request.Func == kModbusWriteMany;
  if (!many && request.Func != kModbusRead) return "only the functions 3, 6 and 16 are supported";
  if (request.Count == 0) return "the count is 0";
  if (request.Count > (many ? kModbusMostWrite : kModbusMostRead))
    return many ? "a request writes at most 123 registers" : "a request reads at most 125 registers";
  if (many && request.Values.size() != request.Count) return "the count is not the number of values";
  if (std::uint32_t{request.Addr} + request.Count > kAddresses) return "the range goes beyond register 65535";
  if (!many && request.Unit == 0 && !request.Tcp) return "a broadcast cannot be read";
  return "";
}

// What a result has counted so far: it may collect several requests.
TModbusStatistics Traffic(const TModbusResult& result) {
  TModbusStatistics traffic;
  traffic.Foreign = result.Foreign;
  traffic.StaleBytes = result.StaleBytes;
  traffic.BytesSent = result.BytesSent;
  traffic.BytesReceived = result.BytesReceived;
  return traffic;
}

// Registers of a reply; false when it is shorter than its byte count says.
bool TakeRegisters(const TBytes& reply, std::size_t offset, std::vector<std::uint16_t>& registers) {
  if (reply.size() < offset || reply.size() < offset + reply[offset - 1]) return false;
  for (std::size_t at = offset; at + 1 < offset + reply[offset - 1]; at += 2)
    registers.push_back(static_cast<std::uint16_t>(reply[at] << 8 | reply[at + 1]));
  return true;
}

}  // namespace

void TModbusComm::SetProfile(TModbusProfile profile, const TModbusStrictOptions& options) {
  TGuard guard(FLock);
  FProfile = profile;
  FOptions = options;
}

TModbusStatistics TModbusComm::Statistics() {
  TGuard guard(FLock);
  return FStatistics;
}

std::vector<TModbusFrameLog::TEntry> TModbusComm::LastFrames() {
  TGuard guard(FLock);
  return FFrames.Oldest();
}

bool TModbusComm::EnsureLink(INcStreamIntf& stream, TModbusResult& result) {
  if (stream.Linked()) return true;
  const std::uint64_t now = Clock().MonotonicMs();
  if (FBackoffOf == &stream && now < FNextOpenMs) {
    Set(result, moNoConnection, "the last attempt to connect failed; the next one is not due yet");
    return false;
  }
  if (FBackoffOf != &stream) FBackoffMs = 0;
  if (stream.Reopen(FOptions.ConnectMs)) {
    FBackoffOf = nullptr;
    FBackoffMs = 0;
    ++FStatistics.Connects;
    return true;
  }
  FBackoffOf = &stream;
  FBackoffMs = std::min(std::max(FBackoffMs * 2, FOptions.BackoffMs), FOptions.BackoffMostMs);
  FNextOpenMs = Clock().MonotonicMs() + FBackoffMs;
  Set(result, moNoConnection, "the connection cannot be opened");
  return false;
}

void TModbusComm::AwaitReply(INcStreamIntf& stream, const TModbusRequest& request, TModbusResult& result) {
  if (PreDelay > 0) Clock().Sleep(static_cast<std::uint32_t>(PreDelay));
  const std::uint64_t end = Clock().MonotonicMs() + FOptions.TimeoutMs;
  FReply.clear();
  const char* foreign = "";
  for (std::uint64_t now = end - FOptions.TimeoutMs;;) {
    const TBytes chunk = stream.ReceiveWithin(static_cast<std::uint32_t>(end - now));
    result.BytesReceived += chunk.size();
    FReply.insert(FReply.end(), chunk.begin(), chunk.end());
    TReplyCheck check = CheckModbusReply(request, FReply);
    while (check.State == rsForeign) {
      ++result.Foreign;
      foreign = check.Reason;
      FFrames.Add(Clock().MonotonicUs(), false, FReply);
      FReply.erase(FReply.begin(), FReply.begin() + static_cast<std::ptrdiff_t>(check.Length));
      check = CheckModbusReply(request, FReply);
    }
    now = Clock().MonotonicMs();
    if (check.State == rsMore) {
      if (!stream.Linked()) return Set(result, moNoConnection, "the connection ended before the reply");
      if (now < end) continue;
      return Set(result, moTimeout, !FReply.empty() ? "the reply is incomplete" : foreign);
    }
    if (check.State == rsInvalid) {
      if (!check.Framed) stream.CloseLink();
      return Set(result, moInvalid, check.Reason);
    }
    result.StaleBytes += FReply.size() - check.Length;
    FReply.resize(check.Length);
    result.Exception = check.Exception;
    return Set(result, check.State == rsException ? moException : moOk, "");
  }
}

void TModbusComm::StrictAttempt(INcDataTransIntf& transport, INcStreamIntf& stream, const TModbusRequest& request,
                                TModbusResult& result, bool& sent) {
  const std::uint64_t start = Clock().MonotonicUs();
  bool linked = EnsureLink(stream, result);
  if (linked) {
    result.StaleBytes += stream.Drain(kDrainLimit);
    linked = EnsureLink(stream, result);  // draining finds an ended connection
  }
  const std::uint64_t opened = Clock().MonotonicUs();
  result.OpenUs += opened - start;
  if (!linked) return;
  (void)BuildModbusFrame(request, FRequest);
  if (!transport.SendBuff(FRequest)) {
    stream.CloseLink();
    return Set(result, moNoConnection, "the request could not be sent");
  }
  sent = true;
  result.BytesSent += FRequest.size();
  const std::uint64_t handed = Clock().MonotonicUs();
  result.SendUs += handed - opened;
  FFrames.Add(handed, true, FRequest);
  if (request.Unit == 0 && !request.Tcp) {  // a broadcast has no reply
    FReply.clear();
    return Set(result, moOk, "");
  }
  AwaitReply(stream, request, result);
  const std::uint64_t ended = Clock().MonotonicUs();
  result.WaitUs += ended - handed;
  if (!FReply.empty()) FFrames.Add(ended, false, FReply);
}

bool TModbusComm::StrictRequest(std::uint8_t cmd, TModbusRequest request, TModbusResult& result) {
  FReply.clear();
  if (const char* refusal = Refusal(request); *refusal != 0) {
    Set(result, moBadRequest, refusal);
    ++FStatistics.BadRequests;
    return false;
  }
  const std::uint64_t start = Clock().MonotonicUs();
  const auto transport = TransportLocked();
  const TModbusStatistics before = Traffic(result);
  bool sent = false;
  if (!transport) {
    Set(result, moNoConnection, "there is no transport");
  } else {
    auto* stream = dynamic_cast<INcStreamIntf*>(transport.get());
    TPlainStream plain(*transport);
    if (!stream) stream = &plain;
    for (std::uint32_t attempt = 0;; ++attempt) {
      if (++FTransaction == 0) FTransaction = 1;
      request.Transaction = FTransaction;
      ++result.Attempts;
      StrictAttempt(*transport, *stream, request, result, sent);
      const bool final = result.Outcome == moOk || result.Outcome == moException || attempt >= FOptions.Retries ||
                         (!stream->Linked() && FBackoffOf == stream && Clock().MonotonicMs() < FNextOpenMs) ||
                         (sent && request.Func != kModbusRead && !FOptions.RetryWrites);
      if (final) break;
      ++FStatistics.Retries;
      if (result.Outcome != moInvalid) continue;
      const std::uint64_t end = Clock().MonotonicMs() + kQuietLimitMs;
      while (stream->Linked() && Clock().MonotonicMs() < end) {
        const std::size_t more = stream->ReceiveWithin(kQuietMs).size();
        result.StaleBytes += more;
        if (more == 0) break;
      }
    }
  }
  const std::uint64_t elapsed = Clock().MonotonicUs() - start;
  result.ElapsedUs += elapsed;
  const TModbusStatistics after = Traffic(result);
  TModbusStatistics& s = FStatistics;
  ++s.Requests;
  s.Foreign += after.Foreign - before.Foreign;
  s.StaleBytes += after.StaleBytes - before.StaleBytes;
  s.BytesSent += after.BytesSent - before.BytesSent;
  s.BytesReceived += after.BytesReceived - before.BytesReceived;
  switch (result.Outcome) {
    case moOk:
      ++s.Ok;
      s.TotalUs += elapsed;
      s.LongestUs = std::max(s.LongestUs, elapsed);
      if (FOptions.ClearOnSuccess) LastError.store(kModbusNoError);
      break;
    case moTimeout:
      ++s.Timeouts;
      Fail(kModbusTimeOut, STimeOut.Get(), cmd);
      break;
    case moInvalid:
      ++s.Invalid;
      Fail(kModbusInvalid, SCRCError.Get(), cmd);
      break;
    case moNoConnection:
      ++s.NoConnection;
      Fail(kModbusNoConnection, SConnectFailed.Get());
      break;
    case moException:
      ++s.Exceptions;
      Fail(kModbusFuncCode, Format("%s%02X", SErrorFunctionCode.Get(), request.Func | 0x80u).c_str());
      break;
    case moBadRequest: break;
  }
  return sent;
}

void TModbusComm::ExactRequest(const TModbusRequest& request, TModbusResult& result) {
  struct TKeep {
    bool& Deliver;
    ~TKeep() { Deliver = true; }
  };
  const std::uint64_t start = Clock().MonotonicUs();
  FReply.clear();
  {
    FDeliver = false;
    FSentBytes = 0;
    const TKeep keep{FDeliver};
    SendCommand(0, request.Func, request.Addr, request.Count, request.Values);
  }
  result.Attempts = 1;
  const std::uint64_t end = Clock().MonotonicUs();
  result.ElapsedUs = end - start;
  result.BytesSent = FSentBytes;
  if (FSentBytes != 0) {
    result.OpenUs = FSendUs - start;
    result.SendUs = FWaitUs - FSendUs;
    result.WaitUs = end - FWaitUs;
  } else {
    result.OpenUs = result.ElapsedUs;
  }
  result.BytesReceived = FReply.size();
  Set(result, FOutcome, "");
  const std::size_t func = request.Tcp ? 7 : 1;
  if (!result.Ok()) return;
  if (FReply.size() > func + 1 && (FReply[func] & 0x80) != 0) {
    result.Exception = FReply[func + 1];
    Set(result, moException, "");
  } else if (FReply.size() <= func + 1 || FReply[func] != request.Func ||
             (request.Func == kModbusRead && !TakeRegisters(FReply, func + 2, result.Registers))) {
    Set(result, moInvalid, "the reply does not fit the request");
  }
}

void TModbusComm::ReadRegisters(std::uint16_t addr, std::uint32_t count, TModbusResult& result) {
  TGuard guard(FLock);
  Clear(result);
  if (count == 0 || addr + count > kAddresses)
    return Set(result, moBadRequest, count == 0 ? "the count is 0" : "the range goes beyond register 65535");
  if (FProfile == mpExact) {
    if (count > 0xFFFF) return Set(result, moBadRequest, "the count is beyond 65535");
    ExactRequest(Request(kModbusRead, addr, static_cast<std::uint16_t>(count), {}), result);
    result.Done = result.Registers.size();
    return;
  }
  result.Registers.reserve(count);
  for (std::uint32_t part = 0; result.Done < count && result.Ok(); result.Done += result.Ok() ? part : 0) {
    part = std::min<std::uint32_t>(count - static_cast<std::uint32_t>(result.Done), kModbusMostRead);
    const auto from = static_cast<std::uint16_t>(addr + result.Done);
    StrictRequest(0, Request(kModbusRead, from, static_cast<std::uint16_t>(part), {}), result);
    if (result.Ok() && !TakeRegisters(FReply, IsTCP ? 9 : 3, result.Registers))
      Set(result, moInvalid, "the reply does not fit the request");
  }
}

void TModbusComm::WriteRegisters(std::uint16_t addr, std::span<const std::uint16_t> values, bool multiple,
                                 TModbusResult& result) {
  TGuard guard(FLock);
  Clear(result);
  if (values.empty() || addr + values.size() > kAddresses)
    return Set(result, moBadRequest,
               values.empty() ? "there is no value to write" : "the range goes beyond register 65535");
  const bool one = values.size() == 1 && !multiple;
  const std::uint8_t func = one ? kModbusWriteOne : kModbusWriteMany;
  if (FProfile == mpExact) {
    if (values.size() > 0xFF)  // the byte count would no longer fit the values
      return Set(result, moBadRequest, "the exact profile writes at most 255 registers at once");
    ExactRequest(Request(func, addr, static_cast<std::uint16_t>(values.size()), values), result);
    result.Done = result.Ok() ? values.size() : 0;
    return;
  }
  for (std::size_t part = 0; result.Done < values.size() && result.Ok(); result.Done += result.Ok() ? part : 0) {
    part = std::min(values.size() - result.Done, kModbusMostWrite);
    const auto from = static_cast<std::uint16_t>(addr + result.Done);
    StrictRequest(0, Request(func, from, static_cast<std::uint16_t>(part), values.subspan(result.Done, part)), result);
  }
}

TModbusResult TModbusComm::ReadRegisters(std::uint16_t addr, std::uint32_t count) {
  TModbusResult result;
  ReadRegisters(addr, count, result);
  return result;
}

TModbusResult TModbusComm::WriteRegisters(std::uint16_t addr, std::span<const std::uint16_t> values, bool multiple) {
  TModbusResult result;
  WriteRegisters(addr, values, multiple, result);
  return result;
}

}  // namespace ixocamglue
