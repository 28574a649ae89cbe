// What the key panel needs beside the cutting system: windows that take messages, the platform's system integers, and
// the emergency-stop input. Any thread. What names no window or no integer does nothing; what a window's receiver
// throws passes to who posts, and nothing else fails.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "ixocamglue/support/Installed.h"
#include "ixocamglue/support/Locks.h"

namespace ixocamglue {

struct TWindowMessage {
  std::uint32_t Message = 0;
  std::int64_t WParam = 0;
  std::int64_t LParam = 0;
  friend bool operator==(const TWindowMessage&, const TWindowMessage&) = default;
};

// Port: the top-level windows of the operator interface.
class TNcWindows {
 public:
  using THandle = std::uintptr_t;  // 0: no such window

  virtual ~TNcWindows() = default;
  virtual THandle FindWindow(std::string_view title) = 0;
  // Returns without waiting for the window; a window that has gone meanwhile gets nothing.
  virtual void PostMessage(THandle window, const TWindowMessage& message) = 0;
};

IXO_DECLARE_SERVICE(TNcWindows, NcWindows);

// The windows of an interface that lives in this process: each takes its messages through a function.
class TWindowTable final : public TNcWindows {
 public:
  using TReceiver = std::function<void(const TWindowMessage&)>;

  // A window of a title that is open already replaces it. `receive` runs on the thread that posts.
  THandle Open(std::string_view title, TReceiver receive);
  void Close(THandle window);

  THandle FindWindow(std::string_view title) override;
  void PostMessage(THandle window, const TWindowMessage& message) override;

 private:
  struct TWindow {
    std::string Title;
    std::shared_ptr<const TReceiver> Receive;
  };

  TCriticalSection FLock;
  THandle FLast IXO_GUARDED_BY(FLock) = 0;
  std::map<THandle, TWindow> FWindows IXO_GUARDED_BY(FLock);
};

// The platform's integers by number; outside 0 to 63 one reads 0 and cannot be written. Reading and writing never
// block.
class TNcSysInts {
 public:
  static constexpr std::int32_t kKeyBits = 17;  // the panel's keys that are held down, a bit for each
  static constexpr std::int32_t kCount = 64;

  [[nodiscard]] std::int32_t Get(std::int32_t number) const {
    return IsKnown(number) ? FValues[static_cast<std::size_t>(number)].load(std::memory_order_acquire) : 0;
  }
  void Set(std::int32_t number, std::int32_t value) {
    if (IsKnown(number)) FValues[static_cast<std::size_t>(number)].store(value, std::memory_order_release);
  }

 private:
  [[nodiscard]] static bool IsKnown(std::int32_t number) { return number >= 0 && number < kCount; }

  std::array<std::atomic<std::int32_t>, kCount> FValues{};
};

IXO_DECLARE_SERVICE(TNcSysInts, NcSysInts);

// Port: the emergency-stop input of the machine. Never blocks.
class TNcEmergencyStop {
 public:
  virtual ~TNcEmergencyStop() = default;
  virtual bool IsActive() = 0;
};

IXO_DECLARE_SERVICE(TNcEmergencyStop, EmergencyStop);

}  // namespace ixocamglue
