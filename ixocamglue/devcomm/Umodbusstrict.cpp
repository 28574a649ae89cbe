#include "ixocamglue/devcomm/Umodbusstrict.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <utility>

#include "ixocamglue/support/Texts.h"

namespace ixocamglue {
namespace {

// A device that never falls silent must not hold a request up.
constexpr std::size_t kDrainLimit = std::size_t{64} * 1024;
constexpr std::uint32_t kQuietMs = 20;  // silence after a broken reply, before the request is repeated
constexpr std::uint32_t kQuietLimitMs = 200;
constexpr std::uint32_t kStrictPollMs = 10;
constexpr std::uint32_t kSliceMs = 50;  // of a wait, between two looks at the stop

constexpr std::uint64_t kNoDeadline = std::numeric_limits<std::uint64_t>::max();
constexpr const char* kEchoes = TrMark("writes are refused, as the line sends back what it is given");
constexpr const char* kLooksAlike = TrMark("nothing was sent, as a late reply could be taken for this one's");

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
      Clock().Sleep(kStrictPollMs);
    }
  }

 private:
  INcDataTransIntf& FTransport;
  bool FLinked = false;
};

// Why this request must not be sent, or an empty text.
const char* Refusal(const TModbusRequest& request) {
  const TModbusFunction* const function = FindModbusFunction(request.Func);
  if (!function) return TrMark("only the functions 1 to 6, 15 and 16 are supported");
  if (function->Write) {
    if (request.Values.empty()) return TrMark("there is no value to write");
    if (function->Bits && std::ranges::any_of(request.Values, [](std::uint16_t value) { return value > 1; }))
      return TrMark("a coil is 0 or 1");
  }
  if (!function->Many) return "";
  if (request.Count == 0) return TrMark("the count is 0");
  if (request.Count > function->Most) return function->TooMany;
  if (function->Write && request.Values.size() != request.Count) return TrMark("the count is not the number of values");
  if (request.Count > kModbusAddresses - request.Addr) return TrMark("the range goes beyond address 65535");
  if (!function->Write && request.Broadcast()) return TrMark("a broadcast cannot be read");
  return "";
}

// Whether the request itself came back, but for a last byte that was not read.
bool IsEcho(const TBytes& request, const TBytes& received) {
  const std::size_t size = std::min(received.size(), request.size());
  return size + 1 >= request.size() &&
         std::equal(request.begin(), request.begin() + static_cast<std::ptrdiff_t>(size), received.begin());
}

}  // namespace

struct TModbusStrict::TWay {
  INcDataTransIntf& Transport;
  INcStreamIntf& Stream;
  TModbusTraffic& Traffic;
  std::uint32_t PreDelayMs;
  std::uint64_t Deadline;  // monotonic
  bool Sent = false;
  bool Refused = false;       // not to be repeated
  std::uint64_t AskedMs = 0;  // when the request was sent that was answered, or the last one

  // Of `ms`, what is left of it.
  [[nodiscard]] std::uint32_t Within(std::uint64_t ms) const {
    const std::uint64_t now = Clock().MonotonicMs();
    return static_cast<std::uint32_t>(std::min(ms, Deadline > now ? Deadline - now : 0));
  }
};

std::uint32_t TModbusStrict::AttemptMs() const {
  return Options.TotalMs != 0 ? std::min(Options.TimeoutMs, Options.TotalMs) : Options.TimeoutMs;
}

std::uint32_t TModbusStrict::SilenceMs() const {
  return Options.LateReplyMs != 0 ? Options.LateReplyMs : std::max(Options.TimeoutMs, 3000u);
}

std::uint64_t TModbusStrict::NewDeadline() const {
  return Options.TotalMs != 0 ? Clock().MonotonicMs() + Options.TotalMs : kNoDeadline;
}

bool TModbusStrict::IsKnown(const INcStreamIntf& stream) const {
  const std::uint64_t link = stream.Linked() ? stream.LinkId() : 0;
  return link != 0 && link == FProvedLink;
}

