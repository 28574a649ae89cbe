#include "controller/AlarmPackage.h"

#include <algorithm>
#include <utility>

#include "ixocamglue/alarms/Ualarmmanager.h"
#include "ixocamglue/alarms/store/AlarmStore.h"
#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/platform/services/UtcTime.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

// The alarms of the store; what they mean stands in the alarm definitions.
constexpr const char* kPrefix = "TPAlarmStore";
enum TStoreAlarm : std::int32_t { saLost = 1, saFailed = 2, saHeld = 3, saMadeAgain = 4 };

constexpr std::uint64_t kDrainMs = 2000;
constexpr std::size_t kMostTold = 50;        // of what is not stored, one by one
constexpr std::size_t kMostReplayed = 1000;  // messages of a level, to who registers late: a process runs for months

}  // namespace

TAlarmPackage::TAlarmPackage(TNcStateFramework& framework, IMachineObserver& journal, TVirtualClock* clock)
    : FJournal(journal),
      FClock(clock),
      FStoreAlarms(kPrefix, {{saFailed, naShownOnly, ""}, {saHeld, naShownOnly, ""}}) {
  FManager.OnRaised([&framework](const TNcAlarmRecord& record) { framework.PostAlarm(record); });
  if (FClock) FTimer = FClock->Every(TNcAlarmManager::kPollMs, [this](std::uint64_t) { DrainOnce(); });
}

void TAlarmPackage::OpenStore(const std::filesystem::path& file, int retentionDays, TStoreTold told) {
  FStoreFile = file;
  FTold = std::move(told);
  TAlarmStoreOptions options;
  options.RetentionDays = retentionDays;
  options.OnFailed = [this](const TProblem& why, bool held) { StoreFailed(why, held); };
  options.OnWritten = [this] {
    for (const std::int32_t id : {saFailed, saHeld}) FStoreAlarms.Set(id, false);
  };
  options.OnMadeAgain = [this] {
    const char* const what =
        Tr("the alarm store was deleted while the program runs; it is made again with the alarms that stand");
    StoreSays(saMadeAgain, what);
    if (FTold) FTold({.What = what, .Where = FStoreFile.string(), .Why = {}, .Remedy = {}});
  };
  options.OnLost = [this](std::uint64_t) {
    StoreSays(saLost, Tr("too many alarms wait for the alarm store; the oldest are lost"));
  };
  FStore = std::make_shared<TAlarmStore>(file, std::move(options));
  AppSys()->Register(IID_IAlarmSvcIntf, std::static_pointer_cast<IAlarmSvcIntf>(FStore));
  AppSys()->Register(IID_IAlarmFactory, std::static_pointer_cast<IAlarmFactory>(FStore));
  FManager.AddSource(FStoreAlarms);
  (void)FStore->Open();  // what fails is told
  SetAlarmLimits({.ClientThread = FClock == nullptr, .HistoryCap = kMostReplayed});
  (void)AlarmManager();
}

void TAlarmPackage::StoreFailed(const TProblem& why, bool held) {
  FStoreAlarms.Set(held ? saHeld : saFailed, true, why.Text());
  if (!FTold) return;
  if (held)
    FTold({.What = Tr("another program writes this alarm store; alarms are not stored"),
           .Where = FStoreFile.string(),
           .Why = why.What,
           .Remedy = Tr("end that program, or name another store")});
  else
    FTold({.What = Tr("alarms cannot be stored; they are kept and tried again every second"),
           .Where = FStoreFile.string(),
           .Why = why.Why.empty() ? why.What : why.What + ": " + why.Why,
           .Remedy = Tr("make room on the disk, or end the program that holds the file")});
}

// An alarm that tells of something that has happened: it stands until the next start.
void TAlarmPackage::StoreSays(std::int32_t id, std::string desc) {
  (void)FManager.Clear(Format("%s#%d", kPrefix, id));
  FManager.Raise({.IdPrefix = kPrefix, .Desc = std::move(desc), .Id = id, .Attrs = naShownOnly});
}

void TAlarmPackage::DrainOnce() {
  FManager.DrainOnce();
  if (TAlarmManager* const manager = FStore ? AlarmManager() : nullptr) manager->RunClient();
}

// Until the client has taken over what was raised.
void TAlarmPackage::Drain() {
  TAlarmManager* const manager = AlarmManager();
  if (!manager) return;
  DrainOnce();
  for (const std::uint64_t end = Clock().MonotonicMs() + kDrainMs; Clock().MonotonicMs() < end; Clock().Sleep(1))
    if (manager->GetAlarmFifos(0).Sizes().Queue + manager->GetAlarmFifos(1).Sizes().Queue == 0) return;
}

std::optional<TProblem> TAlarmPackage::Close() {
  if (FClock) std::exchange(FClock, nullptr)->Remove(FTimer);
  FManager.Stop();
  if (FStore) Drain();
  FreeAlarmManager();
  if (!FStore) return std::nullopt;
  FManager.RemoveSource(FStoreAlarms);
  AppSys()->Unregister(IID_IAlarmSvcIntf);
  AppSys()->Unregister(IID_IAlarmFactory);
  FStore->Close();  // while the alarms can still be looked up
  std::optional<TProblem> problem = TellUnstored();
  FStore.reset();
  return problem;
}

std::optional<TProblem> TAlarmPackage::TellUnstored() {
  const std::vector<TAlarmOp> unstored = FStore->Unstored();
  const std::uint64_t count = unstored.size() + FStore->Lost();
  if (count == 0) return std::nullopt;
  for (std::size_t i = 0; FTold && i < std::min(unstored.size(), kMostTold); ++i) {
    const TAlarmOp& op = unstored[i];
    const char* const what = op.Kind == TAlarmOp::TKind::Raise   ? Tr("not stored: raised %s")
                             : op.Kind == TAlarmOp::TKind::Clear ? Tr("not stored: cleared %s")
                                                                 : Tr("not stored: acknowledged %s");
    FTold({.What = Format(what, op.Id.c_str()), .Where = FormatLocal(op.Time), .Why = op.Desc, .Remedy = {}});
  }
  const TProblem trouble = FStore->Trouble();
  return TProblem{
      .What = Format(Tr("%llu entries of alarms are not in the alarm store"), static_cast<unsigned long long>(count)),
      .Where = FStoreFile.string(),
      .Why = trouble.What,
      .Remedy = trouble.Remedy};
}

void TAlarmPackage::Raise(TNcAlarmRecord record) {
  FJournal.Happened(Clock().MonotonicMs(), "alarm",
                    Format("%s %d: %s", record.IdPrefix.c_str(), record.Id, record.Desc.c_str()));
  const std::uint64_t serial = FManager.Raise(std::move(record));
  TGuard guard(FLock);
  FRaised.push_back(serial);
}

void TAlarmPackage::ClearRaised() {
  std::vector<std::uint64_t> raised;
  {
    TGuard guard(FLock);
    raised.swap(FRaised);
  }
  for (const std::uint64_t serial : raised) (void)FManager.ClearSerial(serial);
  FJournal.Happened(Clock().MonotonicMs(), "alarm", "all cleared");
}

bool TAlarmPackage::Settled() const {
  if (FManager.HasPending()) return false;
  TAlarmManager* const manager = FStore ? AlarmManager() : nullptr;
  if (!manager) return true;
  const std::size_t queued = manager->GetAlarmFifos(0).Sizes().Queue + manager->GetAlarmFifos(1).Sizes().Queue;
  return queued == 0 && (FStore->Waiting() == 0 || FStore->Failing());
}

}  // namespace ixocontroller
