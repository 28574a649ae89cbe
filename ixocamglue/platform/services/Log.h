// The two logs: the application log for what the operator must see, and the diagnostic channel "IxoCut" for tracing.
//
// Posting never throws and never waits for a sink: lines go into one bounded queue (so that both logs keep their
// order), a full queue drops and counts. The queue is drained by the service's own thread, or by hand with DrainOnce
// where time is virtual. Any thread posts; one drains. A sink that throws is counted and otherwise ignored.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/platform/services/ThreadTable.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Installed.h"
#include "ixocamglue/support/Locks.h"

namespace ixocamglue {

// Levels of the diagnostic channel. Progress lines are messages that an operator follows; they have a level of their
// own so that a host can listen to them alone.
enum class TDiagLevel : std::uint8_t { dlEntry, dlExit, dlMessage, dlError, dlNote, dlProgress };
using enum TDiagLevel;

using TDiagMask = std::uint32_t;
[[nodiscard]] constexpr TDiagMask DiagBit(TDiagLevel level) { return TDiagMask{1} << static_cast<unsigned>(level); }
inline constexpr TDiagMask kDiagAll = 0x3F;
inline constexpr const char* kDiagChannel = "IxoCut";

// Kinds of application log lines.
enum TLogKind : std::int32_t { lkInfo = 0, lkTrace = 3, lkWarning = 4, lkDevice = 5, lkError = 6, lkException = 8 };

struct TLogRecord {
  bool Diagnostic = false;
  TDiagLevel Level = dlMessage;  // diagnostic lines
  std::int32_t Kind = lkInfo;    // application log lines
  std::int32_t Colour = 0;       // 0x00BBGGRR
  std::uint64_t TimeMs = 0;      // monotonic
  TDateTime Stamp;
  std::string Text;    // UTF-8
  std::string Source;  // who logs; may be empty
};

class ILogSink {
 public:
  virtual ~ILogSink() = default;
  virtual void Write(const TLogRecord& record) = 0;  // on the draining thread
};

class TLogService {
 public:
  explicit TLogService(std::size_t capacity = 1024);
  ~TLogService();  // drains what is left
  TLogService(const TLogService&) = delete;
  TLogService& operator=(const TLogService&) = delete;

  // Not owned; set before lines are posted, outlives the service's last drain.
  void AddSink(ILogSink& sink) { FSinks.push_back(&sink); }

  void PostMsg(std::int32_t kind, std::int32_t colour, std::string_view text, std::string_view source) noexcept;
  void PostDiag(TDiagLevel level, const char* category, const char* format, std::va_list args) noexcept
      IXO_PRINTF(4, 0);

  // Which levels of the diagnostic channel are listened to; process-wide, off at the start.
  static void Listen(TDiagMask mask);

  // Writes everything that is queued; returns the number of lines.
  std::size_t DrainOnce();
  // Own thread, until the service ends; it drains every 20 ms, and every 100 ms when nothing was posted for 1 s.
  void Start();

  [[nodiscard]] std::uint64_t Dropped() const { return FDropped.load(std::memory_order_relaxed); }
  [[nodiscard]] std::uint64_t Swallowed() const { return FSwallowed.load(std::memory_order_relaxed); }

 private:
  // The free slot at the queue's end, or null (counted) when it is full.
  TLogRecord* ClaimLocked() IXO_REQUIRES(FLock);

  std::vector<ILogSink*> FSinks;
  std::atomic<std::uint64_t> FDropped{0};
  std::atomic<std::uint64_t> FSwallowed{0};
  TCriticalSection FLock;
  std::vector<TLogRecord> FRing IXO_GUARDED_BY(FLock);  // slots keep their texts' capacity
  std::size_t FHead IXO_GUARDED_BY(FLock) = 0;
  std::size_t FCount IXO_GUARDED_BY(FLock) = 0;
  TLogRecord FDraining;              // the draining thread's
  std::optional<TThreadSign> FSign;  // the own thread's
  TStop FStop;
  std::thread FThread;
};

IXO_DECLARE_SERVICE(TLogService, Logs);

// The mask that a log point tests; see TLogService::Listen.
inline constinit std::atomic<TDiagMask> GDiagMask{0};

// A log point of the diagnostic channel: `if (TDiag d{dlEntry}) d("[%d]", step);`. One branch, nothing evaluated or
// formatted, when nobody listens to the level.
class TDiag {
 public:
  // `category`, a literal, is the line's source.
  explicit TDiag(TDiagLevel level, const char* category = kDiagChannel) : FLevel(level), FCategory(category) {}
  explicit operator bool() const {
    if ((GDiagMask.load(std::memory_order_relaxed) & DiagBit(FLevel)) != 0) [[unlikely]]
      return true;
    return false;
  }
  void operator()(const char* format, ...) const noexcept IXO_PRINTF(2, 3);

 private:
  const TDiagLevel FLevel;
  const char* const FCategory;
};

}  // namespace ixocamglue
