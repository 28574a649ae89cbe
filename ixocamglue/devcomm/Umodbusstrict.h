// The strict profile: one request with its attempts. A reply is taken as soon as it is whole, and must be the reply to
// this request. Knows no error state, alarm or handler. One user at a time: the device's data lock sees to that.
#pragma once

#include <cstdint>

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

  // `preDelayMs`: from each send to the first read. `reply` keeps its capacity and becomes the reply's frame, or what
  // came instead of it.
  [[nodiscard]] TModbusAnswer Ask(INcDataTransIntf& transport, TModbusRequest request, std::uint32_t preDelayMs,
                                  TBytes& reply);

 private:
  [[nodiscard]] TModbusEnd Attempt(INcDataTransIntf& transport, INcStreamIntf& stream, const TModbusRequest& request,
                                   std::uint32_t preDelayMs, TBytes& reply, TModbusTraffic& traffic);
  // Nothing to do unless a reply is owed.
  [[nodiscard]] TModbusEnd AwaitSilence(INcStreamIntf& stream, TModbusTraffic& traffic);
  [[nodiscard]] TModbusEnd EnsureLink(INcStreamIntf& stream, TModbusTraffic& traffic);
  [[nodiscard]] TModbusEnd AwaitReply(INcStreamIntf& stream, const TModbusRequest& request, TBytes& reply,
                                      TModbusTraffic& traffic);

  TModbusFrameLog& FFrames;
  TStop& FStop;     // ends a wait within kSliceMs
  TBytes FRequest;  // keeps its capacity
  std::uint16_t FTransaction = 0;
  bool FOwed = false;  // a reply may still come, and would be taken for another's
  std::uint64_t FSilentSinceMs = 0;
  const void* FBackoffOf = nullptr;  // the transport that could not be opened
  std::uint32_t FBackoffMs = 0;
  std::uint64_t FNextOpenMs = 0;
};

}  // namespace ixocamglue
