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
  while (FHistoryCap != 0 && FHistory.size() > FHistoryCap) FHistory.pop_front();  // Kept: without a cap never
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
  if (replay) {
    for (const TNcAlarmMsg& msg : OlderLocked()) queue->Add(msg);
    for (const TNcAlarmMsg& msg : FHistory) queue->Add(msg);
  }
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

// The active raises that the history has let go, oldest first.
std::vector<TNcAlarmMsg> TIxoAlarmFifos::OlderLocked() const {
  std::vector<TNcAlarmMsg> older;
  if (FHistoryCap == 0) return older;
  std::unordered_set<const void*> kept;
  for (const TNcAlarmMsg& msg : FHistory) kept.insert(msg.Texts.Block());
  FLists.ForEach(kActive, [&](const TNcAlarmMsg& msg) {
    if (!kept.contains(msg.Texts.Block())) older.push_back(msg);
  });
  std::ranges::reverse(older);
  return older;
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
