// The strict profile: one request with its attempts. A reply is taken as soon as it is whole, and must be the reply to
// this request. Knows no error state, alarm or handler. One user at a time: the device's data lock sees to that.
#pragma once

#include <cstdint>
#include <optional>

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
  // Waits for that silence, three times its length at most.
  [[nodiscard]] TModbusEnd FallSilent(INcDataTransIntf& transport);
  // `preDelayMs`: from each send to the first read. `reply` keeps its capacity and becomes the reply's frame, or what
  // came instead of it.
  [[nodiscard]] TModbusAnswer Ask(INcDataTransIntf& transport, TModbusRequest request, std::uint32_t preDelayMs,
                                  TBytes& reply);

 private:
  struct TWay;  // of one request

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
  [[nodiscard]] bool MayRepeat(const TWay& way) const;
  [[nodiscard]] bool IsKnown(const INcStreamIntf& stream) const;
  [[nodiscard]] std::uint32_t AttemptMs() const;
  [[nodiscard]] std::uint64_t NewDeadline() const;

  TModbusFrameLog& FFrames;
  TStop& FStop;     // ends a wait within kSliceMs
  TBytes FRequest;  // keeps its capacity
  std::uint16_t FTransaction = 0;
  bool FOwed = false;  // a reply may still come, and would be taken for another's
  std::uint64_t FSilentSinceMs = 0;
  std::optional<std::uint64_t> FAwaitedSinceMs;  // the silence, over the requests that had no time left for it
  TModbusProof FProof = mpfUnproved;
  std::uint64_t FProvedLink = 0;
  const void* FBackoffOf = nullptr;  // the transport that could not be opened
  std::uint32_t FBackoffMs = 0;
  std::uint64_t FNextOpenMs = 0;
};

}  // namespace ixocamglue
