// A whole controller on a machine of one's own: services, supervisor, alarms and all, and one timed shot in virtual
// time.
#include <cstdio>
#include <memory>

#include <controller/Controller.h>
#include <ixocamglue/motion/Ustatemotion.h>

#include "SmallMachine.h"

int main() {
  using namespace ixocamglue;
  ixocontroller::TController controller({.Machines = {example::SmallMachine()}});
  controller.RunFor(100);

  auto shot = MakeStepOf<TSmtLaserOnTimeState>(nullptr);
  shot->SetDuration(300);
  if (const auto started = controller.Start(std::shared_ptr<TStateMotion>(std::move(shot))); !started) {
    std::printf("not started: %s\n", started.Problem().Text().c_str());
    return 1;
  }
  const bool ended = controller.RunToEnd(60'000);
  for (const std::string& signal : controller.Journal().Signals().Texts()) std::printf("%s\n", signal.c_str());
  return ended && controller.MotionState().Outcome().Type == metSuccess ? 0 : 1;
}
