#include "ixocamglue/platform/alarms/NcAlarmManager.h"

#include <algorithm>
#include <pthread.h>
#include <utility>

#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/support/Faults.h"

namespace ixocamglue {
namespace {

void LogThrown(const char* where, const std::exception_ptr& error) {
  LogMsg(lkException, 0, std::string(where) + ": " + DescribeException(error), "NcAlarms");
}

}  // namespace

// --- TNcAlarmEvent ---

std::uint64_t TNcAlarmEvent::Subscribe(THandler handler) {
  TGuard guard(FLock);
  auto entries = std::make_shared<TEntries>(*FEntries);
  entries->push_back(std::make_shared<TEntry>(TEntry{++FHandles, std::move(handler)}));
  FEntries = std::move(entries);
  return FHandles;
}

void TNcAlarmEvent::Unsubscribe(std::uint64_t handle) {
  std::unique_lock lock(FLock.Native());
  const auto found = std::ranges::find(*FEntries, handle, &TEntry::Handle);
  if (found == FEntries->end()) return;
  const std::shared_ptr<TEntry> entry = *found;
  entry->Live = false;
  auto entries = std::make_shared<TEntries>(*FEntries);
  std::erase(*entries, entry);
  FEntries = std::move(entries);
  while (FRunning == entry.get() && FRunner != std::this_thread::get_id()) FCallEnded.wait(lock);
}

void TNcAlarmEvent::Fire(const TNcAlarmRecord& record) {
  std::unique_lock lock(FLock.Native());
  const std::shared_ptr<const TEntries> entries = FEntries;
  for (const auto& entry : *entries) {
    if (!entry->Live) continue;
    FRunning = entry.get();
    FRunner = std::this_thread::get_id();
    lock.unlock();
    try {
      entry->Handler(record);
    } catch (...) {
      LogThrown("alarm event", std::current_exception());
    }
    lock.lock();
    FRunning = nullptr;
    FCallEnded.notify_all();
  }
}

// --- sources ---

struct TNcAlarmManager::TSource {
  struct TRow {
    TNcAlarmAttrs Attrs = 0;
    std::uint64_t Raised = 0;  // the serial of the raise; 0: not raised
  };

  INcAlarmSource20* Source;
  std::string Prefix;
  std::map<std::int32_t, TRow> Rows;
};

class TNcAlarmManager::TTable final : public INcAlarmTable20 {
 public:
  explicit TTable(TSource& source) : FSource(source) {}
  void RegisterAlarm(std::int32_t id, TNcAlarmAttrs attributes) override { FSource.Rows[id].Attrs = attributes; }

 private:
  TSource& FSource;
};

class TNcAlarmManager::TReport final : public INcAlarmReport20 {
 public:
  TReport(TNcAlarmManager& manager, TSource& source) : FManager(manager), FSource(source) {}

  void RaiseAlarm(std::int32_t id) override {
    const auto [row, isNew] = FSource.Rows.try_emplace(id);
    if (isNew) {
      row->second.Attrs = naShownOnly;
      ReportFault("an alarm is raised that its source has not registered: " + FSource.Prefix + "#" +
                  std::to_string(id));
    }
    if (row->second.Raised != 0 && FManager.Stands(row->second.Raised)) return;
    row->second.Raised = FManager.Raise(
        {.IdPrefix = FSource.Prefix, .Desc = FSource.Source->GetAlarmDesc(id), .Id = id, .Attrs = row->second.Attrs});
  }
  void ClearAlarm(std::int32_t id) override {
    const auto row = FSource.Rows.find(id);
    if (row == FSource.Rows.end() || row->second.Raised == 0) return;
    (void)FManager.ClearSerial(std::exchange(row->second.Raised, 0));
  }

