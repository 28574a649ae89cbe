#include "ixocamglue/platform/services/LocaleManager.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Locale.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/support/Faults.h"
#include "ixocamglue/support/ValueText.h"

namespace ixocamglue {

void TLocaleManager::RegisterEvents(std::string_view name, std::function<void()> event) {
  TGuard guard(FEventsLock);
  FEvents.insert_or_assign(std::string(name), std::move(event));
}

void TLocaleManager::UnRegisterEvents(std::string_view name) {
  TGuard guard(FEventsLock);
  if (const auto found = FEvents.find(name); found != FEvents.end()) FEvents.erase(found);
}

std::string TLocaleManager::ChangeLanguage(std::string_view language) {
  TGuard events(FEventsLock);
  std::string problem;
  if (TLocaleReader* const reader = LocaleReader()) problem = reader->SelectLanguage(language);
  {
    TGuard guard(FLock);
    FLanguage = problem.empty() ? std::string(language) : "zh";
  }
  const auto calls = FEvents;  // an event may register and unregister
  for (const auto& [name, event] : calls) {
    if (!FEvents.contains(name)) continue;
    try {
      event();
    } catch (...) {
      LogMsg(lkException, 0, name + ": " + DescribeException(std::current_exception()), "LocaleManager");
    }
  }
  return problem;
}

std::string TLocaleManager::Language() const {
  TGuard guard(FLock);
  return FLanguage;
}

IXO_DEFINE_SERVICE(TLocaleManager, LocaleManager)

namespace {

// "en;q=0.8": the quality, which is 1 where none is given and 0 where it is no number.
double Quality(std::string_view parameters) {
  const auto at = parameters.find("q=");
  return at == std::string_view::npos ? 1.0 : ParseNumber<double>(TrimXml(parameters.substr(at + 2))).value_or(0.0);
}

}  // namespace

std::string OwnLanguage() {
  const TLocaleManager* const manager = LocaleManager();
  return manager ? manager->Language() : "zh";
}

std::string ThreadLanguage() {
  TLocaleReader* const reader = GThreadCatalogue ? LocaleReader() : nullptr;
  std::string language = reader ? reader->LanguageOf(*GThreadCatalogue) : std::string();
  return language.empty() ? OwnLanguage() : language;
}

std::string Retold(const std::string& text) {
  TLocaleReader* const reader = GThreadCatalogue ? LocaleReader() : nullptr;
  return reader ? reader->Retold(text) : text;
}

TProblem Retold(const TProblem& problem) {
  return {Retold(problem.What), problem.Where, Retold(problem.Why), Retold(problem.Remedy)};
}

std::string RequestLanguage(std::string_view acceptLanguage) {
  std::string best = OwnLanguage();
  TLocaleReader* const reader = LocaleReader();
  if (!reader || acceptLanguage.empty()) return best;
  const std::vector<std::string> known = reader->Languages();
  double bestQuality = 0.0;
  while (!acceptLanguage.empty()) {
    const std::string_view item = acceptLanguage.substr(0, acceptLanguage.find(','));
    acceptLanguage.remove_prefix(std::min(item.size() + 1, acceptLanguage.size()));
    const auto parameters = std::min(item.find(';'), item.size());
    const double quality = Quality(item.substr(parameters));
    if (quality <= bestQuality) continue;
    const std::string_view tag = TrimXml(item.substr(0, parameters));
    const std::string_view primary = tag.substr(0, tag.find('-'));
    const auto match = std::ranges::find_if(known, [&](const auto& language) { return SameFolded(language, primary); });
    if (match == known.end()) continue;
    best = *match;
    bestQuality = quality;
  }
  return best;
}

}  // namespace ixocamglue
