#include "controller/service/ReadyCheck.h"

#include <algorithm>

#include "controller/LaserLatch.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {

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
