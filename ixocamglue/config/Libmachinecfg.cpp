#include "ixocamglue/config/Libmachinecfg.h"

#include <algorithm>
#include <iterator>

#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/platform/xml/MachineConfig.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/ValueText.h"

namespace ixocamglue {
namespace {

struct TGasType {
  std::string_view Text;
  std::int32_t Value;
  const TText& Shown;
};
constexpr TGasType kGasTypes[] = {
    {"Air", 1, SGasAir},    {"O2", 2, SGasO2},    {"N2", 3, SGasN2},
    {"H-Air", 4, SGasHAir}, {"H-O2", 5, SGasHO2}, {"H-N2", 6, SGasHN2},
};

struct THeadType {
  std::string_view Model;
  std::uint8_t Type;
};
constexpr THeadType kHeadTypes[] = {
    {"Precitec", 0}, {"HighYag", 1}, {"Procutter", 2}, {"ZEM400", 3}, {"AxisK", 4}, {"IPGCut", 5},
};
constexpr std::uint8_t kBusHead = 6;
constexpr std::uint8_t kOtherHead = 7;
constexpr std::uint32_t kBusHeadIdentity = 0xE0000044;
constexpr std::int32_t kBusHeadProduct = 43;

struct TCaption {
  std::string_view Model, Caption;
};
constexpr TCaption kCaptions[] = {
    {"Precitec", "ProCutter"}, {"HighYag", "HighYag"}, {"Procutter", "ProCutter-Zoom"},
    {"AxisK", "AxisK"},        {"IPGCut", "IPGCut"},
};

const TGasType* FindGas(std::string_view text) {
  const auto* const it = std::ranges::find(kGasTypes, text, &TGasType::Text);
  return it == std::end(kGasTypes) ? nullptr : it;
}

std::unique_ptr<TGasTypeDic>& Dic() {
  static std::unique_ptr<TGasTypeDic> dic;
  return dic;
}

}  // namespace

std::int32_t GetGasTypeFromStr(std::string_view text) {
  const TGasType* const gas = FindGas(text);
  return gas ? gas->Value : -1;
}

const char* GasTypeName(std::int32_t gasType) {
  const auto* const it = std::ranges::find(kGasTypes, gasType, &TGasType::Value);
  return it == std::end(kGasTypes) ? "?" : it->Text.data();  // of a literal
}

std::int32_t AskedGasType(std::string_view text) {
  const auto number = ParseExactly<std::int32_t>(text);
  const auto* const it = std::ranges::find_if(
      kGasTypes, [&](const TGasType& gas) { return SameFolded(gas.Text, text) || gas.Value == number; });
  return it == std::end(kGasTypes) ? -1 : it->Value;
}

std::string PortName(const char* kind, std::int32_t number) {
  if (const TMachineConfig* const config = MachineConfig())
    for (const TConfigSection& port : config->Section("Ports").Children(kind))
      if (port.GetInt("Number", -1) == number) return port.GetText("Name", "");
  return {};
}

void TGasTypeDic::Reset() {
  std::vector<std::string> names;
  std::vector<std::string> values;
  GetGasStrValues(names, values);
  TMachineConfig* const config = MachineConfig();
  auto items = std::make_shared<TItems>();
  for (std::size_t i = 0; i < values.size(); ++i) {
    const auto value = ParseNumber<std::int32_t>(values[i]);
    if (!value) {
      LogMsg(lkWarning, 0, Format("Gas \"%s\": the value \"%s\" is no number", names[i].c_str(), values[i].c_str()));
      continue;
    }
    const TGasBranchConfig* const branch = config ? config->GetGasBranch(*value) : nullptr;
    const TGasType* const gas = FindGas(names[i]);
    items->push_back(
        {*value, names[i], gas ? std::string(gas->Shown.Get()) : names[i], branch ? branch->GetDAPort() : -1});
  }
  TGuard guard(FLock);
  FItems = std::move(items);
}

std::shared_ptr<const TGasTypeDic::TItems> TGasTypeDic::Items() const {
  TGuard guard(FLock);
  return FItems;
}

std::int32_t TGasTypeDic::IndexOfValue(std::int32_t value) const {
  const auto items = Items();
  const auto it = std::ranges::find(*items, value, &TGasParam::Value);
  return it == items->end() ? -1 : static_cast<std::int32_t>(it - items->begin());
}

std::int32_t TGasTypeDic::IndexOfValue(std::string_view value) const {
  const auto number = ParseNumber<std::int32_t>(value);
  return number ? IndexOfValue(*number) : -1;
}

bool TGasTypeDic::CheckGasBranch(std::int32_t value) const { return IndexOfValue(value) >= 0; }

std::int32_t TGasTypeDic::FirstGasBranch() const {
  const auto items = Items();
  return items->empty() ? -1 : items->front().Value;
}

std::int32_t TGasTypeDic::ValidateGasType(std::int32_t value) const {
  return CheckGasBranch(value) ? value : FirstGasBranch();
}
std::int32_t TGasTypeDic::FilterGasType(std::int32_t value) const { return CheckGasBranch(value) ? value : 0; }
std::int32_t TGasTypeDic::ValidateGasIndex(std::int32_t value) const { return std::max(IndexOfValue(value), 0); }
std::int32_t TGasTypeDic::FilterGasIndex(std::int32_t value) const {
  const std::int32_t index = IndexOfValue(value);
  return index >= 0 ? index : IndexOfValue(-1);
}

std::int32_t TGasTypeDic::GetCount() const { return static_cast<std::int32_t>(Items()->size()); }

namespace {

template <class Items>
auto* At(const Items& items, std::int32_t index) {
  return index >= 0 && static_cast<std::size_t>(index) < items.size() ? &items[static_cast<std::size_t>(index)]
                                                                      : nullptr;
}

}  // namespace

std::int32_t TGasTypeDic::GetValue(std::int32_t index) const {
  const auto items = Items();
  const TGasParam* const gas = At(*items, index);
  return gas ? gas->Value : -1;
}
std::string TGasTypeDic::GetDesc(std::int32_t index) const {
  const auto items = Items();
  const TGasParam* const gas = At(*items, index);
  return gas ? gas->Desc : std::string();
}
std::int32_t TGasTypeDic::GetDAPort(std::int32_t index) const {
  const auto items = Items();
  const TGasParam* const gas = At(*items, index);
  return gas ? gas->DAPort : -1;
}

TGasTypeDic* GasTypeDic() { return Dic().get(); }

std::uint8_t GetCutHeadType() {
  TMachineConfig* const config = MachineConfig();
  if (!config) return kOtherHead;
  for (std::int32_t number = 1; number <= config->Slaves().GetCount(); ++number) {
    const TSlaveConfig& slave = *config->Slaves().GetSlave(number);
    if (slave.GetIdentity() == kBusHeadIdentity && slave.ProductNo == kBusHeadProduct) return kBusHead;
  }
  const auto* const head = std::ranges::find(kHeadTypes, std::string_view(config->CutHead().Model), &THeadType::Model);
  return head == std::end(kHeadTypes) ? kOtherHead : head->Type;
}

// Kept: without regard to case, unlike GetCutHeadType.
bool CutHeadIsProcutter() {
  TMachineConfig* const config = MachineConfig();
  return config && SameFolded(config->CutHead().Model, "Procutter");
}

bool CutHeadIsZEM400() {
  TMachineConfig* const config = MachineConfig();
  if (!config) return false;
  const std::string& model = config->HeightController().Model;
  return model == "ZEM400" || model == "ZEM401";
}

std::string GetZemHeadName() {
  TMachineConfig* const config = MachineConfig();
  if (!config) return {};
  for (const auto& slave : config->Slaves().Items)
    if (!slave->HeadDesc.empty()) return slave->HeadDesc;
  return {};
}

std::string GetFocusModelCaption(std::string_view model) {
  if (model == "ZEM400") {
    const std::string name = CutHeadIsZEM400() ? GetZemHeadName() : std::string();
    return name.empty() ? "ZEM400" : "ZEM400(" + name + ")";
  }
  const auto* const caption = std::ranges::find(kCaptions, model, &TCaption::Model);
  return std::string(caption == std::end(kCaptions) ? model : caption->Caption);
}

double GetMachineMaxSpeed() {
  TMachineConfig* const config = MachineConfig();
  return config ? config->NcParams().GetMaxMoveSpeed() : 0.0;
}

void StartMachineQueries() {
  Dic() = std::make_unique<TGasTypeDic>();
  Dic()->Reset();
}
void FreeMachineQueries() { Dic().reset(); }

}  // namespace ixocamglue
