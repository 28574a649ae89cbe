// What ends things, and the way back; what the machine is.
#include "controller/api/Api.h"
#include "controller/gas/GasReport.h"
#include "ixocamglue/platform/ports/CutSystem.h"
#include "ixocamglue/platform/ports/MotionDriver.h"
#include "ixocamglue/platform/services/LocaleManager.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

// From this machine anybody may stop; from another one whoever has a role.
std::optional<TApiReply> MayStop(const TAsker& who) {
  if (who.Local || who.Role > roNone) return std::nullopt;
  return Fail(401, {.What = Tr("from another machine this needs a token"), .Remedy = Tr("send a token of any role")});
}

TApiReply Done(TService& service) {
  TApiReply reply;
  reply.Status = 202;
  reply.Body = {{"state", StateWord(service.Controller().Framework().CurrentState())}, {"allOff", service.IsAllOff()}};
  return reply;
}

TApiReply StopIt(TService& service, const TApiRequest& request) {
  if (auto refused = MayStop(request.Who)) return *std::move(refused);
  service.Stop(request.Who);
  return Done(service);
}

TApiReply PauseIt(TService& service, const TApiRequest& request) {
  service.Pause(request.Who);
  return Done(service);
}

TApiReply SwitchAllOff(TService& service, const TApiRequest& request) {
  if (auto refused = MayStop(request.Who)) return *std::move(refused);
  service.AllOff(request.Who);
  return Done(service);
}

TApiReply ResetIt(TService& service, const TApiRequest& request) {
  if (!request.Who.Local && !service.Options().ResetFromAfar)
    return Fail(403, {.What = Tr("a reset is made at the machine"),
                      .Why = Tr("who resets has to see it"),
                      .Remedy = Tr("reset it from the controller's own machine")});
  if (const auto reset = service.Reset(request.Who); !reset) return Fail(409, reset.Problem());
  TApiReply reply;
  reply.Body = {{"state", StateWord(service.Controller().Framework().CurrentState())}, {"allOff", false}};
  return reply;
}

nlohmann::ordered_json AxisJson(const TAxisConfig& axis) {
  return {{"leastMm", axis.SoftLimitNeg}, {"mostMm", axis.SoftLimitPos}, {"mostMmPerS", axis.MaxSpeed}};
}

TApiReply ShowMachine(TService& service, const TApiRequest&) {
  const TMachineLimits& limits = service.Controller().Limits();
  const TMachineBounds& bounds = limits.Bounds;
  TNcCutSystem* const cut = CutSystem();
  auto gases = nlohmann::ordered_json::array();
  for (const TGasBranchConfig& gas : bounds.GasBranches)
    gases.push_back({{"branch", gas.GasType},
                     {"name", gas.Name},
                     {"text", Retold(ShownGas(gas.GasType))},
                     {"mostBar", gas.MaxPressure}});
  const auto ports = [](const std::vector<TPortConfig>& all) {
    auto list = nlohmann::ordered_json::array();
    for (const TPortConfig& port : all) list.push_back({{"number", port.Number}, {"name", port.Name}});
    return list;
  };
  auto faults = nlohmann::ordered_json::array();
  for (const TMachineFactory& machine : service.Options().Controller.Machines)
    for (const TMachineFault& fault : machine.Faults)
      faults.push_back({{"name", fault.Name}, {"description", Tr(fault.Description)}});
  const auto& table = limits.Table;
  TApiReply reply;
  reply.Body = {
      {"driver", service.Controller().Driver()},
      {"file", service.Options().Controller.MachineFile.string()},
      {"realtime", service.Options().Controller.Realtime},
      {"speed", service.Options().Controller.Realtime ? 1.0 : service.Options().Speed},
      {"fitted",
       {{"laser", cut && cut->Laser()},
        {"gas", cut && cut->Gas()},
        {"head", cut && cut->CutHeadCtrl()},
        {"followers", bounds.Followers},
        {"pallets", cut && cut->SwitchTable()},
        {"axes", MotionDriver() != nullptr}}},
      {"axes",
       {{"x", AxisJson(bounds.X)},
        {"y", AxisJson(bounds.Y)},
        {"z", AxisJson(bounds.Z)},
        {"focus", AxisJson(bounds.Focus)}}},
      {"safeZMm", bounds.SafeZ},
      {"table",
       {{"leastXMm", table.Min.X}, {"leastYMm", table.Min.Y}, {"mostXMm", table.Max.X}, {"mostYMm", table.Max.Y}}},
      {"gases", std::move(gases)},
      {"inputs", ports(bounds.Inports)},
      {"outputs", ports(bounds.Outports)},
      {"faults", std::move(faults)}};
  return reply;
}

// Stop and all-off work on the caller's thread, whatever the others are at.
constexpr TApiRoute kControlRoutes[] = {
    {"POST", "/api/v1/stop", roNone, false, false, &StopIt, "Stop what runs"},
    {"POST", "/api/v1/pause", roOperator, true, true, &PauseIt, "End what runs as a pause"},
    {"POST", "/api/v1/all-off", roNone, false, false, &SwitchAllOff, "Stop everything at once, until it is reset"},
    {"POST", "/api/v1/reset", roOperator, true, true, &ResetIt, "Reset alarms, all-off and the laser's latch"},
    {"GET", "/api/v1/machine", roNone, false, true, &ShowMachine, "What is fitted, and its limits"},
};

}  // namespace

std::span<const TApiRoute> ControlRoutes() { return kControlRoutes; }

}  // namespace ixocontroller
