// Who commands the machine: one lease at a time. It ends kLeaseMs after its last sign of life, and is taken over at
// once by whoever asks for that. It is known by an id that its holder shows with every command ("Lease" in its
// requests), not by a connection: a page has several of these, and makes new ones.
//
// Losing it ends held keys and nothing else: what runs goes on, and whoever has the lease next attends it. Interface
// thread. Time is real (RealMs), also where the machine's is virtual.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "controller/access/Asker.h"
#include "ixocamglue/support/Problem.h"

namespace ixocontroller {
using namespace ixocamglue;

enum class TLeaseChange : std::uint8_t { lcTaken, lcTakenOver, lcGivenBack, lcRanOut };
using enum TLeaseChange;
// Does not fail.
[[nodiscard]] const char* LeaseChangeWord(TLeaseChange change);  // "taken", "takenOver", "givenBack", "ranOut"

struct TLeaseEvent {
  TLeaseChange Change = lcTaken;
  std::optional<TAsker> Was;  // who had it before
  std::optional<TAsker> Now;  // who has it now
};

// What is only asked does not fail; taking makes an id, and throws EProblem where the system gives no random numbers.
class TLease {
 public:
  static constexpr std::uint64_t kLeaseMs = 10'000;

  // `changed` is called behind each change, on the caller's thread; it does not call back.
  explicit TLease(std::function<void(const TLeaseEvent&)> changed = {});

  // The lease's id. With `id` of the present lease it is renewed; another's lease is refused, naming its holder, unless
  // `takeOver`.
  [[nodiscard]] TResult<std::string> Take(const TAsker& who, std::string_view id, bool takeOver, std::uint64_t nowMs);
  // Renews it; refused as Admit.
  TResult<> Heartbeat(std::string_view id, std::uint64_t nowMs);
  TResult<> GiveBack(std::string_view id, std::uint64_t nowMs);
  // For every command that needs the lease, which it renews. Refused without an id, with one that is over, and with
  // one of another lease: the problem names who has it.
  TResult<> Admit(std::string_view id, std::uint64_t nowMs);
  // Ends it when its time is over; at least every 100 ms.
  void Watch(std::uint64_t nowMs);

  [[nodiscard]] const std::optional<TAsker>& Holder() const { return FHolder; }
  [[nodiscard]] bool Has(std::string_view id) const { return FHolder && id == FId; }  // is the present one's
  [[nodiscard]] std::uint64_t LeftMs(std::uint64_t nowMs) const;                      // 0: nobody has it

 private:
  void Change(TLeaseChange change, std::optional<TAsker> now);

  const std::function<void(const TLeaseEvent&)> FChanged;
  std::string FId;
  std::optional<TAsker> FHolder;
  std::uint64_t FUntilMs = 0;
};

}  // namespace ixocontroller
