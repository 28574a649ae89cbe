// Ticks of the state controller, diagnostic channel off: a whole run of ten leaves, and one poll of a deep tree.
#include <cstdlib>
#include <stdexcept>
#include <vector>

#include <boost/statechart/event.hpp>
#include <boost/statechart/in_state_reaction.hpp>
#include <boost/statechart/simple_state.hpp>
#include <boost/statechart/state_machine.hpp>

#include "bench/Machine.h"
#include "bench/Rows.h"
#include "ixocamglue/motion/Umotiontexts.h"
#include "ixocamglue/motion/Ustatemotion.h"

namespace ixocamglue::bench {
namespace {

// Ten leaves of the step factory, none of which has to wait on this machine: each asks the laser once and goes on, so
// that what is measured is the walk.
class TTenLeaves : public TSmtComposite {
 public:
  static constexpr std::string_view kClassName = "TTenLeaves";
  std::int32_t GetID() override { return 9010; }
  std::string GetDesc() override { return "ten leaves"; }
  void BuildMotionList() override {
    for (int leaf = 0; leaf < 10; ++leaf) Add(518, SOpenShutter);
  }
};

constexpr int kTenLeavesTicks = 22;  // two a leaf, one that leaves the root, one that tells the controller

class TTenLeavesRun {
 public:
  void Prepare() {
    if (FRan && (FState.Outcome().Type != metSuccess || FState.CustomBusyType() != csbtChange))
      throw std::runtime_error("the ten leaves did not run to their end");
    FState.InitState(0);
    FRan = true;
  }
  void Run() {
    for (int i = 0; i < kTenLeavesTicks; ++i) FState.StepDone(srDone);
  }

 private:
  TCellMachine FMachine{MakeStep<TTenLeaves>(nullptr)};
  TCustomMotionState& FState = FMachine.State();
  bool FRan = false;
};

class TTenLeavesBuiltAndRun {
 public:
  void Run() {
    FLeaves.Prepare();
    FLeaves.Run();
  }

 private:
  TTenLeavesRun FLeaves;
};

// A wait for an emission that never comes, under this many composites.
template <int Composites>
class TDeepWait : public TSmtComposite {
 public:
  static constexpr std::string_view kClassName = "TDeepWait";
  std::int32_t GetID() override { return 9000 + Composites; }
  std::string GetDesc() override { return "deep wait"; }
  void BuildMotionList() override {
    if constexpr (Composites == 1)
      Add(519, SWaitShutter);
    else
      PlaceStep(0, MakeStep<TDeepWait<Composites - 1>>(StateCtrl()), "deep wait");
  }
};

class TPollTick {
 public:
  TPollTick() {
    FMachine.Laser().FAnswers = false;
    FState.StepDone(srDone);
  }
  ~TPollTick() {
    if (FState.CustomBusyType() != csbtEnsure) std::abort();  // the leaf no longer polls: nothing was measured
  }
  TPollTick(const TPollTick&) = delete;
  TPollTick& operator=(const TPollTick&) = delete;
  void Run() { FTarget->StepDone(srDone); }

 private:
  TCellMachine FMachine{MakeStep<TDeepWait<3>>(nullptr)};
  TCustomMotionState& FState = FMachine.State();
  TNcStateCtrl* FTarget = &FState;  // as the framework calls it
};

// The peer: four nested states and an event that leaves them all where they are. Its reaction stands in the outermost
// state, so that the event passes every level, as the tick does.
namespace chart {

namespace sc = boost::statechart;

struct TPoll : sc::event<TPoll> {};
struct TLevel1;
struct TLevel2;
struct TLevel3;
struct TLevel4;
struct TMachine : sc::state_machine<TMachine, TLevel1> {
  std::uint64_t Polls = 0;
};
struct TLevel1 : sc::simple_state<TLevel1, TMachine, TLevel2> {
  void Poll(const TPoll&) { ++context<TMachine>().Polls; }
  using reactions = sc::in_state_reaction<TPoll, TLevel1, &TLevel1::Poll>;
};
struct TLevel2 : sc::simple_state<TLevel2, TLevel1, TLevel3> {};
struct TLevel3 : sc::simple_state<TLevel3, TLevel2, TLevel4> {};
struct TLevel4 : sc::simple_state<TLevel4, TLevel3> {};

}  // namespace chart

class TChartEvent {
 public:
  TChartEvent() { FMachine.initiate(); }
  ~TChartEvent() {
    if (FMachine.Polls == 0) std::abort();
  }
  TChartEvent(const TChartEvent&) = delete;
  TChartEvent& operator=(const TChartEvent&) = delete;
  void Run() { FMachine.process_event(chart::TPoll()); }

 private:
  chart::TMachine FMachine;
};

}  // namespace

std::vector<TRow> TickRows() {
  return {
      Measure<TTenLeavesRun>({.Id = "ten_leaves", .Name = "ten leaves: the 22 ticks", .MaxInstructions = 8000}),
      Measure<TTenLeavesBuiltAndRun>({.Id = "ten_leaves_built", .Name = "ten leaves: built and run"}),
      Measure<TPollTick>({.Id = "poll",
                          .Name = "poll tick, four levels",
                          .Peer = "statechart",
                          .PeerName = "Statechart event",
                          .MaxAllocations = 0,
                          .MaxInstructions = 450,
                          .MaxRatio = 12}),
      Measure<TChartEvent>({.Id = "statechart"}),
  };
}

}  // namespace ixocamglue::bench
