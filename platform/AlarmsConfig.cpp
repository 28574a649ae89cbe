#include "platform/AlarmsConfig.h"

namespace ixocamglue {
namespace {

std::shared_ptr<const TAlarmConfigItem> ReadItem(const TConfigSection& section) {
  auto item = std::make_shared<TAlarmConfigItem>();
  item->Number = section.GetInt("Number", 0);
  item->Desc = section.GetText("Description", "");
  item->Reason = section.GetText("Reason", "");
  item->Solution = section.GetText("Solution", "");
  return item;
}

}  // namespace

TAlarmsConfig TAlarmsConfig::FromSection(const TConfigSection& section) {
  TAlarmsConfig config;
  for (const TConfigSection& item : section.Children("UserAlarm")) config.Items.push_back(ReadItem(item));
  for (const TConfigSection& group : section.Children("MultiBitGroup")) {
    auto read = std::make_shared<TMulityAlarmGroup>();
    read->Name = group.GetText("Name", "");
    read->BitCount = group.GetInt("Bits", 0);
    for (const TConfigSection& item : group.Children("Item"))
      read->Items.insert_or_assign(item.GetInt("Value", 0), ReadItem(item));
    config.Groups.push_back(std::move(read));
  }
  return config;
}

IXO_DEFINE_SERVICE(TAlarmsConfig, AlarmsConfig)

}  // namespace ixocamglue
