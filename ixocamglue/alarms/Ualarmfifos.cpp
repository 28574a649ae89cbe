#include "ixocamglue/alarms/Ualarmfifos.h"

#include <algorithm>
#include <unordered_set>
#include <utility>

namespace ixocamglue {

TLoopList<TNcAlarmMsg>* TIxoAlarmFifos::FindLocked(TAlarmConsumer consumer) {
  const auto found = std::ranges::find(FQueues, consumer, &TQueue::Consumer);
  return found == FQueues.end() ? nullptr : found->Items.get();
}

TIxoAlarmFifos::TSizes TIxoAlarmFifos::Push(const TNcAlarmMsg& msg) {
  TGuard guard(FLock);
  TSizes sizes;
  TNcAlarmCopies copies(msg, FQueues.size() + 1);
  for (const TQueue& queue : FQueues) {
    queue.Items->TLoopList::Add(copies.Take());  // the queues are this class's own: no need to ask which Add
    sizes.Queue = std::max(sizes.Queue, static_cast<std::size_t>(queue.Items->GetCount()));
  }
  FHistory.push_back(copies.Take());
  WriteLocked(msg);
  if (FHistoryCap != 0 && FHistory.size() > FTrimAt) TrimLocked();  // Kept: without a cap never
  sizes.History = FHistory.size();
  return sizes;
}

bool TIxoAlarmFifos::Pop(TAlarmConsumer consumer, TNcAlarmMsg& msg) {
  TGuard guard(FLock);
  TLoopList<TNcAlarmMsg>* const queue = FindLocked(consumer);
  if (!queue || queue->GetCount() == 0) return false;
  msg = queue->GetFirst();
  queue->DeleteFirst();
  return true;
}

void TIxoAlarmFifos::RegisterClient(TAlarmConsumer consumer, bool replay) {
  TGuard guard(FLock);
  if (FindLocked(consumer)) return;
  auto queue = std::make_unique<TLoopList<TNcAlarmMsg>>(kQueueCapacity);
  if (replay)
    for (const TNcAlarmMsg& msg : FHistory) queue->Add(msg);
  FQueues.push_back({consumer, std::move(queue)});
}

void TIxoAlarmFifos::RemoveClient(TAlarmConsumer consumer) {
  TGuard guard(FLock);
  std::erase_if(FQueues, [&](const TQueue& queue) { return queue.Consumer == consumer; });
}

void TIxoAlarmFifos::WriteNewAlarm(const TNcAlarmMsg& msg) {
  TGuard guard(FLock);
  WriteLocked(msg);
}

void TIxoAlarmFifos::WriteLocked(const TNcAlarmMsg& msg) {
  if (msg.Action == naaAdded) {
    FLists.Move(kRemoved, kActive, msg);
  } else if (msg.Action == naaRemoved) {
    FLists.Move(kActive, kRemoved, msg);
  }
}

void TIxoAlarmFifos::TrimLocked() {
  std::unordered_set<const void*> active;
  FLists.ForEach(kActive, [&](const TNcAlarmMsg& msg) { active.insert(msg.Texts.Block()); });
  std::size_t surplus = FHistory.size() - FHistoryCap;
  std::deque<TNcAlarmMsg> kept;
  for (TNcAlarmMsg& msg : FHistory) {
    const bool stays = surplus == 0 || (msg.Action == naaAdded && active.contains(msg.Texts.Block()));
    if (stays)
      kept.push_back(std::move(msg));
    else
      --surplus;
  }
  FHistory = std::move(kept);
  FTrimAt = std::max(FHistory.size(), FHistoryCap) / 4 * 5 + 1;  // many active alarms must not make every push a trim
}

std::string TIxoAlarmFifos::GetAlarmsDescPreview() {
  TGuard guard(FLock);
  std::string text;
  FLists.ForEach(kActive, [&, first = true](const TNcAlarmMsg& msg) mutable {
    if (!std::exchange(first, false)) text += ", ";
    text += msg.Desc();
  });
  return text;
}

void TIxoAlarmFifos::SetHistoryCap(std::size_t messages) {
  TGuard guard(FLock);
  FHistoryCap = messages;
  FTrimAt = messages / 4 * 5 + 1;
}

bool TIxoAlarmFifos::IsActive(std::string_view id) {
  TGuard guard(FLock);
  return FLists.Contains(kActive, id);
}

std::vector<TNcAlarmMsg> TIxoAlarmFifos::Active() {
  TGuard guard(FLock);
  std::vector<TNcAlarmMsg> messages;
  FLists.ForEach(kActive, [&](const TNcAlarmMsg& msg) { messages.push_back(msg); });
  return messages;
}

std::vector<TNcAlarmMsg> TIxoAlarmFifos::Removed() {
  TGuard guard(FLock);
  std::vector<TNcAlarmMsg> messages;
  FLists.ForEach(kRemoved, [&](const TNcAlarmMsg& msg) { messages.push_back(msg); });
  return messages;
}

TIxoAlarmFifos::TSizes TIxoAlarmFifos::Sizes() {
  TGuard guard(FLock);
  TSizes sizes{0, FHistory.size()};
  for (const TQueue& queue : FQueues)
    sizes.Queue = std::max(sizes.Queue, static_cast<std::size_t>(queue.Items->GetCount()));
  return sizes;
}

}  // namespace ixocamglue
