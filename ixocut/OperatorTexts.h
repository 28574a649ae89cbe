// The operator's texts in the asked language, for the life of a command that runs no controller.
#pragma once

#include <string>

#include "ixocamglue/Library.h"
#include "ixocamglue/platform/services/Locale.h"

namespace ixocut {
using namespace ixocamglue;

class TOperatorTexts {
 public:
  // What cannot be shown in the language is said on the standard error output, after the command's name.
  TOperatorTexts(const char* command, const std::string& language);

 private:
  TLocaleReader FLocale;
  TInstalled<TLocaleReader> FInstalled{FLocale};
  TLibrary FLibrary;
};

}  // namespace ixocut
