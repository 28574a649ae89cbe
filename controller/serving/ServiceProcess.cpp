#include "controller/serving/ServiceProcess.h"

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

void TServiceProcess::Look() {
  if (TReloadSignal::Take()) FAsked->store(true);
  if (!FAsked->load() || FService.Status()->Running) return;
  FAsked->store(false);
  FNotify.Reloading();
  if (FReread) FReread();
  FService.Post([&service = FService, asked = FAsked] {
    if (!service.AtRest()) return asked->store(true);  // a procedure has begun meanwhile
    TMachineConfig* const config = MachineConfig();
    if (!config || config->File().empty()) return;
    try {
      TLiveConfig(*config, service.Options().Controller.Machines).Reread();
      LogMsg(lkInfo, 0, Tr("the machine file was read again"), "TServiceProcess");
    } catch (const EProblem& problem) {
      LogMsg(lkError, 0, problem.Problem.Text(), "TServiceProcess");
    }
  });
  FNotify.Ready();
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
