#include "controller/runs/Timeline.h"

#include <algorithm>
#include <string_view>

#include <nlohmann/json.hpp>

#include "controller/texts/HostTexts.h"
#include "ixocamglue/support/DisplayWidth.h"
#include "ixocamglue/support/Format.h"

namespace ixocontroller {
namespace {

constexpr std::size_t kMarks = 4;  // numbers on the scale, beside the one at its end
constexpr std::string_view kOn = "█", kPart = "▄", kOff = "·";

}  // namespace

TTimeline::TTimeline(std::span<const TSignal> signals, std::uint64_t startMs, std::uint64_t endMs)
    : FLengthMs(endMs - startMs),
      FRows{{sgState, "state", &SRowState, {}},
            {sgEmission, "emission", &SRowEmission, {}},
            {sgLaser, "laser", &SRowLaser, {}},
            {sgGas, "gas", &SRowGas, {}}} {
  for (TTimelineRow& row : FRows) {
    bool isOn = false;
    std::uint64_t since = 0;
    const auto end = [&](std::uint64_t at) {
      if (isOn && at > since) row.On.push_back({since, at});
      isOn = false;
    };
    for (const TSignal& signal : signals) {
      if (signal.Ms >= endMs) break;
      const std::uint64_t at = std::max(signal.Ms, startMs) - startMs;
      if (signal.Kind != row.Kind) continue;
      if (signal.On && !isOn) {
        isOn = true;
        since = at;
      }
      if (!signal.On) end(at);
    }
    end(FLengthMs);
  }
}

std::vector<std::string> TTimeline::Draw(std::size_t columns) const {
  std::size_t width = DisplayWidth("ms");
  for (const TTimelineRow& row : FRows) width = std::max(width, DisplayWidth(row.Label->Get()));
  width += 2;

  std::string scale = Padded("ms", width);
  for (std::size_t mark = 0; mark < kMarks; ++mark)
    scale += Padded(std::to_string(FLengthMs * mark / kMarks), columns * (mark + 1) / kMarks - columns * mark / kMarks);
  std::vector<std::string> lines{scale + std::to_string(FLengthMs)};

  for (const TTimelineRow& row : FRows) {
    std::string line = Padded(row.Label->Get(), width);
    for (std::size_t column = 0; column < columns; ++column) {
      // Everything in units of ms / columns, so that a column's bounds are whole numbers.
      const std::uint64_t from = FLengthMs * column;
      const std::uint64_t to = FLengthMs * (column + 1);
      std::uint64_t on = 0;
      for (const TTimelineSpan& span : row.On) {
        const std::uint64_t first = std::max(from, span.From * columns);
        const std::uint64_t last = std::min(to, span.To * columns);
        if (last > first) on += last - first;
      }
      line += on == 0 ? kOff : on == to - from ? kOn : kPart;
    }
    lines.push_back(std::move(line));
  }
  return lines;
}

nlohmann::ordered_json TTimeline::Json() const {
  auto rows = nlohmann::ordered_json::array();
  for (const TTimelineRow& row : FRows) {
    auto spans = nlohmann::ordered_json::array();
    for (const TTimelineSpan& span : row.On) spans.push_back({span.From, span.To});
    rows.push_back({{"signal", row.Signal}, {"on", std::move(spans)}});
  }
  return rows;
}

}  // namespace ixocontroller
