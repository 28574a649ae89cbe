// The alarm path: a message made, counted, listed and queued for 1, 4 and 16 consumers, beside plain deque copies under
// a mutex and a lock-free queue that moves the same record; the cost of an event by how many alarms are active; replay;
// lookups.
#include <deque>
#include <list>
#include <malloc.h>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <readerwriterqueue/readerwriterqueue.h>

#include "bench/Rows.h"
#include "controller/process/StateFolder.h"
#include "ixocamglue/alarms/Almintprt.h"
#include "ixocamglue/alarms/Ualarmdefs.h"
#include "ixocamglue/alarms/Ualarmmanager.h"
#include "ixocamglue/platform/ports/Alarmintf.h"

namespace ixocamglue::bench {
using namespace ixocontroller;
namespace {

constexpr int kIds = 200;
constexpr int kPairs = 500;  // a raise and a clear each, per run
constexpr const char* kDesc = "a description of forty bytes, more or less";

std::vector<TNcAlarmRecord> Records(int count) {
  std::vector<TNcAlarmRecord> records;
  for (int id = 0; id < count; ++id)
    records.push_back(
        {.IdPrefix = "TPBenchmark", .Desc = kDesc, .Id = id, .Attrs = id % 2 == 0 ? naForbidCut : naShownOnly});
  return records;
}

// The whole manager without its package: events come as the package's thread would bring them.
template <std::size_t Consumers>
class TPush {
 public:
  TPush() { Prepare(); }
  void Prepare() {
    FManager = std::make_unique<TAlarmManager>([]() -> TNcAlarmManager* { return nullptr; });
    for (const char& consumer : FConsumers) FManager->RegisterClient(&consumer, false);
  }
  void Run() {
    for (int i = 0; i < kPairs; ++i) {
      const TNcAlarmRecord& record = FRecords[static_cast<std::size_t>(i % kIds)];
      FManager->NcAlarmAdded(record);
      FManager->NcAlarmRemoved(record);
    }
  }

 private:
  const std::vector<TNcAlarmRecord> FRecords = Records(kIds);
  char FConsumers[Consumers] = {};
  std::unique_ptr<TAlarmManager> FManager;
};

struct TPlainMsg {
  int Action = 0, Level = 0, Removed = 0;
  std::string Id, Desc;
  TDateTime Time;
};

TPlainMsg PlainMsg(const TNcAlarmRecord& record, int action) {
  return {action, record.Level(), action, record.Identifier(), record.Desc, record.Time};
}

// A copy with texts of its own per consumer and for the history.
template <std::size_t Consumers>
class TPlainDeques {
 public:
  void Prepare() {
    for (auto& queue : FQueues) queue.clear();
  }
  void Run() {
    for (int i = 0; i < 2 * kPairs; ++i) {
      const TPlainMsg msg = PlainMsg(FRecords[static_cast<std::size_t>(i / 2 % kIds)], i % 2);
      const std::lock_guard lock(FMutex);
      for (auto& queue : FQueues) queue.push_back(msg);
    }
  }

 private:
  const std::vector<TNcAlarmRecord> FRecords = Records(kIds);
  std::mutex FMutex;
  std::deque<TPlainMsg> FQueues[Consumers + 1];
};

class TLockFree {
 public:
  void Prepare() { FQueue = std::make_unique<moodycamel::ReaderWriterQueue<TPlainMsg>>(300); }
  void Run() {
    for (int i = 0; i < 2 * kPairs; ++i)
      FQueue->enqueue(PlainMsg(FRecords[static_cast<std::size_t>(i / 2 % kIds)], i % 2));
  }

 private:
  const std::vector<TNcAlarmRecord> FRecords = Records(kIds);
  std::unique_ptr<moodycamel::ReaderWriterQueue<TPlainMsg>> FQueue;
};

// Clears and raises spread over so many active identifiers.
template <int Active>
class TByActive {
 public:
  TByActive() {
    for (const TNcAlarmRecord& record : FRecords) FManager.NcAlarmAdded(record);
  }
  void Run() {
    for (int i = 0; i < kPairs; ++i) {
      FAt = (FAt + 7919) % Active;
      const TNcAlarmRecord& record = FRecords[static_cast<std::size_t>(FAt)];
      FManager.NcAlarmRemoved(record);
      FManager.NcAlarmAdded(record);
    }
  }

 private:
  const std::vector<TNcAlarmRecord> FRecords = Records(Active);
  int FAt = 0;
  TAlarmManager FManager{[]() -> TNcAlarmManager* { return nullptr; }, {.HistoryCap = 1000}};
};

// The same lists, searched from the head.
template <int Active>
class TByScan {
 public:
  TByScan() {
    for (const TNcAlarmRecord& record : FRecords) FActive.push_front(PlainMsg(record, 0));
  }
  void Run() {
    for (int i = 0; i < kPairs; ++i) {
      FAt = (FAt + 7919) % Active;
      const TNcAlarmRecord& record = FRecords[static_cast<std::size_t>(FAt)];
      const TPlainMsg msg = PlainMsg(record, 0);
      for (auto it = FActive.begin(); it != FActive.end(); ++it) {
        if (it->Id != msg.Id) continue;
        FActive.erase(it);
        break;
      }
      FActive.push_front(msg);
    }
  }

