// The alarms section of the machine configuration: user-defined alarms and multi-bit alarm groups.
//
//   <Alarms>
//     <UserAlarm Number="3" Description="..." Reason="..." Solution="..."/>
//     <MultiBitGroup Name="Chiller" Bits="2"><Item Value="1" Description="..." Reason="..." Solution="..."/>...
//
// Read before any thread starts; reading the object is then safe from any thread. An index that is not there throws
// std::out_of_range.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "ixocamglue/platform/xml/MachineConfig.h"
#include "ixocamglue/platform/xml/MachineSections.h"
#include "ixocamglue/support/Installed.h"

namespace ixocamglue {

// A group of inputs that are read as one number; each value may be an alarm.
struct TMulityAlarmGroup {
  std::string Name;
  std::int32_t BitCount = 0;
  std::map<std::int32_t, std::shared_ptr<const TAlarmConfigItem>> Items;  // by value; null items are allowed
};

// The section's elements as the file holds them.
class TUserAlarmRecord : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  std::int32_t Number = 0;
  std::string Description, Reason, Solution;
};

class TGroupAlarmRecord : public TUserAlarmRecord {
 public:
  void Publish(TPublisher& p) override;
  std::int32_t Value = 0;
};

class TAlarmGroupRecord : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  std::string Name;
  std::int32_t Bits = 0;
  TXmlList<TGroupAlarmRecord> Items;
};

class TAlarmsRecord : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  TXmlList<TUserAlarmRecord> UserAlarms;
  TXmlList<TAlarmGroupRecord> Groups;
};

class TAlarmsConfig {
 public:
  TAlarmsConfig() = default;
  // What the section does not hold is empty.
  [[nodiscard]] static TAlarmsConfig FromSection(const TConfigSection& section);

  [[nodiscard]] std::int32_t GetCount() const { return static_cast<std::int32_t>(Items.size()); }
  [[nodiscard]] const TAlarmConfigItem* GetItem(std::int32_t index) const {  // null: no item at this place
    return Items.at(static_cast<std::size_t>(index)).get();
  }

  std::vector<std::shared_ptr<const TAlarmConfigItem>> Items;
  std::vector<std::shared_ptr<const TMulityAlarmGroup>> Groups;  // null groups are allowed
};

// An application's own; the library reads the machine configuration's section "Alarms" where none is installed.
IXO_DECLARE_SERVICE(TAlarmsConfig, AlarmsConfig);

}  // namespace ixocamglue
