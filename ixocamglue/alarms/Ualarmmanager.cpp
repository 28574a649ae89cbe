#include "ixocamglue/alarms/Ualarmmanager.h"

#include <algorithm>
#include <utility>

#include "ixocamglue/alarms/Ualarmtexts.h"
#include "ixocamglue/platform/ports/Alarmintf.h"
#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/support/Faults.h"
#include "ixocamglue/support/Format.h"

namespace ixocamglue {
namespace {

// The application's message types of a raise and of a clear, and their colours (0x00BBGGRR).
constexpr std::int32_t kRaiseKind = 7;
constexpr std::int32_t kClearKind = 4;
constexpr std::int32_t kRaiseColour = 0;
constexpr std::int32_t kClearColour = 65280;
constexpr const char* kSource = "TAlarmManager";

class TReadBracket {
 public:
  explicit TReadBracket(TNcAlarmManager& manager) : FManager(manager) { FManager.BeginRead(); }
  ~TReadBracket() { FManager.EndRead(); }
  TReadBracket(const TReadBracket&) = delete;
  TReadBracket& operator=(const TReadBracket&) = delete;

 private:
  TNcAlarmManager& FManager;
};

}  // namespace

TAlarmManager::TAlarmManager(TGetNcAlarmManager provider, TAlarmLimits limits)
    : FProvider(std::move(provider)), FLimits(limits) {
  if (TDiag d{dlEntry}) d("TAlarmManager.Create");
  for (std::size_t level = 0; level < kAlarmLevels; ++level) {
    FFifos.push_back(std::make_unique<TIxoAlarmFifos>());
    FFifos.back()->SetHistoryCap(FLimits.HistoryCap);
  }
  FRunning.store(true, std::memory_order_release);
}

TAlarmManager::~TAlarmManager() {
  if (TDiag d{dlEntry}) d("TAlarmManager.Destroy");
  FRunning.store(false, std::memory_order_release);
  if (FSubscribedTo && FProvider() == FSubscribedTo) {
    FSubscribedTo->AlarmAdded().Unsubscribe(FAddedHandle);
    FSubscribedTo->AlarmRemoved().Unsubscribe(FRemovedHandle);
  }
  if (FClient) FClient->Stop();
  while (!FFifos.empty()) FFifos.pop_back();
  FClient.reset();
  if (TDiag d{dlEntry}) d("TAlarmManager.Destroy inherited");
}

void TAlarmManager::Initialize() {
  if (TDiag d{dlEntry}) d("TAlarmManager.Initialize");
  RemoveResidualAlarmRecord();
  TNcAlarmManager* const nc = FProvider();
  if (!nc) return;
  const TReadBracket bracket(*nc);
  FSubscribedTo = nc;
  FAddedHandle = nc->AlarmAdded().Subscribe([this](const TNcAlarmRecord& rec) { NcAlarmAdded(rec); });
  FRemovedHandle = nc->AlarmRemoved().Subscribe([this](const TNcAlarmRecord& rec) { NcAlarmRemoved(rec); });
  for (std::int32_t i = 0; i < nc->GetAlarmCount(); ++i) NcAlarmAdded(nc->GetAlarm(i).SnapShot());
  FClient = std::make_unique<TAlarmClient>(*this, FLimits.ClientThread);
}

void TAlarmManager::RegisterClient(TAlarmConsumer client, bool replay) {
  if (TDiag d{dlEntry}) d("TAlarmManager.RegisterClient");
  for (const auto& fifos : FFifos) fifos->RegisterClient(client, replay);
}

void TAlarmManager::RemoveClient(TAlarmConsumer client) {
  for (const auto& fifos : FFifos) fifos->RemoveClient(client);
}

bool TAlarmManager::Pop(TAlarmConsumer client, TNcAlarmMsg& msg) {
  return std::any_of(FFifos.rbegin(), FFifos.rend(), [&](const auto& fifos) { return fifos->Pop(client, msg); });
}

std::string TAlarmManager::GetAllAlarmsDescPreview() {
  std::string text;
  for (auto fifos = FFifos.rbegin(); fifos != FFifos.rend(); ++fifos) {
    const std::string part = (*fifos)->GetAlarmsDescPreview();
    text += (text.empty() || part.empty() ? "" : ", ") + part;
  }
  return text;
}

std::vector<TNcAlarmMsg> TAlarmManager::GetRemovedAlarms() {
  TGuard guard(FLock);
  std::vector<TNcAlarmMsg> messages;
  FRemovedAlarms.ForEach(0, [&](const TNcAlarmMsg& msg) { messages.push_back(msg); });
  return messages;
}

void TAlarmManager::NcAlarmAdded(const TNcAlarmRecord& rec) {
  LogLine(kRaiseKind, kRaiseColour, SAlarmPrompt, rec.Desc);
  TNcAlarmMsg msg;
  msg.InitAlarmMsg(rec);
  const std::size_t level = IndexOf(msg.Level);
  if (level > GetHighestLevel()) FHighest.store(static_cast<TAlarmLv>(level), std::memory_order_release);
  FCounters[level].fetch_add(1, std::memory_order_acq_rel);
  msg.Action = naaAdded;
  msg.Removed = 0;
  AddToFifo(msg);
  TGuard guard(FLock);
  FRemovedAlarms.DeleteFirst(0, msg.Id());  // Kept: the oldest entry here, the newest in the fifos' removed lists
}

void TAlarmManager::NcAlarmRemoved(const TNcAlarmRecord& rec) {
  LogLine(kClearKind, kClearColour, SAlarmRemove, rec.Desc);
  TNcAlarmMsg msg;
  msg.InitAlarmMsg(rec);
  std::atomic<std::int32_t>& counter = FCounters[IndexOf(msg.Level)];
  if (counter.load(std::memory_order_acquire) > 0) counter.fetch_sub(1, std::memory_order_acq_rel);
  TAlarmLv highest = GetHighestLevel();
  while (highest != 0 && GetActiveCount(highest) == 0) --highest;
  FHighest.store(highest, std::memory_order_release);
  msg.Action = naaRemoved;
  msg.Removed = 1;
  RemoveFromFifo(msg);
  TGuard guard(FLock);
  FRemovedAlarms.Append(0, msg);
}

void TAlarmManager::PushMsg(const TNcAlarmMsg& msg) {
  const std::size_t level = IndexOf(msg.Level);
  const TIxoAlarmFifos::TSizes sizes = FFifos[level]->Push(msg);
  ReportSize("queue", sizes.Queue, FLimits.QueueThreshold, FReported[level].Queue);
  ReportSize("history", sizes.History, FLimits.HistoryThreshold, FReported[level].History);
}

void TAlarmManager::ReportSize(const char* what, std::size_t size, std::size_t threshold, std::atomic<bool>& reported) {
  if (threshold == 0) return;
  if (size < threshold) {
    if (size < threshold / 2) reported.store(false);
  } else if (!reported.exchange(true)) {
    LogMsg(lkWarning, 0, Format("an alarm %s has grown to %zu messages (threshold %zu)", what, size, threshold),
           kSource);
  }
}

void TAlarmManager::LogLine(std::int32_t kind, std::int32_t colour, const TText& prefix, const std::string& desc) {
  if (FLimits.LogLinesPerSecond != 0) {
    const std::uint64_t second = Clock().MonotonicMs() / 1000;
    if (std::exchange(FLogSecond, second) != second) {
      FLogLines = 0;
      if (const std::uint32_t leftOut = std::exchange(FLogLeftOut, 0); leftOut != 0)
        LogMsg(lkWarning, 0, Format("%u lines of alarms were left out here; the alarms themselves were not", leftOut),
               kSource);
    }
    if (++FLogLines > FLimits.LogLinesPerSecond) {
      ++FLogLeftOut;
      return;
    }
  }
  if (AppSys()) LogMsg(kind, colour, prefix.Get() + desc, kSource);
}

void TAlarmManager::Acknowledge(std::string_view identifier, TDateTime time) {
  TNcAlarmMsg msg;
  msg.Action = naaAcknowledged;
  msg.Texts = TNcAlarmTexts(identifier, {});
  msg.Time = time;
  msg.Level = FFifos.back()->IsActive(identifier) ? static_cast<TAlarmLv>(kAlarmLevels - 1) : TAlarmLv{0};
  PushMsg(msg);
}

bool TAlarmManager::RemoveResidualAlarmRecord() {
  try {
    TAppSys* const app = AppSys();
    if (const auto store = app ? app->Supports<IAlarmSvcIntf>(IID_IAlarmSvcIntf) : nullptr)
      store->DeleteResidualAlarms();
  } catch (...) {
    LogMsg(lkException, 0, "the store's residual alarms: " + DescribeException(std::current_exception()), kSource);
  }
  return true;
}

namespace {

std::atomic<TAlarmManager*> GManager{nullptr};
TCriticalSection GManagerLock;  // around the decision to create
bool GMayCreateManager = false;
TAlarmLimits GAlarmLimits;

TNcAlarmManager* InstalledNcAlarmManager() { return dynamic_cast<TNcAlarmManager*>(NcAlarms()); }

}  // namespace

TAlarmManager* AlarmManager() {
  if (TAlarmManager* const made = GManager.load(std::memory_order_acquire)) return made;
  TAlarmManager* made = nullptr;
  {
    TGuard guard(GManagerLock);
    if (!GMayCreateManager) return GManager.load(std::memory_order_acquire);
    made = std::make_unique<TAlarmManager>(InstalledNcAlarmManager, GAlarmLimits).release();
    GManager.store(made, std::memory_order_release);
    GMayCreateManager = false;
  }
  try {
    made->Initialize();
  } catch (...) {
    LogMsg(lkException, 0, DescribeException(std::current_exception()), kSource);
  }
  return made;
}

void SetAlarmLimits(const TAlarmLimits& limits) {
  TGuard guard(GManagerLock);
  GAlarmLimits = limits;
}

void StartAlarmManager() {
  {
    TGuard guard(GManagerLock);
    GMayCreateManager = true;
  }
  if (!InstalledNcAlarmManager()) return;
  try {
    AlarmManager();
  } catch (...) {  // no memory for a manager: the next call tries again
    LogMsg(lkException, 0, DescribeException(std::current_exception()), kSource);
  }
}

void FreeAlarmManager() {
  TAlarmManager* made = nullptr;
  {
    TGuard guard(GManagerLock);
    GMayCreateManager = false;
    made = GManager.exchange(nullptr, std::memory_order_acq_rel);
  }
  delete made;
}

}  // namespace ixocamglue
