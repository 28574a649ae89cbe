#include <cstdlib>
#include <stdexcept>
#include <string_view>

#include "ixocamglue/devcomm/Ucommtypes.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace ixocamglue;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const TBytes before{0x77, 0x88};
  TBytes bytes = before;
  try {
    HexStrToBytes(text, bytes);
    const std::size_t digits = size < 3 ? 0 : size - (text.starts_with('$') ? 1 : 0);
    if (bytes.size() != before.size() + digits / 2) std::abort();
    TBytes again = before;  // the shown text reads back
    HexStrToBytes("$" + BytesToHexStr(std::span(bytes).subspan(2)), again);
    if (size >= 3 && again != bytes) std::abort();
  } catch (const std::invalid_argument&) {
    if (bytes != before) std::abort();
  }
  TUtf16Field field;
  SetUtf16(field, text);
  const std::string shown = GetUtf16(field);
  TUtf16Field second;
  SetUtf16(second, shown);
  if (GetUtf16(second) != shown) std::abort();
  return 0;
}
