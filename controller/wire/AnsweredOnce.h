// What was asked with an Idempotency-Key and what was answered: whoever sends the same once more, because its first
// answer was lost, gets that answer, and nothing begins a second time. One thread; ms of real time.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

#include "controller/wire/WireRequest.h"

namespace ixocontroller {

// Nothing of it fails; an answer to a key that was dropped meanwhile is told to nobody.
class TAnsweredOnce {
 public:
  static constexpr std::uint64_t kKeptMs = 600'000;
  static constexpr std::size_t kMost = 1024;            // beyond these the oldest goes
  static constexpr std::size_t kMostBytes = 8U << 20U;  // of all answers
  using TTell = std::function<void(const TWireReply&)>;

  enum class TFound : std::uint8_t {
    aoNew,    // to be done; Answer tells of its end
    aoAgain,  // `tell` has been told, or is when the first one is answered
    aoOther,  // the key stands for something else
  };

  // `key` names asker and key, `asked` everything that was asked.
  [[nodiscard]] TFound Ask(const std::string& key, const std::string& asked, std::uint64_t nowMs, TTell tell);
  void Answer(const std::string& key, const TWireReply& reply);

 private:
  struct TEntry {
    std::size_t Asked = 0;  // its hash, and its size against chance
    std::size_t AskedSize = 0;
    std::uint64_t SinceMs = 0;
    bool Done = false;
    TWireReply Reply;
    std::vector<TTell> Waiting;
  };

  void Forget(std::uint64_t nowMs);

  std::unordered_map<std::string, TEntry> FEntries;
  std::deque<std::string> FOrder;  // the oldest first
  std::size_t FBytes = 0;
};

}  // namespace ixocontroller
