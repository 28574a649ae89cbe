#include "controller/service/GasDesk.h"

#include <cmath>
#include <utility>

#include "controller/gas/GasReport.h"
#include "controller/process/RealTime.h"
#include "controller/texts/GasTexts.h"
#include "controller/texts/HostTexts.h"
#include "ixocamglue/config/Libmachinecfg.h"
#include "ixocamglue/platform/services/LocaleManager.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

using TJson = nlohmann::ordered_json;

constexpr std::uint64_t kTellEveryMs = 200;  // real time
constexpr std::int32_t kGasTypes = 6;

TJson BranchJson(std::int32_t gas, const TGasBranchConfig& branch, const TZemGasAdjustModel& model) {
  return {{"gas", GasName(gas)},
          {"type", gas},
          {"text", Retold(ShownGas(gas))},
          {"calibratable", model.CheckGasValid(gas)},
          {"analogPort", branch.GetDAPort()},
          {"maxPressureBar", branch.GetMaxPressure()},
          {"table",
           {{"inUse", branch.DAAdjustEnabled},
            {"maxBar", model.GetMaxPress(gas)},
            {"points", JsonOf(DotsOf(branch.DAAdjustTable))}}}};
}

}  // namespace

const TJson& TGasDesk::Branches() {
  const TZemGasAdjustModel& model = *GZemGasAdjustModel();
  if (model.AjdustIsBusy()) {  // as they were, in the language of who asks now
    for (TJson& branch : FBranches) branch["text"] = Retold(ShownGas(branch["type"].get<std::int32_t>()));
    return FBranches;
  }
  FBranches = TJson::array();
  for (std::int32_t gas = 1; gas <= kGasTypes; ++gas)
    if (const TGasBranchConfig* const branch = MachineConfig()->GetGasBranch(gas))
      FBranches.push_back(BranchJson(gas, *branch, model));
  return FBranches;
}

// --- the run ---

class TGasDesk::TRun final : public IRunJob {
 public:
  TRun(TGasDesk& desk, TGasOrder order)
      : FDesk(desk), FJob(desk.FController, std::move(order), [this](std::uint64_t ms, const std::string& text) {
          Tell("message", {{"ms", ms}, {"text", text}, {"lang", LanguageNow()}});
        }) {}

  TResult<> Start() override {
    (void)FDesk.Branches();
    return FJob.Start();
  }

  bool Pass(std::uint64_t run, std::uint64_t nowMs) override {
    const TLanguageScope own("");
    FRun = run;
    if (!FJob.Round(nowMs)) return false;
    TellProgress();
    return true;
  }

  TJson Finish(std::uint64_t run, TRunReport& report) override {
    const TLanguageScope own("");
    FRun = run;
    FJob.Conclude();
    report.DurationMs = FJob.LastedMs();
    report.Problem = FJob.Problem();
    if (!report.Problem) {
      report.End = {"success", SEndSuccess.Get()};
      report.Cause.clear();  // of a stop that came behind it
    } else if (std::string_view(report.End.Name) != "stopped") {
      report.End = {"error", report.Problem->Text()};
    }
    FDesk.FLast = TLast{run, FJob.Json(), FJob.Calibration().Recording()};
    return FDesk.FLast->Result;
  }

 private:
  static std::string LanguageNow() {
    const TLocaleManager* const locale = LocaleManager();
    return locale ? locale->Language() : std::string();
  }
  void Tell(const char* event, TJson more) {
    FDesk.FEvents.Add(evRun, [event, run = FRun, more = std::move(more)] {
      TJson json{{"event", event}, {"id", run}};
      json.update(more);
      return json;
    });
  }
  void TellProgress() {
    const std::uint64_t now = RealMs();
    const TGasCalibration::TNow at = FJob.Now();
    if (at.Gas == 0 || now < FToldMs + kTellEveryMs) return;
    FToldMs = now;
    Tell("progress", {{"percent", FJob.Progress()},
                      {"gas", GasName(at.Gas)},
                      {"volt", at.Volt},
                      {"bar", at.Press},
                      {"descending", FJob.Descending()}});
  }

  TGasDesk& FDesk;
  std::uint64_t FRun = 0;
  std::uint64_t FToldMs = 0;
  TGasJob FJob;
};

std::shared_ptr<IRunJob> TGasDesk::MakeRun(TGasOrder order) {
  const TLanguageScope own("");  // what it says is kept, and read by others
  return std::make_shared<TRun>(*this, std::move(order));
}

}  // namespace ixocontroller
