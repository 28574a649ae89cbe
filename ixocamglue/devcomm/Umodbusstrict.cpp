#include "ixocamglue/devcomm/Umodbusstrict.h"

#include <algorithm>

namespace ixocamglue {
namespace {

constexpr std::size_t kDrainLimit = 64 * 1024;  // a device that never falls silent must not hold a request up
constexpr std::uint32_t kQuietMs = 20;          // silence after a broken reply, before the request is repeated
constexpr std::uint32_t kQuietLimitMs = 200;
constexpr std::uint32_t kPollMs = 10;
constexpr std::uint32_t kSliceMs = 50;  // of a wait, between two looks at the stop

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

// Why this request must not be sent, or an empty text.
const char* Refusal(const TModbusRequest& request) {
  const TModbusFunction* const function = FindModbusFunction(request.Func);
  if (!function) return "only the functions 1 to 6, 15 and 16 are supported";
  if (function->Write) {
    if (request.Values.empty()) return "there is no value to write";
    if (function->Bits && std::ranges::any_of(request.Values, [](std::uint16_t value) { return value > 1; }))
      return "a coil is 0 or 1";
  }
  if (!function->Many) return "";
  if (request.Count == 0) return "the count is 0";
  if (request.Count > function->Most) return function->TooMany;
  if (function->Write && request.Values.size() != request.Count) return "the count is not the number of values";
  if (request.Count > kModbusAddresses - request.Addr) return "the range goes beyond address 65535";
  if (!function->Write && request.Broadcast()) return "a broadcast cannot be read";
  return "";
}

}  // namespace

TModbusEnd TModbusStrict::EnsureLink(INcStreamIntf& stream, TModbusTraffic& traffic) {
  if (stream.Linked()) return {};
  const std::uint64_t now = Clock().MonotonicMs();
  if (FBackoffOf == &stream && now < FNextOpenMs)
    return {moNoConnection, "the last attempt to connect failed; the next one is not due yet"};
  if (FBackoffOf != &stream) FBackoffMs = 0;
  if (stream.Reopen(Options.ConnectMs)) {
    FBackoffOf = nullptr;
    FBackoffMs = 0;
    ++traffic.Connects;
    return {};
  }
  FBackoffOf = &stream;
  FBackoffMs = std::min(std::max(FBackoffMs * 2, Options.BackoffMs), Options.BackoffMostMs);
  FNextOpenMs = Clock().MonotonicMs() + FBackoffMs;
  return {moNoConnection, "the connection cannot be opened"};
}

TModbusEnd TModbusStrict::AwaitSilence(INcStreamIntf& stream, TModbusTraffic& traffic) {
  if (!FOwed) return {};
  if (stream.ClosingForgets()) {
    stream.CloseLink();
    FOwed = false;
    return {};
  }
  if (const TModbusEnd linked = EnsureLink(stream, traffic); !linked.Ok()) return linked;
  const std::uint64_t silence = Options.LateReplyMs != 0 ? Options.LateReplyMs : std::max(Options.TimeoutMs, 3000u);
  const std::uint64_t start = Clock().MonotonicMs();
  std::size_t late = stream.Drain(kDrainLimit);
  for (std::uint64_t now = start;; now = Clock().MonotonicMs()) {
    traffic.Drained += late;
    if (late != 0) FSilentSinceMs = now;
    const std::uint64_t silent = now - FSilentSinceMs;  // the time between two requests counts, if nothing came in it
    if (silent >= silence) break;
    if (now - start >= 3 * silence) return {moInvalid, "line not silent"};
    if (!stream.Linked()) return {moNoConnection, "the connection ended before the line was silent"};
    if (FStop.Asked()) return {moStopped};
    late = stream.ReceiveWithin(static_cast<std::uint32_t>(std::min<std::uint64_t>(silence - silent, kSliceMs))).size();
  }
  FOwed = false;
  return {};
}

TModbusEnd TModbusStrict::AwaitReply(INcStreamIntf& stream, const TModbusRequest& request, TBytes& reply,
                                     TModbusTraffic& traffic) {
  const std::uint64_t end = Clock().MonotonicMs() + Options.TimeoutMs;
  const char* foreign = "";
  for (std::uint64_t now = end - Options.TimeoutMs;;) {
    if (FStop.Asked()) return {moStopped};
    const TBytes chunk = stream.ReceiveWithin(static_cast<std::uint32_t>(std::min<std::uint64_t>(end - now, kSliceMs)));
    traffic.BytesReceived += chunk.size();
    reply.insert(reply.end(), chunk.begin(), chunk.end());
    TReplyCheck check = CheckModbusReply(request, reply);
    while (check.State == rsForeign) {
      ++traffic.Foreign;
      foreign = check.Reason;
      FFrames.Add(Clock().MonotonicUs(), false, reply);
      reply.erase(reply.begin(), reply.begin() + static_cast<std::ptrdiff_t>(check.Length));
      check = CheckModbusReply(request, reply);
    }
    now = Clock().MonotonicMs();
    switch (check.State) {
      case rsMore:
        if (!stream.Linked()) return {moNoConnection, "the connection ended before the reply"};
        if (now >= end) return {moTimeout, reply.empty() ? foreign : "the reply is incomplete"};
        break;
      case rsInvalid:
        if (!check.Framed) stream.CloseLink();
        return {moInvalid, check.Reason};
      case rsForeign:
      case rsWhole:
      case rsException:
        traffic.StaleBytes += reply.size() - check.Length;
        reply.resize(check.Length);
        return {check.State == rsWhole ? moOk : moException, "", check.Exception};
    }
  }
}

TModbusEnd TModbusStrict::Attempt(INcDataTransIntf& transport, INcStreamIntf& stream, const TModbusRequest& request,
                                  std::uint32_t preDelayMs, TBytes& reply, TModbusTraffic& traffic) {
  reply.clear();
  ++traffic.Attempts;
  const std::uint64_t start = Clock().MonotonicUs();
  TModbusEnd linked = EnsureLink(stream, traffic);
  if (linked.Ok()) {
    traffic.StaleBytes += stream.Drain(kDrainLimit);
    linked = EnsureLink(stream, traffic);  // draining finds an ended connection
  }
  const std::uint64_t opened = Clock().MonotonicUs();
  traffic.OpenUs += opened - start;
  if (!linked.Ok()) return linked;
  (void)BuildModbusFrame(request, FRequest);
  if (!transport.SendBuff(FRequest)) {
    stream.CloseLink();
    return {moNoConnection, "the request could not be sent"};
  }
  traffic.BytesSent += FRequest.size();
  const std::uint64_t handed = Clock().MonotonicUs();
  traffic.SendUs += handed - opened;
  FFrames.Add(handed, true, FRequest);
  if (request.Broadcast()) return {};
  if (preDelayMs != 0) (void)Clock().Pause(FStop, preDelayMs);
  const TModbusEnd end = AwaitReply(stream, request, reply, traffic);
  const std::uint64_t ended = Clock().MonotonicUs();
  traffic.WaitUs += ended - handed;
  FFrames.Add(ended, false, reply);
  return end;
}

TModbusAnswer TModbusStrict::Ask(INcDataTransIntf& transport, TModbusRequest request, std::uint32_t preDelayMs,
                                 TBytes& reply) {
  reply.clear();
  if (const char* refusal = Refusal(request); *refusal != 0) return {{moBadRequest, refusal}, {}};
  const std::uint64_t start = Clock().MonotonicUs();
  auto* stream = dynamic_cast<INcStreamIntf*>(&transport);
  TPlainStream plain(transport);
  if (!stream) stream = &plain;
  TModbusEnd end;
  TModbusTraffic traffic;
  for (;;) {
    end = AwaitSilence(*stream, traffic);
    if (!end.Ok()) break;
    if (++FTransaction == 0) FTransaction = 1;
    request.Transaction = FTransaction;
    const std::uint64_t sentBefore = traffic.BytesSent;
    end = Attempt(transport, *stream, request, preDelayMs, reply, traffic);
    const bool unanswered = end.Outcome == moTimeout || end.Outcome == moNoConnection || end.Outcome == moStopped;
    if (!request.Tcp && unanswered && traffic.BytesSent != sentBefore) {
      FOwed = true;
      FSilentSinceMs = Clock().MonotonicMs();
      ++traffic.Owed;
    }
    if (end.Ok() || end.Outcome == moException || FStop.Asked() || traffic.Attempts > Options.Retries ||
        (!stream->Linked() && FBackoffOf == stream && Clock().MonotonicMs() < FNextOpenMs) ||
        (traffic.BytesSent != 0 && FindModbusFunction(request.Func)->Write && !Options.RetryWrites))
      break;
    if (end.Outcome != moInvalid) continue;
    const std::uint64_t quiet = Clock().MonotonicMs() + kQuietLimitMs;
    for (std::size_t more = 1; more != 0 && stream->Linked() && Clock().MonotonicMs() < quiet;) {
      more = stream->ReceiveWithin(kQuietMs).size();
      traffic.StaleBytes += more;
    }
  }
  traffic.ElapsedUs = Clock().MonotonicUs() - start;
  return {end, traffic};
}

}  // namespace ixocamglue
