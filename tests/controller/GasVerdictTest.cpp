// What recordings of good and faulty valves are judged to be, and recordings that are none.
#include <cmath>
#include <fstream>
#include <functional>
#include <limits>

#include <gmock/gmock.h>

#include "controller/gasvalve/GasVerdict.h"
#include "fixture/Program.h"
#include "ixocamglue/support/Problem.h"
#include "machines/simulated/GasValve.h"

namespace ixocamglue::test {
using namespace ixocontroller;
namespace {

// A pass upwards and one downwards over even voltages, 1.5 s each.
TRecordedGas Record(TGasValveParams params, TValveFault fault = vfNone, bool descend = true) {
  TGasValve valve(params);
  TPressureSensor sensor(params, 3);
  valve.SetFault(fault);
  sensor.SetFault(fault);
  valve.SetOpen(true);
  TRecordedGas gas{.GasType = 1, .Name = "Air", .MaxPressure = 10.0};
  std::uint64_t now = 0;
  const auto measure = [&](double volt, bool descending) {
    TRecordedGasPoint& point = gas.Points.emplace_back();
    point.Volt = volt;
    point.Descending = descending;
    valve.Output(volt);
    double sum = 0.0;
    for (int ms = 1; ms <= 1500; ++ms) {
      valve.Step();
      ++now;
      if (ms < 300 || ms % 5 != 0) continue;
      point.Samples.push_back({static_cast<double>(ms), sensor.Read(now, valve.Bar())});
      if (ms > 1000 && std::isfinite(point.Samples.back().Y)) sum += point.Samples.back().Y / 100.0;
    }
    point.Settled = sum;
  };
  for (int i = 1; i <= 20; ++i) measure(0.5 * i, false);
  for (int i = 19; descend && i >= 1; --i) measure(0.5 * i, true);
  return gas;
}

std::vector<std::string> Bad(const TRecordedGas& gas) {
  std::vector<std::string> kinds;
  for (const TGasFinding& finding : JudgeGas(gas))
    if (finding.Bad) kinds.emplace_back(finding.Kind);
  return kinds;
}

double FigureOf(const TRecordedGas& gas, const std::string& kind) {
  for (const TGasFinding& finding : JudgeGas(gas))
    if (finding.Kind == kind) return finding.Figure;
  return std::numeric_limits<double>::quiet_NaN();
}

TEST(GasVerdict, AGoodValveHasNothingWrongAndTrueFigures) {
  const TGasValveParams params = GasValveParams(1);
  const TRecordedGas gas = Record(params);
  EXPECT_THAT(Bad(gas), testing::IsEmpty());
  EXPECT_NEAR(FigureOf(gas, "noise"), params.Noise, 0.005);
  EXPECT_LT(FigureOf(gas, "drift"), 2.0);
  EXPECT_NEAR(FigureOf(gas, "dead-band"), params.U0, 0.15);
  double full = 0.0;
  while (StaticBar(params, full) < 0.98 * StaticBar(params, 10.0)) full += 0.01;
  EXPECT_NEAR(FigureOf(gas, "saturation"), full, 0.1);
  TRecordedGas few = gas;  // the curve knows better where the points are far apart
  few.Points = {gas.Points[1], gas.Points[5], gas.Points[19]};
  few.Table = {{0.0, 0.0}, {0.42, 0.0}, {full, 0.99 * params.Psup}, {10.0, params.Psup}};
  EXPECT_NEAR(FigureOf(few, "saturation"), full, 0.1);
  const double rise = StaticBar(params, 3.0 + params.Play) - StaticBar(params, 3.0 - params.Play);
  EXPECT_NEAR(FigureOf(gas, "hysteresis"), rise, 0.3 * rise);
  EXPECT_NEAR(FigureOf(gas, "supply"), params.Psup, 0.05);
  EXPECT_TRUE(std::isnan(FigureOf(Record(params, vfNone, false), "hysteresis")));
}

TEST(GasVerdict, EachFaultIsFoundAndNoOther) {
  using testing::ElementsAre;
  const auto with = [](const std::function<void(TGasValveParams&)>& change) {
    TGasValveParams params = GasValveParams(1);
    change(params);
    return Bad(Record(params));
  };
  EXPECT_THAT(with([](auto& p) { p.Noise = 0.2; }), testing::Contains("noise"));
  EXPECT_THAT(with([](auto& p) { p.FillMs = p.BleedMs = 1500; }), testing::Contains("slow"));
  EXPECT_THAT(with([](auto& p) { p.U0 = 2.2; }), ElementsAre("dead-band"));
  EXPECT_THAT(with([](auto& p) { p.Uk = 1.8; }), ElementsAre("saturation"));
  EXPECT_THAT(with([](auto& p) { p.Play = 0.15; }), ElementsAre("hysteresis"));
  EXPECT_THAT(with([](auto& p) { p.Psup = 4.0; }), ElementsAre("supply"));
  EXPECT_THAT(with([](auto& p) { p.Uk = 12.0; }), ElementsAre());  // no saturation is no fault

  const TGasValveParams params = GasValveParams(1);
  EXPECT_THAT(Bad(Record(params, vfLowSupply)), ElementsAre("supply"));
  EXPECT_THAT(Bad(Record(params, vfWideDeadBand)), testing::Contains("dead-band"));
  EXPECT_THAT(Bad(Record(params, vfStuck)), ElementsAre("response"));
  EXPECT_THAT(Bad(Record(params, vfNoSupply)), ElementsAre("response"));
  EXPECT_THAT(Bad(Record(params, vfDeadSensor)), ElementsAre("frozen", "response"));
  EXPECT_THAT(Bad(Record(params, vfNonFinite)), testing::Contains("readings"));
  TRecordedGas foreseen = Record(params);
  for (TRecordedGasPoint& point : foreseen.Points) point.Samples.erase(point.Samples.begin() + 60, point.Samples.end());
  EXPECT_THAT(Bad(foreseen), ElementsAre("drift"));
  for (TRecordedGasPoint& point : foreseen.Points) point.Foreseen = true;
  EXPECT_THAT(Bad(foreseen), ElementsAre());
  TRecordedGas unsettled = Record(params);
  unsettled.Points[3].Settled.reset();
  EXPECT_THAT(Bad(unsettled), ElementsAre("settling"));
  unsettled.Stopped = true;
  EXPECT_THAT(FindingLines(JudgeGas(unsettled)), ElementsAre(testing::HasSubstr(" ? stopped"))) << "nobody is blamed";
  EXPECT_THAT(Bad(TRecordedGas{}), ElementsAre("points"));
  TRecordedGas offZero = Record(params, vfNegativeOffset);
  EXPECT_THAT(Bad(offZero), ElementsAre("zero")) << "pressures below 0";
  std::erase_if(offZero.Points, [](const auto& point) { return point.Settled < 0.0; });
  EXPECT_THAT(Bad(offZero), ElementsAre());
  offZero.Zero = -0.5;
  EXPECT_THAT(Bad(offZero), ElementsAre("zero")) << "the reading with the valve shut";
}

class GasRecordings : public TProgramTest {
 protected:
  GasRecordings() { FLanguage = "en"; }
  int Gas(const std::string& arguments) {
    const TRun run = Ixocut("gas " + arguments);
    FOut = run.All();
    return run.ExitCode;
  }
  std::string WhyNot(const std::string& text) {
    std::ofstream(FFile) << text;
    try {
      (void)ReadGasRecording(FFile);
    } catch (const EProblem& e) {
      EXPECT_EQ(e.Blame, pbUnusable);
      return std::string(e.what()).substr(FFile.size() + 2);
    }
    return {};
  }

