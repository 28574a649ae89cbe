#include "ixocamglue/alarms/Ualarmclient.h"

#include <pthread.h>

#include "ixocamglue/alarms/Almintprt.h"
#include "ixocamglue/alarms/Ualarmmanager.h"
#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/support/Faults.h"

namespace ixocamglue {
namespace {

void LogFailure(const char* what) {
  LogMsg(lkException, 0, std::string(what) + ": " + DescribeException(std::current_exception()), "TAlarmClient");
}

}  // namespace

// --- TAlarmThread ---

void TAlarmThread::Start() {
  FSign.emplace("ixo-alarmclient", tkLog);
  FThread = std::thread([this] {
    pthread_setname_np(pthread_self(), "ixo-alarmclient");
    Execute();
  });
}

void TAlarmThread::Stop() {
  FStop.Ask();
  if (FThread.joinable()) FThread.join();
}

void TAlarmThread::Execute() {
  do {
    Beat();
    if (!FClient.RunPass()) {
      (void)Clock().Pause(FStop, kPassMs);
      FSign->Park();
      return;
    }
  } while (!Clock().Pause(FStop, kPassMs));
}

// --- TAlarmClient ---

TAlarmClient::TAlarmClient(TAlarmManager& manager, bool ownThread) : FManager(manager), FThread(*this) {
  FManager.RegisterClient(this, true);
  if (ownThread) FThread.Start();
}

TAlarmClient::~TAlarmClient() { Stop(); }

bool TAlarmClient::RunPass() {
  if (FThread.Terminated()) return true;
  if (!FManager.Running()) return false;
  TNcAlarmMsg msg;
  for (int written = 0; !FThread.Terminated() && FManager.Pop(this, msg);) {
    Write(msg);
    FThread.Beat();
    if (++written % kCommitEvery == 0) Commit();
  }
  Commit();
  return true;
}

void TAlarmClient::Write(const TNcAlarmMsg& msg) {
  try {
    switch (msg.Action) {
      case naaAdded: return AddToDAO(msg);
      case naaRemoved: return RemoveFromDAO(msg);
      case naaAcknowledged: return;
    }
  } catch (...) {
    LogFailure("an alarm could not be handed to the store");
  }
}

void TAlarmClient::Commit() {
  try {
    if (const TStore store = Store()) store->Commit();
  } catch (...) {
    LogFailure("the alarm store could not commit");
  }
}

TAlarmClient::TStore TAlarmClient::Store() {
  TAppSys* const app = AppSys();
  return app ? app->Supports<IAlarmSvcIntf>(IID_IAlarmSvcIntf) : nullptr;
}

void TAlarmClient::AddToDAO(const TNcAlarmMsg& msg) {
  const TStore store = Store();
  if (!store) return;
  if (const auto item = MakeItem(msg)) store->AddAlarmItem(item);
}

void TAlarmClient::RemoveFromDAO(const TNcAlarmMsg& msg) {
  const TStore store = Store();
  if (!store) return;
  if (const auto item = MakeItem(msg)) store->RemoveAlarmItem(item);
}

std::shared_ptr<IAlarmItem> TAlarmClient::MakeItem(const TNcAlarmMsg& msg) {
  const auto factory = AppSys()->Supports<IAlarmFactory>(IID_IAlarmFactory);
  if (!factory) return nullptr;
  auto item = factory->CreateAlarmItem();
  if (!item) return nullptr;
  TAlarmRec rec;
  bool known = false;
  try {
    if (TAlarmInterpreter* const interpreter = AlarmInterpreter()) known = interpreter->TryGetAlarmRec(msg, rec);
  } catch (...) {  // the identifier says as much
  }
  item->SetAlarmId(msg.Id());
  item->SetCode(known ? rec.Code : msg.Id());
  item->SetDesc(msg.Desc());
  item->SetTime(msg.Time);
  item->SetFinal(false);
  item->SetLevel(msg.Level);
  item->SetSerial(msg.Word);
  if (known) item->SetDefinition(rec.Category, rec.Alarmtype, rec.Reason, rec.Solution);
  return item;
}

}  // namespace ixocamglue
