#include "fuzz/ModbusReply.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  ixocamglue::fuzz::TakeReply(false, {data, size});
  return 0;
}
