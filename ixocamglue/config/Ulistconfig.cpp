#include "ixocamglue/config/Ulistconfig.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "ixocamglue/support/Format.h"

namespace ixocamglue {
namespace {

// Days since 1899-12-30 of a day of the Gregorian calendar.
std::int64_t DayNumber(int year, int month, int day) {
  const std::int64_t y = month > 2 ? year : year - 1;
  const std::int64_t era = (y >= 0 ? y : y - 399) / 400;
  const std::int64_t yearOfEra = y - era * 400;
  const std::int64_t dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
  const std::int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
  return era * 146097 + dayOfEra - 719468 + 25569;
}

std::optional<TDateTime> ParseTime(const std::string& text) {
  if (const auto days = ParseNumber<double>(text)) return TDateTime{*days};
  int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0, ms = 0, end = 0;
  std::string trimmed(TrimXml(text));
  if (trimmed.find('.') == std::string::npos) trimmed += ".000";
  if (std::sscanf(trimmed.c_str(), "%4d-%2d-%2d %2d:%2d:%2d.%3d%n", &year, &month, &day, &hour, &minute, &second, &ms,
                  &end) != 7 ||
      static_cast<std::size_t>(end) != trimmed.size())
    return std::nullopt;
  if (year < 1 || month < 1 || month > 12 || day < 1 || day > 31 || hour < 0 || hour > 23 || minute < 0 ||
      minute > 59 || second < 0 || second > 59 || ms < 0)
    return std::nullopt;
  const double timeOfDay = (((hour * 60 + minute) * 60 + second) * 1000.0 + ms) / 86'400'000.0;
  return TDateTime{static_cast<double>(DayNumber(year, month, day)) + timeOfDay};
}

constexpr TFlagItem kFlags[] = {
    {kBlankingFlag, "下料位"},
};

}  // namespace

// Kept as text, so that a time that another program wrote in its own way survives.
void TCaliRst::Publish(TPublisher& p) {
  p.Field("Time", FTime).Text(TrMark("When this calibration of the height sensor ended"));
  p.Field("Cap", Cap).Text(TrMark("Capacitance at the end of the calibration, in the sensor's unit"));
  p.Field("SteadyLv", SteadyLv).Text(TrMark("How steady the signal was at standstill; 1 is best"));
  p.Field("SmoothLv", SmoothLv).Text(TrMark("How smooth the curve was; 1 is best"));
  p.Field("CaliCapRange", CaliCapRange)
      .Text(TrMark("From the smallest to the largest capacitance measured, in the sensor's unit"));
  p.Field("ErrorType", ErrorType).Text(TrMark("What went wrong in this calibration; 0: it was good"));
}

TDateTime TCaliRst::GetTime() const { return ParseTime(FTime).value_or(TDateTime{}); }
void TCaliRst::SetTime(TDateTime time) { FTime = FormatDateTime(time); }

void TCaliRstCfg::Publish(TPublisher& p) {
  constexpr TFieldRule kMaxCnt{.Min = 1, .Max = kMaxMaxCnt};
  p.Field("MaxCnt", FMaxCnt, 20, kMaxCnt)
      .Text(TrMark("How many results of height calibrations are kept; the oldest goes first"));
  p.List("CaliRst", FItems);
}

void TCaliRstCfg::LoadFromXmlNode(TXmlNode node) {
  TXmlSubConfig::LoadFromXmlNode(node);
  FItems.KeepLast(FMaxCnt);
}

std::int32_t TCaliRstCfg::Add(const TCaliRst& result) {
  FItems.Add(result);
  FItems.KeepLast(std::max(FMaxCnt, 1));
  return FItems.Count() - 1;
}

bool TCaliRstCfg::SetMaxCnt(std::int32_t count) {
  if (count < 1 || count > kMaxMaxCnt) return false;
  FMaxCnt = count;
  FItems.KeepLast(count);
  return true;
}

// Kept: "Countdown" before "WarningTime", as the file has them.
void THealthItem::Publish(TPublisher& p) {
  p.Field("Desc", Desc).Text(TrMark("What is to be maintained, as the operator reads it"));
  p.Field("Key", Key).Text(TrMark("Name by which the interface finds this reminder"));
  p.Field("AddMode", AddMode).Text(TrMark("Who made this reminder; the interface's own number"));
  p.Field("PromptTime", PromptTime)
      .Unit(uHour)
      .Within(bdAtLeast(0))
      .Text(TrMark("After how much time the operator is reminded"));
  p.Field("Countdown", Countdown).Unit(uHour).Text(TrMark("Time left until the reminder"));
  p.Field("WarningTime", WarningTime)
      .Unit(uHour)
      .Within(bdAtLeast(0))
      .Text(TrMark("After how much time the reminder becomes a warning"));
  p.Field("TimeMode", TimeMode).Text(TrMark("Which time counts for this reminder; the interface's own number"));
  p.Field("PromptType", PromptType).Text(TrMark("How the operator is reminded; the interface's own number"));
  p.Field("AllowIgnore", AllowIgnore).Text(TrMark("Whether the operator may put this reminder off"));
  p.Field("OpreLevel", OpreLevel)
      .Text(TrMark("Privilege that it takes to confirm this reminder; the interface's own number"));
}

void THealthConfig::Publish(TPublisher& p) { p.List("Health", FItems); }

std::string TFlagItem::ShowName() const { return Format("%d %s", FlagIndex, std::string(Name).c_str()); }

const TFlagItem* FindFlag(std::int32_t flagIndex) {
  const auto* const it = std::ranges::find(kFlags, flagIndex, &TFlagItem::FlagIndex);
  return it == std::end(kFlags) ? nullptr : it;
}

void TMarkPoint::Publish(TPublisher& p) {
  p.Field("FlagIndex", FlagIndex)
      .Within(bdAtLeast(0))
      .Text(TrMark("Number of the flag position that the head is sent to; 104 is the blanking position"));
  // Kept: written and never read.
  p.WriteOnly("SystemDesc", SystemDesc());
  p.Field("CustomDesc", CustomDesc).Text(TrMark("Name that the user gave to this flag position"));
  p.Field("Enabled", Enabled).Text(TrMark("Whether the operator may send the head to this flag position"));
  p.Field("IsSystemDefine", IsSystemDefine).Text(TrMark("Whether the program itself defines this flag position"));
}

std::string TMarkPoint::SystemDesc() const {
  const TFlagItem* const flag = FindFlag(FlagIndex);
  return flag ? std::string(flag->Name) : std::string();
}

void TMarkPointsConfig::Publish(TPublisher& p) {
  p.WriteOnly("Count", ValueText(GetCount()));
  p.List("MarkPoint", FItems);
}

void TUCSOrgConfig::Publish(TPublisher& p) {
  constexpr TFieldRule kCount{.Min = 0, .Max = kMaxUCSNum};
  p.Field("UCSNum", FUCSNum, 0, kCount).Text(TrMark("How many coordinate origins there are"));
  p.Field("LastUCSOrg", FLastUCSOrg)
      .Within(bdAtLeast(0))
      .Text(TrMark("Coordinate origin that was last used, counted from 0"));
  p.Indexed("UCSName", FNames, TrMark("Name of the coordinate origin with this number, as the operator knows it"));
}

bool TUCSOrgConfig::SetUCSNum(std::int32_t count) {
  if (count < 0 || count > kMaxUCSNum) return false;
  FUCSNum = count;
  FNames.erase(FNames.lower_bound(count), FNames.end());
  return true;
}

std::string TUCSOrgConfig::GetUCSOrgName(std::int32_t index) const {
  const auto name = FNames.find(index);
  return name == FNames.end() ? std::string() : name->second;
}

bool TUCSOrgConfig::SetUcsOrgName(std::int32_t index, std::string_view name) {
  if (index < 0) return false;
  FNames.insert_or_assign(index, std::string(name));
  return true;
}

}  // namespace ixocamglue
