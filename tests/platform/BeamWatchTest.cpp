// The watch over the beam: what it decides, and what the framework does with it on a scripted laser.
#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "fixture/Faults.h"
#include "fixture/Installed.h"
#include "ixocamglue/platform/alarms/NcAlarmManager.h"
#include "ixocamglue/platform/ports/CutStates.h"
#include "ixocamglue/platform/services/VirtualClock.h"
#include "ixocamglue/platform/states/NcState.h"
#include "ixocamglue/platform/states/NcStateTexts.h"

namespace ixocamglue::test {
namespace {

// A source that does what it is told, and keeps the facts as an adapter has to.
struct TSource : TNcCutSystem, TNcLaser {
  explicit TSource(TNcWatch& watch) : Watch(watch) {}
  std::int32_t GetState() override { return 0; }
  TNcLaser* Laser() override { return this; }
  void Lock() override {}
  void Unlock() override {}
  void SwitchLaser(bool on) override {
    ++Commands;
    if (!on) {
      Watch.LaserAsked.End();
      return;
    }
    const bool refused = LaserForbidden() != nullptr;
    Watch.AskLaser(Clock().MonotonicMs(), refused);
  }
  bool GetEmission() override { return Watch.EmissionOn.Runs(); }
  void EmissionOn() override {
    ++Commands;
    const bool refused = LaserForbidden() != nullptr;
    Watch.AskEmission(Clock().MonotonicMs(), refused);
    if (!refused) Watch.ShowEmission(true, Clock().MonotonicMs());
  }
  void EmissionOff() override {
    ++Commands;
    if (OnOff) OnOff();
    Watch.EmissionAsked.End();
    Watch.ShowEmission(false, Clock().MonotonicMs());
  }
  void Lose() { Watch.ShowEmission(false, Clock().MonotonicMs()); }
  bool GetLaser() override { return Watch.LaserAsked.Runs() && GetEmission(); }
  const char* LatchReason() override {
    if (Unreachable) throw std::runtime_error("source");
    return Latch;
  }

  TNcWatch& Watch;
  const char* Latch = nullptr;
  bool Unreachable = false;
  int Commands = 0;
  std::function<void()> OnOff;
};

TTexts GTicks;
std::function<void(TNcStateCtrl&)> GTick;  // what a tick with srDone does

class TTickedState final : public TNcStateCtrl {
 public:
  using TNcStateCtrl::TNcStateCtrl;
  void InitState(std::int32_t) override { EnsureBusySet(); }
  void StepDone(std::int32_t reason) override {
    TNcStateCtrl::StepDone(reason);
    GTicks.push_back(std::to_string(reason) + Owner().EndCause());
    if (reason != srDone) return ChangeState(nsStandby, 0);
    EnsureBusySet();
    if (GTick) GTick(*this);
  }
  void Leave(std::int32_t to) { ChangeState(to, 0); }
};

class BeamWatch : public testing::Test {
 protected:
  static constexpr std::int32_t kState = 204;
  static constexpr std::int32_t kOther = 206;

  BeamWatch() {
    GTicks.clear();
    GTick = {};
    for (const std::int32_t state : {kState, kOther, StateNumber(csPaused), StateNumber(csJogging)})
      Registry.RegisterStateCtrl(state, [](TNcStateFramework& owner) { return std::make_unique<TTickedState>(owner); });
    Alarms.OnRaised([this](const TNcAlarmRecord& record) { Framework.PostAlarm(record); });
    Framework.RunOnce();
  }
  void Pass() { Time.Sleep(Framework.RunOnce()); }
  void Enter(std::int32_t state = kState) {
    (void)Framework.RequestState(state, 0);
    Pass();
    GTicks.clear();
  }
  void Light() {
    Source.EmissionOn();
    Source.SwitchLaser(true);
  }
  void Leave(std::int32_t to = nsStandby) {
    GTick = [to](TNcStateCtrl& state) { static_cast<TTickedState&>(state).Leave(to); };
  }
  void Raise(TNcAlarmAttrs attrs) { (void)Alarms.Raise({.IdPrefix = "T", .Id = 1, .Attrs = attrs}); }
  [[nodiscard]] bool Asked() { return Watch.LaserAsked.Runs() || Watch.EmissionAsked.Runs(); }

