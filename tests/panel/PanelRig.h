// A panel manager between recording ports: what reaches the cutting system, the window and the log.
#pragma once

#include "fixture/Faults.h"
#include "fixture/LogTexts.h"
#include "ixocamglue/panel/Kbpmngr.h"
#include "ixocamglue/platform/alarms/NcAlarmManager.h"
#include "ixocamglue/platform/ports/CutSystem.h"
#include "ixocamglue/platform/ports/PanelPorts.h"
#include "ixocamglue/platform/services/VirtualClock.h"
#include "ixocamglue/platform/states/ForbidTypes.h"
#include "ixocamglue/platform/states/NcParams.h"
#include "ixocamglue/support/Format.h"

namespace ixocamglue::test {

class TRecordingCut final : public TNcCutSystem {
 public:
  std::int32_t GetState() override { return State; }
  void Lock() override {}
  void Unlock() override {}
  void SwitchLaser(bool) override {}
  void KeyDown(std::int32_t command, std::int32_t param, bool fromPanel) override {
    Calls.push_back(Format("down %d %d%s", command, param, fromPanel ? "" : " not from the panel"));
    if (Fails) throw std::runtime_error("unreachable");
  }
  void KeyUp(std::int32_t command, std::int32_t param) override { Calls.push_back(Format("up %d %d", command, param)); }
  TTexts Take() { return std::exchange(Calls, {}); }

  std::int32_t State = 0;
  bool Fails = false;
  TTexts Calls;
};

struct TPanelRig : TLogWorld {
  TPanelRig() {
    Sink.Form = [](const TLogRecord& record) {
      return record.Diagnostic ? record.Source + ": " + record.Text
                               : Format("%d %d %s", record.Kind, record.Colour, record.Text.c_str());
    };
  }
  // Masks as a refresh would have left them.
  static void SetMasks(TKBPManager& manager, TKeyMask client, TKeyMask alarm, TKeyMask state, TKeyMask warning) {
    manager.SetMap(kMapClientPermit, client);
    manager.SetMap(kMapAlarmPermit, alarm);
    manager.SetMap(kMapStatePermit, state);
    manager.SetMap(kMapWarningPermit, warning);
  }

  TVirtualClock VirtualClock;
  TNcParams Params;
  TNcForbidTypeRegistry Registry;
  TWindowTable Windows;
  TNcSysInts SysInts;
  TNcAlarmManager Alarms;
  TRecordingCut Cut;
  TAllInstalled<IClock, TNcParams, TNcForbidTypeRegistry, TNcWindows, TNcSysInts, TNcAlarms, TNcCutSystem> Installed{
      VirtualClock, Params, Registry, Windows, SysInts, Alarms, Cut};
};

}  // namespace ixocamglue::test
