// An input as a file, for what reads files.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "ixocamglue/support/Files.h"

namespace ixocamglue::fuzz {

// Replaced by the next call.
inline std::filesystem::path InputFile(const std::uint8_t* data, std::size_t size) {
  static const TTempFolder folder("ixofuzz");
  const auto file = folder.Path() / "input";
  std::ofstream out(file, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
  out.close();
  if (!out) std::abort();
  return file;
}

}  // namespace ixocamglue::fuzz
