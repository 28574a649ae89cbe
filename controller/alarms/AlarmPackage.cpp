#include "controller/alarms/AlarmPackage.h"

#include <utility>

#include "ixocamglue/alarms/Ualarmmanager.h"
#include "ixocamglue/alarms/store/AlarmStore.h"
#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/support/Format.h"

namespace ixocontroller {

TAlarmPackage::TAlarmPackage(TNcStateFramework& framework, IMachineObserver& journal, TVirtualClock* clock)
    : FJournal(journal), FClock(clock) {
  FManager.OnRaised([&framework](const TNcAlarmRecord& record) { framework.PostAlarm(record); });
  if (FClock) FTimer = FClock->Every(TNcAlarmManager::kPollMs, [this](std::uint64_t) { FManager.DrainOnce(); });
}

TResult<> TAlarmPackage::OpenStore(const std::filesystem::path& file, int retentionDays) {
  TAlarmStoreOptions options;
  options.RetentionDays = retentionDays;
  options.OnLost = [this](std::uint64_t) {
    FManager.Raise({.IdPrefix = "TPAlarmStore",
                    .Desc = "the alarm store cannot be written; the oldest alarms are lost",
                    .Id = 1,
                    .Attrs = naShownOnly});
  };
  auto store = std::make_shared<TAlarmStore>(file, std::move(options));
  if (TResult<> opened = store->Open(); !opened) return opened;
  FStore = std::move(store);
  AppSys()->Register(IID_IAlarmSvcIntf, std::static_pointer_cast<IAlarmSvcIntf>(FStore));
  AppSys()->Register(IID_IAlarmFactory, std::static_pointer_cast<IAlarmFactory>(FStore));
  (void)AlarmManager();
  return {};
}

void TAlarmPackage::Close() {
  if (FClock) std::exchange(FClock, nullptr)->Remove(FTimer);
  FManager.Stop();
  FreeAlarmManager();
  if (!FStore) return;
  AppSys()->Unregister(IID_IAlarmSvcIntf);
  AppSys()->Unregister(IID_IAlarmFactory);
  FStore.reset();  // writes what waits, while the alarms can still be looked up
}

void TAlarmPackage::Raise(TNcAlarmRecord record) {
  FJournal.Happened(Clock().MonotonicMs(), "alarm",
                    Format("%s %d: %s", record.IdPrefix.c_str(), record.Id, record.Desc.c_str()));
  FManager.Raise(std::move(record));
}

void TAlarmPackage::ClearAll() {
  FManager.ClearAll();
  FJournal.Happened(Clock().MonotonicMs(), "alarm", "all cleared");
}

bool TAlarmPackage::Settled() const {
  if (FManager.HasPending()) return false;
  TAlarmManager* const manager = FStore ? AlarmManager() : nullptr;
  if (!manager) return true;
  const std::size_t queued = manager->GetAlarmFifos(0).Sizes().Queue + manager->GetAlarmFifos(1).Sizes().Queue;
  return queued == 0 && FStore->Waiting() == 0;
}

}  // namespace ixocontroller
