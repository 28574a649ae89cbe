// The oracle: a good run passes, and each way to end badly is found.
#include <functional>

#include "fixture/SimMachine.h"
#include "verify/Oracle.h"

namespace ixocamglue::test {
using namespace ixoverify;
namespace {

using TLines = std::vector<std::string>;

// A procedure played by hand: a shot with gas, a move and an output, aborted half-way and left in order. `Omit` leaves
// one action of the leave out.
struct TPlay : TSimRig {
  enum class TOmit { None, Laser, Gas, Axes, Follower, Output, State };

  void Play(TOmit omit) {
    NoteState(204);
    State = 204;
    Machine.Gas()->SwitchOn();
    MotionCard()->SwitchOutport(5, true);
    MotionDriver()->MoveXY({2000.0, 0.0}, 100.0);
    GFollower()->Follow(1.0);
    ShootOn();
    Abort = Journal.Size();
    if (omit != TOmit::Laser) {
      Machine.SwitchLaser(false);
      Machine.Laser()->EmissionOff();
    }
    if (omit != TOmit::Gas) Machine.Gas()->SwitchOff();
    if (omit != TOmit::Axes) MotionDriver()->StopAll(0);
    if (omit != TOmit::Follower) GFollower()->Stop(1);
    if (omit != TOmit::Output) MotionCard()->SwitchOutport(5, false);
    if (omit != TOmit::State) {
      NoteState(0);
      State = 0;
    }
    RunFor(500);
  }
  TLines Check(const std::function<void(TExpectations&)>& adjust = {}) {
    TExpectations expected;
    expected.AbortIndex = Abort;
    if (adjust) adjust(expected);
    TMachineSnapshot snapshot = Machine.Snapshot();
    snapshot.State = State;  // no framework ran this procedure
    return CheckRun(Journal.Entries(), snapshot, expected);
  }

  std::size_t Abort = 0;
  std::int32_t State = 0;
};

TEST(Oracle, FindsEachThingThatALeaveForgot) {
  const struct {
    TPlay::TOmit Omit;
    TLines Expected;
  } rows[] = {
      {TPlay::TOmit::None, {}},
      {TPlay::TOmit::Laser, {"the laser is on at the end", "emission is on at the end"}},
      {TPlay::TOmit::Gas, {"gas is on at the end"}},
      {TPlay::TOmit::Axes, {"axes still moves at the end", "axes moved at the abort and was not told to stop"}},
      {TPlay::TOmit::Follower,
       {"follower still follows at the end", "follower moved at the abort and was not told to stop",
        "follower followed at the abort and was not told to stop"}},
      {TPlay::TOmit::Output, {"output 5 is on at the end"}},
      {TPlay::TOmit::State, {"0 changes of state after the procedure began, not 1"}},
  };
  for (const auto& row : rows) {
    TPlay play;
    play.Play(row.Omit);
    EXPECT_EQ(play.Check(), row.Expected) << static_cast<int>(row.Omit);
  }
}

TEST(Oracle, AcceptsGasAfterASuccessAndAnExemptDeviceButNeverALightLaser) {
  TPlay gas;
  gas.Play(TPlay::TOmit::Gas);
  EXPECT_EQ(gas.Check([](TExpectations& expected) { expected.Success = expected.GasMayStayOn = true; }), TLines{});
  EXPECT_EQ(gas.Check([](TExpectations& expected) { expected.ExemptDevice = "gas"; }), TLines{});
  TPlay laser;
  laser.Play(TPlay::TOmit::Laser);
  EXPECT_EQ(laser.Check([](TExpectations& expected) { expected.ExemptDevice = "laser"; }).size(), 2U);
}

TEST(Oracle, FindsCommandsAfterTheAbortASecondChangeOfStateAndAContradictingSnapshot) {
  TPlay play;
  play.Play(TPlay::TOmit::None);
  play.Machine.Gas()->SetPressure(1.0);
  play.NoteState(204);
  play.NoteState(0);
  TMachineSnapshot snapshot = play.Machine.Snapshot();
  snapshot.Laser = true;
  snapshot.State = 7;
  const TLines found = CheckRun(play.Journal.Entries(), snapshot, {.AbortIndex = play.Abort, .ExemptDevice = {}});
  const std::string line = play.Journal.Lines().at(play.Journal.Size() - 3);
  EXPECT_EQ(found, (TLines{"laser on is true, the journal tells otherwise", "the state is 7, the journal tells 0",
                           "the procedure's state was entered again",
                           "3 changes of state after the procedure began, not 1", "after the abort: " + line}));
}

TEST(Oracle, FindsABeamThatNobodyAskedFor) {
  TOracle oracle;
  oracle.Read({10, 0, "laser", "emission up", {}, vkRead, toDone});
  oracle.Read({11, 0, "laser", "beam lit", {}, vkRead, toDone});
  EXPECT_EQ(oracle.Contradictions(), (TLines{"00000010 laser: emission up: nobody asked for it",
                                             "00000011 laser: beam lit: nobody asked for it, or emission is missing"}));
}

}  // namespace
}  // namespace ixocamglue::test
