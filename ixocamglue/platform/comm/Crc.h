// The CRC-16 of Modbus RTU: reflected polynomial 0xA001, no final inversion.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ixocamglue {

// The CRC of `length` bytes, continuing from `start` (0xFFFF for a new frame). No allocation; any thread.
[[nodiscard]] std::uint16_t CalcCRC(const std::uint8_t* buffer, std::size_t length, std::uint16_t start) noexcept;

}  // namespace ixocamglue
