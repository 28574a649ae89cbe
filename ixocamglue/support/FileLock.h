// One process at a time on a file that is read, changed and replaced. An advisory lock (flock) on "<file>.lock" beside
// it, because the file itself is another one after each save; the kernel frees it when its process ends, however it
// ends. The lock file stays. One object, one thread. Nothing throws.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "ixocamglue/support/Problem.h"

namespace ixocamglue {

enum class TLockState : std::uint8_t {
  lsFree,
  lsHeld,
  lsBusy,       // another has it
  lsImpossible  // its folder is not written to, a lock file can be neither made nor opened, or there are no locks
};
using enum TLockState;

// What other programs wait for a file that is being changed; a state thread never waits.
inline constexpr std::uint32_t kFileLockWaitMs = 2000;

struct TLockHolder {
  std::int32_t Process = 0;  // 0: not known
  std::string Note;          // what it says of itself
};

class TFileLock {
 public:
  TFileLock() = default;
  ~TFileLock() { Release(); }
  TFileLock(const TFileLock&) = delete;
  TFileLock& operator=(const TFileLock&) = delete;

  // Waits at most `waitMs` of real time, on whatever clock the process runs. What was held before is released.
  TLockState Take(const std::string& file, std::uint32_t waitMs);
  // Whether its folder is one in which a lock can be made.
  static TResult<> IsPossible(const std::string& file);
  // Who has it at this moment; none: nobody. Takes nothing from anybody and makes no file; who takes the lock at the
  // same moment, without waiting, may be refused.
  [[nodiscard]] static std::optional<TLockHolder> Holder(const std::string& file);
  // While it is held: what others are told of the holder beside its process number, in one line.
  void Note(std::string_view note);
  void Release();
  [[nodiscard]] TLockState State() const { return FState; }
  [[nodiscard]] bool Held() const { return FState == lsHeld; }
  // Why it is busy, with the holder's process number, or impossible.
  [[nodiscard]] const TProblem& Problem() const { return FProblem; }

 private:
  [[nodiscard]] TLockState Fail(TLockState state, const std::string& file, std::string why);

  int FHandle = -1;
  TLockState FState = lsFree;
  TProblem FProblem;
};

}  // namespace ixocamglue
