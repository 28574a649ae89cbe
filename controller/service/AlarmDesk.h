// What a controller's clients see and do of its alarms: those that stand, who has seen them, what is hidden for a
// while, and an event for each of this. It changes what is shown, never what an alarm forbids. Any thread; the lock is
// held over no call.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include <nlohmann/json.hpp>

#include "controller/Controller.h"
#include "controller/access/Asker.h"
#include "controller/alarms/AlarmScript.h"
#include "controller/service/Events.h"
#include "ixocamglue/support/Locks.h"
#include "ixocamglue/support/Problem.h"

namespace ixocontroller {

class TAlarmDesk {
 public:
  // Both outlive the desk. What is hidden according to the alarm store stays so.
  TAlarmDesk(TController& controller, TEventRing& events);
  ~TAlarmDesk();
  TAlarmDesk(const TAlarmDesk&) = delete;
  TAlarmDesk& operator=(const TAlarmDesk&) = delete;

  // Of each alarm that stands, in the order of the raises, in the thread's language: {"serial", "level", "identifier",
  // "raised", "code", "category", "type", "text", "reason", "solution", "description", "lang", "acknowledged",
  // "byWhom", "suppressedUntil"}. The description is the device's own and is in the language "lang". Does not fail.
  [[nodiscard]] nlohmann::ordered_json Standing() const;
  // Somebody has seen it. False: no such alarm stands.
  [[nodiscard]] bool Acknowledge(std::uint64_t serial, const TAsker& who);
  // Alarms of this identifier are marked as suppressed for so long, at most kMostSuppressedMinutes; 0 end it. Refused
  // while it stands with level 1, which is never hidden. Answers until when.
  TResult<std::string> Suppress(const std::string& identifier, std::uint64_t minutes, const std::string& reason,
                                const TAsker& who);

 private:
  struct TSeen {
    std::string At, ByWhom;
  };

  [[nodiscard]] nlohmann::ordered_json JsonOf(const TNcAlarmRecord& record) const;
  void Tell(const char* what, const TNcAlarmRecord& record);

  TController& FController;
  TEventRing& FEvents;
  std::uint64_t FAdded = 0;
  std::uint64_t FRemoved = 0;
  mutable TCriticalSection FLock;
  std::map<std::uint64_t, TSeen> FSeen IXO_GUARDED_BY(FLock);       // by serial, of alarms that stand
  std::map<std::string, std::string> FUntil IXO_GUARDED_BY(FLock);  // by identifier, as FormatUtc writes it
};

}  // namespace ixocontroller
