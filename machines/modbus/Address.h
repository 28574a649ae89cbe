// How a machine file names a point of a Modbus device: station, table, protocol address from 0.
//
//   io:coil:3                     a coil                              input, output
//   io:input:0                    a discrete input                    input
//   io:ireg:5.0  io:hreg:7.3      a bit (0 to 15) of a register       input; output where it is a holding register
//   io:ireg:5                     an input register as it is          analogue in
//   io:hreg:100 0..10 0..32767    a holding register: the unit's      analogue in and out
//                                 range, and its range of numbers
//
// A register with a negative end is signed (-32768 to 32767), else 0 to 65535. What is read beyond a range is continued
// along the same line; what is written is limited to it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "ixocamglue/platform/Driver.h"
#include "ixocamglue/support/Problem.h"

namespace ixocamglue {

enum class TModbusTable : std::uint8_t { mtCoil, mtInput, mtHolding, mtInputRegister };
using enum TModbusTable;

// A coil, a discrete input or a register.
struct TModbusCell {
  TModbusTable Table = mtCoil;
  std::uint16_t Addr = 0;

  [[nodiscard]] bool IsBit() const { return Table == mtCoil || Table == mtInput; }
  [[nodiscard]] std::uint8_t ReadFunction() const;
  [[nodiscard]] std::string Text() const;  // "coil:3"
  friend auto operator<=>(const TModbusCell&, const TModbusCell&) = default;
};

struct TModbusAddress {
  std::string Station;
  TModbusCell Cell;
  std::optional<std::int32_t> Bit;  // of a register
  // Of an analogue one.
  double Low = 0.0, High = 65535.0;
  std::int32_t RawLow = 0, RawHigh = 65535;

  // With `Where` the text where it names no such point. Whether there is the station is not asked.
  [[nodiscard]] static TResult<TModbusAddress> Parse(TPointKind kind, std::string_view text);

  [[nodiscard]] std::string Text() const;    // station, table, address and bit
  [[nodiscard]] std::string Limits() const;  // "0..10 (0..32767)"; empty for a digital one
  // What the cell's number comes to, and back; of a bit, of the number as it is with the bit changed.
  [[nodiscard]] double Value(TPointKind kind, std::uint16_t raw) const;
  [[nodiscard]] std::uint16_t Raw(TPointKind kind, double value, std::uint16_t before) const;
};

}  // namespace ixocamglue
