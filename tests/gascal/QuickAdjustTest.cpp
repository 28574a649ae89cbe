// Proposals, settling and rebuilding, by hand-made samples and curves.
#include <cmath>
#include <functional>
#include <limits>

#include <gmock/gmock.h>

#include "fixture/Faults.h"
#include "ixocamglue/gascal/Ugasdaadjust.h"
#include "ixocamglue/platform/xml/MachineConfig.h"

namespace ixocamglue::test {
namespace {

using testing::DoubleNear;
using testing::ElementsAre;

std::vector<double> Volts(const TIncList& list) {
  std::vector<double> volts;
  for (const TDot& dot : list.Dots()) volts.push_back(dot.X);
  return volts;
}

TIncList ListOf(std::initializer_list<TDot> dots) {
  TIncList list;
  for (const TDot& dot : dots) list.AddItem(dot);
  return list;
}

TEST(GasDots, KeepsOrderAndFindsByTolerance) {
  TFaultWatch faults;
  TIncList list = ListOf({{2, 20}, {1, 10}, {2, 21}, {3, 30}});
  EXPECT_THAT(list.Dots(), ElementsAre(TDot{1, 10}, TDot{2, 20}, TDot{2, 21}, TDot{3, 30}));
  EXPECT_EQ(list.Version(), 4u);
  const std::pair<double, int> found[] = {{0.999, -1}, {1.0, 0}, {1.5, 0}, {2.0, 2}, {2.9, 2}, {3.0, 3}, {9.0, 3}};
  for (const auto& [x, index] : found) EXPECT_EQ(list.FindIndex(x), index) << x;
  const std::pair<double, int> near[] = {{0.9, 0}, {0.89, -1}, {1.1, 0}, {1.9, 1}, {2.05, 2}, {2.5, -1}, {3.1, 3}};
  for (const auto& [x, index] : near) EXPECT_EQ(list.FindNearBy(0.1 + 1e-12, x), index) << x;
  list.AddItem({std::nan(""), 1});
  list.AddItem({1, std::numeric_limits<double>::infinity()});
  EXPECT_EQ(list.Count(), 4);
  list.DelDupItem(1e-5);  // the later of two stays
  EXPECT_THAT(list.Dots(), ElementsAre(TDot{1, 10}, TDot{2, 21}, TDot{3, 30}));
  double mean = -1;
  EXPECT_TRUE(list.Average(0, 2, mean));
  EXPECT_DOUBLE_EQ(mean, 61.0 / 3);
  EXPECT_FALSE(list.Average(1, 0, mean) || list.Average(-1, 1, mean) || list.Average(0, 3, mean));
  EXPECT_DOUBLE_EQ(mean, 61.0 / 3) << "left alone";

  list.Append({0.5, 1});
  EXPECT_EQ(list.FindIndex(1), -1);
  EXPECT_EQ(faults.Claim().size(), 1u) << "a search while unsorted";
  list.SortByX();
  EXPECT_EQ(list.FindIndex(1), 1);
}

TEST(GasDots, InterpolatesInBothDirections) {
  const TIncList list = ListOf({{1, 10}, {2, 20}, {3, 15}, {4, 40}});
  const std::pair<double, double> byY[] = {{9.9, 0},     {10, 1},   {10 - 9e-6, 1}, {15, 3},
                                           {17.5, 1.75}, {30, 3.6}, {40.1, 4}};
  for (const auto& [y, x] : byY) EXPECT_NEAR(list.GetX(y), x, 1e-12) << y;
  const std::pair<double, double> byX[] = {{0.9, 0}, {2.5, 17.5}, {4, 40}, {5, 40}};
  for (const auto& [x, y] : byX) EXPECT_NEAR(list.GetY(x), y, 1e-12) << x;
  EXPECT_EQ(TIncList().GetX(1), 0.0);
  EXPECT_EQ(list.GetX(std::nan("")), 0.0);

  TIncList flat = ListOf({{1, 5}, {2, 5}, {3, 4}});
  flat.MonoInc(1e-5);
  EXPECT_NEAR(flat[1].Y, 5 + 1e-5, 1e-12);
  EXPECT_NEAR(flat[2].Y, 5 + 2e-5, 1e-12);
}

TEST(GasDots, LinesWithoutOneAnswerSaySo) {
  const TLine rising({0, 1}, {2, 5}), vertical({3, 0}, {3 + 5e-6, 9}), level(0.0, 4.0);
  double value = -7;
  EXPECT_TRUE(rising.GetX(3, value));
  EXPECT_DOUBLE_EQ(value, 1);
  EXPECT_TRUE(vertical.GetX(3, value));
  EXPECT_DOUBLE_EQ(value, 3 + 5e-6) << "the second dot's";
  EXPECT_FALSE(level.GetX(4, value) || vertical.GetY(3, value));
  EXPECT_DOUBLE_EQ(value, 3 + 5e-6);
  TDot cross;
  EXPECT_TRUE(rising.CrossPoint(level, cross));
  EXPECT_EQ(cross, (TDot{1.5, 4}));
  EXPECT_TRUE(vertical.CrossPoint(level, cross) && level.CrossPoint(vertical, cross));
  EXPECT_EQ(cross, (TDot{3 + 5e-6, 4}));
  EXPECT_FALSE(rising.CrossPoint(TLine(2.0 + 5e-6, 0), cross) || vertical.CrossPoint(vertical, cross));
}

class QuickAdjust : public testing::Test {
 protected:
  QuickAdjust() {
    for (const std::int32_t gas : {1, 2, 3, 6}) FConfig.GasBranches().Items.AddNew().GasType = gas;
  }
  void Reset(std::int32_t branch) {
    Adjust.SetBranch(branch);
    Adjust.Reset();
  }
  // Runs a whole calibration on this curve; the voltages asked for, in order.
  std::vector<double> Run(bool threeBands, const std::function<double(double)>& curve) {
    std::vector<double> asked;
    double da = -1;
    while (asked.size() < 30 && (threeBands ? Adjust.GetNextAdjDA3P(da) : Adjust.GetNextAdjDA(da))) {
      asked.push_back(da);
      if (threeBands)
        Adjust.RecordPoint(da, curve(da));
      else
        EXPECT_TRUE(Adjust.RecordPress(da, curve(da)));
    }
    return asked;
  }
  void Samples(int count, double stepMs, const std::function<double(double)>& press) {
    Adjust.ResetGasPressList();
    for (int i = 0; i < count; ++i) {
      const auto ms = static_cast<std::int64_t>(i * stepMs);
      Adjust.AddSample(1'000'000 + ms, press(static_cast<double>(ms)));
    }
  }
  bool Stable(bool trend = true) { return Adjust.CheckGasPressStable(FPress, FStable, FRise, trend); }

