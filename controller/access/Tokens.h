// Who holds a token: "tokens.json" in the state folder, readable by its owner only. A token is shown once, when it is
// made; the file has its salted hash.
//
// The file is changed under its lock and replaced in one step, by a controller as well as by a command beside it.
// What it has beside the tokens survives.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "controller/access/Asker.h"
#include "ixocamglue/support/FileLock.h"
#include "ixocamglue/support/Problem.h"

namespace ixocontroller {
using namespace ixocamglue;

// "viewer", "operator" or "service". Does not fail.
[[nodiscard]] const char* RoleWord(TRole role);
[[nodiscard]] TResult<TRole> RoleOf(std::string_view word);

[[nodiscard]] TResult<> CheckTokenName(const std::string& name);

struct TToken {
  std::string Name;  // 1 to 64 of letters, digits, '.', '_' and '-'
  TRole Role = roNone;
  std::string Created;  // UTC
};

// The file's changes. Any thread; an operation waits for the disk, and `waitMs` for others that change the file.
class TTokenFile {
 public:
  static constexpr std::size_t kMostTokens = 256;

  explicit TTokenFile(const std::filesystem::path& stateFolder);

  // The token, which nobody can be told again. Refused for a name that is there.
  [[nodiscard]] TResult<std::string> Add(const std::string& name, TRole role, std::uint32_t waitMs = kFileLockWaitMs);
  TResult<> Revoke(const std::string& name, std::uint32_t waitMs = kFileLockWaitMs);
  [[nodiscard]] TResult<std::vector<TToken>> List() const;  // in order of their names

 private:
  const std::filesystem::path FFile;
};

// Which token is a right one. Looks at the file with each question and reads it again when it is another one; what
// cannot be read, or others may write to, lets nobody in. One thread at a time.
class TTokenCheck {
 public:
  explicit TTokenCheck(const std::filesystem::path& stateFolder);

  // None: it is no right one.
  [[nodiscard]] std::optional<TToken> Find(std::string_view token);
  // Why the file lets nobody in; none: it does, or there is none.
  [[nodiscard]] const std::optional<TProblem>& Trouble() const { return FTrouble; }

 private:
  struct TKept {
    TToken Token;
    std::string Salt;
    std::string Hash;
  };
  struct TStamp {
    std::uint64_t Node = 0;
    std::int64_t ModifiedNs = 0;
    std::int64_t ChangedNs = 0;
    std::int64_t Size = -1;  // -1: there is no file
    friend bool operator==(const TStamp&, const TStamp&) = default;
  };

  void Refresh();

  const std::filesystem::path FFile;
  std::optional<TStamp> FStamp;
  std::map<std::string, TKept, std::less<>> FTokens;  // by the part of a token that is no secret
  std::optional<TProblem> FTrouble;
};

}  // namespace ixocontroller
