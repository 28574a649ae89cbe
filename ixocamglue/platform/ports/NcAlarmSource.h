// Port: a source of alarms, and what the alarm package offers it. The package asks the source from its own thread, and
// from that of who resets, never from both at once; a source answers without waiting for its device. What UpdateAlarms
// throws is logged, and the source is asked again; what the others throw passes to who adds the source or resets it. An
// alarm that is raised without having been registered is a design fault, and only shown.
#pragma once

#include <cstdint>
#include <string>

namespace ixocamglue {

// A set over the alarm table's attribute enumeration: member n is bit n.
using TNcAlarmAttrs = std::uint32_t;

class INcAlarmTable20 {
 public:
  virtual ~INcAlarmTable20() = default;
  virtual void RegisterAlarm(std::int32_t id, TNcAlarmAttrs attributes) = 0;
};

class INcAlarmReport20 {
 public:
  virtual ~INcAlarmReport20() = default;
  virtual void RaiseAlarm(std::int32_t id) = 0;
  virtual void ClearAlarm(std::int32_t id) = 0;
};

// Registered with the alarm package by its owner after creation, and removed before it is freed.
class INcAlarmSource20 {
 public:
  virtual ~INcAlarmSource20() = default;
  virtual std::string GetAlarmIDPrefix() = 0;
  virtual void RegisterAlarms(INcAlarmTable20& table) = 0;
  virtual void UpdateAlarms(INcAlarmReport20& report) = 0;
  virtual void ResetAlarm(std::int32_t id) = 0;
  virtual std::string GetAlarmDesc(std::int32_t id) = 0;  // empty for an unknown id
};

}  // namespace ixocamglue
