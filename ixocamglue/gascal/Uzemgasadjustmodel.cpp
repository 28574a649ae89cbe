#include "ixocamglue/gascal/Uzemgasadjustmodel.h"

#include <algorithm>
#include <utility>

#include "ixocamglue/config/Libmachinecfg.h"
#include "ixocamglue/gascal/Ugasadjusttexts.h"
#include "ixocamglue/gascal/Uzemgasadjuststate.h"
#include "ixocamglue/platform/states/NcState.h"
#include "ixocamglue/platform/xml/MachineConfig.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocamglue {
namespace {

constexpr const char* SAdjustPoint = "%.2f(V)---%.4f(Bar)";
constexpr const char* SBackup = "BackupCaliInfo";

std::unique_ptr<TZemGasAdjustModel>& Model() {
  static std::unique_ptr<TZemGasAdjustModel> model;
  return model;
}

TGasBranchConfig* Branch(std::int32_t gasType) {
  TMachineConfig* const config = MachineConfig();
  return config ? config->GetGasBranch(gasType) : nullptr;
}

}  // namespace

std::string AdjustPointText(double volt, double press) { return Format(SAdjustPoint, volt, press); }

std::string GasDesc(std::int32_t gasType) {
  const TGasTypeDic* const gases = GasTypeDic();
  const std::int32_t index = gases ? gases->IndexOfValue(gasType) : -1;
  return index >= 0 ? gases->GetDesc(index) : Format("%d", gasType);
}

bool TZemGasAdjustModel::StartAjdust(std::vector<std::int32_t> gasTypes) {
  TGuard starting(FStarting);
  TNcStateFramework* const states = NcStates();
  if (!states || gasTypes.empty() || AjdustIsBusy()) return false;
  {
    TGuard guard(FLock);
    FGasTypes = std::move(gasTypes);
  }
  Begin();
  return states->RequestState(nsZemGasAdjust, 0).Ok();
}

void TZemGasAdjustModel::StopAjdust() {
  if (TNcStateFramework* const states = NcStates(); states && AjdustIsBusy()) states->Stop();
}

// The framework knows what was withdrawn or refused. Pending first: between the two questions the state may be entered,
// never the other way round.
bool TZemGasAdjustModel::AjdustIsBusy() const {
  const TNcStateFramework* const states = NcStates();
  return states && (states->IsPending(nsZemGasAdjust) || states->CurrentState() == nsZemGasAdjust);
}

bool TZemGasAdjustModel::CheckGasValid(std::int32_t gasType) const {
  const TGasBranchConfig* const branch = Branch(gasType);
  return branch && branch->GetDAPort() > 0;
}

TResult<> TZemGasAdjustModel::LoadGasData(std::int32_t gasType, std::string_view nozzType, double nozzSize) {
  if (AjdustIsBusy())
    return TProblem{.What = Tr("a gas calibration runs"), .Remedy = Tr("load the table when it has ended")};
  const auto refuse = [&](TProblem problem) -> TResult<> {
    AddMsg(problem.Text());
    return problem;
  };
  const std::string gas = GasDesc(gasType);
  const std::string type(nozzType);
  AddMsg(Show(SQAdjLoadDataBegin, gas.c_str()));
  TGasCaliConfig stored;
  if (auto read = stored.Load(GasCaliConfigFile(), mfDefaults); !read) return refuse(read.Problem());
  const TDAAdjustTable* const table = stored.GetDAAdjustTable(gasType, nozzType, nozzSize);
  TGasBranchConfig* const branch = Branch(gasType);
  if (!table || table->GetCount() == 0 || !branch)
    return refuse({.What = Show(SQAdjNoGasData, gas.c_str(), type.c_str(), nozzSize)});
  if (auto usable = stored.CheckTable(gasType, nozzType, nozzSize); !usable) return refuse(usable.Problem());
  const TDAAdjustTable before = branch->DAAdjustTable;
  const bool enabled = std::exchange(branch->DAAdjustEnabled, true);
  CopyTable(*table, branch->DAAdjustTable);
  if (const auto saved = MachineConfig()->Save(); !saved) {
    CopyTable(before, branch->DAAdjustTable);
    branch->DAAdjustEnabled = enabled;
    return refuse(saved.Problem());
  }
  AddMsg(Show(SQAdjLoadDataSucc, gas.c_str()));
  return {};
}

TResult<> TZemGasAdjustModel::BackupCaliInfo(std::int32_t gasType) {
  TGasCaliConfig stored;
  const TGasBranchConfig* const branch = Branch(gasType);
  if (!stored.GetGasConfig(gasType) || !branch || branch->DAAdjustTable.GetCount() == 0) return {};
  std::string nozzType;
  double nozzSize = 0.0;
  {
    TGuard guard(FLock);
    nozzType = FNozzType;
    nozzSize = FNozzSize;
  }
  stored.Open();
  stored.SetDAAdjustTable(gasType, nozzType, nozzSize, branch->DAAdjustTable);
  if (std::string problem; !stored.SaveTables(&problem)) return TProblem{.What = std::move(problem)};
  AddMsg(SBackup);
  for (std::int32_t i = 0; i < branch->DAAdjustTable.GetCount(); ++i) {
    const TDAAdjustItem& item = *branch->DAAdjustTable.GetItem(i);
    AddMsg(AdjustPointText(item.Volt, item.Press));
  }
  return {};
}

double TZemGasAdjustModel::GetMaxPress(std::int32_t gasType) const {
  const TGasBranchConfig* const branch = Branch(gasType);
  double highest = 0.0;
  for (std::int32_t i = 0; branch && i < branch->DAAdjustTable.GetCount(); ++i)
    highest = std::max(highest, branch->DAAdjustTable.GetItem(i)->Press);
  return highest;
}

void TZemGasAdjustModel::AddMsg(std::string text) {
  TGuard guard(FLock);
  FMessages.push_back(std::move(text));
}

void TZemGasAdjustModel::Tell(const TGasAdjustEvent& event) {
  if (FObserver)
    FObserver(event);
  else if (event.Unsaved)
    AddMsg(event.Unsaved->Text());
}

bool TZemGasAdjustModel::GetMsg(std::string& text) {
  TGuard guard(FLock);
  if (FMessages.empty()) return false;
  text = std::move(FMessages.front());
  FMessages.pop_front();
  return true;
}

void TZemGasAdjustModel::SetNozzType(std::string_view nozzType, double nozzSize) {
  TGuard guard(FLock);
  FNozzType = nozzType;
  FNozzSize = nozzSize;
}

std::vector<std::int32_t> TZemGasAdjustModel::GasTypes() const {
  TGuard guard(FLock);
  return FGasTypes;
}

void TZemGasAdjustModel::Progress(double percent) {
  FProgress.store(std::max(GetProgess(), percent), std::memory_order_release);  // one writer
}

TZemGasAdjustModel* GZemGasAdjustModel() { return Model().get(); }

void ZemGasAdjustModel_Create() {
  if (Model()) return;
  Model() = std::make_unique<TZemGasAdjustModel>();
  if (TNcRegistry* const registry = NcRegistry())
    registry->RegisterStateCtrl(nsZemGasAdjust, [](TNcStateFramework& owner) -> std::unique_ptr<TNcStateCtrl> {
      return std::make_unique<TZemGasAdjustState>(owner);
    });
}

void ZemGasAdjustModel_Destroy() {
  if (!Model()) return;
  if (TNcRegistry* const registry = NcRegistry()) registry->UnregisterStateCtrl(nsZemGasAdjust);
  Model().reset();
}

}  // namespace ixocamglue
