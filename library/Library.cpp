#include "library/Library.h"

#include <algorithm>
#include <iterator>
#include <span>

#include "motion/Umotioncontroller.h"
#include "motion/Umotiontexts.h"
#include "panel/Kbpmngr.h"
#include "panel/Uknob.h"
#include "platform/AppSys.h"
#include "platform/Locale.h"
#include "platform/Log.h"
#include "support/Faults.h"
#include "support/Texts.h"

namespace ixocamglue {
namespace {

struct TUnit {
  const char* Name;
  void (*Start)();
  void (*Free)();
  std::span<TText* const> (*Texts)();
};

// Faults reach the application log; before and after the library's life they are silent.
void StartFaultReport() {
  SetFaultHandler([](std::string_view text) { LogMsg(lkException, 0, text, "fault"); });
}
void FreeFaultReport() { SetFaultHandler(nullptr); }

constexpr TUnit kUnits[] = {
    {"Faults", StartFaultReport, FreeFaultReport, nullptr},
    {"Ustatemotionbase", StartMotionController, FreeMotionController, MotionTexts},
    {"Kbpmngr", StartKBPManager, FreeKBPManager, KBPTexts},
    {"Uknob", [] {}, FreeKnob, nullptr},  // made at the first call
};

}  // namespace

TLibrary::TLibrary() {
  for (const TUnit& unit : kUnits) unit.Start();
}

TLibrary::~TLibrary() {
  for (auto unit = std::rbegin(kUnits); unit != std::rend(kUnits); ++unit) {
    unit->Free();
    if (unit->Texts)
      for (TText* text : unit->Texts()) text->Set(nullptr);
  }
}

std::vector<std::string> TLibrary::LoadLocaleResources() {
  std::vector<std::string> refused;
  TLocaleReader* const reader = LocaleReader();
  if (!reader) return refused;
  for (const TUnit& unit : kUnits) {
    if (!unit.Texts) continue;
    std::ranges::move(reader->Apply(unit.Texts()), std::back_inserter(refused));
  }
  return refused;
}

}  // namespace ixocamglue
