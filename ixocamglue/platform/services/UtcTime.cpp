#include "ixocamglue/platform/services/UtcTime.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <iterator>

#include "ixocamglue/platform/services/DayParts.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Problem.h"
#include "ixocamglue/support/Texts.h"
#include "ixocamglue/support/ValueText.h"

namespace ixocamglue {
namespace {

// A leading part may be given, ending behind a number.
constexpr std::string_view kForm = "0000-00-00 00:00:00.000";
constexpr std::size_t kEnds[] = {10, 16, 19, 23};
constexpr std::string_view kOffsetForm = "+00:00";

// Where the offset begins, behind the day; the size where there is none.
std::size_t OffsetAt(std::string_view text) {
  return std::min(text.find_first_of("Z+-", std::min<std::size_t>(kEnds[0], text.size())), text.size());
}

// In minutes; nothing where the text is none.
std::optional<int> OffsetOf(std::string_view text) {
  if (text == "Z") return 0;
  if (text.size() != kOffsetForm.size() || text[3] != ':') return std::nullopt;
  const auto hours = ParseExactly<unsigned>(text.substr(1, 2));
  const auto minutes = ParseExactly<unsigned>(text.substr(4, 2));
  if (!hours || !minutes || *hours > 23 || *minutes > 59) return std::nullopt;
  const int offset = static_cast<int>(*hours * 60 + *minutes);
  return text[0] == '-' ? -offset : offset;
}

}  // namespace

std::int64_t UnixMs(TDateTime utc) {
  return std::llround(utc.Days * static_cast<double>(kMsPerDay)) - kDaysToUnixEpoch * kMsPerDay;
}

TDateTime FromUnixMs(std::int64_t ms) {
  return {static_cast<double>(ms) / static_cast<double>(kMsPerDay) + static_cast<double>(kDaysToUnixEpoch)};
}

TDateTime MinutesLater(TDateTime utc, std::int64_t minutes) { return FromUnixMs(UnixMs(utc) + minutes * 60'000); }

TDateTime UtcNow() {
  using namespace std::chrono;
  if (!dynamic_cast<const TSystemClock*>(&Clock())) return Clock().Now();
  return FromUnixMs(duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count());
}

std::string FormatUtc(TDateTime utc) {
  std::string text = FormatDateTime(utc);
  text.replace(kEnds[0], 1, 1, 'T');
  return text.append(kOffsetForm);
}

std::string FormatLocal(TDateTime utc) {
  const auto seconds = static_cast<std::time_t>(std::floor(static_cast<double>(UnixMs(utc)) / 1000.0));
  std::tm local{};
  localtime_r(&seconds, &local);
  const std::int64_t minutes = local.tm_gmtoff / 60;
  return FormatDateTime(MinutesLater(utc, minutes)) + Format("%c%02d:%02d", minutes < 0 ? '-' : '+',
                                                             static_cast<int>(std::abs(minutes) / 60),
                                                             static_cast<int>(std::abs(minutes) % 60));
}

std::string ShownTime(const std::string& stored) {
  const auto moment = ParseMoment(stored);
  return moment ? FormatLocal(*moment) : stored;
}

std::optional<TDateTime> ParseMoment(std::string_view text) {
  const std::string_view offsetText = text.substr(OffsetAt(text));
  text.remove_suffix(offsetText.size());
  const std::optional<int> offset = OffsetOf(offsetText);
  if (!offsetText.empty() && !offset) return std::nullopt;
  if (std::ranges::find(kEnds, text.size()) == std::end(kEnds)) return std::nullopt;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool digit = text[i] >= '0' && text[i] <= '9';
    const bool inPlace = kForm[i] == '0' ? digit : text[i] == kForm[i] || (i == kEnds[0] && text[i] == 'T');
    if (!inPlace) return std::nullopt;
  }
  const auto part = [&](std::size_t at, std::size_t size) {
    return at < text.size() ? ParseExactly<int>(text.substr(at, size)).value_or(0) : 0;
  };
  const std::chrono::year_month_day date{std::chrono::year(part(0, 4)),
                                         std::chrono::month(static_cast<unsigned>(part(5, 2))),
                                         std::chrono::day(static_cast<unsigned>(part(8, 2)))};
  if (!date.ok() || part(11, 2) > 23 || part(14, 2) > 59 || part(17, 2) > 59) return std::nullopt;
  if (offset) {
    const std::int64_t days = std::chrono::sys_days(date).time_since_epoch().count();
    return FromUnixMs(days * kMsPerDay + (part(11, 2) * 60 + part(14, 2) - *offset) * std::int64_t{60'000} +
                      part(17, 2) * std::int64_t{1000} + part(20, 3));
  }
  std::tm local{};
  local.tm_year = part(0, 4) - 1900;
  local.tm_mon = part(5, 2) - 1;
  local.tm_mday = part(8, 2);
  local.tm_hour = part(11, 2);
  local.tm_min = part(14, 2);
  local.tm_sec = part(17, 2);
  local.tm_isdst = -1;  // what the place had then
  return FromUnixMs(static_cast<std::int64_t>(std::mktime(&local)) * 1000 + part(20, 3));
}

TDateTime AskedMoment(const std::string& text, const char* where) {
  if (const auto moment = ParseMoment(text)) return *moment;
  throw EProblem(pbRequest, {.What = Format(Tr("\"%s\" is no time"), text.c_str()),
                             .Where = where,
                             .Why = {},
                             .Remedy = Tr("write YYYY-MM-DD, or that with hh:mm, hh:mm:ss or hh:mm:ss.zzz behind a "
                                          "blank; an offset (+08:00) may follow")});
}

}  // namespace ixocamglue
