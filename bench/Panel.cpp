// The key panel's three verbs, on memory cells: a refresh with its LEDs, a press that is sent, and a change of form.
#include <optional>

#include "bench/Machine.h"
#include "bench/Rows.h"
#include "ixocamglue/panel/Kbpmngr.h"
#include "ixocamglue/platform/ports/NcAlarms.h"
#include "ixocamglue/platform/ports/PanelPorts.h"
#include "ixocamglue/platform/states/ForbidTypes.h"

namespace ixocamglue::bench {
namespace {

class TQuietAlarms final : public TNcAlarms {
 public:
  bool AllowCut() override { return true; }
  bool AllowLaser() override { return true; }
  bool AllowFollower() override { return true; }
  bool AllowHoming() override { return true; }
  bool AllowMove() override { return true; }
  bool AllowMoveAxis(std::int32_t, bool) override { return true; }
  bool RequireStop() override { return false; }
  bool RequireOrg() override { return false; }
};

class TPanelCells {
 public:
  TPanelCells() {
    FPanel.SetClientPermit(kMapClientPermit, kAllKeys);
    FPanel.GetLEDState();
  }

 protected:
  TStillClock FClock;
  TInstalled<IClock> FClockInstalled{FClock};
  TNcParams FParams;
  TInstalled<TNcParams> FParamsInstalled{FParams};
  TNcForbidTypeRegistry FForbidden;
  TInstalled<TNcForbidTypeRegistry> FForbiddenInstalled{FForbidden};
  TWindowTable FWindows;
  TInstalled<TNcWindows> FWindowsInstalled{FWindows};
  TNcSysInts FSysInts;
  TInstalled<TNcSysInts> FSysIntsInstalled{FSysInts};
  TQuietAlarms FAlarms;
  TInstalled<TNcAlarms> FAlarmsInstalled{FAlarms};
  TCellCutSystem FCut;
  TInstalled<TNcCutSystem> FCutInstalled{FCut};
  TKBPManager FPanel;
};

class TLeds : public TPanelCells {
 public:
  void Run() { benchmark::DoNotOptimize(FPanel.GetLEDState()); }
};

class TPress : public TPanelCells {
 public:
  void Run() { FPanel.KBKeyDown(CK_GAS, 0); }
};

class TClientPermit : public TPanelCells {
 public:
  void Run() { FPanel.SetClientPermit(kMapClientPermit, 0x75FC3); }
};

}  // namespace

std::vector<TRow> PanelRows() {
  return {Measure<TLeds>({.Id = "panel_leds", .Name = "panel: GetLEDState", .MaxAllocations = 0}),
          Measure<TPress>({.Id = "panel_press", .Name = "panel: key press, sent", .MaxAllocations = 0}),
          Measure<TClientPermit>({.Id = "panel_permit", .Name = "panel: SetClientPermit", .MaxAllocations = 0})};
}

}  // namespace ixocamglue::bench