TModbusEnd TModbusStrict::EnsureLink(TWay& way) {
  if (way.Stream.Linked()) return {};
  const std::uint64_t now = Clock().MonotonicMs();
  if (FBackoffOf == &way.Stream && now < FNextOpenMs)
    return {moNoConnection, TrMark("the last attempt to connect failed; the next one is not due yet")};
  if (FBackoffOf != &way.Stream) FBackoffMs = 0;
  if (way.Stream.Reopen(std::max(way.Within(Options.ConnectMs), 1u))) {
    FBackoffOf = nullptr;
    FBackoffMs = 0;
    ++way.Traffic.Connects;
    return {};
  }
  FBackoffOf = &way.Stream;
  FBackoffMs = std::min(std::max(FBackoffMs * 2, Options.BackoffMs), Options.BackoffMostMs);
  FNextOpenMs = Clock().MonotonicMs() + FBackoffMs;
  return {moNoConnection, TrMark("the connection cannot be opened")};
}

TModbusEnd TModbusStrict::Connect(TWay& way) {
  const std::uint64_t start = Clock().MonotonicUs();
  TModbusEnd linked = EnsureLink(way);
  if (linked.Ok()) {
    way.Traffic.StaleBytes += way.Stream.Drain(kDrainLimit);
    linked = EnsureLink(way);  // draining finds an ended connection
  }
  way.Traffic.OpenUs += Clock().MonotonicUs() - start;
  return linked;
}

TModbusEnd TModbusStrict::AwaitSilence(TWay& way) {
  if (!FOwed) return {};
  if (way.Stream.ClosingForgets()) {
    way.Stream.CloseLink();
    FOwed = false;
    return {};
  }
  if (const TModbusEnd linked = EnsureLink(way); !linked.Ok()) return linked;
  const std::uint64_t silence = SilenceMs();
  std::uint64_t now = Clock().MonotonicMs();
  if (!FAwaitedSinceMs) FAwaitedSinceMs = now;
  std::size_t late = way.Stream.Drain(kDrainLimit);
  for (;; now = Clock().MonotonicMs()) {
    way.Traffic.Drained += late;
    if (late != 0) FSilentSinceMs = now;
    const std::uint64_t silent = now - FSilentSinceMs;  // the time between two requests counts, if nothing came in it
    if (silent >= silence) break;
    if (now - *FAwaitedSinceMs >= 3 * silence) {
      FAwaitedSinceMs.reset();  // the next request may try again
      return {moInvalid, TrMark("line not silent")};
    }
    if (now + (silence - silent) + AttemptMs() > way.Deadline)
      return {moTimeout, TrMark("the line has to fall silent first, and there is no time left for that")};
    if (!way.Stream.Linked()) return {moNoConnection, TrMark("the connection ended before the line was silent")};
    if (FStop.Asked()) return {moStopped};
    const std::uint64_t slice = std::min<std::uint64_t>(silence - silent, kSliceMs);
    late = way.Stream.ReceiveWithin(static_cast<std::uint32_t>(slice)).size();
  }
  FOwed = false;
  return {};
}

void TModbusStrict::Owe() {
  FOwed = true;
  FAwaitedSinceMs.reset();
  FSilentSinceMs = Clock().MonotonicMs();
}

std::uint32_t TModbusStrict::OwedMs(INcDataTransIntf& transport) const {
  const auto* const stream = dynamic_cast<INcStreamIntf*>(&transport);
  if (!FOwed || (stream && stream->ClosingForgets())) return 0;
  const std::uint64_t silent = Clock().MonotonicMs() - FSilentSinceMs;
  return silent < SilenceMs() ? SilenceMs() - static_cast<std::uint32_t>(silent) : 0;
}

TModbusEnd TModbusStrict::FallSilent(INcDataTransIntf& transport) {
  auto* stream = dynamic_cast<INcStreamIntf*>(&transport);
  TPlainStream plain(transport);
  if (!stream) stream = &plain;
  TModbusTraffic traffic;
  TWay way{transport, *stream, traffic, 0, kNoDeadline};
  return AwaitSilence(way);
}

bool TModbusStrict::TLate::Asks(const TModbusRequest& request) const {
  return Unit == request.Unit && Func == request.Func && Addr == request.Addr && Count == request.Count &&
         (request.Values.empty() || Value == request.Values[0]);
}

