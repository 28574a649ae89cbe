// All time of the library: nothing else reads a system clock or sleeps. Every operation may be called from any thread.
// Nothing here fails. A wait may be of any number of ms; one of 0 ends at once.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>

#include "ixocamglue/support/Installed.h"

namespace ixocamglue {

// Days since 1899-12-30, the fraction being the time of day. Local wall time; 0 means "never".
struct TDateTime {
  double Days = 0.0;

  [[nodiscard]] bool IsSet() const { return Days != 0.0; }
  friend bool operator==(TDateTime, TDateTime) = default;
};

// "hh:mm:ss-zzz" of a span between two stamps (b - a, whole milliseconds, taken modulo a day).
[[nodiscard]] std::string FormatSpan(TDateTime a, TDateTime b);
// "YYYY-MM-DD hh:mm:ss.zzz"
[[nodiscard]] std::string FormatDateTime(TDateTime t);

// A request to end that a pausing thread notices. Set once, never cleared.
class TStop {
 public:
  void Ask() {
    {
      const std::lock_guard guard(FMutex);
      FAsked.store(true, std::memory_order_release);
    }
    FAsking.notify_all();
  }
  [[nodiscard]] bool Asked() const { return FAsked.load(std::memory_order_acquire); }
  // Real time: true at once when it is asked, false after `ms`. Threads wait through the clock's Pause.
  [[nodiscard]] bool WaitFor(std::uint32_t ms);

 private:
  std::atomic<bool> FAsked{false};
  std::mutex FMutex;  // guards the way from looking at FAsked to waiting
  std::condition_variable FAsking;
};

class IClock {
 public:
  virtual ~IClock() = default;
  virtual std::uint32_t TickMs() = 0;                                   // wraps at 2^32; use differences only
  virtual std::uint64_t MonotonicMs() = 0;                              // never wraps, never steps
  virtual std::uint64_t MonotonicUs() { return MonotonicMs() * 1000; }  // as fine as the clock is; for measurements
  virtual TDateTime Now() = 0;  // wall time, for stamps that are stored or shown
  virtual void Sleep(std::uint32_t ms) = 0;
  // Inside a poll loop without sleep: pauses for at most 200 us, so that the loop takes no core; virtual time moves on
  // by 1 ms.
  virtual void Spin() = 0;
  // A thread's wait. True at once when the stop is asked, false after `ms`.
  virtual bool Pause(TStop& stop, std::uint32_t ms) = 0;
};

// The machine's real clock.
class TSystemClock final : public IClock {
 public:
  std::uint32_t TickMs() override;
  std::uint64_t MonotonicMs() override;
  std::uint64_t MonotonicUs() override;
  TDateTime Now() override;
  void Sleep(std::uint32_t ms) override;
  void Spin() override;
  bool Pause(TStop& stop, std::uint32_t ms) override;
};

IXO_DECLARE_SERVICE(IClock, InstalledClock);
// The installed clock; the real one while none is installed.
[[nodiscard]] IClock& Clock();

}  // namespace ixocamglue
