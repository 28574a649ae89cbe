// Tells the units of a change of language, and makes it.
//
// Any thread. Events are called one after the other in the order of their names, on the thread that changes the
// language; what one throws is logged. A unit's texts are its own business: its event reloads them.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "ixocamglue/support/Installed.h"
#include "ixocamglue/support/Locks.h"
#include "ixocamglue/support/Problem.h"

namespace ixocamglue {

class TLocaleManager {
 public:
  explicit TLocaleManager(std::string language = "zh") : FLanguage(std::move(language)) {}

  // A second event under a name replaces the first.
  void RegisterEvents(std::string_view name, std::function<void()> event);
  // Waits for a call in flight, unless it comes from that call; the caller holds no lock that an event takes.
  void UnRegisterEvents(std::string_view name);

  // Selects the language in the installed locale reader, then calls the events. Empty on success, else the reason; the
  // language is then the built-in one.
  std::string ChangeLanguage(std::string_view language);
  [[nodiscard]] std::string Language() const;

 private:
  TRecursiveSection FEventsLock;  // held while events run
  std::map<std::string, std::function<void()>, std::less<>> FEvents IXO_GUARDED_BY(FEventsLock);
  mutable TCriticalSection FLock;
  std::string FLanguage IXO_GUARDED_BY(FLock);
};

IXO_DECLARE_SERVICE(TLocaleManager, LocaleManager);

// Which of the locale reader's languages an Accept-Language header asks for most ("en-GB,en;q=0.9": "en", "zh-Hant":
// "zh"); the controller's own where it is empty or names none of them. For a TLanguageScope. Any thread.
[[nodiscard]] std::string RequestLanguage(std::string_view acceptLanguage);
// The controller's language; "zh" where there is no manager. Any thread.
[[nodiscard]] std::string OwnLanguage();
// The language of this thread's TLanguageScope, the controller's without one.
[[nodiscard]] std::string ThreadLanguage();
// A text that was made in the controller's language, in that of this thread's TLanguageScope, where it is a whole text
// or message without arguments; any other one as it is. Any thread.
[[nodiscard]] std::string Retold(const std::string& text);
// The same of each text of a problem but its place.
[[nodiscard]] TProblem Retold(const TProblem& problem);

}  // namespace ixocamglue
