// Where the program finds its files and keeps the user's own: the installed data, and the state folder with the user's
// copy of the machine file. Main thread. Failures are EProblem with the file and the reason.
#pragma once

#include <filesystem>
#include <optional>
#include <string_view>

#include "ixocamglue/support/Problem.h"

namespace ixocontroller {

// What comes with the program, never written: machines/machine.xml, alarms/<language>.json, locale/<language>.json. The
// environment's IXOCUT_DATA where it is set, else ../share/ixocamglue beside the program, else the checkout that the
// program was built from.
[[nodiscard]] std::filesystem::path ShareFolder();

// `asked`, else $XDG_STATE_HOME/ixocut, else ~/.local/state/ixocut. Nothing is created.
[[nodiscard]] std::filesystem::path StateFolder(const std::optional<std::filesystem::path>& asked);

// `example` copied to `copy` with the folders above it; a file that is there already stays as it is, also when another
// process makes it at the same moment. The copy appears whole or not at all. Refused where only the previous version
// of the copy (".bak") is left: it is the user's own.
void CopyOnce(const std::filesystem::path& example, const std::filesystem::path& copy);

// A name under which something is kept in the state folder, asked for from anywhere: 1 to 64 letters, digits, '.', '_'
// and '-', and neither a path nor a hidden file.
[[nodiscard]] ixocamglue::TResult<> CheckStoredName(std::string_view name);

// The machine file to work on: `machine` as it is when given (it must exist), else machine.xml in the state folder,
// made from the example at first use.
[[nodiscard]] std::filesystem::path MachineFile(const std::optional<std::filesystem::path>& machine,
                                                const std::optional<std::filesystem::path>& state);

}  // namespace ixocontroller
