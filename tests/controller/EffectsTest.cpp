// Whether steps have their effect: gas as it was set and supplied, light where it was asked for.
#include <gmock/gmock.h>

#include "controller/runs/ProcedureRun.h"
#include "fixture/Machine.h"
#include "ixocamglue/platform/states/NcStateTexts.h"

namespace ixocamglue::test {
namespace {

using testing::HasSubstr;

class Effects : public TMachineTest {};

TSequenceItem GasOn(std::int32_t branch, double bar) {
  return {141, "gas", [=](TStateMotion& s) {
            auto& gas = dynamic_cast<TSmtGasOnState&>(s);
            gas.FGasBranch = branch;
            gas.FGasPressure = bar;
          }};
}

TEST_F(Effects, GasThatIsNotWhatWasSetEndsTheProcedureBeforeItsNextStep) {
  const struct {
    std::int32_t Branch;
    double Bar;
    const char* Cause;  // empty: good
  } cases[] = {{2, 3.5, ""},
               {2, 10.005, ""},
               {2, 10.02, "O2、10.020 巴，设备为气路 O2、10.000"},
               {5, 2.0, "H-O2、2.000 巴，设备为气路 O2、2.000"}};
  for (const auto& c : cases) {
    StartSequence({GasOn(c.Branch, c.Bar), {172, "out", nullptr}, {142, "off"}});
    EXPECT_EQ(Finish(), *c.Cause ? metError : metSuccess) << c.Bar;
    EXPECT_THAT(Controller().Outcome().Cause, HasSubstr(c.Cause));
    EXPECT_FALSE(Machine().Snapshot().Gas);
  }
  StartSequence({GasOn(2, 2.25)});
  RunUntil("gas on 2 2.25");
  FController.VirtualClock()->Sleep(100);
  Gate().PlanSet({.Call = Gate().Calls() + 2, .Fault = gfThrow, .HangMs = 0, .Callback = {}});  // behind IsBusy
  EXPECT_EQ(Finish(), metError) << "also as the last step, and where the device does not say";
  EXPECT_THAT(Controller().Outcome().Cause, HasSubstr("gas.GetBranch"));
}

TEST_F(Effects, ABeamWithoutItsGasSupplyEnds) {
  const auto run = [this](bool gas, const char* fault) {
    std::vector<TSequenceItem> items{
        {516, "on"}, {612, "delay", [](TStateMotion& s) { dynamic_cast<TSmtDelay&>(s).SetDelay(1000); }}};
    if (gas) items.insert(items.begin(), GasOn(2, 2.0));
    Journal().Clear();
    StartSequence(std::move(items));
    RunUntil("laser on");
    FController.RunFor(100);
    FController.Machine().Inject(fault);
    const std::uint64_t before = Clock().MonotonicMs();
    const TMotionExecType end = Finish();
    EXPECT_EQ(Clock().MonotonicMs() - before < 250, gas);
    return end;
  };
  EXPECT_EQ(run(false, "gas.no-supply"), metSuccess) << "no gas, nothing to supply";
  for (const char* const fault : {"gas.low-supply", "gas.no-supply"}) {
    Machine().GasDevice().SetSupply(20.0);
    EXPECT_EQ(run(true, fault), metError) << fault;
    EXPECT_THAT(Controller().Outcome().Cause, HasSubstr("200"));
  }
}

TEST_F(Effects, ABeamWhoseHeadLosesItsPlateEnds) {
  Machine().Follower().PlaceZ(60.0);
  StartSequence({{154, "follow"}, {516, "on"}, {612, "delay", [](TStateMotion& s) {
                                                  dynamic_cast<TSmtDelay&>(s).SetDelay(5000);
                                                }}});
  RunUntil("laser on");
  FController.RunFor(100);
  FController.Machine().Inject("follower.no-plate");
  const std::uint64_t before = Clock().MonotonicMs();
  EXPECT_EQ(Finish(), metError);
  EXPECT_LT(Clock().MonotonicMs() - before, 2000U);
  EXPECT_EQ(Controller().Outcome().Cause, Show(SPlateLost));
  EXPECT_FALSE(Machine().Snapshot().Laser || Machine().Snapshot().Emission);
  EXPECT_EQ(Machine().LaserDevice().LatchReason(), nullptr);
}

TEST_F(Effects, NoLightIsNoSuccess) {
  StartSequence({{518, "shutter"}});
  Finish();
  EXPECT_FALSE(FController.Effects().LightMissed()) << "nobody asked for light";
  Journal().Clear();
  StartSequence({{516, "on"}});
  Finish();
  EXPECT_TRUE(Journal().HasSignal("laser on"));
  EXPECT_FALSE(FController.Effects().LightMissed());
  for (const std::int32_t command : {520, 516}) {
    Machine().LaserDevice().SetEmissionScript(TEmissionScript::Never());
    StartSequence({{command, "on"}});
    EXPECT_EQ(Finish(), metSuccess) << "the step's own answer";
    EXPECT_TRUE(FController.Effects().LightMissed()) << command;
  }
}

TEST(EffectsInARun, NoLightIsNoSuccessOfTheReport) {
  TProcedureRun run({.Machines = {SimulatedMachine()}}, {.Faults = {"laser.no-emission"}});
  const TRunReport report = run.Run([] { return MakeStep<TSmtLaserOn>(nullptr); }, 60'000);
  EXPECT_STREQ(report.End.Name, "no-light");
  EXPECT_FALSE(report.Success());
}

TEST(EffectsInARun, AShotThatWasLitForLongerIsNoted) {
  for (const bool hangs : {false, true}) {
    TProcedureRun run({.Machines = {SimulatedMachine()}});
    TController& controller = run.Controller();
    bool planned = !hangs;
    run.OnLook([&](std::uint64_t nowMs) {
      if (controller.Framework().Watch().LaserOn.LastedMs(nowMs) < 100 || std::exchange(planned, true)) return;
      TCallGate& gate = Simulated(controller.Machine()).Gate();
      gate.PlanSet({.Call = gate.Calls() + 1, .Fault = gfHang, .HangMs = 100, .Callback = {}});
    });
    const TRunReport report = run.Run([] { return MakeShot(100); }, 60'000);
    EXPECT_STREQ(report.End.Name, "success");
    EXPECT_EQ(report.Notes.size(), hangs ? 1U : 0U);
    for (const std::string& note : report.Notes) EXPECT_THAT(note, HasSubstr("ms, not 100 to 150 ms"));
  }
}

}  // namespace
}  // namespace ixocamglue::test
