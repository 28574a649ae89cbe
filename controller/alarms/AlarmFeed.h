// Alarms as they happen: one more consumer of the alarm manager, beside the store's client. A raise or clear is told as
// soon as it is in the store; one that is not, as such, when writing it has failed or takes too long.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "ixocamglue/alarms/Almintprt.h"
#include "ixocamglue/alarms/Ualarmmanager.h"
#include "ixocamglue/alarms/store/AlarmStore.h"
#include "ixocamglue/support/Locks.h"

namespace ixocontroller {
using namespace ixocamglue;

struct TToldAlarm {
  const TNcAlarmMsg& Msg;
  const TAlarmRec& Definition;  // empty where there is none
  bool First;                   // nothing else stood when it was raised
  bool Stored;
};

// Any thread. Nothing fails but what `tell` throws.
class TAlarmFeed {
 public:
  // `tell` is called by Round, one alarm at a time, and calls nothing of the feed. The store outlives the feed.
  TAlarmFeed(TAlarmStore& store, std::function<void(const TToldAlarm& alarm)> tell);
  ~TAlarmFeed();
  TAlarmFeed(const TAlarmFeed&) = delete;
  TAlarmFeed& operator=(const TAlarmFeed&) = delete;

  // Tells what has come since; `nowMs` is monotonic.
  void Round(std::uint64_t nowMs);
  // Everything that came has been told.
  [[nodiscard]] bool Settled() const;
  // Nothing of the identifier is told until then (UTC), but at level 1.
  void Suppress(const std::string& identifier, TDateTime until);

 private:
  struct TWaiting {
    TNcAlarmMsg Msg;
    std::uint64_t LatestMs = 0;
  };

  [[nodiscard]] std::optional<bool> TakeFate(const TNcAlarmMsg& msg);
  void Tell(const TNcAlarmMsg& msg, bool stored) IXO_REQUIRES(FLock);

  TAlarmStore& FStore;
  const std::function<void(const TToldAlarm&)> FTell;
  mutable TCriticalSection FLock;
  std::deque<TWaiting> FWaiting IXO_GUARDED_BY(FLock);
  std::map<std::string, TDateTime> FHidden IXO_GUARDED_BY(FLock);
  int FStanding IXO_GUARDED_BY(FLock) = 0;
  // The store's thread must not wait for what is told.
  TCriticalSection FFatesLock;
  std::map<std::pair<std::uint64_t, bool>, bool> FFates IXO_GUARDED_BY(FFatesLock);  // stored, by raise and clear
};

}  // namespace ixocontroller
