#include "library/Library.h"

#include <algorithm>
#include <iterator>
#include <span>

#include "alarms/Almintprt.h"
#include "alarms/Ualarmmanager.h"
#include "alarms/Ualarmtexts.h"
#include "config/Libmachinecfg.h"
#include "config/Uassistconfig.h"
#include "devcomm/Umodbustexts.h"
#include "gascal/Ugasadjusttexts.h"
#include "gascal/Uzemgasadjustmodel.h"
#include "monitor/Umonitortexts.h"
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
    {"Uassistconfig", StartAssistConfig, FreeAssistConfig, nullptr},
    {"Libmachinecfg", StartMachineQueries, FreeMachineQueries, MachineQueryTexts},
    {"Udevthrdcomm", nullptr, nullptr, ModbusTexts},
    {"Almintprt", StartAlarmInterpreter, FreeAlarmInterpreter, AlarmTexts},
    {"Ualarmmanager", StartAlarmManager, FreeAlarmManager, nullptr},
    {"Ustatemotionbase", StartMotionController, FreeMotionController, MotionTexts},
    {"Uzemgasadjustmodel", ZemGasAdjustModel_Create, ZemGasAdjustModel_Destroy, GasAdjustTexts},
    {"Kbpmngr", StartKBPManager, FreeKBPManager, KBPTexts},
    {"Uknob", nullptr, FreeKnob, nullptr},  // made at the first call
    {"Usystemmonitordef", nullptr, nullptr, MonitorTexts},
};

}  // namespace

TLibrary::TLibrary() {
  for (const TUnit& unit : kUnits)
    if (unit.Start) unit.Start();
}

TLibrary::~TLibrary() {
  for (auto unit = std::rbegin(kUnits); unit != std::rend(kUnits); ++unit) {
    if (unit->Free) unit->Free();
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
  if (TGasTypeDic* const gases = GasTypeDic()) gases->LoadLocaleResources();
  return refused;
}

}  // namespace ixocamglue
