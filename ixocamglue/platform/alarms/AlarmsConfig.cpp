#include "ixocamglue/platform/alarms/AlarmsConfig.h"

namespace ixocamglue {
namespace {

std::shared_ptr<const TAlarmConfigItem> ItemOf(const TUserAlarmRecord& record) {
  auto item = std::make_shared<TAlarmConfigItem>();
  item->Number = record.Number;
  item->Desc = record.Description;
  item->Reason = record.Reason;
  item->Solution = record.Solution;
  return item;
}

}  // namespace

void TUserAlarmRecord::Publish(TPublisher& p) {
  p.Field("Number", Number, 0, kOptional)
      .Within(bdAtLeast(0))
      .Text(TrMark("Number of the alarm; its identifier is UserDefAlarm# and this number plus 1000"));
  p.Field("Description", Description, "", kOptional).Text(TrMark("What the operator reads when this alarm stands"));
  p.Field("Reason", Reason, "", kOptional).Text(TrMark("Why this alarm comes, as the operator reads it"));
  p.Field("Solution", Solution, "", kOptional).Text(TrMark("What the operator should do about this alarm"));
}

void TGroupAlarmRecord::Publish(TPublisher& p) {
  p.Field("Value", Value, 0, kOptional)
      .Within(bdAtLeast(0))
      .Text(TrMark("Reading of the group's inputs at which this alarm stands"));
  TUserAlarmRecord::Publish(p);
}

void TAlarmGroupRecord::Publish(TPublisher& p) {
  p.Field("Name", Name, "", kOptional).Text(TrMark("What the group of inputs reports on"));
  p.Field("Bits", Bits, 0, kOptional).Within(0, 31).Text(TrMark("How many inputs are read together as one number"));
  p.List("Item", Items);
}

void TAlarmsRecord::Publish(TPublisher& p) {
  p.List("UserAlarm", UserAlarms);
  p.List("MultiBitGroup", Groups);
}

TAlarmsConfig TAlarmsConfig::FromSection(const TConfigSection& section) {
  TAlarmsRecord record;
  section.Load(record);
  TAlarmsConfig config;
  for (const auto& alarm : record.UserAlarms) config.Items.push_back(ItemOf(*alarm));
  for (const auto& group : record.Groups) {
    auto read = std::make_shared<TMulityAlarmGroup>();
    read->Name = group->Name;
    read->BitCount = group->Bits;
    for (const auto& item : group->Items) read->Items.insert_or_assign(item->Value, ItemOf(*item));
    config.Groups.push_back(std::move(read));
  }
  return config;
}

IXO_DEFINE_SERVICE(TAlarmsConfig, AlarmsConfig)

}  // namespace ixocamglue
