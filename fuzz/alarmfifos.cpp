// A stream of operations on one fifo set beside a plain model: vectors that are walked.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <map>
#include <string>
#include <vector>

#include "ixocamglue/alarms/Ualarmfifos.h"

using namespace ixocamglue;

namespace {

struct TEvent {
  int Action;
  std::string Id;
  std::uint32_t Word;
  friend bool operator==(const TEvent&, const TEvent&) = default;
};

struct TModel {
  std::vector<TEvent> History, Active, Removed;  // the lists newest first
  std::map<int, std::deque<TEvent>> Queues;

  static void Delete(std::vector<TEvent>& list, const std::string& id) {
    const auto found = std::ranges::find(list, id, &TEvent::Id);
    if (found != list.end()) list.erase(found);
  }
  void Push(const TEvent& event) {
    for (auto& [client, queue] : Queues) queue.push_back(event);
    History.push_back(event);
    if (event.Action == 0) {
      Delete(Removed, event.Id);
      Active.insert(Active.begin(), event);
    } else if (event.Action == 1) {
      Delete(Active, event.Id);
      Removed.insert(Removed.begin(), event);
    }
  }
};

void Check(bool holds) {
  if (!holds) std::abort();
}

TEvent EventOf(const TNcAlarmMsg& msg) { return {static_cast<int>(msg.Action), std::string(msg.Id()), msg.Word}; }

void CheckList(const std::vector<TNcAlarmMsg>& list, const std::vector<TEvent>& model) {
  Check(std::ranges::equal(list, model, {}, EventOf));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  TIxoAlarmFifos fifos;
  TModel model;
  const char clients[4] = {};
  std::uint32_t word = 0;
  for (std::size_t i = 0; i + 1 < size; i += 2) {
    const int client = data[i + 1] % 4;
    switch (data[i] % 8) {
      case 0:
      case 1:
      case 2:
      case 3:
      case 4: {
        TNcAlarmMsg msg;
        msg.Action = static_cast<TNcAlarmAction>(data[i] % 5 % 3);
        const std::string id(1, static_cast<char>('a' + data[i + 1] % 5));
        msg.Texts = TNcAlarmTexts(id, id);
        msg.Word = ++word;
        (void)fifos.Push(msg);
        model.Push(EventOf(msg));
        break;
      }
      case 5: {
        TNcAlarmMsg msg;
        const bool popped = fifos.Pop(&clients[client], msg);
        const auto queue = model.Queues.find(client);
        Check(popped == (queue != model.Queues.end() && !queue->second.empty()));
        if (!popped) break;
        Check(EventOf(msg) == queue->second.front());
        queue->second.pop_front();
        break;
      }
      case 6: {
        const bool replay = data[i + 1] >= 128;
        fifos.RegisterClient(&clients[client], replay);
        if (!model.Queues.contains(client))
          model.Queues[client] =
              replay ? std::deque<TEvent>(model.History.begin(), model.History.end()) : std::deque<TEvent>();
        break;
      }
      default: fifos.RemoveClient(&clients[client]); model.Queues.erase(client);
    }
  }
  CheckList(fifos.Active(), model.Active);
  CheckList(fifos.Removed(), model.Removed);
  std::string preview;
  for (const TEvent& event : model.Active) preview += (preview.empty() ? "" : ", ") + event.Id;
  Check(fifos.GetAlarmsDescPreview() == preview);
  return 0;
}
