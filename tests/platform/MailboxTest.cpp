// Requests from another thread against the pass that takes them, in every order that their locks allow: a scheduler
// lets the one thread run to its end at one border after the other of the second, before it takes or after it has
// released a mutex.
#include <dlfcn.h>
#include <functional>
#include <pthread.h>
#include <thread>
#include <utility>

#include <gtest/gtest.h>

#include "fixture/Installed.h"
#include "ixocamglue/platform/services/VirtualClock.h"
#include "ixocamglue/platform/states/NcState.h"

namespace {

thread_local const std::function<void()>* GOther = nullptr;  // runs at this thread's border number GTurn
thread_local int GTurn = 0;

void AtBorder() {
  if (GOther && GTurn-- == 0) std::thread(*std::exchange(GOther, nullptr)).join();
}

}  // namespace

// In front of the system's, for the whole program of the tests.
extern "C" int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
  static const auto lock = reinterpret_cast<int (*)(pthread_mutex_t*)>(::dlsym(RTLD_NEXT, "pthread_mutex_lock"));
  AtBorder();
  return lock(mutex);
}
extern "C" int pthread_mutex_unlock(pthread_mutex_t* mutex) noexcept {
  static const auto unlock = reinterpret_cast<int (*)(pthread_mutex_t*)>(::dlsym(RTLD_NEXT, "pthread_mutex_unlock"));
  const int result = unlock(mutex);
  AtBorder();
  return result;
}

namespace ixocamglue::test {
namespace {

constexpr std::int32_t kState = 204;

class TEndingState final : public TNcStateCtrl {
 public:
  using TNcStateCtrl::TNcStateCtrl;
  void StepDone(std::int32_t reason) override {
    TNcStateCtrl::StepDone(reason);
    if (reason != srDone) ChangeState(nsStandby, 0);
  }
};

TEST(Mailbox, NoRequestIsLostWhereverItMeetsThePass) {
  const std::pair<std::int32_t, std::function<void(TNcStateFramework&)>> requests[] = {
      {kState, [](auto& states) { (void)states.RequestState(kState, 0); }},
      {nsStandby, [](auto& states) { states.Stop(); }},
      {nsStandby, [](auto& states) { states.Abort(srError); }},
  };
  for (const auto& [to, request] : requests) {
    for (const bool passGivesWay : {true, false}) {
      int turns = 0;
      for (;; ++turns) {
        TVirtualClock clock;
        TNcRegistry registry;
        const TAllInstalled<IClock, TNcRegistry> installed(clock, registry);
        registry.RegisterStateCtrl(kState, [](auto& owner) { return std::make_unique<TEndingState>(owner); });
        TNcStateFramework states;
        states.RunOnce();
        if (to != kState) (void)states.RequestState(kState, 0);
        states.RunOnce();
        states.PostAlarm({});  // the pass has something to take, so that it looks into the mailbox
        const std::function<void()> pass = [&] { states.RunOnce(); };
        const std::function<void()> ask = [&, &asked = request] { asked(states); };
        GTurn = turns;
        GOther = passGivesWay ? &ask : &pass;
        (passGivesWay ? pass : ask)();
        if (std::exchange(GOther, nullptr)) break;  // there are no more borders
        for (int i = 0; i < 2; ++i) states.RunOnce();
        EXPECT_EQ(states.CurrentState(), to) << "at border " << turns << (passGivesWay ? " of the pass" : "");
        EXPECT_TRUE(states.RequestState(kState, 0).Ok());
      }
      EXPECT_GE(turns, 2);
    }
  }
}

class Posted : public testing::Test {
 protected:
  Posted() {
    FRegistry.RegisterStateCtrl(kState, [](auto& owner) { return std::make_unique<TEndingState>(owner); });
    FStates.RunOnce();
  }
  void Post(TNcAlarmAttrs attrs) { FStates.PostAlarm({.IdPrefix = "T", .Desc = "door", .Id = 1, .Attrs = attrs}); }
  void Rest() {
    FStates.Stop();
    for (int pass = 0; pass < 2; ++pass) FStates.RunOnce();
    ASSERT_EQ(FStates.CurrentState(), nsStandby);
  }

  TVirtualClock FClock;
  TNcRegistry FRegistry;
  TAllInstalled<IClock, TNcRegistry> FInstalled{FClock, FRegistry};
  TNcStateFramework FStates;
};

TEST_F(Posted, WhateverEndsAStateWithdrawsAnEntryThatWasAskedForAndNoneThatIsAskedForBehindIt) {
  const struct {
    const char* Name;
    std::function<void()> End;
    bool Withdraws = true;
  } cases[] = {{"pause", [&] { FStates.Pause(); }},
               {"abort", [&] { FStates.Abort(srError, "late"); }},
               {"requires a stop", [&] { Post(naRequireStop); }},
               {"forbids motion", [&] { Post(naForbidMove); }},
               {"shown only", [&] { Post(naShownOnly); }, false}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.Name);
    (void)FStates.RequestState(kState, 0);
    c.End();
    EXPECT_EQ(FStates.ChangePending(), !c.Withdraws);
    for (int pass = 0; pass < 2; ++pass) FStates.RunOnce();
    EXPECT_EQ(FStates.CurrentState(), c.Withdraws ? nsStandby : kState);
    Rest();
    c.End();
    (void)FStates.RequestState(kState, 0);
    FStates.RunOnce();
    EXPECT_EQ(FStates.CurrentState(), kState);
    Rest();
  }
}

// No alarm package is there to ask: only what was posted says so.
TEST_F(Posted, AnAlarmThatIsGoneBeforeAnybodyLooksStillEndsWhatItEnds) {
  for (const TNcAlarmAttrs attrs : {naRequireStop, naForbidMove, naForbidLaser, naShownOnly}) {
    (void)FStates.RequestState(kState, 0);
    FStates.RunOnce();
    Post(attrs);
    FStates.RunOnce();
    const bool ends = attrs == naRequireStop || attrs == naForbidMove;
    EXPECT_EQ(FStates.CurrentState(), ends ? nsStandby : kState) << attrs;
    EXPECT_EQ(FStates.EndCause(), ends ? "door" : "");
    Rest();
  }
}

}  // namespace
}  // namespace ixocamglue::test
