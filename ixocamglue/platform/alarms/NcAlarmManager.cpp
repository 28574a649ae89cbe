#include "ixocamglue/platform/alarms/NcAlarmManager.h"

#include <algorithm>
#include <pthread.h>
#include <utility>

#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/platform/services/ThreadTable.h"
#include "ixocamglue/platform/services/UtcTime.h"
#include "ixocamglue/support/Faults.h"

namespace ixocamglue {
namespace {

void LogThrown(const char* where, const std::exception_ptr& error) {
  LogMsg(lkException, 0, std::string(where) + ": " + DescribeException(error), "NcAlarms");
}

}  // namespace

// --- sources ---

// One source: what it has registered, and what it has raised.
class TNcAlarmManager::TSource final : public INcAlarmTable20, public INcAlarmReport20 {
 public:
  TSource(TNcAlarmManager& manager, INcAlarmSource20& source)
      : FManager(manager), FSource(source), FPrefix(source.GetAlarmIDPrefix()) {
    source.RegisterAlarms(*this);
  }

  void RegisterAlarm(std::int32_t id, TNcAlarmAttrs attributes) override { FRows[id].Attrs = attributes; }
  void RaiseAlarm(std::int32_t id) override {
    const auto [row, isNew] = FRows.try_emplace(id);
    auto& [attrs, raised] = row->second;
    if (isNew) {
      attrs = naShownOnly;
      ReportFault("an alarm is raised that its source has not registered: " + FPrefix + "#" + std::to_string(id));
    }
    if (raised != 0 && FManager.Stands(raised)) return;
    raised = FManager.Raise({.IdPrefix = FPrefix, .Desc = FSource.GetAlarmDesc(id), .Id = id, .Attrs = attrs});
  }
  void ClearAlarm(std::int32_t id) override {
    const auto row = FRows.find(id);
    if (row == FRows.end() || row->second.Raised == 0) return;
    (void)FManager.ClearSerial(std::exchange(row->second.Raised, 0));
  }

  [[nodiscard]] INcAlarmSource20* Source() const { return &FSource; }
  void Update() {
    try {
      FSource.UpdateAlarms(*this);
    } catch (...) {
      LogThrown(FPrefix.c_str(), std::current_exception());
    }
  }
  void Reset() {
    for (const auto& [id, row] : FRows)
      if (row.Raised != 0) FSource.ResetAlarm(id);
  }
  void AddTo(std::vector<TNcAlarmRecord>& records) const {
    for (const auto& [id, row] : FRows)
      records.push_back({.IdPrefix = FPrefix, .Desc = {}, .Id = id, .Attrs = row.Attrs});
  }
  void ClearAll() {
    for (const auto& [id, row] : FRows)
      if (row.Raised != 0) (void)FManager.ClearSerial(row.Raised);
  }

 private:
  struct TRow {
    TNcAlarmAttrs Attrs = 0;
    std::uint64_t Raised = 0;  // the serial of the raise; 0: not raised
  };

  TNcAlarmManager& FManager;
  INcAlarmSource20& FSource;
  const std::string FPrefix;
  std::map<std::int32_t, TRow> FRows;
};

void TNcAlarmManager::AddSource(INcAlarmSource20& source) {
  auto made = std::make_unique<TSource>(*this, source);
  TGuard guard(FSourcesLock);
  FSources.push_back(std::move(made));
}

void TNcAlarmManager::RemoveSource(INcAlarmSource20& source) {
  TGuard guard(FSourcesLock);
  const auto found = std::ranges::find(FSources, &source, &TSource::Source);
  if (found == FSources.end()) return;
  (*found)->ClearAll();
  FSources.erase(found);
}

std::vector<TNcAlarmRecord> TNcAlarmManager::Registered() {
  std::vector<TNcAlarmRecord> records;
  TGuard guard(FSourcesLock);
  for (const auto& source : FSources) source->AddTo(records);
  return records;
}

void TNcAlarmManager::ResetAlarms() {
  TGuard guard(FSourcesLock);
  for (const auto& source : FSources) {
    source->Reset();
    source->Update();
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
  record.Time = UtcNow();
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
  FPending.push_back({record, true, UtcNow()});
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

std::size_t TNcAlarmManager::Count() const {
  TGuard guard(FLock);
  return FStanding.size();
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
  {
    TGuard guard(FSourcesLock);
    for (const auto& source : FSources) source->Update();
  }
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
    constexpr const char* kName = "ixo-alarms";
    pthread_setname_np(pthread_self(), kName);
    TThreadSign sign(kName, tkOther);
    do {
      sign.Beat();
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

}  // namespace ixocamglue
