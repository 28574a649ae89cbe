#include "ixocamglue/alarms/Ualarmdefs.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <map>
#include <stdexcept>
#include <utility>

#include <nlohmann/json.hpp>

#include "ixocamglue/platform/services/LocaleManager.h"
#include "ixocamglue/support/Files.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/JsonText.h"
#include "ixocamglue/support/Texts.h"
#include "ixocamglue/support/ValueText.h"

namespace ixocamglue {
namespace {

constexpr const char* kMemberNames[] = {"HelpID",   "BrifDesc",  "Code",   "AlarmDesc",
                                        "Category", "Alarmtype", "Reason", "Solution"};
// What an operator needs to see; the others may be empty.
constexpr const char* kNeeded[] = {"HelpID", "BrifDesc", "Code", "Reason", "Solution"};

TResult<std::int64_t> NumberOf(const TConfigSection& section, const char* name, std::int64_t lowest,
                               std::int64_t highest) {
  const std::string text = section.GetText(name, "");
  const auto wrong = [&](std::string what) { return TProblem{std::move(what), section.Path() + "/" + name}; };
  const auto number = ParseExactly<std::int64_t>(text);
  if (!number) return wrong(Format(Tr("\"%s\" is no whole number"), text.c_str()));
  if (*number < lowest || *number > highest)
    return wrong(Format(Tr("%s is not in %lld..%lld"), text.c_str(), static_cast<long long>(lowest),
                        static_cast<long long>(highest)));
  return *number;
}

void CheckTexts(const TConfigSection& item, std::vector<TProblem>& problems) {
  for (const char* const name : {"Description", "Reason", "Solution"})
    if (IsBlank(item.GetText(name, ""))) problems.push_back({Tr("the text is empty"), item.Path() + "/" + name});
}

}  // namespace

std::string TAlarmDefinitionFiles::GetAlarmDefinitions() { return GetAlarmDefinitionsIn(OwnLanguage()); }

std::string TAlarmDefinitionFiles::GetAlarmDefinitionsIn(std::string_view language) {
  if (FFolder.empty()) return "[]";
  return ReadFile(FFolder / (std::string(language) + ".json")).OrThrow(pbUnusable);
}

std::vector<TProblem> CheckAlarmDefinitions(std::string_view json) {
  nlohmann::json list;
  try {
    list = nlohmann::json::parse(WithoutMark(json));
  } catch (const nlohmann::json::exception&) {
    return {JsonProblem(json)};
  }
  if (!list.is_array()) return {{Format(Tr("the list is %s, expected an array"), list.type_name()), "1:1"}};

  std::vector<TProblem> problems;
  std::map<std::string, std::size_t> ids, codes;
  for (std::size_t index = 0; index < list.size(); ++index) {
    const auto& entry = list[index];
    std::string id;
    const auto report = [&](std::string what) {
      problems.push_back({std::move(what), Format("[%zu] %s", index, id.c_str())});
    };
    if (!entry.is_object()) {
      report(Format(Tr("the entry is %s, expected an object; it is skipped"), entry.type_name()));
      continue;
    }
    const auto text = [&](const char* member) {
      const auto found = entry.find(member);
      return found != entry.end() && found->is_string() ? found->get<std::string>() : std::string();
    };
    id = text("HelpID");
    for (const char* const member : kMemberNames)
      if (const auto found = entry.find(member); found != entry.end() && !found->is_string())
        report(Format(Tr("\"%s\" is %s, expected a string"), member, found->type_name()));
    for (const char* const member : kNeeded)
      if (IsBlank(text(member))) report(Format(Tr("\"%s\" is empty or missing"), member));
    for (const auto& item : entry.items())
      if (std::ranges::none_of(kMemberNames, [&](const char* member) { return item.key() == member; }))
        report(Format(Tr("\"%s\" is no member of a definition"), item.key().c_str()));
    const auto unique = [&](std::map<std::string, std::size_t>& seen, const std::string& value, const char* member) {
      if (value.empty()) return;
      if (const auto [first, isNew] = seen.emplace(value, index); !isNew)
        report(Format(Tr("\"%s\" is \"%s\", as in entry [%zu]"), member, value.c_str(), first->second));
    };
    unique(ids, id, "HelpID");
    unique(codes, text("Code"), "Code");
  }
  return problems;
}

std::vector<TProblem> CheckAlarmsSection(const TConfigSection& section) {
  constexpr std::int64_t kUserBase = 1000;
  constexpr std::int64_t kGroupBase = 2000;
  std::vector<TProblem> problems;
  std::map<std::int64_t, std::string> taken;  // identifier numbers and who has them
  const auto take = [&](std::int64_t number, const std::string& path) {
    if (const auto [first, isNew] = taken.emplace(number, path); !isNew)
      problems.push_back(
          {Format(Tr("its number %lld is that of %s"), static_cast<long long>(number), first->second.c_str()), path});
  };
  const auto read = [&](const TConfigSection& from, const char* name, std::int64_t lowest, std::int64_t highest) {
    auto number = NumberOf(from, name, lowest, highest);
    if (!number) problems.push_back(number.Problem());
    return number;
  };
  for (const TConfigSection& item : section.Children("UserAlarm")) {
    CheckTexts(item, problems);
    if (const auto number = read(item, "Number", 0, 1'000'000)) take(kUserBase + *number, item.Path());
  }
  std::int64_t base = 0;
  for (const TConfigSection& group : section.Children("MultiBitGroup")) {
    const auto bits = read(group, "Bits", 1, 31);
    const std::int64_t size = std::int64_t{1} << (bits ? *bits : group.GetInt("Bits", 0) & 31);
    for (const TConfigSection& item : group.Children("Item")) {
      CheckTexts(item, problems);
      if (const auto value = read(item, "Value", 0, size - 1)) take(kGroupBase + base + *value, item.Path());
    }
    base += size;
  }
  return problems;
}

}  // namespace ixocamglue
