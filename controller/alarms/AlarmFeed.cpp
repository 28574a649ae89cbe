#include "controller/alarms/AlarmFeed.h"

#include <algorithm>
#include <vector>

#include "ixocamglue/platform/services/UtcTime.h"

namespace ixocontroller {
namespace {

constexpr std::uint64_t kFateMs = 500;
constexpr std::size_t kMostFates = 10'000;  // those that came too late are asked for by nobody

}  // namespace

TAlarmFeed::TAlarmFeed(TAlarmStore& store, std::function<void(const TToldAlarm& alarm)> tell)
    : FStore(store), FTell(std::move(tell)) {
  FStore.OnFate([this](const TAlarmFate& fate) {
    TGuard guard(FFatesLock);
    FFates[{fate.Serial, fate.Cleared}] = fate.Stored;
    if (FFates.size() > kMostFates) FFates.erase(FFates.begin());
  });
  AlarmManager()->RegisterClient(this, true);
}

TAlarmFeed::~TAlarmFeed() {
  FStore.OnFate(nullptr);
  AlarmManager()->RemoveClient(this);
}

void TAlarmFeed::Round(std::uint64_t nowMs) {
  TGuard guard(FLock);
  std::vector<TNcAlarmMsg> messages;
  for (TNcAlarmMsg msg; AlarmManager()->Pop(this, msg);) messages.push_back(msg);
  // Popped by level; told as it happened, so that the first one is the first one.
  std::ranges::stable_sort(messages, {}, [](const TNcAlarmMsg& m) { return std::pair(m.Time.Days, m.Word); });
  for (TNcAlarmMsg& msg : messages) FWaiting.push_back({std::move(msg), nowMs + kFateMs});
  for (; !FWaiting.empty(); FWaiting.pop_front()) {
    const TWaiting& next = FWaiting.front();
    const std::optional<bool> stored = next.Msg.Action == naaAcknowledged ? true : TakeFate(next.Msg);
    if (!stored && nowMs < next.LatestMs) break;
    Tell(next.Msg, stored.value_or(false));
  }
}

bool TAlarmFeed::Settled() const {
  TGuard guard(FLock);
  return FWaiting.empty();
}

void TAlarmFeed::Suppress(const std::string& identifier, TDateTime until) {
  TGuard guard(FLock);
  FHidden[identifier] = until;
}

std::optional<bool> TAlarmFeed::TakeFate(const TNcAlarmMsg& msg) {
  TGuard guard(FFatesLock);
  const auto fate = FFates.extract({msg.Word, msg.Action == naaRemoved});
  return fate ? std::optional(fate.mapped()) : std::nullopt;
}

void TAlarmFeed::Tell(const TNcAlarmMsg& msg, bool stored) {
  FStanding += msg.Action == naaAdded ? 1 : msg.Action == naaRemoved && FStanding > 0 ? -1 : 0;
  if (const auto hidden = FHidden.find(std::string(msg.Id()));
      hidden != FHidden.end() && msg.Level == 0 && UtcNow().Days < hidden->second.Days)
    return;
  TAlarmRec definition;
  AlarmInterpreter()->TryGetAlarmRec(msg, definition);
  FTell({msg, definition, msg.Action == naaAdded && FStanding == 1, stored});
}

}  // namespace ixocontroller
