#include "ixocamglue/platform/services/Locale.h"

#include <algorithm>
#include <utility>

#include <nlohmann/json.hpp>

#include "ixocamglue/support/Files.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocamglue {
namespace {

// The messages of each living reader that has selected any; the last selection is what Tr shows.
struct TSelections {
  TCriticalSection Lock;
  std::vector<std::pair<const TLocaleReader*, const TMessages*>> Items IXO_GUARDED_BY(Lock);
};

void Select(const TLocaleReader* reader, const TMessages* messages) {
  static TSelections selections;
  TGuard guard(selections.Lock);
  auto& items = selections.Items;
  std::erase_if(items, [&](const auto& item) { return item.first == reader; });
  if (messages) items.emplace_back(reader, messages);
  UseMessages(items.empty() ? nullptr : items.back().second);
}

}  // namespace

TLocaleReader::~TLocaleReader() {
  for (const auto& [text, installed] : FInstalled)
    if (text->Get() == installed) text->Set(nullptr);
  Select(this, nullptr);
}

std::string TLocaleReader::SelectLanguage(std::string_view language) {
  std::map<std::string, std::string> entries;
  auto messages = std::make_unique<TMessages>();
  std::vector<std::string> refused;
  std::string problem;
  const std::filesystem::path file = FFolder / (std::string(language) + ".json");
  if (std::error_code error; language != "zh" || std::filesystem::exists(file, error)) {
    try {
      const auto document = nlohmann::json::parse(ReadFile(file).OrThrow(pbUnusable));
      for (const auto& [section, texts] : document.items())
        for (const auto& [key, text] : texts.items()) {
          if (section != "Messages")
            entries[section + "/" + key] = text.get<std::string>();
          else if (SameConversions(text.get<std::string>().c_str(), key.c_str()))
            messages->emplace(key, text.get<std::string>());
          else
            refused.push_back(Format(Tr("%s: Messages: \"%s\" does not take the arguments of \"%s\""), file.c_str(),
                                     text.get<std::string>().c_str(), key.c_str()));
        }
    } catch (const EProblem& e) {
      problem = e.what();
    } catch (const std::exception& e) {
      entries.clear();
      messages->clear();
      refused.clear();
      problem = Format("%s: %s", file.c_str(), e.what());
    }
    if (!problem.empty()) problem += std::string("; ") + Tr("the built-in texts are shown");
  }
  TGuard guard(FLock);
  FLanguage = problem.empty() ? std::string(language) : "zh";
  FEntries = std::move(entries);
  FRefused = std::move(refused);
  auto same = std::ranges::find_if(FMessages, [&](const auto& known) { return *known == *messages; });
  if (same == FMessages.end()) same = FMessages.insert(same, std::move(messages));
  Select(this, same->get());
  return problem;
}

std::vector<std::string> TLocaleReader::Apply(TTextList texts) {
  TGuard guard(FLock);
  std::vector<std::string> refused = std::exchange(FRefused, {});
  for (TText* text : texts) {
    const auto it = FEntries.find(std::string(text->Section) + "/" + text->Key);
    if (it == FEntries.end()) {
      text->Set(nullptr);
    } else if (SameConversions(it->second.c_str(), text->Default)) {
      text->Set(FInstalled[text] = FKept.insert(it->second).first->c_str());
    } else {
      text->Set(nullptr);
      refused.push_back(Format(Tr("%s.json: %s/%s: \"%s\" does not take the arguments of \"%s\""), FLanguage.c_str(),
                               text->Section, text->Key, it->second.c_str(), text->Default));
    }
  }
  return refused;
}

IXO_DEFINE_SERVICE(TLocaleReader, LocaleReader)

}  // namespace ixocamglue
