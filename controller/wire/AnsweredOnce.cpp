#include "controller/wire/AnsweredOnce.h"

#include <utility>

namespace ixocontroller {

TAnsweredOnce::TFound TAnsweredOnce::Ask(const std::string& key, const std::string& asked, std::uint64_t nowMs,
                                         TTell tell) {
  Forget(nowMs);
  const std::size_t hash = std::hash<std::string>{}(asked);
  const auto [it, isNew] = FEntries.try_emplace(key);
  TEntry& entry = it->second;
  if (isNew) {
    entry.Asked = hash;
    entry.AskedSize = asked.size();
    entry.SinceMs = nowMs;
    FOrder.push_back(key);
    return TFound::aoNew;
  }
  if (entry.Asked != hash || entry.AskedSize != asked.size()) return TFound::aoOther;
  if (entry.Done)
    tell(entry.Reply);
  else
    entry.Waiting.push_back(std::move(tell));
  return TFound::aoAgain;
}

void TAnsweredOnce::Answer(const std::string& key, const TWireReply& reply) {
  const auto it = FEntries.find(key);
  if (it == FEntries.end()) return;
  TEntry& entry = it->second;
  entry.Done = true;
  entry.Reply = reply;
  FBytes += reply.Body.size();
  for (const TTell& tell : std::exchange(entry.Waiting, {})) tell(reply);
}

// One that is under way stays: it would begin again.
void TAnsweredOnce::Forget(std::uint64_t nowMs) {
  while (!FOrder.empty()) {
    const auto it = FEntries.find(FOrder.front());
    const TEntry& oldest = it->second;
    const bool over = nowMs - oldest.SinceMs >= kKeptMs || FEntries.size() >= kMost || FBytes > kMostBytes;
    if (!over) return;
    if (!oldest.Done && nowMs - oldest.SinceMs < kKeptMs) {
      FOrder.push_back(std::move(FOrder.front()));
      FOrder.pop_front();
      return;
    }
    FBytes -= oldest.Reply.Body.size();
    FEntries.erase(it);
    FOrder.pop_front();
  }
}

}  // namespace ixocontroller