bool TModbusStrict::TLate::LooksLike(const TModbusRequest& request) const {
  const TModbusFunction& function = *FindModbusFunction(Func);
  const auto bytes = [&](std::uint16_t count) { return function.Bits ? (count + 7) / 8 : 2 * count; };
  return !function.Write && Unit == request.Unit && Func == request.Func && bytes(Count) == bytes(request.Count);
}

std::uint32_t TModbusStrict::HeldMs(const TModbusRequest& request) const {
  std::uint64_t held = 0;
  for (const TLate& late : FLate) {
    const std::uint64_t age = Clock().MonotonicMs() - late.SentMs;
    if (age < SilenceMs() && late.LooksLike(request) && !late.Asks(request)) held = std::max(held, SilenceMs() - age);
  }
  return static_cast<std::uint32_t>(held);
}

std::optional<TReplyCheck> TModbusStrict::TakeLate(std::span<const std::uint8_t> bytes) {
  for (auto late = FLate.begin(); late != FLate.end(); ++late) {
    TReplyCheck check = CheckModbusReply(late->Request(), bytes);
    if (check.State == rsInvalid) continue;
    if (check.State == rsMore) return check;
    FLate.erase(late);
    check.State = rsForeign;
    check.Reason = TrMark("a reply to an earlier request has come late");
    return check;
  }
  return std::nullopt;
}

TReplyCheck TModbusStrict::Check(const TModbusRequest& request, std::span<const std::uint8_t> bytes) {
  const TReplyCheck check = CheckModbusReply(request, bytes);
  if (check.State != rsInvalid || !TellsApart(request)) return check;
  return TakeLate(bytes).value_or(check);
}

void TModbusStrict::Answered(TWay& way, const TModbusRequest& request, bool whole) {
  const auto first = std::ranges::find_if(FLate, [&](const TLate& late) { return late.Asks(request); });
  if (first == FLate.end()) return;
  way.AskedMs = first->SentMs;
  // A unit answers in order. Behind a reply that only the newest request could have, none to an older one comes.
  if (whole && std::next(first) == FLate.end())
    std::erase_if(FLate, [&](const TLate& late) { return late.Unit == request.Unit; });
  else
    FLate.erase(first);
}

void TModbusStrict::DropLate(TWay& way) {
  const std::uint64_t now = Clock().MonotonicMs();
  if (way.Stream.ClosingForgets() && std::exchange(FLateLink, way.Stream.LinkId()) != way.Stream.LinkId())
    FLate.clear();
  std::erase_if(FLate, [&](const TLate& late) { return now - late.SentMs >= SilenceMs(); });
  TBytes dropped;
  const std::uint64_t end = now + way.Within(std::min(kQuietLimitMs, AttemptMs() / 2));
  for (std::uint32_t ms = 0; way.Stream.Linked() && Clock().MonotonicMs() <= end; ms = kQuietMs) {
    const TBytes chunk = way.Stream.ReceiveWithin(ms);
    if (chunk.empty()) break;
    dropped.insert(dropped.end(), chunk.begin(), chunk.end());
  }
  if (dropped.empty()) return;
  way.Traffic.Drained += dropped.size();
  FFrames.Add(Clock().MonotonicUs(), false, dropped);
  for (std::span<const std::uint8_t> rest(dropped); !rest.empty();) {
    const auto late = TakeLate(rest);
    if (!late || late->State != rsForeign) return;
    ++way.Traffic.Foreign;
    rest = rest.subspan(late->Length);
  }
}

