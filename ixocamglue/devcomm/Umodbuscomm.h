// A Modbus master for one slave, over any transport: functions 3, 6 and 16, RTU or TCP framing.
//
// Requests run on the caller's thread and hold the data lock from their first step until the outcome: up to PreDelay +
// 2000 ms and the transport's receive time. Failures show in LastError, in the four alarms and in the application log
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
#include "ixocamglue/platform/alarms/NcAlarmSource.h"

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

  [[nodiscard]] const std::string& IDName() const { return FIDName; }

  // Empty, with a design fault, for another function and for function 6 without a value.
  [[nodiscard]] TBytes GenerateModbusBuf(std::uint8_t funcCode, std::uint16_t startAddr, std::uint16_t count,
                                         std::span<const std::uint16_t> values, std::uint8_t slaveAddr) const;
  // One request and its reply; `cmd` is the caller's tag. True when the transport took the bytes.
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
  // Registers by address, without OnAckData. Strict: ranges longer than one request are split, and a range that leaves
  // the address space is a bad request. Exact: one request, as SendCommand makes it. `result` keeps its capacity.
  void ReadRegisters(std::uint16_t addr, std::uint32_t count, TModbusResult& result);
  // One value goes out with function 6, several or `multiple` with 16.
  void WriteRegisters(std::uint16_t addr, std::span<const std::uint16_t> values, bool multiple, TModbusResult& result);
  [[nodiscard]] TModbusResult ReadRegisters(std::uint16_t addr, std::uint32_t count);
  [[nodiscard]] TModbusResult WriteRegisters(std::uint16_t addr, std::span<const std::uint16_t> values,
                                             bool multiple = false);
  [[nodiscard]] TModbusStatistics Statistics();
  [[nodiscard]] std::vector<TModbusFrameLog::TEntry> LastFrames();

 private:
  // Sets the state; writes the line unless a state stands.
  void Fail(std::int32_t state, const char* text, int tag = -1);
  void ExactRequest(const TModbusRequest& request, TModbusResult& result) IXO_REQUIRES(FLock);
  // The strict profile: one request with its retries. The reply stays in FReply. False: nothing was sent.
  bool StrictRequest(std::uint8_t cmd, TModbusRequest request, TModbusResult& result) IXO_REQUIRES(FLock);
  void StrictAttempt(INcDataTransIntf& transport, INcStreamIntf& stream, const TModbusRequest& request,
                     TModbusResult& result, bool& sent) IXO_REQUIRES(FLock);
  [[nodiscard]] bool EnsureLink(INcStreamIntf& stream, TModbusResult& result) IXO_REQUIRES(FLock);
  void AwaitReply(INcStreamIntf& stream, const TModbusRequest& request, TModbusResult& result) IXO_REQUIRES(FLock);
  [[nodiscard]] TModbusRequest Request(std::uint8_t func, std::uint16_t addr, std::uint16_t count,
                                       std::span<const std::uint16_t> values) const;

  const std::string FIDName;
  TModbusProfile FProfile IXO_GUARDED_BY(FLock) = mpExact;
  TModbusStrictOptions FOptions IXO_GUARDED_BY(FLock);
  TModbusOutcome FOutcome IXO_GUARDED_BY(FLock) = moOk;  // of the last wait
  bool FDeliver IXO_GUARDED_BY(FLock) = true;            // replies go to OnAckData
  std::uint64_t FSendUs IXO_GUARDED_BY(FLock) = 0;       // of the last exact request: when its send began
  std::uint64_t FWaitUs IXO_GUARDED_BY(FLock) = 0;       // and ended
  std::size_t FSentBytes IXO_GUARDED_BY(FLock) = 0;
  TBytes FRequest IXO_GUARDED_BY(FLock);  // frames keep their capacity
  TBytes FReply IXO_GUARDED_BY(FLock);
  std::uint16_t FTransaction IXO_GUARDED_BY(FLock) = 0;
  const void* FBackoffOf IXO_GUARDED_BY(FLock) = nullptr;  // the transport that could not be opened
  std::uint32_t FBackoffMs IXO_GUARDED_BY(FLock) = 0;
  std::uint64_t FNextOpenMs IXO_GUARDED_BY(FLock) = 0;
  TModbusStatistics FStatistics IXO_GUARDED_BY(FLock);
  TModbusFrameLog FFrames IXO_GUARDED_BY(FLock);
};

}  // namespace ixocamglue
