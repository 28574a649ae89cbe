// What happens in a controller, numbered, for whoever follows it: the last kEvents of them, and of the signals the last
// change alone. Any thread; the ring's lock is held for a copy and calls nobody.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "ixocamglue/support/Locks.h"

namespace ixocontroller {
using namespace ixocamglue;

// Signals: where head and axes are, and what is on. Each follower has its own rate for them, so they take no place in
// the ring: of those that nobody read only the last one is left.
enum class TEventKind : std::uint8_t {
  evState,
  evStep,
  evAlarm,
  evRun,
  evLed,
  evSignals,
  evLog,
  evLease,
  evKey,
  evQueue
};
using enum TEventKind;
inline constexpr std::size_t kEventKinds = 10;
// Does not fail.
[[nodiscard]] const char* EventName(TEventKind kind);  // "state"

// Made when it is read, in the reader's language and on its thread: what it holds does not change. Cheap to copy.
class TEventBody {
 public:
  TEventBody() = default;
  template <class Make>
  requires std::is_invocable_r_v<nlohmann::ordered_json, Make> TEventBody(Make make)
      : FMake(std::make_shared<const std::function<nlohmann::ordered_json()>>(std::move(make))) {}
  nlohmann::ordered_json operator()() const { return FMake ? (*FMake)() : nlohmann::ordered_json(); }

 private:
  std::shared_ptr<const std::function<nlohmann::ordered_json()>> FMake;
};

struct TServiceEvent {
  std::uint64_t Number = 0;  // from 1 on
  TEventKind Kind = evState;
  std::int64_t UnixMs = 0;
  TEventBody Body;
};

// Nothing of it fails; what `told` throws passes.
class TEventRing {
 public:
  static constexpr std::size_t kEvents = 4096;

  TEventRing();

  // Numbers are those of one start of the controller: a new start has a new epoch.
  [[nodiscard]] const std::string& Epoch() const { return FEpoch; }

  void Add(TEventKind kind, TEventBody body);
  [[nodiscard]] std::uint64_t Last() const;  // the number of the newest one; 0: none

  struct TRead {
    std::vector<TServiceEvent> Events;  // in order; at most `most`
    std::uint64_t MissedFrom = 0;       // the first number behind `after` that is gone; 0: nothing was missed
    std::uint64_t MissedTo = 0;
  };
  // What follows the event of this number.
  [[nodiscard]] TRead Read(std::uint64_t after, std::size_t most = kEvents + 1) const;

  // Called behind each Add, on its thread and without a lock; must not wait. Drivers' threads may add already.
  void OnAdded(std::function<void()> told);

 private:
  // From the oldest one on.
  [[nodiscard]] const TServiceEvent& At(std::size_t i) const IXO_REQUIRES(FLock) {
    return FRing[(FFirst + i) % FRing.size()];
  }

  const std::string FEpoch;
  mutable TCriticalSection FLock;
  std::shared_ptr<const std::function<void()>> FTold IXO_GUARDED_BY(FLock);  // null: nobody is
  std::vector<TServiceEvent> FRing IXO_GUARDED_BY(FLock);  // without signals; FFirst is its oldest once it is full
  std::size_t FFirst IXO_GUARDED_BY(FLock) = 0;
  std::uint64_t FGone IXO_GUARDED_BY(FLock) = 0;  // the number of the one that was pushed out last
  std::uint64_t FLast IXO_GUARDED_BY(FLock) = 0;
  TServiceEvent FSignals IXO_GUARDED_BY(FLock);
};

}  // namespace ixocontroller
