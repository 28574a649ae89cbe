#include "ixocut/OperatorTexts.h"

#include "controller/process/StateFolder.h"
#include "controller/texts/Texts.h"

namespace ixocut {
using namespace ixocontroller;

TOperatorTexts::TOperatorTexts(const TConsole& console) : FLocale(ShareFolder() / "locale") {
  if (const std::string problem = FManager.ChangeLanguage(console.Settings().Language); !problem.empty())
    console.Note(problem);
  for (const std::string& refused : FLibrary.LoadLocaleResources()) console.Note(refused);
  for (const TTextList texts : kControllerTexts)
    for (const std::string& refused : FLocale.Apply(texts)) console.Note(refused);
}

}  // namespace ixocut
