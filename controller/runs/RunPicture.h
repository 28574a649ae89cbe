// What a picture of a run shows: the XY path and where the beam was lit on it, Z over time, the signals over time, the
// steps. Made of its report and its trace; who draws it adds colours. In the language of the controller, whose machine
// file names the outputs: the thread that has made it. mm and s, from the run's start on. Nothing fails.
#pragma once

#include <string>
#include <vector>

#include "controller/runs/MotionTrace.h"
#include "controller/runs/RunWatch.h"

namespace ixocontroller {

struct TPlotDot {
  double X = 0.0, Y = 0.0;
};
using TPlotCurve = std::vector<TPlotDot>;

struct TPlotSpan {
  double From = 0.0, To = 0.0;
  [[nodiscard]] double Length() const { return To - From; }
  void Widen(double length);  // on both sides alike, where it is shorter
};

struct TRunPicture {
  struct TSignalRow {
    std::string Label;
    TPlotCurve Curve;  // 0 and 1 over time
  };
  struct TStepMark {
    double At = 0.0;
    std::int32_t Number = 0;  // 0: none is written, as the one before is too near
  };

  TPlotCurve Path, Z;  // Z over ms; both without the points on straight stretches
  TPlotSpan X, Y, ZSpan;
  TPlotDot End;
  std::vector<TPlotCurve> LitMoving = {}, LitResting = {};  // the path while the beam was on; resting: nothing moved
  std::vector<TSignalRow> Signals = {};                     // from the bottom up
  std::vector<TStepMark> Steps = {};  // of the root; none where there are too many to be told apart
  double Seconds = 0.0;               // above 0
};
[[nodiscard]] TRunPicture PictureOf(const TRunReport& report, const TMotionTrace& trace);

}  // namespace ixocontroller
