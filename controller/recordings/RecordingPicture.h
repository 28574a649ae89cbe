// What a picture of a recording shows: curves over time that share a panel where they can be read together, and bands
// where a signal of few whole values is on. Any thread, while the recording stands still. Nothing fails.
#pragma once

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "controller/recordings/Recording.h"

namespace ixocontroller {

// Of values that are numbers, in the signal's unit; no number: of none.
struct TValueSpan {
  double Low = std::numeric_limits<double>::quiet_NaN();
  double High = std::numeric_limits<double>::quiet_NaN();
  [[nodiscard]] double Length() const { return High - Low; }
  void Take(double value);
  void Take(const TValueSpan& span) { Take(span.Low), Take(span.High); }
  [[nodiscard]] bool Empty() const;
};

struct TRecordingPicture {
  static constexpr std::size_t kMostPoints = 4000;  // of a curve; more cannot be told apart

  struct TCurve {
    std::string Name;  // empty: the panel's title says it
    const TSeries* Series;
    TValueSpan Span;
    // At most so many samples; those that are no number are a break.
    [[nodiscard]] TSeries Points() const;
  };
  struct TPanel {
    std::string Title;
    std::vector<TCurve> Curves;
    TValueSpan Span;
    // What is shown: with 0 where it is near, and room on both sides, so that a plateau is not taken for the frame.
    [[nodiscard]] TValueSpan Shown() const;
  };
  // Where it is not 0; a name of the value where it has one.
  struct TStretch {
    std::int64_t FromMs = 0, ToMs = 0;
    std::string Value;
  };
  struct TBand {
    std::string Title;
    std::vector<TStretch> Stretches;
  };

  std::vector<TPanel> Panels;
  std::vector<TBand> Bands;
  std::int64_t FirstMs = 0, LastMs = 0;
  std::string LeftOut;  // signals without a number
};
// As long as the recording, which has a sample.
[[nodiscard]] TRecordingPicture PictureOf(const TRecording& recording);

}  // namespace ixocontroller
