#include "controller/service/ReadyCheck.h"

#include "controller/LaserLatch.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {

TResult<> CheckReady(TController& controller, std::span<const TMotionCall> calls) {
  for (const TNcAlarmRecord& alarm : controller.Alarms().Standing())
    if (alarm.Level() > 0)
      return TProblem{.What = Tr("an alarm stands"),
                      .Where = alarm.Identifier(),
                      .Why = alarm.Desc,
                      .Remedy = Tr("remove its cause and clear it")};
  if (controller.Alarms().RequireOrg())
    return TProblem{
        .What = Tr("the axes have no references"), .Where = {}, .Why = {}, .Remedy = Tr("return to origin")};
  if (LatchReason())
    if (auto usable = LaserUsable(); !usable) return usable;
  for (const TMotionCall& call : calls) {
    if (call.Row->Flags.LightsBeam || call.Row->Flags.NeedsEmission)
      if (auto usable = LaserUsable(); !usable) return usable;
    for (std::size_t i = 0; i < call.Row->Params.size(); ++i) {
      if (i >= call.Values.size() || !call.Values[i]) continue;
      const TMotionParam& param = call.Row->Params[i];
      if (const auto checked = call.Check(param, controller.Limits().Bounds); !checked) {
        TProblem problem = checked.Problem();
        problem.Where = Format("%s, %s", call.Row->Name, param.Name);
        return problem;
      }
    }
  }
  return {};
}

}  // namespace ixocontroller
