// What the pictures of runs and recordings show, apart from how they are drawn.
#include <limits>

#include <gmock/gmock.h>

#include "controller/recordings/RecordingPicture.h"
#include "controller/runs/RunPicture.h"

namespace ixocamglue::test {
using namespace ixocontroller;
namespace {

using testing::SizeIs;

TEST(Pictures, OfARunHasTheCornersOfThePathAndWhereTheBeamWasLit) {
  TMotionTrace trace;
  for (std::uint64_t ms = 0; ms <= 200; ++ms) {
    TMachineSnapshot now;
    now.Ms = 1000 + ms;
    now.Pos = {ms <= 100 ? static_cast<double>(ms) : 100.0, ms <= 100 ? 0.0 : static_cast<double>(ms - 100)};
    trace.Sample(now);
  }
  TRunReport report;
  report.StartMs = 1000;
  report.EndMs = 1300;
  report.Signals = {{.Ms = 1050, .Kind = sgLaser, .On = true},
                    {.Ms = 1150, .Kind = sgLaser},
                    {.Ms = 1250, .Kind = sgLaser, .On = true},
                    {.Ms = 1260, .Kind = sgLaser},
                    {.Ms = 1270, .Kind = sgOutput, .On = true, .Number = 5}};
  report.Steps = {{.Level = 0, .Number = 1, .From = 1000},
                  {.Level = 1, .Number = 1, .From = 1001},
                  {.Level = 0, .Number = 2, .From = 1002},
                  {.Level = 0, .Number = 3, .From = 1200}};
  const TRunPicture picture = PictureOf(report, trace);
  ASSERT_THAT(picture.Path, SizeIs(3));
  EXPECT_EQ(picture.Path[1].X, 100.0);
  EXPECT_EQ(picture.Path[1].Y, 0.0);
  ASSERT_THAT(picture.LitMoving, SizeIs(1));
  EXPECT_EQ(picture.LitMoving[0].front().X, 50.0);
  EXPECT_EQ(picture.LitMoving[0].back().Y, 50.0);
  EXPECT_THAT(picture.LitResting, SizeIs(1)) << "lit where nothing moved any more";
  EXPECT_THAT(picture.Signals, SizeIs(5)) << "the four that always have a row, and the output";
  EXPECT_EQ(picture.Signals.back().Curve.back().Y, 1.0) << "on to the end";
  ASSERT_THAT(picture.Steps, SizeIs(3)) << "those of the root";
  EXPECT_EQ(picture.Steps[1].Number, 0) << "too near to the one before to be named";
  EXPECT_EQ(picture.Steps[2].Number, 3);
}

TEST(Pictures, OfARecordingKeepCurvesApartThatHideEachOtherAndNameTheStates) {
  const auto series = [](std::vector<double> values) {
    TSeries made;
    made.Values = std::move(values);
    for (std::size_t i = 0; i < made.Values.size(); ++i) made.Ms.push_back(static_cast<std::int64_t>(i));
    return made;
  };
  const TMonitorSignal* const position = FindMonitorSignal("position");
  const TMonitorSignal* const state = FindMonitorSignal("state");
  ASSERT_TRUE(position && state);
  const auto key = [](const TMonitorSignal& signal, std::uint16_t axis) {
    return TMonitorSignalKey{signal.MainType, signal.SubType, axis, 0};
  };
  TRecording recording;
  recording.Series[key(*position, 1)] = series({0.0, 100.0, 200.0});
  recording.Series[key(*position, 2)] = series({0.0, 50.0, 150.0});
  recording.Series[key(*position, 3)] = series({0.0, 1.0, 2.0});
  recording.Series[key(*position, 4)] = series({std::numeric_limits<double>::quiet_NaN()});
  recording.Series[key(*state, 0)] = series({0.0, 204.0, 204.0, 0.0, 5.0});
  const TRecordingPicture picture = PictureOf(recording);
  ASSERT_THAT(picture.Panels, SizeIs(2));
  EXPECT_THAT(picture.Panels[0].Curves, SizeIs(2));
  EXPECT_THAT(picture.Panels[1].Curves, SizeIs(1)) << "it would be a line at the bottom of the others' panel";
  EXPECT_EQ(picture.LeftOut, "position.4");
  ASSERT_THAT(picture.Bands, SizeIs(1));
  ASSERT_THAT(picture.Bands[0].Stretches, SizeIs(2));
  EXPECT_EQ(picture.Bands[0].Stretches[0].FromMs, 1);
  EXPECT_EQ(picture.Bands[0].Stretches[0].ToMs, 3);
  EXPECT_THAT(picture.Bands[0].Stretches[0].Value, testing::EndsWith(" 204"));
  EXPECT_EQ(picture.LastMs, 4);
}

}  // namespace
}  // namespace ixocamglue::test
