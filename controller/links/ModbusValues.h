// Values as people write and read them, and the registers or coils that carry them. No state; any thread. What does not
// say that it throws does not fail.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

namespace ixocontroller {

enum class TValueType : std::uint8_t { vtBit, vtUint16, vtInt16, vtUint32, vtInt32, vtFloat32 };
using enum TValueType;

struct TValueForm {
  TValueType Type = vtUint16;
  // A value of 32 bits, its highest byte called A, stands as ABCD in two registers unless one or both are set: CDAB,
  // BADC, DCBA.
  bool LowWordFirst = false;
  bool LowByteFirst = false;

  [[nodiscard]] std::size_t Words() const { return Type >= vtUint32 ? 2 : 1; }  // coils of a bit
};

// The names of --type, in the order of TValueType, and of --order.
inline constexpr const char* kValueTypes[] = {"uint16", "int16", "uint32", "int32", "float32"};
inline constexpr const char* kValueOrders[] = {"ABCD", "CDAB", "BADC", "DCBA"};
// Of known names. Throws EProblem, for what (`where`), for an order of words where a value is one.
[[nodiscard]] TValueForm ValueForm(const std::string& type, const std::string& order, const std::string& where);

// Fields separated by commas, and texts of their own; an empty field, and what is no such value, throws EProblem, for
// what (`where`).
[[nodiscard]] std::vector<std::uint16_t> ParseValues(const std::vector<std::string>& texts, const TValueForm& form,
                                                     const std::string& where);

// `words`: those of one value.
[[nodiscard]] std::string TextOfValue(std::span<const std::uint16_t> words, const TValueForm& form);
[[nodiscard]] nlohmann::ordered_json JsonOfValue(std::span<const std::uint16_t> words, const TValueForm& form);

}  // namespace ixocontroller
