// The section <Modbus> of a machine file: the devices that are reached over Modbus, each a station with a name that the
// addresses begin with. Times ms.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "ixocamglue/devcomm/Udevicelink.h"
#include "ixocamglue/platform/xml/MachineConfig.h"
#include "ixocamglue/support/Problem.h"

namespace ixocamglue {

class TModbusStationConfig : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  [[nodiscard]] TLinkAddress Link() const;
  // What contradicts itself; fields outside their ranges are told of by whoever checks the record.
  [[nodiscard]] TResult<> Check() const;

  std::string Name;
  std::string Host;  // or Device
  std::int32_t Port = 0;
  bool RtuFraming = false;  // behind the TCP port
  std::string Device;
  std::int32_t Baud = 0;
  std::string Parity;
  std::int32_t DataBits = 0;
  std::int32_t StopBits = 0;
  std::int32_t Unit = 0;
  std::int32_t CycleMs = 0;
  std::int32_t StaleMs = 0;
  std::int32_t TimeOutMs = 0;
  std::int32_t LateReplyMs = 0;
  std::int32_t WatchdogRegister = 0;
  std::int32_t WatchdogPeriodMs = 0;
  std::int32_t ProbeRegister = 0;
};

class TModbusRecord : public TXmlSubConfig {
 public:
  static constexpr const char* kSection = "Modbus";

  void Publish(TPublisher& p) override { p.List("Station", Stations); }
  // The one of this name; what is wrong with it, or that there is none and which one was probably meant.
  [[nodiscard]] TResult<const TModbusStationConfig*> Find(std::string_view name) const;

  TXmlList<TModbusStationConfig> Stations;
};

}  // namespace ixocamglue
