// What was changed in the machine file, when and by whom: a file with a line of JSON for each change, which keeps the
// last ones. One thread adds; any reads: a line that is not whole, after a crash or while it is added, is passed over.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>

#include <nlohmann/json_fwd.hpp>

namespace ixocontroller {

struct TConfigChange {
  std::string Who;
  std::string What;  // "set", "forced" or "restored"
  std::string Path;  // of the property, or of the file that is back
  std::string From, To;
};

class TConfigHistory {
 public:
  static constexpr std::size_t kKept = 500;
  static constexpr std::size_t kMostBytes = 524'288;  // of the file; beyond, the last kKept stay
  static constexpr std::size_t kMostText = 200;       // bytes of a value; what is longer is cut

  explicit TConfigHistory(std::filesystem::path file) : FFile(std::move(file)) {}

  // With the present time. What fails is logged: the change itself is done.
  void Add(const TConfigChange& change);
  // [{"at", "who", "what", "path", "from", "to"}], the newest last, at most `most`. None where the file is not there or
  // cannot be read.
  [[nodiscard]] nlohmann::ordered_json Read(std::size_t most) const;

 private:
  const std::filesystem::path FFile;
};

}  // namespace ixocontroller
