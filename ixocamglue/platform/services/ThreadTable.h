// Which threads run, and when each gave its last sign of life: for whoever watches them from outside. One table per
// process, because threads begin before a controller and end behind it. Any thread writes and reads; nobody waits for
// anybody. Times are monotonic ms. Nothing fails but a Read outside the table; without a free row a thread
// is not watched.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace ixocamglue {

// Whose silence is measured how; the limits are those of who watches.
enum class TThreadKind : std::uint8_t { tkOther, tkLog, tkDevice };
using enum TThreadKind;

enum class TThreadLife : std::uint8_t {
  tlRuns,
  tlParked,  // waits for work, or has come to its end; silent for a good reason
  tlFailed,  // a fault has ended it
};
using enum TThreadLife;

struct TThreadSeen {
  std::uint32_t Serial = 0;  // of this thread in this row
  std::string Name;
  TThreadKind Kind = tkOther;
  TThreadLife Life = tlRuns;
  std::uint64_t BeatMs = 0;
  std::uint64_t Beats = 0;
  std::uint64_t LongestMs = 0;  // between two beats of it, but for when it was parked
};

class TThreadTable {
 public:
  static constexpr std::size_t kRows = 128;
  static constexpr std::size_t kNameBytes = 40;  // a longer name is cut

  // False: the row is nobody's. Throws std::out_of_range for one that is not below kRows.
  [[nodiscard]] bool Read(std::size_t row, TThreadSeen& seen) const;

 private:
  friend class TThreadSign;
  using TWord = std::uint64_t;

  struct TRow {
    std::atomic<bool> Taken{false};
    std::atomic<std::uint32_t> Serial{0};  // odd while the row is somebody's: rises when it is taken and given back
    std::atomic<TThreadKind> Kind{tkOther};
    std::atomic<TThreadLife> Life{tlRuns};
    std::atomic<std::uint64_t> BeatMs{0}, Beats{0}, LongestMs{0};
    std::array<std::atomic<TWord>, kNameBytes / sizeof(TWord)> Name{};
  };
  TRow* Take(std::string_view name, TThreadKind kind);  // null: all are taken

  std::array<TRow, kRows> FRows{};
};

[[nodiscard]] TThreadTable& ThreadTable();

// A thread's row, from the first to the last sign of life. One thread at a time uses it; it may be made and freed by
// another one. Without a free row the thread is not watched, which is logged.
class TThreadSign {
 public:
  TThreadSign(std::string_view name, TThreadKind kind);
  ~TThreadSign();
  TThreadSign(const TThreadSign&) = delete;
  TThreadSign& operator=(const TThreadSign&) = delete;

  void Beat();                      // once per round, a skipped one too
  void Park() { Say(tlParked); }    // until the next Beat
  void Failed() { Say(tlFailed); }  // stands until the sign is freed

 private:
  void Say(TThreadLife life);

  TThreadTable::TRow* const FRow;
};

}  // namespace ixocamglue
