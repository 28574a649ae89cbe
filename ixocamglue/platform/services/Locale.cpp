#include "ixocamglue/platform/services/Locale.h"

#include <algorithm>
#include <utility>

#include <nlohmann/json.hpp>

#include "ixocamglue/support/Files.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocamglue {
namespace {

constexpr const char* kBuiltIn = "zh";

// The messages of each living reader that has selected any; the last selection is what Tr shows.
struct TSelections {
  TCriticalSection Lock;
  std::vector<std::pair<TLocaleReader*, const TMessages*>> Items IXO_GUARDED_BY(Lock);
};

void Select(TLocaleReader* reader, const TMessages* messages) {
  static TSelections selections;
  TGuard guard(selections.Lock);
  auto& items = selections.Items;
  std::erase_if(items, [&](const auto& item) { return item.first == reader; });
  if (messages) items.emplace_back(reader, messages);
  UseMessages(items.empty() ? nullptr : items.back().second);
  UseCatalogues(items.empty() ? nullptr : items.back().first);
}

}  // namespace

TLocaleReader::~TLocaleReader() {
  for (const auto& [text, installed] : FInstalled)
    if (text->Get() == installed) text->Set(nullptr);
  Select(this, nullptr);
}

TLocaleReader::TRead TLocaleReader::Read(std::string_view language) const {
  TRead read;
  const std::filesystem::path file = FFolder / (std::string(language) + ".json");
  if (std::error_code error; language == kBuiltIn && !std::filesystem::exists(file, error)) return read;
  auto& [catalogue, refused, problem] = read;
  try {
    const auto document = nlohmann::json::parse(ReadFile(file).OrThrow(pbUnusable));
    for (const auto& [section, texts] : document.items())
      for (const auto& [key, text] : texts.items()) {
        if (section != "Messages")
          catalogue.Texts[std::string(section).append("/").append(key)] = text.get<std::string>();
        else if (SameConversions(text.get<std::string>().c_str(), key.c_str()))
          catalogue.Messages.emplace(key, text.get<std::string>());
        else
          refused.push_back(Format(Tr("%s: Messages: \"%s\" does not take the arguments of \"%s\""), file.c_str(),
                                   text.get<std::string>().c_str(), key.c_str()));
      }
  } catch (const EProblem& e) {
    problem = e.what();
  } catch (const std::exception& e) {
    problem = Format("%s: %s", file.c_str(), e.what());
  }
  if (!problem.empty()) {
    catalogue = {};
    refused.clear();
    problem += std::string("; ") + Tr("the built-in texts are shown");
  }
  return read;
}

const TCatalogue* TLocaleReader::Keep(TCatalogue&& catalogue) {
  auto same = std::ranges::find_if(FKept, [&](const auto& known) { return *known == catalogue; });
  if (same == FKept.end()) same = FKept.insert(same, std::make_unique<const TCatalogue>(std::move(catalogue)));
  return same->get();
}

std::string TLocaleReader::SelectLanguage(std::string_view language) {
  TRead read = Read(language);
  TGuard guard(FLock);
  FCurrent = Keep(std::move(read.Catalogue));
  FLanguage = read.Problem.empty() ? std::string(language) : kBuiltIn;
  if (read.Problem.empty()) FLanguages[FLanguage] = FCurrent;
  FRefused = std::move(read.Refused);
  Select(this, &FCurrent->Messages);
  return read.Problem;
}

std::vector<std::string> TLocaleReader::Apply(TTextList texts) {
  TGuard guard(FLock);
  std::vector<std::string> refused = std::exchange(FRefused, {});
  for (TText* text : texts) {
    if (FTexts.insert(text).second) FBackOf = nullptr;
    const std::string* const found = FCurrent ? FCurrent->Find(*text) : nullptr;
    if (!found) {
      text->Set(nullptr);
    } else if (SameConversions(found->c_str(), text->Default)) {
      text->Set(FInstalled[text] = found->c_str());
    } else {
      text->Set(nullptr);
      refused.push_back(Format(Tr("%s.json: %s/%s: \"%s\" does not take the arguments of \"%s\""), FLanguage.c_str(),
                               text->Section, text->Key, found->c_str(), text->Default));
    }
  }
  return refused;
}

void TLocaleReader::LoadAll() {
  if (std::exchange(FLoadedAll, true)) return;
  std::vector<std::string> languages{kBuiltIn};
  std::error_code error;
  for (const auto& file : std::filesystem::directory_iterator(FFolder, error))
    if (file.path().extension() == ".json") languages.push_back(file.path().stem());
  for (const std::string& language : languages) {
    if (FLanguages.contains(language)) continue;
    if (TRead read = Read(language); read.Problem.empty()) FLanguages[language] = Keep(std::move(read.Catalogue));
  }
}

const TCatalogue* TLocaleReader::Catalogue(std::string_view language) {
  TGuard guard(FLock);
  LoadAll();
  const auto found = FLanguages.find(language);
  return found == FLanguages.end() ? nullptr : found->second;
}

std::string TLocaleReader::LanguageOf(const TCatalogue& catalogue) {
  TGuard guard(FLock);
  const auto found =
      std::ranges::find_if(FLanguages, [&](const auto& language) { return language.second == &catalogue; });
  return found == FLanguages.end() ? std::string() : found->first;
}

std::string TLocaleReader::Retold(const std::string& text) {
  const TCatalogue* const to = GThreadCatalogue;
  TGuard guard(FLock);
  if (!to || !FCurrent || to == FCurrent) return text;
  if (std::exchange(FBackOf, FCurrent) != FCurrent) {
    FTextsBack.clear();
    FMessagesBack.clear();
    for (TText* const known : FTexts) FTextsBack[FCurrent->Of(*known)].push_back(known);
    for (const auto& [english, own] : FCurrent->Messages) FMessagesBack[own].push_back(english.c_str());
  }
  std::set<std::string_view> told;
  if (const auto found = FTextsBack.find(text); found != FTextsBack.end()) {
    for (const TText* const known : found->second) told.insert(to->Of(*known));
  } else if (const auto message = FMessagesBack.find(text); message != FMessagesBack.end()) {
    for (const char* const english : message->second) told.insert(Tr(english));
  } else {
    told.insert(Tr(text.c_str()));  // an English message, or none
  }
  return told.size() == 1 ? std::string(*told.begin()) : text;
}

std::vector<std::string> TLocaleReader::Languages() {
  TGuard guard(FLock);
  LoadAll();
  std::vector<std::string> languages;
  for (const auto& [language, catalogue] : FLanguages) languages.push_back(language);
  return languages;
}

IXO_DEFINE_SERVICE(TLocaleReader, LocaleReader)

}  // namespace ixocamglue
