// A panel manager between recording ports: what reaches the cutting system, the window and the log.
#pragma once

#include <string>
#include <vector>

#include "fixture/Faults.h"
#include "ixocamglue/panel/Kbpmngr.h"
#include "ixocamglue/platform/alarms/NcAlarmManager.h"
#include "ixocamglue/platform/ports/CutSystem.h"
#include "ixocamglue/platform/ports/PanelPorts.h"
#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/platform/services/VirtualClock.h"
#include "ixocamglue/platform/states/ForbidTypes.h"
#include "ixocamglue/platform/states/NcParams.h"
#include "ixocamglue/platform/xml/MachineConfig.h"
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

class TMemorySink final : public ILogSink {
 public:
  void Write(const TLogRecord& record) override {
    if (Fails) throw std::runtime_error("disk full");
    if (record.Diagnostic)
      Traces.push_back(record.Source + ": " + record.Text);
    else
      Lines.push_back(Format("%d %d %s", record.Kind, record.Colour, record.Text.c_str()));
  }
  bool Fails = false;
  TTexts Lines, Traces;
};

struct TPanelRig {
  TPanelRig() { Logs.AddSink(Sink); }

  TTexts LogLines() {
    Logs.DrainOnce();
    return std::exchange(Sink.Lines, {});
  }
  // Masks as a refresh would have left them.
  static void SetMasks(TKBPManager& manager, TKeyMask client, TKeyMask alarm, TKeyMask state, TKeyMask warning) {
    manager.SetMap(kMapClientPermit, client);
    manager.SetMap(kMapAlarmPermit, alarm);
    manager.SetMap(kMapStatePermit, state);
    manager.SetMap(kMapWarningPermit, warning);
  }

  TVirtualClock VirtualClock;
  TInstalled<IClock> ClockInstalled{VirtualClock};
  TMemorySink Sink;
  TLogService Logs{256};
  TInstalled<TLogService> LogsInstalled{Logs};
  TAppSys App;
  TInstalled<TAppSys> AppInstalled{App};
  TNcParams Params;
  TInstalled<TNcParams> ParamsInstalled{Params};
  TNcForbidTypeRegistry Registry;
  TInstalled<TNcForbidTypeRegistry> RegistryInstalled{Registry};
  TWindowTable Windows;
  TInstalled<TNcWindows> WindowsInstalled{Windows};
  TNcSysInts SysInts;
  TInstalled<TNcSysInts> SysIntsInstalled{SysInts};
  TNcAlarmManager Alarms;
  TInstalled<TNcAlarms> AlarmsInstalled{Alarms};
  TRecordingCut Cut;
  TInstalled<TNcCutSystem> CutInstalled{Cut};
};

}  // namespace ixocamglue::test
