// The proportional valve, its line and sensor, how they fail, and the gas supply that they belong to.
#include <array>
#include <cmath>

#include "fixture/OwnConfig.h"
#include "fixture/SimMachine.h"
#include "machines/simulated/GasValve.h"

namespace ixocamglue::test {
namespace {

void Pass(TGasValve& valve, int ms) {
  for (int i = 0; i < ms; ++i) valve.Step();
}

TGasValve Open(const TGasValveParams& params, double volt, int ms = 20'000) {
  TGasValve valve(params);
  valve.SetOpen(true);
  valve.Output(volt);
  Pass(valve, ms);
  return valve;
}

TEST(GasValve, TheStaticPressureHasADeadBandARiseAKneeAndTheSupplyAsItsLimit) {
  struct TRow {
    std::int32_t Gas;
    double Volt;
    double Bar;  // computed from the formula with an independent program
  };
  for (const TRow& row : {TRow{1, 0.42, 0.0}, TRow{1, 2.61, 3.7837323481}, TRow{1, 4.8, 7.4069976983},
                          TRow{1, 10.0, 7.9995584466}, TRow{2, 8.6, 9.0411039536}, TRow{3, 3.0, 8.4918074570}})
    EXPECT_NEAR(StaticBar(GasValveParams(row.Gas), row.Volt), row.Bar, 1e-8) << row.Gas << " at " << row.Volt;
  const TGasValveParams sharp{.M = 100.0};  // q^m alone would overflow
  EXPECT_NEAR(StaticBar(sharp, 10.0), sharp.Psup, 1e-9);
}

TEST(GasValve, TheLineFollowsAfterTheDeadTimeWithItsTimeConstantsAndCreeps) {
  TGasValveParams params = GasValveParams(2);
  params.Creep = 0.0;
  TGasValve valve(params);
  valve.SetOpen(true);
  valve.Output(5.0);
  Pass(valve, params.DeadMs - 1);
  EXPECT_EQ(valve.Bar(), 0.0);
  const double full = StaticBar(params, valve.Volt() - params.Play);
  Pass(valve, 160);
  EXPECT_NEAR(valve.Bar(), full * (1.0 - std::exp(-1.0)), 1e-9);
  Pass(valve, 10'000);
  EXPECT_TRUE(valve.Rests());
  EXPECT_EQ(valve.Bar(), full);
  valve.Output(2.0);
  const double low = StaticBar(params, valve.Volt() + params.Play);
  Pass(valve, params.DeadMs - 1 + 300);
  EXPECT_NEAR(valve.Bar(), low + (full - low) * std::exp(-1.0), 1e-9);
  valve.SetOpen(false);
  const double before = valve.Bar();
  Pass(valve, 90);
  EXPECT_NEAR(valve.Bar(), before * std::exp(-1.0), 1e-9);

  const TGasValveParams creeping = GasValveParams(2);
  EXPECT_NEAR(Open(creeping, 5.0, 30 + 2000).Bar(), full * (1.0 - creeping.Creep * std::exp(-1.0)), full * 1e-4);
  EXPECT_NEAR(Open(creeping, 5.0, 60'000).Bar(), full, 1e-9);
}

TEST(GasValve, TheVoltageIsConvertedInStepsAndThePlayIsTakenUpFromBothSides) {
  const TGasValveParams params = GasValveParams(3);
  TGasValve valve = Open(params, 4.0);
  EXPECT_NEAR(valve.Volt(), 4.0, 10.0 / 32767.0 / 2.0);
  EXPECT_NEAR(valve.Volt() * 32767.0 / 10.0, std::round(valve.Volt() * 32767.0 / 10.0), 1e-9);
  EXPECT_DOUBLE_EQ(valve.Spool(), valve.Volt() - params.Play);
  const double up = valve.Spool();
  valve.Output(4.0 - params.Play);
  Pass(valve, 100);
  EXPECT_DOUBLE_EQ(valve.Spool(), up);  // inside the play
  valve.Output(3.0);
  Pass(valve, 100);
  EXPECT_DOUBLE_EQ(valve.Spool(), valve.Volt() + params.Play);
  // Two voltages within one dead time: the play is taken up by both.
  valve.Output(1.0);
  valve.Output(3.0);
  Pass(valve, 100);
  EXPECT_DOUBLE_EQ(valve.Spool(), valve.Volt() - params.Play);
  for (const double volt : {-1.0, 12.0, std::nan("")}) valve.Output(volt);
  EXPECT_DOUBLE_EQ(valve.Volt(), 10.0);
}

TEST(GasValve, TheSensorReadsWithOffsetNoiseRippleAndStepsTheSameForTheSameSeed) {
  const TGasValveParams params = GasValveParams(3);
  const auto readings = [&](std::uint64_t seed, std::uint64_t everyMs) {
    TPressureSensor sensor(params, seed);
    std::vector<double> read;
    for (std::uint64_t i = 0; i < 20'000; ++i) read.push_back(sensor.Read(i * everyMs, 10.0));
    return read;
  };
  const std::vector<double> slow = readings(7, 500);
  EXPECT_EQ(slow, readings(7, 500));
  EXPECT_NE(slow, readings(8, 500));
  // The same numbers in every build: these are part of the machine.
  const double step = params.Range / 4096.0;
  std::vector<long> first;
  for (std::size_t i = 0; i < 5; ++i) first.push_back(std::lround(slow[i] / step));
  EXPECT_EQ(first, (std::vector<long>{1643, 1637, 1642, 1643, 1633}));

  const auto moments = [](const std::vector<double>& read) {
    double mean = 0.0, square = 0.0, neighbour = 0.0;
    for (const double r : read) mean += r / static_cast<double>(read.size());
    for (std::size_t i = 0; i < read.size(); ++i) {
      square += (read[i] - mean) * (read[i] - mean) / static_cast<double>(read.size());
      if (i > 0) neighbour += (read[i] - mean) * (read[i - 1] - mean) / static_cast<double>(read.size());
    }
    return std::array{mean, square, neighbour};
  };
  const double variance = params.Noise * params.Noise + params.Ripple * params.Ripple + step * step / 12.0;
  const auto [mean, square, neighbour] = moments(slow);
  EXPECT_NEAR(mean, 10.0 + params.Offset, 0.001);
  EXPECT_NEAR(square, variance, 0.03 * variance);
  EXPECT_NEAR(neighbour, 0.0, 0.03 * variance);
  const double ripple = params.Ripple * params.Ripple;
  EXPECT_NEAR(moments(readings(7, 5))[2], ripple * std::exp(-5.0 / params.RippleMs), 0.15 * ripple);
  TPressureSensor sensor(params, 1);
  const double once = sensor.Read(3, 1.0);
  EXPECT_EQ(sensor.Read(3, 9.0), once);
  EXPECT_EQ(sensor.Read(4, 99.0), params.Range);
}

TEST(GasValve, EachFaultShows) {
  const TGasValveParams params = GasValveParams(1);
  const auto settled = [&](TValveFault fault, double volt = 3.0) {
    TGasValve valve = Open(params, 1.0);
    valve.SetFault(fault);
    valve.Output(volt);
    Pass(valve, 1000);
    return valve.Bar();
  };
  const double good = settled(vfNone);
  EXPECT_NEAR(settled(vfStuck), StaticBar(params, 1.0 - params.Play), 0.01);
  EXPECT_NEAR(settled(vfNoSupply), 0.0, 0.03);
  EXPECT_NEAR(settled(vfLowSupply), 0.3 * good, 0.03);
  EXPECT_LT(settled(vfSlowLine), 0.8 * good);
  EXPECT_NEAR(settled(vfWideDeadBand, 3.2), 0.0, 0.03);

  const auto read = [&](TValveFault fault, std::uint64_t ms) {
    TPressureSensor sensor(params, 1);
    sensor.SetFault(fault);
    if (ms > 1) (void)sensor.Read(1, 3.0);
    return sensor.Read(ms, 3.0);
  };
  EXPECT_EQ(read(vfDeadSensor, 1), 0.0);
  EXPECT_TRUE(std::isfinite(read(vfNonFinite, 1)));
  EXPECT_TRUE(std::isnan(read(vfNonFinite, 2)));
  EXPECT_NEAR(read(vfNegativeOffset, 1), 2.5, 0.1);
}

class GasSupply : public TSimTest {
 protected:
  TSimGas& Gas() { return Machine.GasDevice(); }
  double Bar() { return Machine.Snapshot().GasBar; }
  double Static(double volt) { return StaticBar(GasValveParams(Gas().GetBranch()), volt); }
};

TEST_F(GasSupply, ARawVoltageDrivesTheSelectedValveUntilAPressureIsSet) {
  Gas().SelectBranch(2);
  Gas().OutputDA(4.5);
  RunFor(500);
  EXPECT_EQ(Bar(), 0.0);  // the gas is off
  Gas().SwitchOn();
  RunFor(15'000);
  EXPECT_NEAR(Bar(), Static(4.5 - 0.008), 0.01);
  EXPECT_NEAR(DeviceManager()->GetRtGasPressure(), Bar() + 0.004, 0.02);
  EXPECT_FALSE(Journalled("GasLow"));
  Gas().OutputDA(std::nan(""));
  Gas().OutputDA(11.0);
  EXPECT_DOUBLE_EQ(Machine.Snapshot().GasVolt, 10.0);
  Gas().OutputDA(0.0);
  RunFor(5000);
  EXPECT_NEAR(Bar(), 0.0, 0.01);
  Gas().SetPressure(3.0);
  RunFor(5000);
  EXPECT_DOUBLE_EQ(Bar(), 3.0);
  Gas().OutputDA(2.0);
  Gas().SelectBranch(3);
  Gas().SwitchOff();
  EXPECT_EQ(Signals(), (TTexts{"da 2 4.50", "gas on 2 0.00", "da 2 10.00", "da 2 0.00", "gas on 2 3.00", "da 2 2.00",
                               "da 2 0.00", "gas on 3 3.00", "gas off"}));
  EXPECT_TRUE(Journalled("is not put out"));
  EXPECT_TRUE(Journalled("limited to 10.00"));
}

TEST_F(GasSupply, APressureIsPutOutByTheTableOfItsBranch) {
  TMachineConfig config;
  const TInstalled<TMachineConfig> installed(config);
  TGasBranchConfig& branch = config.GasBranches().Items.AddNew();
  branch.GasType = 2;
  for (const double volt : {0.18, 2.0, 4.0, 6.0, 10.0})
    branch.DAAdjustTable.Add(StaticBar(GasValveParams(2), volt), volt);
  Gas().SelectBranch(2);
  Gas().SetPressure(3.5);
  EXPECT_EQ(Machine.Snapshot().GasVolt, 0.0);  // not enabled
  branch.DAAdjustEnabled = true;
  Gas().SetPressure(3.5);
  EXPECT_EQ(Machine.Snapshot().GasVolt, 0.0);  // the gas is off
  Gas().SwitchOn();
  RunFor(15'000);
  EXPECT_NEAR(Machine.Snapshot().GasVolt, *branch.DAAdjustTable.GetVolt(3.5), 0.001);
  EXPECT_NEAR(Bar(), 3.5, 0.1);
  EXPECT_NE(Bar(), 3.5);
  Gas().SwitchOff();
  EXPECT_EQ(Machine.Snapshot().GasVolt, 0.0);
  RunFor(2000);
  EXPECT_EQ(Bar(), 0.0);
}

TEST_F(GasSupply, ReadingsFailAsAskedAndARefusedOneIsNoNumber) {
  EXPECT_TRUE(Gas().SetFault(1, vfSlowUpdate));
  EXPECT_FALSE(Gas().SetFault(9, vfStuck));
  const std::uint64_t before = VirtualClock.MonotonicMs();
  EXPECT_TRUE(std::isfinite(DeviceManager()->GetRtGasPressure()));
  EXPECT_EQ(VirtualClock.MonotonicMs() - before, kSlowReadingMs);
  Gate.PlanSet({.Call = Gate.Calls() + 1, .Fault = gfRefuse});
  EXPECT_TRUE(std::isnan(DeviceManager()->GetRtGasPressure()));
}

TEST(GasValveFile, ValvesAreReadAndWhatIsWrongIsNamed) {
  const TOwnConfig own(R"(<MachineConfig><Simulator>
    <GasValve GasType="2" Psup="6" Fault="stuck"/><GasValve GasType="2"/><GasValve/>
    <GasValve GasType="1" U0="5" Uk="5.05" Play="x" Fault="odd"/></Simulator></MachineConfig>)");
  std::vector<TProblem> problems;
  const TSimConfig sim = TSimConfig::FromRoot(own.Config.Root(), problems);
  EXPECT_EQ(sim.GasValve(2).Params.Psup, 6.0);
  EXPECT_EQ(sim.GasValve(2).Params.Uk, 8.6);
  EXPECT_EQ(sim.GasValve(2).Fault, vfStuck);
  EXPECT_EQ(sim.GasValve(3).Params.Psup, 21.0);
  ASSERT_EQ(problems.size(), 5U);
  EXPECT_EQ(problems[2].Where + ": " + problems[2].What, "Simulator/GasValve[4]/Play: \"x\", not a number");
}

}  // namespace
}  // namespace ixocamglue::test
