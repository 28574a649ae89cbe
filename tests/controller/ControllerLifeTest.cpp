// A controller takes back what it installed, also when it cannot be made; of two procedures it takes one.
#include <fstream>
#include <future>

#include <gtest/gtest.h>

#include "controller/Controller.h"
#include "controller/process/StateFolder.h"
#include "controller/texts/HostTexts.h"
#include "fixture/Machine.h"
#include "fixture/TempDir.h"
#include "ixocamglue/alarms/Almintprt.h"
#include "ixocamglue/alarms/Ualarmmanager.h"
#include "ixocamglue/motion/Umotiontexts.h"
#include "ixocamglue/motion/Uwaitsteps.h"
#include "ixocamglue/platform/ports/MotionDriver.h"
#include "ixocamglue/support/Problem.h"
#include "machines/simulated/Machine.h"

namespace ixocamglue::test {
namespace {

using namespace ixocontroller;

TEST(ControllerLife, OneThatCannotBeMadeLeavesNothingInstalled) {
  const TTempDir folder;
  TControllerOptions options;
  options.Machines = {SimulatedMachine()};
  options.LocaleFolder = ShareFolder() / "locale";
  options.Language = "en";
  options.MachineFile = folder.Path() / "machine.xml";
  std::ofstream(options.MachineFile) << "<MachineConfig><Machine Driver=\"nobody's\"/></MachineConfig>";
  EXPECT_THROW(TController{options}, EProblem);
  EXPECT_EQ(SEndSuccess.Get(), SEndSuccess.Default) << "a text of a locale reader that is gone";
  EXPECT_EQ(SDelay.Get(), SDelay.Default);
  EXPECT_EQ(CutSystem(), nullptr);
  EXPECT_EQ(MotionDriver(), nullptr);
  EXPECT_EQ(NcAlarms(), nullptr);
  EXPECT_EQ(NcStates(), nullptr);
  EXPECT_EQ(AlarmManager(), nullptr);
  EXPECT_EQ(AlarmInterpreter(), nullptr);
  EXPECT_EQ(AppSys(), nullptr);
}

class TAskedDelay : public TSmtDelay {
 public:
  using TSmtDelay::TSmtDelay;
  bool NeedsLaser() override {
    if (const auto asked = std::exchange(Asked, nullptr)) asked();
    return false;
  }
  std::function<void()> Asked;
};

using ControllerStart = TMachineTest;

TEST_F(ControllerStart, OfTwoThreadsThatStartAtOnceOneIsRefused) {
  std::future<bool> other;
  auto step = MakeStep<TAskedDelay>(nullptr);
  static_cast<TAskedDelay&>(*step).Asked = [&] {  // between the look and the request
    other =
        std::async(std::launch::async, [&] { return FController.Start(ShareRoot(MakeStep<TSmtDelay>(nullptr))).Ok(); });
    (void)other.wait_for(std::chrono::milliseconds(100));  // it waits for this start's end, or has come before it
  };
  const bool first = FController.Start(ShareRoot(std::move(step))).Ok();
  EXPECT_NE(first, other.get());
}

}  // namespace
}  // namespace ixocamglue::test
