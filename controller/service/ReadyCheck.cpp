#include "controller/service/ReadyCheck.h"

#include <algorithm>
#include <optional>

#include "controller/procedures/AxisPlaces.h"
#include "controller/safety/LaserLatch.h"
#include "ixocamglue/config/Uassistconfig.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

// A nozzle change that was stopped leaves the head low between the slots of the rack, whose stage is up.
std::optional<TProblem> StrikesRack(const TMachineSnapshot& now, const TMachineBounds& bounds,
                                    std::span<const TMotionCall> calls) {
  const std::int32_t up = FNozzleChangeCfg ? FNozzleChangeCfg->OutStageUp : 0;
  if (up < 1 || std::ranges::find(now.OutputsOn, up) == now.OutputsOn.end()) return std::nullopt;
  TAxisPlaces places;
  places.Stands(bkZ, now.Z);
  for (const TMotionCall& call : calls) {
    const bool low = places.At(bkZ).value_or(0.0) > bounds.SafeZ;
    if (low && TAxisPlaces::Moves(call, bkX) && !TAxisPlaces::Moves(call, bkZ))
      return TProblem{
          .What = Tr("the head may strike the nozzle rack"),
          .Where = call.Row->Name,
          .Why = Format(Tr("the rack's stage is up, and the head is below its safe height: Z %s, safe is %s"),
                        NumberText(now.Z).c_str(), NumberText(bounds.SafeZ).c_str()),
          .Remedy = Tr("raise the head before (safe-z), or use safe-move")};
    places.Pass(call);
  }
  return std::nullopt;
}

}  // namespace

std::vector<TProblem> FindUnready(TController& controller, std::span<const TMotionCall> calls) {
  std::vector<TProblem> unready;
  for (const TNcAlarmRecord& alarm : controller.Alarms().Standing())
    if (alarm.Level() > 0)
      unready.push_back({.What = Tr("an alarm stands"),
                         .Where = alarm.Identifier(),
                         .Why = alarm.Desc,
                         .Remedy = Tr("remove its cause and clear it")});
  if (controller.Alarms().RequireOrg())
    unready.push_back(
        {.What = Tr("the axes have no references"), .Where = {}, .Why = {}, .Remedy = Tr("return to origin")});
  const bool lights = std::ranges::any_of(
      calls, [](const TMotionCall& call) { return call.Row->Flags.LightsBeam || call.Row->Flags.NeedsEmission; });
  if (lights || LatchReason())
    if (auto usable = LaserUsable(); !usable) unready.push_back(usable.Problem());
  if (auto problem = StrikesRack(controller.Machine().Snapshot(), controller.Limits().Bounds, calls))
    unready.push_back(*std::move(problem));
  for (const TMotionCall& call : calls)
    for (std::size_t i = 0; i < call.Row->Params.size(); ++i) {
      if (i >= call.Values.size() || !call.Values[i]) continue;
      const TMotionParam& param = call.Row->Params[i];
      if (const auto checked = call.Check(param, controller.Limits().Bounds); !checked) {
        unready.push_back(checked.Problem());
        unready.back().Where = Format("%s, %s", call.Row->Name, param.Name);
      }
    }
  return unready;
}

TResult<> CheckReady(TController& controller, std::span<const TMotionCall> calls) {
  const std::vector<TProblem> unready = FindUnready(controller, calls);
  return unready.empty() ? TResult<>() : TResult<>(unready.front());
}

}  // namespace ixocontroller
