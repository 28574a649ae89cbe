// `ixocut config` and `ixocut info`: the machine file, checked, shown and edited, and what the library makes of it.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "controller/config/MachineFile.h"

namespace ixocut {
using namespace ixocamglue;
using namespace ixocontroller;
class TConsole;
struct TControllerSettings;

// A line for each on the error output.
void TellWrong(const std::filesystem::path& file, const std::vector<TConfigFinding>& wrong);

// Each returns the exit code and throws EProblem.
[[nodiscard]] int RunConfigCheck(const std::filesystem::path& file, bool all, TConsole& console);
[[nodiscard]] int RunConfigShow(const std::filesystem::path& file, const std::string& section, TConsole& console);
[[nodiscard]] int RunConfigGet(const std::filesystem::path& file, const std::string& path, TConsole& console);
// `force`: also a value that `check` would name.
[[nodiscard]] int RunConfigSet(const std::filesystem::path& file, const std::string& path, const std::string& value,
                               bool force, TConsole& console);
[[nodiscard]] int RunConfigDiff(const std::filesystem::path& a, const std::filesystem::path& b, TConsole& console);
[[nodiscard]] int RunConfigSchema(TConsole& console);
[[nodiscard]] int RunConfigRestore(const std::filesystem::path& file, TConsole& console);
[[nodiscard]] int RunInfo(const TControllerSettings& settings, TConsole& console);

}  // namespace ixocut
