// The strict profile: one request with its attempts. A reply is taken as soon as it is whole, and must be the reply to
// this request. Knows no error state, alarm or handler. One user at a time: the device's data lock sees to that.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "ixocamglue/devcomm/Ucommtypes.h"
#include "ixocamglue/devcomm/Umodbusframe.h"
#include "ixocamglue/devcomm/Umodbusresult.h"
#include "ixocamglue/devcomm/Umodbusstatistics.h"
#include "ixocamglue/platform/services/Clock.h"

namespace ixocamglue {

class TModbusStrict {
 public:
  TModbusStrict(TModbusFrameLog& frames, TStop& stop) : FFrames(frames), FStop(stop) {}

  TModbusStrictOptions Options;

  [[nodiscard]] TModbusProof Proof() const { return FProof; }
  // A request that was not asked here went unanswered.
  void Owe();
  // How much longer the line must be silent before no reply is owed any more; 0: none is.
  [[nodiscard]] std::uint32_t OwedMs(INcDataTransIntf& transport) const;
  [[nodiscard]] std::uint32_t SilenceMs() const;  // the whole of it
  // With TellApart: how long this request has to wait, as a reply that is owed would look like its own.
  [[nodiscard]] std::uint32_t HeldMs(const TModbusRequest& request) const;
  // Waits for that silence, three times its length at most.
  [[nodiscard]] TModbusEnd FallSilent(INcDataTransIntf& transport);
  // `preDelayMs`: from each send to the first read, any number. `reply` keeps its capacity and becomes the reply's
  // frame, or what came instead of it.
  [[nodiscard]] TModbusAnswer Ask(INcDataTransIntf& transport, TModbusRequest request, std::uint32_t preDelayMs,
                                  TBytes& reply);

 private:
  struct TWay;  // of one request
  // A request whose reply has not come.
  struct TLate {
    std::uint8_t Unit, Func;
    std::uint16_t Addr, Count, Value;
    std::uint64_t SentMs;

    [[nodiscard]] TModbusRequest Request() const { return {false, 0, Unit, Func, Addr, Count, {&Value, 1}}; }
    [[nodiscard]] bool Asks(const TModbusRequest& request) const;       // the same
    [[nodiscard]] bool LooksLike(const TModbusRequest& request) const;  // its reply could be this one's
  };

  // With a probe before it where one is due.
  [[nodiscard]] TModbusEnd Attempt(TWay& way, TModbusRequest& request, TBytes& reply);
  [[nodiscard]] TModbusEnd Prove(TWay& way, const TModbusRequest& write);
  // Sends, and waits for the reply.
  [[nodiscard]] TModbusEnd Transact(TWay& way, TModbusRequest& request, TBytes& reply);
  // Nothing to do unless a reply is owed.
  [[nodiscard]] TModbusEnd AwaitSilence(TWay& way);
  [[nodiscard]] TModbusEnd Connect(TWay& way);  // and throws away what has come in
  [[nodiscard]] TModbusEnd EnsureLink(TWay& way);
  [[nodiscard]] TModbusEnd AwaitReply(TWay& way, const TModbusRequest& request, TBytes& reply);
  [[nodiscard]] bool TellsApart(const TModbusRequest& request) const { return Options.TellApart && !request.Tcp; }
  // As CheckModbusReply; with TellApart a late reply to another request is foreign.
  [[nodiscard]] TReplyCheck Check(const TModbusRequest& request, std::span<const std::uint8_t> bytes);
  // What a late reply at the start of these bytes comes to: foreign, and it is owed no more; or more of it is to come.
  [[nodiscard]] std::optional<TReplyCheck> TakeLate(std::span<const std::uint8_t> bytes);
  void Answered(TWay& way, const TModbusRequest& request, bool whole);  // that one, or one like it before
  void DropLate(TWay& way);                                             // what has come in, until the line rests
  [[nodiscard]] bool MayRepeat(const TWay& way) const;
  [[nodiscard]] bool IsKnown(const INcStreamIntf& stream) const;
  [[nodiscard]] std::uint32_t AttemptMs() const;
  [[nodiscard]] std::uint64_t NewDeadline() const;

  TModbusFrameLog& FFrames;
  TStop& FStop;     // ends a wait within kSliceMs
  TBytes FRequest;  // keeps its capacity
  std::uint16_t FTransaction = 0;
  bool FOwed = false;        // a reply may still come, and would be taken for another's; never with TellApart
  std::vector<TLate> FLate;  // with TellApart, in the order of their sending
  std::uint64_t FLateLink = 0;
  std::uint64_t FSilentSinceMs = 0;
  std::optional<std::uint64_t> FAwaitedSinceMs;  // the silence, over the requests that had no time left for it
  TModbusProof FProof = mpfUnproved;
  std::uint64_t FProvedLink = 0;
  const void* FBackoffOf = nullptr;  // the transport that could not be opened
  std::uint32_t FBackoffMs = 0;
  std::uint64_t FNextOpenMs = 0;
};

}  // namespace ixocamglue