  TMachineConfig FConfig;
  TInstalled<TMachineConfig> FInstalled{FConfig};
  TFaultWatch Faults;
  TQuickGasDAAdjust Adjust;
  double FPress = -1;
  std::int32_t FStable = -1, FRise = -1;
};

double Straight(double volt) { return volt; }

// Below each voltage its pressure; above them all the last one.
std::function<double(double)> Steps(const std::vector<TDot>& below, double above) {
  return [=](double volt) {
    for (const TDot& step : below)
      if (volt < step.X) return step.Y;
    return above;
  };
}

TEST_F(QuickAdjust, TakesPresetsWindowAndToleranceOfItsBranch) {
  const struct {
    std::int32_t Branch, Window;
    double Error;
    std::vector<double> Presets;
  } rows[] = {{1, 150, 3.0, {1.0, 2.4, 3.6, 10.0}},
              {2, 100, 1.5, {0.4, 0.6, 0.8, 1.0, 1.4, 2.1, 10.0}},
              {3, 250, 3.0, {1.0, 3.0, 4.5, 10.0}},
              {6, 150, 3.0, {2.4, 3.6, 10.0}},
              {5, 150, 3.0, {2.4, 3.6, 10.0}}};  // not fitted: as it was
  EXPECT_FALSE(Adjust.GetNextAdjDA(FPress) || Adjust.GetNextAdjDA3P(FPress)) << "no presets, no points";
  for (const auto& row : rows) {
    Reset(row.Branch);
    EXPECT_EQ(Adjust.WindowMs(), row.Window);
    EXPECT_EQ(Adjust.ErrorPercent(), row.Error);
    EXPECT_THAT(std::vector<double>(Adjust.Presets().begin(), Adjust.Presets().end()),
                testing::ElementsAreArray(row.Presets));
  }
}

TEST_F(QuickAdjust, ProposesByBisectionAndByThreeBands) {
  struct TCase {
    const char* Name;
    bool ThreeBands;
    std::function<double(double)> Curve;
    std::vector<double> Behind;  // the presets
    std::int32_t Branch = 1;
  };
  const auto halves = [](double volt, int count) {
    std::vector<double> volts;
    for (int i = 0; i < count; ++i, volt /= 2) volts.push_back(volt);
    return volts;
  };
  const auto late = [](double volt) { return volt > 9.99 ? 8.0 : 0.1 * volt / 3.6; };
  const auto sudden = [](double volt) { return volt < 3.05 ? 0.1 * volt : 8.0; };
  const TCase cases[] = {
      // 3.6 lies in the lower band, half of the way up in the upper.
      {"a straight line covers both bands", false, Straight, {4.6, 5.6}},
      {"below 10 % up to full scale: 1.5 V at a time", false, late, {5.1, 6.6, 8.1, 9.6}},
      {"everything above 90 %: half of the lowest, 15 points at most", false, Steps({}, 8.0), halves(0.5, 11)},
      // Between the points at which half of the pressure is passed.
      {"neither band", false, Steps({{2, 0.5}, {2.5, 0.7}, {2.8, 2.0}, {3.3, 4.0}}, 7.9), {3.0, 2.7}},
      {"10 % and 90 % belong to the bands", false, Steps({{3, 1.0}, {9, 9.0}}, 10.0), {}},
      {"above 90 % does not", false, Steps({{2.9, 1.0}, {3.3, 7.0}, {9, 9.2}}, 10.0), {3.0}},
      {"only the upper band: below it", false, Steps({{0.6, 2.0}, {9, 5.0}}, 8.0), {0.5}},
      {"a straight line in three bands", true, Straight, {3.6 + 6.4 / 3, 3.6 + 6.4 / 3 + 6.4 * 2 / 9}},
      {"40 % and 90 % belong to the bands that they bound", true, Steps({{2, 1.5}, {3, 4.0}, {9, 9.0}}, 10.0), {}},
      {"17 % lies in the first band", true, Steps({{2, 1.7}, {3, 5.0}, {9, 7.0}}, 10.0), {}},
      {"42 % does not", true, Steps({{1.5, 1.0}, {2, 2.0}, {3, 4.2}, {9, 7.0}}, 10.0), {1.7}},
      {"65 % does not lie in the second", true, Steps({{1.5, 2.0}, {2, 5.0}, {3, 6.5}, {9, 8.0}}, 10.0), {1.7}},
      {"92 % does not lie in the third", true, Steps({{2, 2.0}, {2.8, 5.0}, {3.3, 7.0}, {9, 9.2}}, 10.0), {3.0}},
      // Halves until 0.02 V are left.
      {"a step in three bands", true, sudden, {3.0, 3.3, 3.15, 3.075, 3.0375}},
      {"everything on top, three bands: half of the lowest", true, Steps({{1, 4.0}}, 8.0), halves(1.2, 12), 6},
  };
  for (const TCase& c : cases) {
    Reset(c.Branch);
    auto asked = Run(c.ThreeBands, c.Curve);
    asked.erase(asked.begin(), asked.begin() + static_cast<std::ptrdiff_t>(Adjust.Presets().size()));
    EXPECT_THAT(asked, testing::Pointwise(DoubleNear(1e-12), c.Behind)) << c.Name;
    EXPECT_LE(Adjust.CaliList().Count(), 15);
  }
}

TEST_F(QuickAdjust, BisectionMayPassFullScale) {
  Reset(1);
  const auto asked = Run(false, [](double v) { return v > 9.7 ? 8.0 : v > 9 ? 4.0 : 0.02 * v; });
  ASSERT_GT(asked.size(), 8u);
  EXPECT_NEAR(asked[7], 9.6, 1e-12);
  EXPECT_NEAR(asked[8], 11.1, 1e-12);
}

TEST_F(QuickAdjust, ThreeBandsProposeTheSameUntilThePointIsRecorded) {
  Reset(1);
  double first = 0, second = 0;
  EXPECT_TRUE(Adjust.GetNextAdjDA3P(first) && Adjust.GetNextAdjDA3P(second));
  EXPECT_EQ(first, second);
  EXPECT_FALSE(Adjust.RecordPress(first, 1)) << "this method enters nothing";
}

TEST_F(QuickAdjust, SettlesNoSoonerThanItsWindowsAllow) {
  Reset(2);  // W 100 ms: 4 W + 200 = 600 ms
  const auto steady = [](double) { return 2.0; };
  Samples(9, 200, steady);
  EXPECT_FALSE(Stable()) << "fewer than 10 samples";
  Samples(600 / 5, 5, steady);
  EXPECT_FALSE(Stable()) << "595 ms";
  Samples(600 / 5 + 1, 5, steady);
  EXPECT_TRUE(Stable());
  EXPECT_DOUBLE_EQ(FPress, 2.0);
  EXPECT_EQ(FStable, 205) << "from the first sample to the first one of the windows";
  EXPECT_EQ(FRise, 0);
  Samples(60, 20, steady);
  EXPECT_FALSE(Stable()) << "5 samples in a window of 100 ms";
  Samples(400, 20, steady);
  EXPECT_FALSE(Stable()) << "not even after 5 s";
  Samples(600 / 5 + 1, 5, [](double ms) { return ms < 203 ? 0.1 : 2.0; });
  EXPECT_TRUE(Stable());
  EXPECT_EQ(FRise, 205);
}

TEST_F(QuickAdjust, DisagreementIsAcceptedOnlyAfterFiveSeconds) {
  Reset(2);
  const auto swinging = [](double ms) { return std::fmod(ms, 200) < 100 ? 1.0 : 2.0; };
  Samples(1001, 5, swinging);  // exactly 5000 ms
  EXPECT_FALSE(Stable());
  Samples(1002, 5, swinging);
  EXPECT_TRUE(Stable());
  EXPECT_NEAR(FPress, 1.5, 0.05);
  EXPECT_EQ(FStable, 5005);
  EXPECT_EQ(FRise, 100);
}

TEST_F(QuickAdjust, ASteadyDriftCountsOnlyWhenTheTrendIsAsked) {
  Reset(2);
  const auto drifting = [](double ms) { return 2.0 + ms * 0.00005; };  // 0.75 % over three windows
  Samples(200, 5, drifting);
  EXPECT_TRUE(Stable(false));
  EXPECT_TRUE(Stable(true)) << "half of 1.5 % is not reached";
  Samples(200, 5, [&](double ms) { return 2.0 + ms * 0.00008; });
  EXPECT_TRUE(Stable(false));
  EXPECT_FALSE(Stable(true));
  Samples(121, 5, [](double ms) { return ms <= 300 ? 2.0 : ms <= 400 ? 2.02 : ms <= 500 ? 2.01 : 2.024; });
  EXPECT_TRUE(Stable(true)) << "it goes up and down";
  Samples(200, 5, [](double) { return 0.05; });
  EXPECT_TRUE(Stable()) << "equal pressures agree, however low";
  Samples(200, 5, [](double ms) { return 0.05 + 0.00002 * std::fmod(ms / 5, 7) * (ms > 700 ? 1 : 0); });
  EXPECT_FALSE(Stable()) << "below 0.1 bar nothing but equality agrees";
}

TEST_F(QuickAdjust, StatisticsCoverTheLastFourWindows) {
  Reset(2);
  double rms = -1, mean = -1, low = -1, high = -1;
  Samples(9, 100, [](double) { return 1.0; });
  EXPECT_FALSE(Adjust.StatGasInfo(1, rms, mean, low, high));
  Samples(121, 5, [](double ms) { return ms <= 200 ? 50.0 : 1.0 + (ms - 200) / 5; });  // 2, 3 ... 81
  ASSERT_TRUE(Adjust.StatGasInfo(41.5, rms, mean, low, high));
  EXPECT_DOUBLE_EQ(mean, 41.5);
  EXPECT_NEAR(rms, std::sqrt((80.0 * 80 - 1) / 12), 1e-9);
  EXPECT_EQ(low, 10.0);
  EXPECT_EQ(high, 73.0);
}

TEST_F(QuickAdjust, RebuildsACleanCurve) {
  Reset(2);
  TIncList two = ListOf({{1, 1}, {2, 1}});
  Adjust.ReBuildGasAdjList(two);
  EXPECT_THAT(Volts(two), ElementsAre(1, 2)) << "two points stay";

  // A line from 1 V on, saturated from 5 V on: the low end comes down to 5 %, the knee goes where the lines cross.
  TIncList list;
  for (const TDot& dot : {TDot{10, 8.02}, {3, 4}, {2, 2}, {4, 6}, {6, 8.0}, {2, 2.1}}) list.Append(dot);
  Adjust.ReBuildGasAdjList(list);
  ASSERT_THAT(Volts(list), ElementsAre(0, DoubleNear(2 - 1.699 / 1.9, 1e-9), 2, 3, 4, DoubleNear(5.0, 0.01), 6, 10));
  EXPECT_EQ(list[0], (TDot{0, 0}));
  EXPECT_NEAR(list[1].Y, 0.05 * 8.02, 1e-12);
  EXPECT_EQ(list[2].Y, 2.1) << "of two points at one voltage the later one";
  for (std::int32_t i = 1; i < list.Count(); ++i) EXPECT_GT(list[i].Y, list[i - 1].Y);

  // Saturation begins three times the tolerance below the highest pressure: 4.5 % of 8 bar.
  const std::pair<double, int> knees[] = {{7.65, 1}, {7.63, 2}};
  for (const auto& [press, knee] : knees)
    EXPECT_EQ(Adjust.KneeIndex(ListOf({{1, 1}, {2, 4}, {3, press}, {10, 8}})), knee) << press;

  TIncList zeroes = ListOf({{-0.5, 0.1}, {0, 0.2}, {1, 1}, {2, 2}, {3, 3}, {10, 8}});
  Adjust.ReBuildGasAdjList(zeroes);
  EXPECT_THAT(Volts(zeroes), ElementsAre(0, 1, 2, 3, DoubleNear(8, 1e-9), 10)) << "one point at 0 V, of no pressure";
  EXPECT_EQ(zeroes[0], (TDot{0, 0}));

  // Nothing between the rise and full scale: the rise is drawn on to the highest pressure.
  TIncList steep = ListOf({{1, 1}, {2, 2}, {3, 3}, {10, 8}});
  Adjust.ReBuildGasAdjList(steep);
  EXPECT_THAT(Volts(steep), ElementsAre(0, DoubleNear(0.4, 1e-9), 1, 2, 3, DoubleNear(8, 1e-9), 10));
  EXPECT_NEAR(steep[5].Y, 8, 1e-9);

  TIncList flat = ListOf({{1, 8}, {2, 8}, {10, 8}});
  Adjust.ReBuildGasAdjList(flat);
  EXPECT_THAT(Volts(flat), ElementsAre(0, 1, 2, 10)) << "all of one pressure: no knee, no low end";
}

}  // namespace
}  // namespace ixocamglue::test
