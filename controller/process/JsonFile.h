// Small JSON files of the state folder, read and replaced as a whole. Any thread; waits for the disk.
#pragma once

#include <cstdint>
#include <filesystem>

#include <nlohmann/json_fwd.hpp>

#include "ixocamglue/support/Problem.h"

namespace ixocontroller {
using namespace ixocamglue;

inline constexpr std::uint64_t kJsonFileLimit = 4U << 20U;  // bytes

// The object in the file; an empty one where there is no file, or an empty one. Where is "file" or "file:line:column".
[[nodiscard]] TResult<nlohmann::ordered_json> ReadJsonFile(const std::filesystem::path& file);
// Atomic and durable, without a previous version; `mode` is a new file's. The text ends with a line end.
TResult<> SaveJsonFile(const std::filesystem::path& file, const nlohmann::ordered_json& content,
                       std::uint32_t mode = 0600);

}  // namespace ixocontroller
