// `ixocut config` and `ixocut info`: the machine file, checked, shown and edited, and what the library makes of it.
#pragma once

#include <filesystem>
#include <iosfwd>
#include <string>
#include <vector>

#include "controller/config/MachineFile.h"

namespace ixocut {
using namespace ixocamglue;
using namespace ixocontroller;
struct TControllerSettings;

// A line for each on the error output.
void TellWrong(const std::filesystem::path& file, const std::vector<TConfigFinding>& wrong);

struct TSetting {
  bool Force = false;  // also a value that `check` would name
  bool Json = false;
};

// Each returns the exit code and throws EProblem.
[[nodiscard]] int RunConfigCheck(const std::filesystem::path& file, bool all, bool json, std::ostream& out);
[[nodiscard]] int RunConfigShow(const std::filesystem::path& file, const std::string& section, bool json,
                                std::ostream& out);
[[nodiscard]] int RunConfigGet(const std::filesystem::path& file, const std::string& path, bool json,
                               std::ostream& out);
[[nodiscard]] int RunConfigSet(const std::filesystem::path& file, const std::string& path, const std::string& value,
                               TSetting setting, std::ostream& out);
[[nodiscard]] int RunConfigDiff(const std::filesystem::path& a, const std::filesystem::path& b, bool json,
                                std::ostream& out);
[[nodiscard]] int RunConfigSchema(bool json, std::ostream& out);
[[nodiscard]] int RunConfigRestore(const std::filesystem::path& file, bool json, std::ostream& out);
[[nodiscard]] int RunInfo(const TControllerSettings& settings, std::ostream& out);

}  // namespace ixocut
