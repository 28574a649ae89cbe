// The settings text of a serial port: "9600,n,8,1" is the baud rate, the parity, the data bits and the stop bits.
// Values; any thread. What is no such text is answered as a problem; nothing throws.
#pragma once

#include <cstdint>
#include <string_view>

#include "ixocamglue/support/Problem.h"

namespace ixocamglue {

struct TSerialSettings {
  enum TStop : std::uint8_t { sbOne, sbOneAndHalf, sbTwo };

  std::uint32_t Baud = 9600;
  char Parity = 'n';  // n none, o odd, e even, m mark, s space
  std::uint8_t DataBits = 8;
  TStop Stop = sbOne;

  // How long `bytes` take on the wire, rounded up; ms.
  [[nodiscard]] std::uint32_t WireMs(std::size_t bytes) const;
};

// Reads four fields separated by commas; blanks and the parity's case are ignored. 1.5 stop bits go with 5 data bits
// only.
[[nodiscard]] TResult<TSerialSettings> ParseSerialSettings(std::string_view text);

}  // namespace ixocamglue
