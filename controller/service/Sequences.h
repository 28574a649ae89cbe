// The sequence files of a state folder, known by their names: "sequences/NAME.json". Any thread; waits for the disk.
// What fails says why: EProblem, or the problem that is answered.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "controller/process/StateFiles.h"
#include "ixocamglue/support/Problem.h"

namespace ixocontroller {
using namespace ixocamglue;

class TSequences {
 public:
  explicit TSequences(const std::filesystem::path& stateFolder) : FFolder(stateFolder / kSequencesFolder) {}

  // 1 to 64 letters, digits, "-", "_" and "." that do not begin with a dot: never a path.
  [[nodiscard]] static TResult<> CheckName(std::string_view name);

  struct TFile {
    std::string Name;
    std::uintmax_t Bytes = 0;
  };
  [[nodiscard]] TResult<std::vector<TFile>> List() const;  // by name
  // Throw EProblem for a name that is none, and where the disk fails.
  [[nodiscard]] bool Has(std::string_view name) const;
  [[nodiscard]] std::string Read(std::string_view name) const;
  // Atomic and durable; whether there was one before. The content is the caller's to check.
  bool Put(std::string_view name, const std::string& text) const;
  void Remove(std::string_view name) const;

 private:
  [[nodiscard]] std::filesystem::path FileOf(std::string_view name) const;

  const std::filesystem::path FFolder;
};

}  // namespace ixocontroller
