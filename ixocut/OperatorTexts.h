// The operator's texts in the asked language, for the life of a command that runs no controller.
#pragma once

#include <string>

#include "ixocamglue/Library.h"
#include "ixocamglue/platform/services/Locale.h"
#include "ixocamglue/platform/services/LocaleManager.h"
#include "ixocut/Console.h"

namespace ixocut {
using namespace ixocamglue;

class TOperatorTexts {
 public:
  // In the console's language; what cannot be shown in it is noted there.
  explicit TOperatorTexts(const TConsole& console);

 private:
  TLocaleReader FLocale;
  TInstalled<TLocaleReader> FInstalled{FLocale};
  TLocaleManager FManager;  // tells the units of the library that the language is another
  TInstalled<TLocaleManager> FManagerInstalled{FManager};
  TLibrary FLibrary;
};

}  // namespace ixocut
