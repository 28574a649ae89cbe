#include "controller/serving/ServiceProcess.h"

#include <exception>
#include <utility>

#include "controller/config/LiveConfig.h"
#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/platform/xml/MachineConfig.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {

TServiceProcess::TServiceProcess(TService& service, std::function<void()> reread)
    : FService(service),
      FReread(std::move(reread)),
      FNotify(TNotifyOptions::FromEnvironment(), BeatsOf(service.Controller()),
              [&service] { return StatusLine(*service.Status()); }),
      FNotifications(service.Events(), service.Options().StateFolder) {}

namespace {

void RereadMachineFile(const TService& service) {
  TMachineConfig* const config = MachineConfig();
  if (!config || config->File().empty()) return;
  try {
    TLiveConfig(*config, service.Options().Controller.Machines).Reread();
    LogMsg(lkInfo, 0, Tr("the machine file was read again"), "TServiceProcess");
  } catch (const std::exception& error) {
    LogMsg(lkError, 0, error.what(), "TServiceProcess");
  }
}

}  // namespace

// What was read is in force before the manager is told so.
void TServiceProcess::Look() {
  if (TReloadSignal::Take()) FAsked = true;
  switch (FReads->load()) {
    case TReread::None: break;
    case TReread::Reads: return;
    case TReread::Done: FNotify.Ready(); break;
    case TReread::Refused: FAsked = true;  // a procedure has begun meanwhile
  }
  FReads->store(TReread::None);
  if (!FAsked || FService.Status()->Running) return;
  FAsked = false;
  FNotify.Reloading();
  if (FReread) FReread();
  FReads->store(TReread::Reads);
  FService.Post([&service = FService, reads = FReads] {
    const bool rests = service.AtRest().Ok();
    if (rests) RereadMachineFile(service);
    reads->store(rests ? TReread::Done : TReread::Refused);
  });
}

std::string StatusLine(const TStatus& status) {
  std::string line = StateWord(status.State);
  if (!status.Procedure.empty())
    line = Format("%s, %.0f s", status.Procedure.c_str(), static_cast<double>(status.RunMs) / 1000.0);
  if (status.AllOff) line += std::string(", ") + Tr("all off");
  if (status.Alarms > 0) line += ", " + Format(Tr("%d alarms"), static_cast<int>(status.Alarms));
  return line;
}

}  // namespace ixocontroller