TModbusEnd TModbusStrict::AwaitReply(TWay& way, const TModbusRequest& request, TBytes& reply) {
  std::uint64_t now = Clock().MonotonicMs();
  const std::uint64_t end = now + way.Within(Options.TimeoutMs);
  const char* foreign = "";
  for (;;) {
    if (FStop.Asked()) return {moStopped};
    const std::uint64_t slice = std::min<std::uint64_t>(end - now, kSliceMs);
    const TBytes chunk = way.Stream.ReceiveWithin(static_cast<std::uint32_t>(slice));
    way.Traffic.BytesReceived += chunk.size();
    reply.insert(reply.end(), chunk.begin(), chunk.end());
    TReplyCheck check = Check(request, reply);
    while (check.State == rsForeign) {
      ++way.Traffic.Foreign;
      foreign = check.Reason;
      FFrames.Add(Clock().MonotonicUs(), false, reply);
      reply.erase(reply.begin(), reply.begin() + static_cast<std::ptrdiff_t>(check.Length));
      check = Check(request, reply);
    }
    now = Clock().MonotonicMs();
    switch (check.State) {
      case rsMore:
        if (!way.Stream.Linked()) return {moNoConnection, TrMark("the connection ended before the reply")};
        if (now >= end) return {moTimeout, reply.empty() ? foreign : TrMark("the reply is incomplete")};
        break;
      case rsInvalid:
        if (check.Damaged) {
          FOwed = false;
          Answered(way, request, false);
        }
        if (!check.Framed) way.Stream.CloseLink();
        return {moInvalid, check.Reason};
      case rsForeign:
      case rsWhole:
      case rsException:
        FOwed = false;
        Answered(way, request, check.State == rsWhole);
        way.Traffic.StaleBytes += reply.size() - check.Length;
        reply.resize(check.Length);
        return {check.State == rsWhole ? moOk : moException, "", check.Exception};
    }
  }
}

TModbusEnd TModbusStrict::Transact(TWay& way, TModbusRequest& request, TBytes& reply) {
  const std::uint64_t start = Clock().MonotonicUs();
  if (++FTransaction == 0) FTransaction = 1;
  request.Transaction = FTransaction;
  (void)BuildModbusFrame(request, FRequest);
  way.AskedMs = Clock().MonotonicMs();
  if (!way.Transport.SendBuff(FRequest)) {
    way.Stream.CloseLink();
    return {moNoConnection, TrMark("the request could not be sent")};
  }
  way.Sent = true;
  way.Traffic.BytesSent += FRequest.size();
  const std::uint64_t handed = Clock().MonotonicUs();
  way.Traffic.SendUs += handed - start;
  FFrames.Add(handed, true, FRequest);
  if (request.Broadcast()) return {};
  FOwed = !request.Tcp && !Options.TellApart;
  if (TellsApart(request))
    FLate.push_back({request.Unit, request.Func, request.Addr, request.Count,
                     request.Values.empty() ? std::uint16_t{0} : request.Values[0], way.AskedMs});
  FAwaitedSinceMs.reset();
  if (way.PreDelayMs != 0) (void)Clock().Pause(FStop, way.Within(way.PreDelayMs));
  const TModbusEnd end = AwaitReply(way, request, reply);
  const std::uint64_t ended = Clock().MonotonicUs();
  way.Traffic.WaitUs += ended - handed;
  FFrames.Add(ended, false, reply);
  if (!way.Stream.Linked() && way.Stream.ClosingForgets()) FOwed = false;
  if (FOwed) FSilentSinceMs = Clock().MonotonicMs();
  if (FOwed || (TellsApart(request) && end.Outcome == moTimeout)) {
    ++way.Traffic.Owed;
    if (end.Outcome == moTimeout) ++way.Traffic.TimedOut;
  }
  return end;
}

TModbusEnd TModbusStrict::Prove(TWay& way, const TModbusRequest& write) {
  const std::uint64_t start = Clock().MonotonicMs();
  TWay own{way.Transport, way.Stream, way.Traffic, way.PreDelayMs, way.Deadline};
  TModbusRequest probe{write.Tcp, 0, write.Unit, kModbusRead, *Options.ProbeRegister, 1, {}};
  TBytes reply;
  const TModbusEnd end = Transact(own, probe, reply);
  if (end.Outcome == moStopped || end.Outcome == moNoConnection) return end;
  while (end.Outcome == moInvalid && reply.size() < FRequest.size()) {
    const TBytes more = way.Stream.ReceiveWithin(kSliceMs);
    if (more.empty()) break;
    reply.insert(reply.end(), more.begin(), more.end());
  }
  const bool echoed = end.Outcome == moInvalid && IsEcho(FRequest, reply);
  FProof = echoed ? mpfEchoed : end.Ok() ? mpfProved : end.Outcome == moException ? mpfException : mpfUnanswered;
  TModbusEnd ready;
  if (echoed) {
    ready = {moInvalid, kEchoes};
  } else if (FOwed) {
    ready = AwaitSilence(own);
    if (ready.Ok()) ready = Connect(own);  // a link that was made anew for the silence counts as this one
  }
  FProvedLink = way.Stream.LinkId();
  const std::uint64_t took = Clock().MonotonicMs() - start;
  const std::uint64_t needed = std::max<std::uint64_t>(AttemptMs() / 2, took * Options.ProbeFor);
  if (!ready.Ok() || way.Within(needed) == needed) return ready;
  way.Refused = true;
  return {moTimeout, TrMark("nothing was written: the probe left too little of the time")};
}