  TVirtualClock Time;
  TNcRegistry Registry;
  TAllInstalled<IClock, TNcRegistry> Services{Time, Registry};
  TFaultWatch Faults;
  TNcStateFramework Framework;
  TNcWatch& Watch = Framework.Watch();
  TNcAlarmManager Alarms;
  TSource Source{Watch};
  TAllInstalled<TNcAlarms, TNcCutSystem> Machine{Alarms, Source};
};

TEST_F(BeamWatch, ACauseEndsTheStateInTheNextPassAndStopAndAlarmComeFirst) {
  const auto forbid = [&] { Raise(naForbidLaser); };
  const auto latch = [&] { Source.Latch = "by hand"; };
  const struct {
    const char* Name;
    std::function<void()> Do;
    std::string Tick;
  } cases[] = {
      {"forbidden", forbid, "4" + BeamCauseText(bcForbidden)},
      {"forbidden for a moment", [&] { Raise(naForbidLaser), Alarms.ClearAll(); }, "4" + BeamCauseText(bcForbidden)},
      {"latched", latch, "5" + Show(SBeamLatched, "by hand")},
      {"lost", [&] { Source.Lose(); }, "5" + BeamCauseText(bcLost)},
      {"stop and all", [&] { forbid(), latch(), Framework.Stop("key"); }, "1key"},
      {"alarm and latch", [&] { forbid(), latch(); }, "4" + BeamCauseText(bcForbidden)},
      {"latch and pause", [&] { latch(), Framework.Pause(); }, "5" + Show(SBeamLatched, "by hand")},
      {"latch and lost", [&] { latch(), Source.Lose(); }, "5" + Show(SBeamLatched, "by hand")},
      {"lost and refused", [&] { Source.Lose(), Watch.AskLaser(Time.MonotonicMs(), true); },
       "5" + BeamCauseText(bcLost)},
      {"a refused ask", [&] { Watch.AskLaser(Time.MonotonicMs(), true); }, "5" + BeamCauseText(bcRefused)},
      {"a stop required for a moment, and an ask refused in it",
       [&] {  // the alarm is gone before anybody looks
         Raise(naRequireStop);
         Source.SwitchLaser(true);
         EXPECT_TRUE(Watch.BeamRefused);
         Alarms.ClearAll();
       },
       "4"},
  };
  for (const auto& c : cases) {
    for (const bool offInTheSameTick : {false, true}) {
      SCOPED_TRACE(c.Name);
      Enter();
      Light();
      Pass();
      EXPECT_EQ(GTicks, TTexts{"0"});
      GTicks.clear();
      c.Do();
      if (offInTheSameTick) Source.SwitchLaser(false), Source.EmissionOff();
      Pass();
      EXPECT_EQ(GTicks, TTexts{c.Tick});
      EXPECT_EQ(Framework.CurrentState(), nsStandby);
      EXPECT_FALSE(Asked());
      Alarms.ClearAll();
      Source.Latch = nullptr;
      Pass();
    }
  }
}

// A driver's thread goes away between two reads: alarm, latch, lost emission.
TEST_F(BeamWatch, NoFactIsSeenWithoutTheOneThatItCameFrom) {
  struct TAlarms final : TNcAlarmManager {
    bool AllowLaser() override {
      const bool allowed = TNcAlarmManager::AllowLaser();
      if (OnAsked) std::exchange(OnAsked, {})();
      return allowed;
    }
    std::function<void()> OnAsked;
  } alarms;
  const TInstalled<TNcAlarms> installed(alarms);
  Enter();
  Light();
  const auto goAway = [&] {
    (void)alarms.Raise({.IdPrefix = "T", .Id = 1, .Attrs = naForbidLaser});
    Source.Latch = "away";
    Source.Lose();
  };
  alarms.OnAsked = goAway;
  EXPECT_EQ(JudgeBeam(TBeamFacts::Read(Watch)), bcNone) << "not yet, and no other cause";
  EXPECT_EQ(JudgeBeam(TBeamFacts::Read(Watch)), bcForbidden);
}

TEST_F(BeamWatch, NothingEndsWhereNothingIsAskedForOrNothingWasConfirmed) {
  Enter();
  Raise(naForbidLaser);
  Source.Latch = "by hand";
  Pass();
  Alarms.ClearAll();
  Source.Latch = nullptr;
  Source.EmissionOn();
  Source.Lose();  // before the laser was asked for: no lost beam
  Pass();
  Watch.AskEmission(Time.MonotonicMs(), false);  // and it never comes
  Source.SwitchLaser(true);
  Pass();
  Pass();
  EXPECT_EQ(GTicks, (TTexts{"0", "0", "0", "0"}));
  Source.Unreachable = true;  // whether it is latched is not known
  EXPECT_EQ(LaserForbidden(), nullptr);
  Pass();
  EXPECT_EQ(GTicks.back(), "0");
}

TEST_F(BeamWatch, ACauseWithinTheLastTickGivesAnotherTickBeforeTheStateIsLeft) {
  const struct {
    std::function<void()> InTick, InOff;
    std::string Tick;
  } cases[] = {
      {[&] { Light(), Raise(naForbidLaser); }, {}, "4" + BeamCauseText(bcForbidden)},
      {[&] { Light(), Source.Lose(); }, {}, "5" + BeamCauseText(bcLost)},
      // The off that the end of the state demands hangs until the latch trips.
      {[&] { Light(); }, [&] { Source.Latch = "beat"; }, "5" + Show(SBeamLatched, "beat")},
      {[&] { Raise(naForbidLaser); }, {}, ""},
  };
  for (const auto& c : cases) {
    Enter();
    GTick = [&](TNcStateCtrl& state) {
      c.InTick();
      Source.OnOff = c.InOff;
      static_cast<TTickedState&>(state).Leave(kOther);
    };
    Pass();
    EXPECT_EQ(GTicks, c.Tick.empty() ? TTexts{"0"} : (TTexts{"0", c.Tick}));
    EXPECT_EQ(Framework.CurrentState(), c.Tick.empty() ? kOther : nsStandby);
    EXPECT_FALSE(Asked()) << "dark in the same pass, whatever state follows";
    GTick = {};
    Source.OnOff = {};
    Source.Latch = nullptr;
    Alarms.ClearAll();
    Framework.Stop();
    Pass();
    Pass();
  }
}

TEST_F(BeamWatch, WhatComesWhenTheStateIsLeftAlreadyIsNamed) {
  Enter();
  Light();
  Source.OnOff = [&] { Source.Latch = "beat"; };
  Framework.Stop();
  Pass();
  EXPECT_EQ(GTicks, TTexts{"1"});
  EXPECT_EQ(Framework.LateBeamCause(), bcLatched);
  Source.Latch = nullptr;
  Source.OnOff = {};
  Pass();
  Enter();
  EXPECT_EQ(Framework.LateBeamCause(), bcNone);
}

TEST_F(BeamWatch, ABeamLitByHandGoesDarkOnceAndNothingEnds) {
  for (const std::int32_t state : {nsStandby, StateNumber(csPaused), StateNumber(csJogging)}) {
    if (state != nsStandby) Enter(state);
    GTicks.clear();
    Light();
    Pass();
    EXPECT_TRUE(Source.GetLaser());
    Raise(naForbidLaser);
    Source.Commands = 0;
    Pass();
    EXPECT_EQ(Source.Commands, 2) << "off, once each";
    EXPECT_FALSE(Asked());
    Light();  // pressed again while the alarm stands
    EXPECT_FALSE(Source.GetLaser() || Source.GetEmission());
    Pass();
    EXPECT_FALSE(Asked());
    Alarms.ClearAll();
    Pass();
    EXPECT_FALSE(Asked()) << "the end of the alarm lights nothing";
    Light();
    Pass();
    EXPECT_TRUE(Source.GetLaser());
    EXPECT_EQ(Framework.CurrentState(), state);
    for (const std::string& tick : GTicks) EXPECT_EQ(tick, "0");
    Source.SwitchLaser(false);
    Source.EmissionOff();
    if (state != nsStandby) {
      Framework.Stop();
      Pass();
    }
  }
}

TEST_F(BeamWatch, WhatIsPostedAndNotCarriedOutRefusesTheBeam) {
  Enter();
  EXPECT_EQ(LaserForbidden(), nullptr);
  const struct {
    const char* Name;
    std::function<void()> Post;
    bool Refused;
  } cases[] = {
      {"stop", [&] { Framework.Stop(); }, true},
      {"pause", [&] { Framework.Pause(); }, true},
      {"requires a stop", [&] { Raise(naRequireStop); }, true},
      {"forbids motion", [&] { Raise(naForbidMove); }, true},
      {"forbids the laser", [&] { Raise(naForbidLaser); }, true},
      {"latched", [&] { Source.Latch = "by hand"; }, true},
      {"shown only", [&] { Raise(naShownOnly); }, false},
      {"another permission", [&] { Raise(naForbidFollower); }, false},
  };
  for (const auto& c : cases) {
    if (Framework.CurrentState() == nsStandby) Enter();
    c.Post();
    EXPECT_EQ(LaserForbidden() != nullptr, c.Refused) << c.Name;
    Source.Latch = nullptr;
    Alarms.ClearAll();
    Pass();
    EXPECT_EQ(LaserForbidden(), nullptr) << c.Name;
  }
}

}  // namespace
}  // namespace ixocamglue::test
