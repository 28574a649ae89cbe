#include "controller/service/Status.h"

#include "controller/gasvalve/GasDescent.h"
#include "controller/process/RealTime.h"
#include "ixocamglue/platform/ports/CutStates.h"
#include "ixocamglue/platform/services/LocaleManager.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {

const char* StateWord(std::int32_t state) {
  if (state == nsCustomMotion) return "procedure";
  if (state == nsZemGasAdjust) return "gas-calibration";
  if (state == nsGasDescent) return "gas-descent";
  switch (ClassifyCutState(state)) {
    case csStandby: return "standby";
    case csWorking: return "working";
    case csPaused: return "paused";
    case csReturnOrg: return "return-to-origin";
    case csJogging: return "jogging";
    case csDryRun: return "dry-run";
    case csCalibration: return "follower-calibration";
    case csWalkAround: return "walk-around";
    case csOther: break;
  }
  return "other";
}

nlohmann::ordered_json SignalsJson(const TMachineSnapshot& now) {
  return {
      {"position", {{"xMm", now.Pos.X}, {"yMm", now.Pos.Y}, {"zMm", now.Z}, {"z2Mm", now.Z2}, {"focusMm", now.Focus}}},
      {"moving", {{"axes", now.AxesMoving}, {"z", now.ZMoving}, {"focus", now.FocusMoving}}},
      {"laser", now.Laser},
      {"emission", now.Emission},
      {"aiming", now.Aiming},
      {"gas", {{"on", now.Gas}, {"branch", now.GasBranch}, {"setBar", now.GasSetBar}, {"bar", now.GasBar}}},
      {"following", now.Following},
      {"calibrating", now.Calibrating},
      {"nozzle", now.Nozzle < 0 ? nlohmann::ordered_json() : nlohmann::ordered_json(now.Nozzle)},
      {"dockedTable", now.DockedTable},
      {"outputsOn", now.OutputsOn}};
}

TMachineSnapshot SnapshotFromJson(const nlohmann::ordered_json& signals, TMachineSnapshot before) {
  TMachineSnapshot now = std::move(before);
  static const nlohmann::ordered_json none = nlohmann::ordered_json::object();
  const auto part = [&](const char* name) -> const nlohmann::ordered_json& {
    const auto found = signals.find(name);
    return found != signals.end() && found->is_object() ? *found : none;
  };
  const auto set = [](const nlohmann::ordered_json& json, const char* name, auto& value) {
    if (const auto member = json.find(name); member != json.end() && !member->is_null()) member->get_to(value);
  };
  const auto& position = part("position");
  set(position, "xMm", now.Pos.X);
  set(position, "yMm", now.Pos.Y);
  set(position, "zMm", now.Z);
  set(position, "z2Mm", now.Z2);
  set(position, "focusMm", now.Focus);
  const auto& moving = part("moving");
  set(moving, "axes", now.AxesMoving);
  set(moving, "z", now.ZMoving);
  set(moving, "focus", now.FocusMoving);
  set(signals, "laser", now.Laser);
  set(signals, "emission", now.Emission);
  set(signals, "aiming", now.Aiming);
  const auto& gas = part("gas");
  set(gas, "on", now.Gas);
  set(gas, "branch", now.GasBranch);
  set(gas, "setBar", now.GasSetBar);
  set(gas, "bar", now.GasBar);
  set(signals, "following", now.Following);
  set(signals, "calibrating", now.Calibrating);
  if (const auto nozzle = signals.find("nozzle"); nozzle != signals.end())
    now.Nozzle = nozzle->is_null() ? -1 : nozzle->get<std::int32_t>();
  set(signals, "dockedTable", now.DockedTable);
  set(signals, "outputsOn", now.OutputsOn);
  return now;
}

bool SameSignals(const TMachineSnapshot& a, const TMachineSnapshot& b) {
  TMachineSnapshot other = b;
  other.Ms = a.Ms;
  return a == other;
}

nlohmann::ordered_json StatusJson(const TStatus& status) {
  nlohmann::ordered_json json{{"time", UtcText(status.UnixMs)},
                              {"machineMs", status.MachineMs},
                              {"state", StateWord(status.State)},
                              {"stateNumber", status.State},
                              {"running", status.Running},
                              {"allOff", status.AllOff},
                              {"safePending", status.SafePending},
                              {"beatAgeMs", status.BeatAgeMs},
                              {"latched", status.Machine.LatchTripped},
                              {"latchReason", Tr(status.Machine.LatchReason.c_str())},
                              {"allowMove", status.AllowMove},
                              {"allowLaser", status.AllowLaser},
                              {"alarms", status.Alarms},
                              {"signals", SignalsJson(status.Machine)},
                              {"run", nullptr}};
  if (status.Run != 0) {
    auto path = nlohmann::ordered_json::array();
    for (const TStepPlace& step : status.Path)
      path.push_back({{"number", step.Number},
                      {"count", step.Count},
                      {"command", step.Command},
                      {"description", Retold(step.Desc)}});
    nlohmann::ordered_json run{{"id", status.Run},      {"procedure", status.Procedure}, {"startedBy", status.Starter},
                               {"runMs", status.RunMs}, {"path", std::move(path)},       {"nobodyAttendsMs", nullptr}};
    if (status.NobodyMs) run["nobodyAttendsMs"] = *status.NobodyMs;
    json["run"] = std::move(run);
  }
  return json;
}

std::shared_ptr<const std::string> TStatusTexts::Of(const TStatus& status, const std::string& language) {
  {
    TGuard guard(FLock);
    const auto found = FTexts.find(language);
    if (FNumber == status.Number && found != FTexts.end()) return found->second;
  }
  auto text = std::make_shared<const std::string>(
      StatusJson(status).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
  TGuard guard(FLock);
  if (FNumber < status.Number) {
    FNumber = status.Number;
    FTexts.clear();
  }
  if (FNumber == status.Number) FTexts[language] = text;
  return text;
}

}  // namespace ixocontroller
