#include "ixocamglue/platform/services/LocaleManager.h"

#include <utility>
#include <vector>

#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Locale.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/support/Faults.h"

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

}  // namespace ixocamglue
