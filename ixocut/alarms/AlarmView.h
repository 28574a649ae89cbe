// How the program shows alarms: one line each, in the chosen language, and the services that the lookups need where no
// machine runs. Main thread, except Line, which any thread may call.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "controller/alarms/AlarmRows.h"
#include "ixocamglue/Library.h"
#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Locale.h"
#include "ixocamglue/platform/services/LocaleManager.h"
#include "ixocamglue/platform/xml/MachineConfig.h"

namespace ixocut {
using namespace ixocamglue;
using namespace ixocontroller;

// "2026-01-01 08:00:00.000+08:00  [active]  1  TPLaser#1  L101  | Laser  | emission lost  | reason  | solution"; the
// time of this place.
[[nodiscard]] std::string AlarmLine(const TAlarmRow& row);
// "active", "cleared", "closed by a restart"; with ", by hand", ", acknowledged by NAME" and ", first" behind it.
[[nodiscard]] std::string AlarmState(const TAlarmRow& row);

// The interpreter with its services, for a command without a machine.
class TAlarmLookup {
 public:
  // `machine`: the machine file whose alarms count too; empty: none. Throws EProblem for a file that cannot be used.
  TAlarmLookup(const std::string& language, const std::filesystem::path& machine);

 private:
  TAppSys FApp;
  TInstalled<TAppSys> FAppInstalled{FApp};
  TMachineConfig FConfig;
  TInstalled<TMachineConfig> FConfigInstalled{FConfig};
  TLocaleReader FLocale;
  TInstalled<TLocaleReader> FLocaleInstalled{FLocale};
  TLocaleManager FLocaleManager;
  TInstalled<TLocaleManager> FLocaleManagerInstalled{FLocaleManager};
  std::optional<TLibrary> FLibrary;
};

}  // namespace ixocut
