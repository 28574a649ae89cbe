#include "ixocut/OperatorTexts.h"

#include <iostream>

#include "controller/StateFolder.h"
#include "controller/Texts.h"

namespace ixocut {
using namespace ixocontroller;

TOperatorTexts::TOperatorTexts(const char* command, const std::string& language) : FLocale(ShareFolder() / "locale") {
  const auto complain = [&](const std::string& problem) {
    std::cerr << "ixocut " << command << ": " << problem << std::endl;
  };
  if (const std::string problem = FLocale.SelectLanguage(language); !problem.empty()) complain(problem);
  for (const std::string& refused : FLibrary.LoadLocaleResources()) complain(refused);
  for (const TTextList texts : kControllerTexts)
    for (const std::string& refused : FLocale.Apply(texts)) complain(refused);
}

}  // namespace ixocut
