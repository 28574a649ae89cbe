// A device object: its transport, the queue of commands to send, and the check and extraction of replies.
//
// One data lock guards all of it. Callers block on it, for as long as a slow device takes; the update thread skips its
// round. Any thread calls; see Uupdatethrd.h for making and freeing an object.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string_view>

#include "ixocamglue/devcomm/Uupdatethrd.h"

namespace ixocamglue {

// Nothing fails but by an answer of false, and by what a transport or OnExtract of one's own throws, which passes.
class TDevDataCommBase : public TNcThrdStateBase {
 public:
  ~TDevDataCommBase() override { EndUse(); }

  // Receives what ParserBuff has found valid, under the data lock. Set before replies are parsed.
  std::function<bool(TDevDataCommBase& device, const TBytes& buf)> OnExtract;

  void UpdateStatus() override {}
  [[nodiscard]] virtual bool CheckDatavalid(const TBytes& buf);  // here: any buffer is valid
  // Sends at once, or appends to the queue. False without a connection or without a frame.
  virtual bool SendCMD(std::uint8_t cmd, const TBytes& data, bool sendNow);
  [[nodiscard]] virtual TBytes GetSendCmdBuff(std::uint8_t cmd, const TBytes& data);  // here: no frame
  virtual bool ExtractData(const TBytes& buf);                                        // OnExtract's answer, or false

  [[nodiscard]] bool CheckConnection();
  bool EnqueueCMD(const TBytes& buf);  // unbounded; always true
  [[nodiscard]] TBytes DequeueCMD();   // the oldest, or empty
  bool ParserBuff(const TBytes& buf);  // what ExtractData answers for a valid buffer, else false
  void SetDataTransIntf(std::shared_ptr<INcDataTransIntf> transport);
  void DebugInfo(std::string_view msg);  // a trace line, when the transport traces

 protected:
  // Held for the length of an operation, so that a swap cannot free it meanwhile. The data lock is held.
  [[nodiscard]] std::shared_ptr<INcDataTransIntf> TransportLocked() const IXO_REQUIRES(FLock) { return FDataTrans; }

 private:
  std::shared_ptr<INcDataTransIntf> FDataTrans IXO_GUARDED_BY(FLock);
  std::deque<TBytes> FCmdQueue IXO_GUARDED_BY(FLock);
};

}  // namespace ixocamglue
