// The controller's alarm package in virtual time, without a store.
#include "fixture/Machine.h"
#include "ixocamglue/motion/Uwaitsteps.h"
#include "ixocamglue/platform/alarms/NcSimpleAlarmSource.h"

namespace ixocamglue::test {
namespace {

// A delay that counts the new alarms it is asked about.
class TListeningDelay : public TSmtDelay {
 public:
  using TSmtDelay::TSmtDelay;
  void CheckNewAlarm(const TNcAlarmRecord& alarm, bool&) override { Heard.push_back(alarm.Identifier()); }
  TTexts Heard;
};

class Package : public TMachineTest {
 protected:
  Package() { Alarms().AddSource(FSource); }
  ~Package() override { Alarms().RemoveSource(FSource); }
  TNcAlarmManager& Alarms() { return FController.Alarms(); }

  TNcSimpleAlarmSource FSource{"TPDevice", {{1, naForbidCut, "forbids"}, {2, naRequireStop, "stops"}}};
};

TEST_F(Package, WhatADeviceReportsTakesPermissionsAwayAndReachesTheProcedureOnce) {
  auto& delay = Start<TListeningDelay>([](auto& step) { step.SetDelay(200); });
  FSource.Set(1, true);
  FController.RunFor(50);
  EXPECT_FALSE(NcAlarms()->AllowCut());
  EXPECT_EQ(delay.Heard, TTexts{"TPDevice#1"});
  FSource.Set(1, false);
  FController.RunFor(50);
  EXPECT_TRUE(NcAlarms()->AllowCut());
  EXPECT_EQ(delay.Heard, TTexts{"TPDevice#1"});
  EXPECT_EQ(Finish(), metSuccess) << "what forbids a cut ends no delay";
}

TEST_F(Package, WhatADeviceReportsEndsTheRunThatItStandsAgainst) {
  Start<TSmtDelay>([](auto& step) { step.SetDelay(1000); });
  FController.RunFor(50);
  FSource.Set(2, true);
  EXPECT_EQ(Finish(), metAlarm);
}

}  // namespace
}  // namespace ixocamglue::test