TModbusEnd TModbusStrict::Attempt(TWay& way, TModbusRequest& request, TBytes& reply) {
  reply.clear();
  ++way.Traffic.Attempts;
  if (TellsApart(request)) DropLate(way);
  if (const TModbusEnd linked = Connect(way); !linked.Ok()) return linked;
  if (!IsKnown(way.Stream)) {
    FProof = mpfUnproved;
    if (Options.ProbeRegister && FindModbusFunction(request.Func)->Write && !request.Broadcast())
      if (const TModbusEnd proved = Prove(way, request); !proved.Ok()) return proved;
  }
  return Transact(way, request, reply);
}

bool TModbusStrict::MayRepeat(const TWay& way) const {
  const std::uint64_t needed =
      FOwed && !way.Stream.ClosingForgets() ? std::uint64_t{SilenceMs()} + AttemptMs() : AttemptMs() / 2;
  return way.Within(needed) >= needed;
}

TModbusAnswer TModbusStrict::Ask(INcDataTransIntf& transport, TModbusRequest request, std::uint32_t preDelayMs,
                                 TBytes& reply) {
  reply.clear();
  if (const char* refusal = Refusal(request); *refusal != 0) return {{moBadRequest, refusal}, {}};
  const bool write = FindModbusFunction(request.Func)->Write;
  const std::uint64_t start = Clock().MonotonicUs();
  auto* stream = dynamic_cast<INcStreamIntf*>(&transport);
  TPlainStream plain(transport);
  if (!stream) stream = &plain;
  const bool asksBack = write && !request.Broadcast();
  if (asksBack && IsKnown(*stream) && FProof == mpfEchoed) return {{moInvalid, kEchoes}, {}};
  TModbusEnd end;
  std::optional<TModbusEnd> broken;
  TModbusTraffic traffic;
  TWay way{transport, *stream, traffic, preDelayMs, NewDeadline()};
  for (;;) {
    end = !TellsApart(request)   ? AwaitSilence(way)
          : HeldMs(request) == 0 ? TModbusEnd{}
                                 : TModbusEnd{moTimeout, kLooksAlike};
    if (!end.Ok()) break;
    end = Attempt(way, request, reply);
    if (end.Outcome == moInvalid && !stream->Linked())
      broken = end;
    else if (end.Outcome == moNoConnection && broken)
      end = *broken;  // what broke the connection says more than that there is none any more
    if (end.Ok() || end.Outcome == moException || way.Refused || FStop.Asked() || traffic.Attempts > Options.Retries ||
        (!stream->Linked() && FBackoffOf == stream && Clock().MonotonicMs() < FNextOpenMs) ||
        (way.Sent && write && !Options.RetryWrites) || (asksBack && FProof == mpfEchoed) || !MayRepeat(way))
      break;
    if (end.Outcome != moInvalid || FOwed) continue;
    const std::uint64_t quiet = Clock().MonotonicMs() + way.Within(kQuietLimitMs);
    for (std::size_t more = 1; more != 0 && stream->Linked() && Clock().MonotonicMs() < quiet;) {
      more = stream->ReceiveWithin(kQuietMs).size();
      traffic.StaleBytes += more;
    }
  }
  traffic.ElapsedUs = Clock().MonotonicUs() - start;
  return {end, traffic, way.Sent, way.AskedMs};
}

}  // namespace ixocamglue
