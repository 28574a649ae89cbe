#include "ixocamglue/Library.h"

#include <algorithm>
#include <iterator>
#include <span>

#include "ixocamglue/alarms/Almintprt.h"
#include "ixocamglue/alarms/Ualarmmanager.h"
#include "ixocamglue/alarms/Ualarmtexts.h"
#include "ixocamglue/config/Libmachinecfg.h"
#include "ixocamglue/config/Uassistconfig.h"
#include "ixocamglue/devcomm/Umodbustexts.h"
#include "ixocamglue/gascal/Ugasadjusttexts.h"
#include "ixocamglue/gascal/Uzemgasadjustmodel.h"
#include "ixocamglue/monitor/Umonitortexts.h"
#include "ixocamglue/motion/Umotioncontroller.h"
#include "ixocamglue/motion/Umotiontexts.h"
#include "ixocamglue/panel/Kbpmngr.h"
#include "ixocamglue/panel/Uknob.h"
#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Locale.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/support/Faults.h"
#include "ixocamglue/support/Texts.h"

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
