#include "ixocamglue/platform/services/Locale.h"

#include <nlohmann/json.hpp>

#include "ixocamglue/support/Files.h"
#include "ixocamglue/support/Format.h"

namespace ixocamglue {

TLocaleReader::~TLocaleReader() {
  for (const auto& [text, installed] : FInstalled)
    if (text->Get() == installed) text->Set(nullptr);
}

std::string TLocaleReader::SelectLanguage(std::string_view language) {
  std::map<std::string, std::string> entries;
  std::string problem;
  if (language != "zh") {
    const std::filesystem::path file = FFolder / (std::string(language) + ".json");
    try {
      const auto document = nlohmann::json::parse(ReadFile(file).OrThrow(pbUnusable));
      for (const auto& [section, texts] : document.items())
        for (const auto& [key, text] : texts.items()) entries[section + "/" + key] = text.get<std::string>();
    } catch (const EProblem& e) {
      problem = e.what();
    } catch (const std::exception& e) {
      entries.clear();
      problem = Format("%s: %s", file.c_str(), e.what());
    }
    if (!problem.empty()) problem += "; the built-in texts are shown";
  }
  TGuard guard(FLock);
  FLanguage = problem.empty() ? std::string(language) : "zh";
  FEntries = std::move(entries);
  return problem;
}

std::vector<std::string> TLocaleReader::Apply(TTextList texts) {
  std::vector<std::string> refused;
  TGuard guard(FLock);
  for (TText* text : texts) {
    const auto it = FEntries.find(std::string(text->Section) + "/" + text->Key);
    if (it == FEntries.end()) {
      text->Set(nullptr);
    } else if (SameConversions(it->second.c_str(), text->Default)) {
      text->Set(FInstalled[text] = FKept.insert(it->second).first->c_str());
    } else {
      text->Set(nullptr);
      refused.push_back(Format("%s.json: %s/%s: \"%s\" does not take the arguments of \"%s\"", FLanguage.c_str(),
                               text->Section, text->Key, it->second.c_str(), text->Default));
    }
  }
  return refused;
}

IXO_DEFINE_SERVICE(TLocaleReader, LocaleReader)

}  // namespace ixocamglue
