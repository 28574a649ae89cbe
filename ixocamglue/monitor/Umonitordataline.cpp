#include "ixocamglue/monitor/Umonitordataline.h"

#include <bit>

#include "ixocamglue/monitor/Umonitornumbers.h"

namespace ixocamglue {
namespace {

constexpr double kHundredMillion = 1e8;

// Walks over one line. Once a field is not as expected, Good stays false and the position no longer matters.
struct TCursor {
  const char* P;

  // A jump, not a sum: a jump is foreseen, a sum is waited for by all that stands behind it in the line.
  [[nodiscard]] bool TakeMinus() {
    if (*P != '-') [[likely]]
      return false;
    ++P;
    return true;
  }

  // 1 to 10 digits with a "-" in front or not, as a 32-bit word.
  [[nodiscard]] bool Int(std::uint32_t& out) {
    const bool minus = TakeMinus();
    const std::uint64_t values = digits::Load(P) ^ digits::kZeros;
    const std::uint64_t stop = digits::NoDigits(values);
    std::uint64_t number = 0;
    if (stop != 0) [[likely]] {
      const int bits = std::countr_zero(stop) & ~7;  // eight for each digit
      if (bits == 0) return false;
      number = digits::Value(values << (64 - bits));
      P += bits / 8;
    } else {
      number = digits::Value(values);
      P += 8;
      for (int more = 0; *P >= '0' && *P <= '9'; ++more, ++P) {
        if (more == 2) return false;
        number = number * 10 + static_cast<std::uint64_t>(*P - '0');
      }
    }
    if (number > (minus ? 0x80000000U : 0xFFFFFFFFU)) return false;
    out = static_cast<std::uint32_t>(minus ? 0 - number : number);
    return true;
  }

  // 1 to 7 digits, a point and eight digits. Hundred-millionths are exact in a double, their quotient is correctly
  // rounded, and rounding it again to a single goes wrong only from a point halfway between two singles.
  [[nodiscard]] bool Float(std::uint32_t& out) {
    const std::uint32_t minus = TakeMinus();
    const std::uint64_t values = digits::Load(P) ^ digits::kZeros;
    const std::uint64_t stop = digits::NoDigits(values);
    const int bits = std::countr_zero(stop) & ~7;
    if (stop == 0 || bits == 0) return false;
    const std::uint64_t whole = digits::Value(values << (64 - bits));
    P += bits / 8;
    if (*P != '.') return false;
    const std::uint64_t decimals = digits::Load(P + 1) ^ digits::kZeros;
    if (digits::NoDigits(decimals) != 0) return false;
    P += 9;
    const double value =
        static_cast<double>(static_cast<std::int64_t>(whole * 100'000'000 + digits::Value(decimals))) / kHundredMillion;
    constexpr std::uint64_t kDropped = 0x1FFFFFFF;
    constexpr std::uint64_t kHalfway = 0x10000000;
    if ((std::bit_cast<std::uint64_t>(value) & kDropped) == kHalfway) return false;
    out = std::bit_cast<std::uint32_t>(static_cast<float>(value)) | (minus << 31);
    return true;
  }

  [[nodiscard]] bool Separator() { return *P++ == ','; }

  template <class Field>
  [[nodiscard]] bool Next(Field& field) {
    std::uint32_t word = 0;
    if (!Separator() || !Int(word)) return false;
    field = static_cast<Field>(word);
    return true;
  }
};

}  // namespace

const char* ParseExactLine(const char* p, TMonitorDataFrame& frame) {
  TCursor c{p};
  std::uint32_t mainType = 0;
  if (!c.Int(mainType)) return nullptr;
  frame.MainType = static_cast<std::uint16_t>(mainType);
  if (!c.Next(frame.SubType) || !c.Next(frame.Param1) || !c.Next(frame.Param2) || !c.Next(frame.SampleTime) ||
      !c.Next(frame.TimeInterval) || !c.Next(frame.DataCount) || !c.Next(frame.Version) || !c.Next(frame.ShareDw) ||
      !c.Next(frame.Reserve1) || !c.Next(frame.Reserve2))
    return nullptr;
  const std::size_t count = frame.DataCount;
  if (count > kFrameValues) return nullptr;
  if (frame.IsInteger()) {
    for (std::size_t i = 0; i < count; ++i)
      if (!c.Separator() || !c.Int(frame.Data[i])) return nullptr;
  } else {
    for (std::size_t i = 0; i < count; ++i)
      if (!c.Separator() || !c.Float(frame.Data[i])) return nullptr;
  }
  for (std::size_t i = count; i < kFrameValues; ++i) frame.Data[i] = 0;
  if (*c.P == '\n') return c.P + 1;
  if (*c.P != '\r') return nullptr;
  return c.P + (c.P[1] == '\n' ? 2 : 1);
}

}  // namespace ixocamglue