 private:
  const std::vector<TNcAlarmRecord> FRecords = Records(Active);
  int FAt = 0;
  std::list<TPlainMsg> FActive;
};

class TReplay {
 public:
  static constexpr int kEvents = 1'000'000;
  TReplay() {
    TNcAlarmMsg msg;
    for (int i = 0; i < kEvents; ++i) {
      msg.Texts = TNcAlarmTexts("TPBenchmark#" + std::to_string(i / 2 % kIds), kDesc);
      msg.Action = i % 2 == 0 ? naaAdded : naaRemoved;
      FFifos.Push(msg);
    }
  }
  void Prepare() { FFifos.RemoveClient(this); }
  void Run() { FFifos.RegisterClient(this, true); }

 private:
  TIxoAlarmFifos FFifos;
};

class TLookup {
 public:
  TLookup() {
    FApp.Register(IID_IAlarmInterpreterSvc, std::make_shared<TAlarmDefinitionFiles>(ShareFolder() / "alarms"));
    FInterpreter.emplace();
    FMsg.Texts = TNcAlarmTexts("TPLaser#1", kDesc);
  }
  void Run() {
    for (int i = 0; i < kPairs; ++i) benchmark::DoNotOptimize(FInterpreter->GetAlarmCode(FMsg));
  }

 private:
  TAppSys FApp;
  TInstalled<TAppSys> FInstalled{FApp};
  std::optional<TAlarmInterpreter> FInterpreter;
  TNcAlarmMsg FMsg;
};

}  // namespace

double AlarmBytesPerEvent() {
  constexpr int kEvents = 1'000'000;
  const std::vector<TNcAlarmRecord> records = Records(kIds);
  TAlarmManager manager([]() -> TNcAlarmManager* { return nullptr; });
  manager.RegisterClient(&manager, false);
  const std::size_t before = mallinfo2().uordblks + mallinfo2().hblkhd;
  for (int i = 0; i < kEvents / 2; ++i) {
    manager.NcAlarmAdded(records[static_cast<std::size_t>(i % kIds)]);
    manager.NcAlarmRemoved(records[static_cast<std::size_t>(i % kIds)]);
  }
  return static_cast<double>(mallinfo2().uordblks + mallinfo2().hblkhd - before) / kEvents;
}

std::vector<TRow> AlarmRows() {
  const double events = 2 * kPairs;
  return {
      Measure<TPush<1>>({.Id = "alarm_push_1",
                         .Name = "alarm event, 1 consumer",
                         .Parts = events,
                         .Peer = "alarm_lockfree",
                         .PeerName = "lock-free queue"}),
      Measure<TLockFree>({.Id = "alarm_lockfree", .Parts = events}),
      Measure<TPush<4>>({.Id = "alarm_push_4",
                         .Name = "alarm event, 4 consumers",
                         .Parts = events,
                         .Peer = "alarm_deques_4",
                         .PeerName = "deque copies"}),
      Measure<TPlainDeques<4>>({.Id = "alarm_deques_4", .Parts = events}),
      Measure<TPush<16>>({.Id = "alarm_push_16",
                          .Name = "alarm event, 16 consumers",
                          .Parts = events,
                          .Peer = "alarm_push_1",
                          .PeerName = "1 consumer",
                          .MaxRatio = 2.0}),
      Measure<TPush<16>>({.Id = "alarm_push_16b",
                          .Name = "alarm event, 16, by deques",
                          .Parts = events,
                          .Peer = "alarm_deques_16",
                          .PeerName = "deque copies"}),
      Measure<TPlainDeques<16>>({.Id = "alarm_deques_16", .Parts = events}),
      Measure<TByActive<10>>({.Id = "alarm_active_10", .Name = "alarm event, 10 active", .Parts = events}),
      Measure<TByActive<1000>>({.Id = "alarm_active_1000",
                                .Name = "alarm event, 1000 active",
                                .Parts = events,
                                .Peer = "alarm_scan_1000",
                                .PeerName = "list scan"}),
      Measure<TByScan<1000>>({.Id = "alarm_scan_1000", .Parts = events}),
      Measure<TByActive<100'000>>({.Id = "alarm_active_100k",
                                   .Name = "alarm event, 100000 active",
                                   .Parts = events,
                                   .Peer = "alarm_active_10",
                                   .PeerName = "10 active",
                                   .MaxRatio = 4.0}),
      Measure<TReplay>({.Id = "alarm_replay", .Name = "alarm replay, per event", .Parts = TReplay::kEvents}),
      Measure<TLookup>({.Id = "alarm_lookup", .Name = "alarm lookup", .Parts = kPairs}),
  };
}

}  // namespace ixocamglue::bench
