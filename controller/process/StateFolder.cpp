#include "controller/process/StateFolder.h"

#include <algorithm>
#include <cstdlib>
#include <string>
#include <system_error>

#include "controller/process/StateFiles.h"
#include "ixocamglue/platform/xml/FileLayer.h"
#include "ixocamglue/platform/xml/XmlConfig.h"
#include "ixocamglue/support/Files.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Problem.h"
#include "ixocamglue/support/SystemError.h"
#include "ixocamglue/support/Texts.h"
#include "ixocamglue/support/ValueText.h"

namespace ixocontroller {
using namespace ixocamglue;
namespace {

namespace fs = std::filesystem;

// An environment variable that is set and not empty.
std::optional<fs::path> FromEnvironment(const char* name) {
  const char* const value = std::getenv(name);
  if (!value || !*value) return std::nullopt;
  return fs::path(value);
}

}  // namespace

fs::path ShareFolder() {
  if (const auto root = FromEnvironment("IXOCUT_DATA")) return *root;
  std::error_code error;
  if (const fs::path program = fs::read_symlink("/proc/self/exe", error); !error) {
    fs::path root = program.parent_path().parent_path() / "share" / "ixocamglue";
    if (fs::is_directory(root, error)) return root;
  }
  return IXO_SHARE_DIR;
}

fs::path StateFolder(const std::optional<fs::path>& asked) {
  if (asked) return *asked;
  if (const auto state = FromEnvironment("XDG_STATE_HOME")) return *state / "ixocut";
  if (const auto home = FromEnvironment("HOME")) return *home / ".local" / "state" / "ixocut";
  throw EProblem(pbUnusable, Tr("no state folder: neither XDG_STATE_HOME nor HOME is set; name one with --state DIR"));
}

void CopyOnce(const fs::path& example, const fs::path& copy) {
  std::error_code error;
  if (fs::exists(copy, error)) return;
  // The machine's own values, which the example must not stand in for.
  if (fs::path backup = copy; fs::exists(backup += TXmlConfig::kBackupSuffix, error))
    throw EProblem(pbUnusable, {Tr("the file is gone, but its previous version is there"), copy.string(), "",
                                Format(Tr("the previous version is in %s"), backup.c_str()) +
                                    Format(Tr("; \"%s\" puts it back"), "ixocut config restore")});
  const TResult<std::string> bytes = ReadFile(example);
  if (!bytes) throw EProblem(pbUnusable, {Tr("the example cannot be read"), example.string(), bytes.Problem().Why, ""});
  MakeFolder(copy.parent_path()).OrThrow(pbUnusable);
  if (const TReplaced made = AddFile(copy.string(), *bytes); !made.Done) throw EProblem(pbUnusable, made.Problem);
}

fs::path MachineFile(const std::optional<fs::path>& machine, const std::optional<fs::path>& state) {
  if (machine) {
    std::error_code error;
    if (!fs::exists(*machine, error)) {
      if (!error) error = std::make_error_code(std::errc::no_such_file_or_directory);
      throw EProblem(pbUnusable,
                     {Tr("the machine file cannot be read"), machine->string(), SystemErrorText(error.value()), ""});
    }
    return *machine;
  }
  fs::path copy = StateFolder(state) / kMachineFile;
  CopyOnce(ShareFolder() / "machines" / kMachineFile, copy);
  return copy;
}

TResult<> CheckStoredName(std::string_view name) {
  constexpr std::size_t kMostBytes = 64;
  const auto plain = [](char c) {
    return (c >= '0' && c <= '9') || (FoldAscii(c) >= 'a' && FoldAscii(c) <= 'z') || c == '.' || c == '_' || c == '-';
  };
  if (!name.empty() && name.size() <= kMostBytes && name.front() != '.' && std::ranges::all_of(name, plain)) return {};
  return TProblem{.What = Format(Tr("\"%s\" is no name"), std::string(name.substr(0, kMostBytes)).c_str()),
                  .Why = Tr("a name has 1 to 64 letters, digits, '.', '_' and '-', and does not begin with '.'")};
}

}  // namespace ixocontroller
