// A controller takes back what it installed, also when it cannot be made.
#include <fstream>

#include <gtest/gtest.h>

#include "controller/Controller.h"
#include "controller/HostTexts.h"
#include "controller/StateFolder.h"
#include "fixture/TempDir.h"
#include "ixocamglue/alarms/Almintprt.h"
#include "ixocamglue/alarms/Ualarmmanager.h"
#include "ixocamglue/motion/Umotiontexts.h"
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

}  // namespace
}  // namespace ixocamglue::test
