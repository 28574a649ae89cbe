// A Modbus master for one slave, over any transport: functions 3, 6 and 16, RTU or TCP framing. The strict profile has
// the functions 1, 2, 4, 5 and 15 as well.
//
// Requests run on the caller's thread and hold the data lock from their first step until the outcome: up to PreDelay +
// 2000 ms and the transport's receive time; strict, as long as the options say, with up to three times LateReplyMs of
// silence before each attempt. Failures show in LastError, in the four alarms and in the application log
// (once, until the state is reset); the caller learns from SendCommand only whether the bytes were sent. An RTU master
// on a serial line needs a transport of the binary type: whoever builds it sets it.
//
// The profile is exact unless set otherwise. The alarm operations never take the data lock: the alarm package may call
// them while a request waits.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "ixocamglue/devcomm/Udevdatacomm.h"
#include "ixocamglue/devcomm/Umodbusframe.h"
#include "ixocamglue/devcomm/Umodbusresult.h"
#include "ixocamglue/devcomm/Umodbusstatistics.h"
#include "ixocamglue/devcomm/Umodbusstrict.h"
#include "ixocamglue/platform/ports/NcAlarmSource.h"

namespace ixocamglue {

// LastError, and the alarm identifiers.
inline constexpr std::int32_t kModbusNoError = 0;
inline constexpr std::int32_t kModbusTimeOut = 1;
inline constexpr std::int32_t kModbusInvalid = 2;
inline constexpr std::int32_t kModbusNoConnection = 3;
inline constexpr std::int32_t kModbusFuncCode = 4;

class TModbusComm : public TDevDataCommBase, public INcAlarmSource20 {
 public:
  explicit TModbusComm(std::string idName);
  ~TModbusComm() override { EndUse(); }

  // Set while no request is under way.
  std::uint8_t SlaveAddr = 1;
  std::int32_t PreDelay = 50;  // ms between the send and the first read; none when 0 or less
  bool IsTCP = false;          // framing
  // Every valid reply, on the caller's thread with the lock held; may send again, and what it throws reaches the
  // caller. dataOffset is 3 (RTU) or 9 (TCP), and may lie behind the end: compare the length first. A TCP reply of 7
  // bytes has function code 0. An exception reply of 9 bytes comes with bit 7 set in its function code.
  std::function<void(std::uint8_t cmd, std::uint8_t funcCode, std::int32_t dataOffset, const TBytes& buf)> OnAckData;

  // Latched: a failure sets it, only ResetAlarm clears it. A handler that meets a function code that it did not expect
  // sets kModbusFuncCode. Any thread.
  std::atomic<std::int32_t> LastError{kModbusNoError};

  // Asked, a request under way ends soon, and so does each later one: the strict profile's waits within 50 ms, the
  // exact one's with the read under way. For an object that is about to end. Any thread.
  TStop Stop;

  [[nodiscard]] const std::string& IDName() const { return FIDName; }
  [[nodiscard]] std::string DeviceName() const override { return FIDName; }

  // Empty, with a design fault, for another function and for function 6 without a value; address and count may be any
  // number.
  [[nodiscard]] TBytes GenerateModbusBuf(std::uint8_t funcCode, std::uint16_t startAddr, std::uint16_t count,
                                         std::span<const std::uint16_t> values, std::uint8_t slaveAddr) const;
  // One request and its reply; `cmd` is the caller's tag. True when the transport took the bytes. Address and count go
  // out as they are: whether the device has that range, it says itself.
  bool SendCommand(std::uint8_t cmd, std::uint8_t funcCode, std::uint16_t startAddr, std::uint16_t count,
                   std::span<const std::uint16_t> values);
  // Waits for the reply and handles it; with a time-out of 0 it reads exactly once.
  virtual void WaitforAckData(std::uint8_t cmd, std::uint32_t timeoutMs);
  // At least 7 bytes; RTU: the CRC, TCP: transaction identifier 0.
  [[nodiscard]] bool CheckDatavalid(const TBytes& buf) override;

  // Alarm source. Any thread.
  std::string GetAlarmIDPrefix() override;
  void RegisterAlarms(INcAlarmTable20& table) override;
  void UpdateAlarms(INcAlarmReport20& report) override;
  void ResetAlarm(std::int32_t id) override;
  std::string GetAlarmDesc(std::int32_t id) override;