 private:
  TNcAlarmManager& FManager;
  TSource& FSource;
};

void TNcAlarmManager::AddSource(INcAlarmSource20& source) {
  auto made = std::make_unique<TSource>(TSource{&source, source.GetAlarmIDPrefix(), {}});
  TTable table(*made);
  source.RegisterAlarms(table);
  TGuard guard(FSourcesLock);
  FSources.push_back(std::move(made));
}

void TNcAlarmManager::RemoveSource(INcAlarmSource20& source) {
  TGuard guard(FSourcesLock);
  const auto found = std::ranges::find(FSources, &source, &TSource::Source);
  if (found == FSources.end()) return;
  for (const auto& [id, row] : (*found)->Rows)
    if (row.Raised != 0) (void)ClearSerial(row.Raised);
  FSources.erase(found);
}

void TNcAlarmManager::ResetAlarms() {
  TGuard guard(FSourcesLock);
  for (const auto& source : FSources)
    for (const auto& [id, row] : source->Rows)
      if (row.Raised != 0) source->Source->ResetAlarm(id);
}

void TNcAlarmManager::AskSources() {
  TGuard guard(FSourcesLock);
  for (const auto& source : FSources) {
    TReport report(*this, *source);
    try {
      source->Source->UpdateAlarms(report);
    } catch (...) {
      LogThrown(source->Prefix.c_str(), std::current_exception());
    }
  }
}

// --- raises and clears ---

TNcAlarmManager::TNcAlarmManager() = default;
TNcAlarmManager::~TNcAlarmManager() { Stop(); }

void TNcAlarmManager::CountLocked(TNcAlarmAttrs attrs, int change) {
  TNcAlarmAttrs effects = 0;
  for (std::size_t member = 0; member < FCounts.size(); ++member) {
    const TNcAlarmAttrs bit = TNcAlarmAttrs{1} << member;
    if ((attrs & bit) != 0) FCounts[member] += static_cast<std::uint32_t>(change);
    if (FCounts[member] != 0) effects |= bit;
  }
  FEffects.store(effects, std::memory_order_release);
}

std::uint64_t TNcAlarmManager::Raise(TNcAlarmRecord record) {
  record.Time = Clock().Now();
  std::string identifier = record.Identifier();
  TRecordPtr shared;
  {
    TGuard guard(FLock);
    record.Serial = ++FSerials;
    CountLocked(record.Attrs, 1);  // first: an alarm takes effect also when there is no memory to tell of it
    shared = std::make_shared<const TNcAlarmRecord>(std::move(record));
    FStanding.emplace(shared->Serial, shared);
    FByIdentifier[std::move(identifier)].push_back(shared);
    FPending.push_back({shared, false, shared->Time});
  }
  if (FOnRaised) FOnRaised(*shared);
  return shared->Serial;
}

void TNcAlarmManager::EndLocked(const TRecordPtr& record) {
  FPending.push_back({record, true, Clock().Now()});
  CountLocked(record->Attrs, -1);
  const auto same = FByIdentifier.find(record->Identifier());
  std::erase(same->second, record);
  if (same->second.empty()) FByIdentifier.erase(same);
  FStanding.erase(record->Serial);
}

bool TNcAlarmManager::Clear(std::string_view identifier) {
  TGuard guard(FLock);
  const auto same = FByIdentifier.find(identifier);
  if (same == FByIdentifier.end()) return false;
  EndLocked(TRecordPtr(same->second.back()));
  return true;
}

bool TNcAlarmManager::ClearSerial(std::uint64_t serial) {
  TGuard guard(FLock);
  const auto found = FStanding.find(serial);
  if (found == FStanding.end()) return false;
  EndLocked(TRecordPtr(found->second));
  return true;
}

void TNcAlarmManager::ClearAll() {
  TGuard guard(FLock);
  while (!FStanding.empty()) EndLocked(TRecordPtr(FStanding.rbegin()->second));
}

bool TNcAlarmManager::Stands(std::uint64_t serial) const {
  TGuard guard(FLock);
  return FStanding.contains(serial);
}

std::vector<TNcAlarmRecord> TNcAlarmManager::Standing() const {
  TGuard guard(FLock);
  std::vector<TNcAlarmRecord> records;
  records.reserve(FStanding.size());
  for (const auto& [serial, record] : FStanding) records.push_back(*record);
  return records;
}

// --- records and events ---

std::int32_t TNcAlarmManager::GetAlarmCount() { return static_cast<std::int32_t>(FShown.size()); }

const TNcAlarmRecord& TNcAlarmManager::GetAlarm(std::int32_t index) {
  if (!std::exchange(FViewFresh, true)) FView.assign(FShown.begin(), FShown.end());
  return *FView.at(static_cast<std::size_t>(index));
}

void TNcAlarmManager::Apply(const TPending& pending) {
  TGuard guard(FReadLock);
  FViewFresh = false;
  FView.clear();
  const TRecordPtr& record = pending.Record;
  if (!pending.Removed) {
    FShownBySerial.emplace(record->Serial, FShown.insert(FShown.end(), record));
    return FAdded.Fire(*record);
  }
  if (const auto shown = FShownBySerial.find(record->Serial); shown != FShownBySerial.end()) {
    FShown.erase(shown->second);
    FShownBySerial.erase(shown);
  }
  TNcAlarmRecord ended = *record;
  ended.Time = pending.Time;
  FRemoved.Fire(ended);
}

std::size_t TNcAlarmManager::DrainOnce() {
  AskSources();
  std::size_t fired = 0;
  for (;; ++fired) {
    TPending pending;
    {
      TGuard guard(FLock);
      FFiring = !FPending.empty();
      if (!FFiring) return fired;
      pending = std::move(FPending.front());
      FPending.pop_front();
    }
    Apply(pending);
  }
}

bool TNcAlarmManager::HasPending() const {
  TGuard guard(FLock);
  return FFiring || !FPending.empty();
}

void TNcAlarmManager::Start() {
  if (FThread.joinable()) return;
  FStop = std::make_unique<TStop>();
  FThread = std::thread([this] {
    pthread_setname_np(pthread_self(), "ixo-alarms");
    do {
      try {
        DrainOnce();
      } catch (...) {  // no memory for an event: the permissions that it changed stand
        LogThrown("alarm events", std::current_exception());
      }
    } while (!Clock().Pause(*FStop, kPollMs));
  });
}

void TNcAlarmManager::Stop() {
  if (!FThread.joinable()) return;
  FStop->Ask();
  FThread.join();
}

// --- TNcSimpleAlarmSource ---

TNcSimpleAlarmSource::TNcSimpleAlarmSource(std::string prefix, std::vector<TRow> rows) : FPrefix(std::move(prefix)) {
  for (TRow& row : rows) {
    if ((row.Attrs & ~TNcAlarmAttrs{naShownOnly}) != 0) row.OnDelayMs = row.OffDelayMs = 0;
    const std::int32_t id = row.Id;
    FConditions[id].Row = std::move(row);
  }
}

void TNcSimpleAlarmSource::Set(std::int32_t id, bool active, std::string_view desc) {
  TGuard guard(FLock);
  const auto found = FConditions.find(id);
  if (found == FConditions.end()) return ReportFault(FPrefix + " has no alarm " + std::to_string(id));
  TCondition& condition = found->second;
  if (active) condition.Desc = desc;
  if (condition.Active == active) return;
  condition.Active = active;
  condition.Pulse = condition.Pulse || active;
  condition.SinceMs = Clock().MonotonicMs();
}

void TNcSimpleAlarmSource::RegisterAlarms(INcAlarmTable20& table) {
  TGuard guard(FLock);
  for (const auto& [id, condition] : FConditions) table.RegisterAlarm(id, condition.Row.Attrs);
}

void TNcSimpleAlarmSource::UpdateAlarms(INcAlarmReport20& report) {
  enum class TWord { Raise, Clear };
  std::vector<std::pair<std::int32_t, TWord>> words;  // said without the lock: the report asks for descriptions
  {
    TGuard guard(FLock);
    const std::uint64_t now = Clock().MonotonicMs();
    for (auto& [id, condition] : FConditions) {
      // A condition that came and went between two reports is told, unless it has to last.
      const bool pulse = std::exchange(condition.Pulse, false);
      if (pulse && !condition.Active && !condition.Reported && condition.Row.OnDelayMs == 0) {
        words.insert(words.end(), {{id, TWord::Raise}, {id, TWord::Clear}});
        continue;
      }
      const std::uint64_t lasted = now - condition.SinceMs;
      if (condition.Active != condition.Reported &&
          lasted >= (condition.Active ? condition.Row.OnDelayMs : condition.Row.OffDelayMs))
        condition.Reported = condition.Active;
      words.emplace_back(id, condition.Reported ? TWord::Raise : TWord::Clear);
    }
  }
  for (const auto& [id, word] : words) word == TWord::Raise ? report.RaiseAlarm(id) : report.ClearAlarm(id);
}

void TNcSimpleAlarmSource::ResetAlarm(std::int32_t id) { Set(id, false); }

std::string TNcSimpleAlarmSource::GetAlarmDesc(std::int32_t id) {
  TGuard guard(FLock);
  const auto found = FConditions.find(id);
  if (found == FConditions.end()) return {};
  return found->second.Desc.empty() ? found->second.Row.Desc : found->second.Desc;
}

}  // namespace ixocamglue
