#include "ixocamglue/platform/comm/Crc.h"

#include <array>

namespace ixocamglue {
namespace {

constexpr std::size_t kStride = 8;  // bytes per round of the long loop

// kTables[k][b]: what byte b does to the CRC when k more bytes follow it in the same round. Eight independent look-ups
// per round instead of a chain of eight.
constexpr auto kTables = [] {
  std::array<std::array<std::uint16_t, 256>, kStride> tables{};
  for (unsigned byte = 0; byte < 256; ++byte) {
    unsigned crc = byte;
    for (int bit = 0; bit < 8; ++bit) crc = (crc & 1u) != 0 ? crc >> 1 ^ 0xA001u : crc >> 1;
    tables[0][byte] = static_cast<std::uint16_t>(crc);
  }
  for (std::size_t k = 1; k < kStride; ++k)
    for (std::size_t byte = 0; byte < 256; ++byte) {
      const std::uint16_t before = tables[k - 1][byte];
      tables[k][byte] = static_cast<std::uint16_t>(before >> 8 ^ tables[0][before & 0xFF]);
    }
  return tables;
}();

}  // namespace

std::uint16_t CalcCRC(const std::uint8_t* buffer, std::size_t length, std::uint16_t start) noexcept {
  unsigned crc = start;
  for (; length >= kStride; length -= kStride, buffer += kStride) {
    crc = static_cast<unsigned>(kTables[7][(crc ^ buffer[0]) & 0xFF] ^ kTables[6][(crc >> 8 ^ buffer[1]) & 0xFF] ^
                                kTables[5][buffer[2]] ^ kTables[4][buffer[3]] ^ kTables[3][buffer[4]] ^
                                kTables[2][buffer[5]] ^ kTables[1][buffer[6]] ^ kTables[0][buffer[7]]);
  }
  for (; length != 0; --length, ++buffer) crc = crc >> 8 ^ kTables[0][(crc ^ *buffer) & 0xFF];
  return static_cast<std::uint16_t>(crc);
}

}  // namespace ixocamglue