  std::string FOut;
  const std::string FFile = (FDir.Path() / "gas.json").string();
};

TEST_F(GasRecordings, WhatIsWrittenIsReadBack) {
  TGasRecording recording{.NozzType = "S", .NozzSize = 1.5, .Gases = {Record(GasValveParams(1), vfNonFinite)}};
  recording.Gases[0].Points[2].Settled.reset();
  recording.Gases[0].Points[1].Foreseen = true;
  recording.Gases[0].Table = {{0.0, 0.0}, {1.1, 0.3}};
  WriteGasRecording(FFile, recording);
  const TGasRecording read = ReadGasRecording(FFile);
  EXPECT_EQ(read.NozzType, "S");
  EXPECT_EQ(read.NozzSize, 1.5);
  ASSERT_EQ(read.Gases.size(), 1U);
  const TRecordedGas& gas = read.Gases[0];
  EXPECT_EQ(gas.Table, recording.Gases[0].Table);
  ASSERT_EQ(gas.Points.size(), recording.Gases[0].Points.size());
  for (std::size_t i = 0; i < gas.Points.size(); ++i) {
    const TRecordedGasPoint& as = recording.Gases[0].Points[i];
    EXPECT_EQ(gas.Points[i].Volt, as.Volt);
    EXPECT_EQ(gas.Points[i].Settled, as.Settled);
    EXPECT_EQ(gas.Points[i].Descending, as.Descending);
    EXPECT_EQ(gas.Points[i].Foreseen, as.Foreseen);
    ASSERT_EQ(gas.Points[i].Samples.size(), as.Samples.size());
    for (std::size_t k = 0; k < as.Samples.size(); ++k)
      EXPECT_TRUE(std::isnan(as.Samples[k].Y) ? std::isnan(gas.Points[i].Samples[k].Y)
                                              : as.Samples[k] == gas.Points[i].Samples[k]);
  }
}

TEST_F(GasRecordings, WhatIsNoRecordingIsRefusedWithThePlace) {
  const std::string head = R"({"format":"ixocut gas recording","version":1,"nozzle":{"type":"S","size":1.5},"gases":[)";
  const std::string gas = R"({"gas":"Air","type":1,"maxPressure":12,"table":[],"points":[)";
  const auto point = [&](const char* samples) {
    return head + gas + R"({"volt":1,"descending":false,"foreseen":false,"settled":null,"samples":[)" + samples +
           "]}]}]}";
  };
  EXPECT_EQ(WhyNot(point("[1,0.5],[2,null]")), "");
  EXPECT_EQ(WhyNot("{\n\"a\": 1,"), ":8: is not valid JSON here");
  EXPECT_EQ(WhyNot("[]"), "not an object");
  EXPECT_EQ(WhyNot(R"({"format":"x"})"), "format: this is no gas recording");
  EXPECT_EQ(WhyNot(R"({"format":"ixocut gas recording","version":2})"), "version: this version is not known");
  EXPECT_EQ(WhyNot(head + R"({"gas":"Air"}]})"), "gases[1]: \"type\" is missing");
  EXPECT_EQ(WhyNot(head + R"({"gas":"Air","type":9}]})"), "gases[1]/type: 9 is not in 1..6");
  EXPECT_EQ(WhyNot(point("[1,0.5],[1,0.5]")), "gases[1]/points[1]/samples[2]: not later than the sample before");
  EXPECT_EQ(WhyNot(point("[1]")), "gases[1]/points[1]/samples[1]: not a pair of numbers");
  EXPECT_EQ(WhyNot(point("[1,\"a\"]")), "gases[1]/points[1]/samples[1][2]: not a number");
  EXPECT_THROW((void)ReadGasRecording(FDir.Path().string()), EProblem);
}

TEST_F(GasRecordings, ACalibratedMachineReachesItsPressuresAndItsRecordingIsJudged) {
  EXPECT_EQ(Gas("pressure --gas O2 --bar 3.5 --state s"), 1);
  EXPECT_THAT(FOut, testing::HasSubstr("no table in use"));
  ASSERT_EQ(Gas("calibrate --gas O2 --nozzle S --size 1.5 --method refined --record gas.json --descend --state s"), 0)
      << FOut;
  ASSERT_EQ(Gas("pressure --gas O2 --bar 3.5 --state s --json"), 0) << FOut;
  const auto reached = nlohmann::json::parse(FOut)["result"];
  EXPECT_NEAR(reached["reachedBar"].get<double>(), 3.5, 0.1);
  EXPECT_NE(reached["reachedBar"].get<double>(), 3.5);
  EXPECT_DOUBLE_EQ(reached["errorBar"].get<double>(), reached["reachedBar"].get<double>() - 3.5);
  EXPECT_NEAR(reached["sensorBar"].get<double>(), reached["reachedBar"].get<double>() + 0.004, 0.003);
  EXPECT_EQ(Gas("pressure --gas O2 --bar 11 --state s"), 2);
  EXPECT_EQ(Gas("pressure --gas O2,N2 --bar 1 --state s"), 2);
  EXPECT_EQ(Gas("verdict gas.json"), 0) << FOut;
  EXPECT_THAT(FOut, testing::AllOf(testing::StartsWith("Oxygen, nozzle"), testing::HasSubstr("ok hysteresis")));
  std::ofstream(FFile, std::ios::app) << "}";
  EXPECT_EQ(Gas("verdict gas.json"), 3);
  EXPECT_THAT(FOut, testing::HasSubstr(": is not valid JSON here"));
}

}  // namespace
}  // namespace ixocamglue::test
