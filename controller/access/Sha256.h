// SHA-256 (FIPS 180-4), for tokens and codes that are kept as their hash; and secrets: their making and comparison. Any
// thread. What does not say that it throws does not fail.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace ixocontroller {

using TSha256 = std::array<std::uint8_t, 32>;

[[nodiscard]] TSha256 Sha256(std::string_view bytes);
[[nodiscard]] std::string HexText(std::string_view bytes);
[[nodiscard]] std::string HexText(const TSha256& hash);

// So many random bytes of the system as hexadecimal digits. Throws EProblem where the system has none.
[[nodiscard]] std::string RandomHex(std::size_t bytes);

// Takes as long for texts of one length wherever they differ.
[[nodiscard]] bool SameSecret(std::string_view a, std::string_view b);

}  // namespace ixocontroller
