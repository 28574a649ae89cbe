#include "ixocamglue/Library.h"

#include <algorithm>
#include <iterator>

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
#include "ixocamglue/platform/states/NcStateTexts.h"
#include "ixocamglue/support/Faults.h"

namespace ixocamglue {
namespace {

struct TPart {
  const char* Name;
  void (*Start)();
  void (*Free)();
};

// Faults reach the application log; before and after the library's life they are silent.
void StartFaultReport() {
  SetFaultHandler([](std::string_view text) { LogMsg(lkException, 0, text, "fault"); });
}
void FreeFaultReport() { SetFaultHandler(nullptr); }

constexpr TPart kUnits[] = {
    {"Faults", StartFaultReport, FreeFaultReport},
    {"Uassistconfig", StartAssistConfig, FreeAssistConfig},
    {"Libmachinecfg", StartMachineQueries, FreeMachineQueries},
    {"Almintprt", StartAlarmInterpreter, FreeAlarmInterpreter},
    {"Ualarmmanager", StartAlarmManager, FreeAlarmManager},
    {"Ustatemotionbase", StartMotionController, FreeMotionController},
    {"Uzemgasadjustmodel", ZemGasAdjustModel_Create, ZemGasAdjustModel_Destroy},
    {"Kbpmngr", StartKBPManager, FreeKBPManager},
    {"Uknob", nullptr, FreeKnob},  // made at the first call
};

constexpr TTextList kTexts[] = {kMachineQueryTexts, kModbusTexts, kAlarmTexts,   kMotionTexts,
                                kGasAdjustTexts,    kKBPTexts,    kMonitorTexts, kNcStateTexts};

}  // namespace

std::span<const TTextList> LibraryTexts() { return kTexts; }

TLibrary::TLibrary() {
  for (const TPart& unit : kUnits)
    if (unit.Start) unit.Start();
}

TLibrary::~TLibrary() {
  for (auto unit = std::rbegin(kUnits); unit != std::rend(kUnits); ++unit)
    if (unit->Free) unit->Free();
}

std::vector<std::string> TLibrary::LoadLocaleResources() {
  std::vector<std::string> refused;
  TLocaleReader* const reader = LocaleReader();
  if (!reader) return refused;
  for (const TTextList texts : kTexts) std::ranges::move(reader->Apply(texts), std::back_inserter(refused));
  if (TGasTypeDic* const gases = GasTypeDic()) gases->LoadLocaleResources();
  return refused;
}

}  // namespace ixocamglue