  // The profile belongs to this object, never to a stored record.
  void SetProfile(TModbusProfile profile, const TModbusStrictOptions& options = {});
  // By address, without OnAckData. A range that is empty, goes beyond address 65535 or is longer than the profile's
  // requests may be is refused as moBadRequest, and nothing is sent. Strict: ranges longer than one request are split.
  // Exact: one request, as SendCommand makes it, and its reply must fit it. A bit is a value of 0 or 1. `reuse` lends
  // its capacity to the result.
  [[nodiscard]] TModbusResult Read(std::uint8_t func, std::uint16_t addr, std::uint32_t count,
                                   std::vector<std::uint16_t> reuse = {});
  // The same of values; a range as of Read, at most.
  [[nodiscard]] TModbusResult Write(std::uint8_t func, std::uint16_t addr, std::span<const std::uint16_t> values);
  // Of holding registers; a range as of Read.
  [[nodiscard]] TModbusResult ReadRegisters(std::uint16_t addr, std::uint32_t count,
                                            std::vector<std::uint16_t> reuse = {});
  // One value goes out with function 6, several or `multiple` with 16; a range as of Write.
  [[nodiscard]] TModbusResult WriteRegisters(std::uint16_t addr, std::span<const std::uint16_t> values,
                                             bool multiple = false);
  // What another request on this transport, or one of the exact profile, may leave under way: a reply over RTU framing
  // that comes late is taken for the next request's, whichever process asks it. Owe says that such a reply is due;
  // OwedMs how much longer the line must be silent (0: nothing is due), SilenceMs how long as a whole;
  // AwaitSilence waits for it, three times as long at most.
  void Owe();
  [[nodiscard]] std::uint32_t OwedMs();
  [[nodiscard]] std::uint32_t SilenceMs();
  [[nodiscard]] TModbusEnd AwaitSilence();
  // How long such a read, of any range, has to wait with TellApart; 0: it may be asked.
  [[nodiscard]] std::uint32_t HeldMs(std::uint8_t func, std::uint16_t addr, std::uint16_t count);
  [[nodiscard]] TModbusStatistics Statistics();  // of the strict profile
  [[nodiscard]] std::vector<TModbusFrameLog::TEntry> LastFrames();

 protected:
  void BreakOff() override { Stop.Ask(); }

 private:
  // Sets the state; writes the line unless a state stands.
  void Fail(std::int32_t state, const char* text, int tag = -1);
  // The state that an outcome demands.
  void Latch(TModbusOutcome outcome, std::uint8_t cmd, std::uint8_t func = 0);
  void Deliver(std::uint8_t cmd, const TBytes& reply) IXO_REQUIRES(FLock);
  [[nodiscard]] TModbusRequest Request(std::uint8_t func, std::uint16_t addr, std::uint16_t count,
                                       std::span<const std::uint16_t> values) const;
  // The exact profile. The send: moOk when a reply is to be waited for, whether or not the bytes were taken.
  [[nodiscard]] TModbusAnswer SendExact(const TModbusRequest& request) IXO_REQUIRES(FLock);
  [[nodiscard]] TModbusOutcome AwaitExact(std::uint8_t cmd, std::uint32_t timeoutMs, TBytes& reply) IXO_REQUIRES(FLock);
  [[nodiscard]] TModbusAnswer AskExact(const TModbusRequest& request, TBytes& reply) IXO_REQUIRES(FLock);
  [[nodiscard]] TModbusAnswer AskStrict(std::uint8_t cmd, const TModbusRequest& request, TBytes& reply)
      IXO_REQUIRES(FLock);
  [[nodiscard]] TModbusResult Range(bool write, std::uint8_t func, std::uint16_t addr, std::size_t count,
                                    std::span<const std::uint16_t> values, std::vector<std::uint16_t> registers);

  const std::string FIDName;
  TModbusProfile FProfile IXO_GUARDED_BY(FLock) = mpExact;
  TModbusFrameLog FFrames IXO_GUARDED_BY(FLock);
  TModbusStrict FStrict IXO_GUARDED_BY(FLock){FFrames, Stop};
  TModbusStatistics FStatistics IXO_GUARDED_BY(FLock);
  TBytes FReply IXO_GUARDED_BY(FLock);  // of a range; keeps its capacity
};

}  // namespace ixocamglue
