// The one gate through which every device call of a machine passes: it numbers the calls, gives the state thread's sign
// of life, lets a planned fault happen and tells the machine's observer. Log sinks have a gate of their own, so that
// neither tracing nor a language changes the numbers of the device calls.
//
// Any thread. No lock is held while a planned hang lasts or a planned callback runs.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "ixocamglue/platform/Machine.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/support/Locks.h"

namespace ixocamglue {

// A device that could not be reached; the text is "device.verb: ...".
class EDeviceFault : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

enum class TGateFault : std::uint8_t { gfThrow, gfRefuse, gfHang, gfCallback };
using enum TGateFault;

struct TGatePlan {
  std::uint64_t Call = 0;  // which call, from 1 on; 0: none
  TGateFault Fault = gfThrow;
  bool Sticky = false;  // every later call of the same verb of the same device fails alike
  std::uint32_t HangMs = 0;
  std::function<void()> Callback;
};

class TCallGate {
 public:
  // A gate without observer only numbers and fails. Reads and locks are told of when they fail.
  explicit TCallGate(IMachineObserver* observer = nullptr) : FObserver(observer) {}
  TCallGate(const TCallGate&) = delete;
  TCallGate& operator=(const TCallGate&) = delete;

  // False: the device refuses; a command then has no effect, a read answers the value that its class names. Throws
  // EDeviceFault as planned, and whatever a planned callback throws. `device` and `verb` are literals. `forbids`, asked
  // last: why the device has to refuse, or null.
  [[nodiscard]] bool Enter(const char* device, const char* verb, TVerbKind kind, std::string args = {},
                           const char* (*forbids)() = nullptr);

  // The same for a device whose call may fail by itself: lets `act` do it. What that throws is told as the failure of
  // this call, and thrown on.
  template <class Act>
  bool Carry(const char* device, const char* verb, TVerbKind kind, const std::string& args, const Act& act,
             const char* (*forbids)() = nullptr) {
    const std::uint64_t call = Pass(device, verb, kind, args, forbids);
    if (call == 0) return false;
    try {
      act();
    } catch (...) {
      Threw(call, device, verb, kind, args);
      throw;
    }
    return true;
  }
  // A read; what is answered where the device refuses.
  template <class Value, class Act>
  Value Ask(const char* device, const char* verb, Value refused, const Act& act) {
    Carry(device, verb, vkRead, {}, [&] { refused = act(); });
    return refused;
  }

  // Told when a device does not answer, and with every later call that passes: `works`. On the calling thread, without
  // a lock; set before the calls start, empty after they have ended.
  void OnAnswer(std::function<void(const char* device, bool works)> listener) { FOnAnswer = std::move(listener); }

  // Between two passes only. Counts are not reset; a plan for a number that has passed never happens.
  void PlanSet(TGatePlan plan);
  void Reset();  // number 0, no plan

  [[nodiscard]] std::uint64_t Calls() const { return FCalls.load(std::memory_order_relaxed); }
  // The planned call came.
  [[nodiscard]] bool Fired() const { return FFired.load(std::memory_order_acquire); }
  // Device and verb that a sticky plan has fixed.
  [[nodiscard]] std::optional<std::pair<std::string, std::string>> Stuck() const;

 private:
  // The number of the call; 0: the device refuses.
  [[nodiscard]] std::uint64_t Pass(const char* device, const char* verb, TVerbKind kind, std::string args,
                                   const char* (*forbids)());
  void Threw(std::uint64_t call, const char* device, const char* verb, TVerbKind kind, const std::string& args);
  [[nodiscard]] bool Hit(std::uint64_t call, const char* device, const char* verb, TGatePlan& plan);
  void Tell(std::uint64_t call, const char* device, const char* verb, TVerbKind kind, std::string args,
            TOutcome outcome);

  IMachineObserver* const FObserver;
  std::atomic<std::uint64_t> FCalls{0};
  std::function<void(const char* device, bool works)> FOnAnswer;
  std::atomic<bool> FFailed{false};  // a call has failed since the listener was set
  std::atomic<bool> FArmed{false};
  std::atomic<bool> FFired{false};
  mutable TCriticalSection FLock;
  TGatePlan FPlan IXO_GUARDED_BY(FLock);
  std::optional<std::pair<std::string, std::string>> FStuck IXO_GUARDED_BY(FLock);
};

// A log sink behind a gate ("log", "write"). A refused line is lost, a failing one throws into the log service.
class TGatedSink final : public ILogSink {
 public:
  TGatedSink(ILogSink& sink, TCallGate& gate) : FSink(sink), FGate(gate) {}
  void Write(const TLogRecord& record) override {
    if (FGate.Enter("log", "write", vkSet)) FSink.Write(record);
  }

 private:
  ILogSink& FSink;
  TCallGate& FGate;
};

}  // namespace ixocamglue
