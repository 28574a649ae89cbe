// What the machine showed over time: state, emission, laser and gas as spans in which they were on, drawn for a
// terminal or handed out as JSON. Made from the signals of a machine's journal. Times in ms from the timeline's start.
// A value of whoever has it; nothing throws.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "ixocamglue/platform/Machine.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
using namespace ixocamglue;

struct TTimelineSpan {
  std::uint64_t From = 0;
  std::uint64_t To = 0;  // exclusive
  friend bool operator==(const TTimelineSpan&, const TTimelineSpan&) = default;
};

struct TTimelineRow {
  TSignalKind Kind;
  const char* Signal;             // "state", "emission", "laser", "gas"
  const TText* Label;             // for the operator
  std::vector<TTimelineSpan> On;  // rising, without overlap; of the state: any state but standby
};

class TTimeline {
 public:
  static constexpr std::size_t kColumns = 60;

  // Signals before `startMs` set what is on at the start; what is still on at `endMs` ends there. `endMs` >= `startMs`.
  TTimeline(std::span<const TSignal> signals, std::uint64_t startMs, std::uint64_t endMs);

  [[nodiscard]] const std::vector<TTimelineRow>& Rows() const { return FRows; }
  // A scale in ms, then a line per row; a column is full (on all the time), half (part of it) or a dot. UTF-8.
  [[nodiscard]] std::vector<std::string> Draw(std::size_t columns = kColumns) const;
  // [{"signal": "laser", "on": [[from, to], ...]}, ...]
  [[nodiscard]] nlohmann::ordered_json Json() const;

 private:
  std::uint64_t FLengthMs;
  std::vector<TTimelineRow> FRows;
};

}  // namespace ixocontroller
