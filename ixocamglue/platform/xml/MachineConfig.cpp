#include "ixocamglue/platform/xml/MachineConfig.h"

#include <optional>

#include <pugixml.hpp>

#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/support/Format.h"

namespace ixocamglue {
namespace {

TXmlContext& NoContext() {  // reading needs none
  static TXmlContext context;
  return context;
}

// The text of a value, or none.
std::optional<std::string> FindValue(pugi::xml_node_struct* handle, std::string_view name) {
  if (!handle) return std::nullopt;
  const char* folded = nullptr;
  for (const auto& attribute : pugi::xml_node(handle).attributes()) {
    if (attribute.name() == name) return attribute.value();
    if (!folded && SameFolded(attribute.name(), name)) folded = attribute.value();
  }
  if (folded) return folded;
  const TXmlNode child = TXmlNode(handle, &NoContext()).Child(name);
  if (!child) return std::nullopt;
  return child.Text();
}

template <class Value>
Value ReadValue(pugi::xml_node_struct* node, const std::string& path, std::string_view name, Value defValue) {
  const auto text = FindValue(node, name);
  if (!text || TrimXml(*text).empty()) return defValue;
  if (const auto value = ParseValue<Value>(*text)) return *value;
  const auto* config = MachineConfig();
  LogMsg(lkWarning, 0,
         Format("%s: %s/%.*s: \"%s\" cannot be read; the default is used", config ? config->File().c_str() : "",
                path.c_str(), static_cast<int>(name.size()), name.data(), text->c_str()));
  return defValue;
}

}  // namespace

TConfigSection TConfigSection::Child(std::string_view name) const {
  std::string path = FPath.empty() ? std::string(name) : FPath + "/" + std::string(name);
  if (!FNode) return {nullptr, std::move(path)};
  return {TXmlNode(FNode, &NoContext()).Child(name).Handle(), std::move(path)};
}

std::vector<TConfigSection> TConfigSection::Children(std::string_view name) const {
  std::vector<TConfigSection> found;
  if (!FNode) return found;
  for (const auto& child : pugi::xml_node(FNode).children()) {
    if (child.type() != pugi::node_element || !SameFolded(child.name(), name)) continue;
    found.emplace_back(child.internal_object(),
                       Format("%s%s%s[%zu]", FPath.c_str(), FPath.empty() ? "" : "/", child.name(), found.size() + 1));
  }
  return found;
}

bool TConfigSection::GetBool(std::string_view name, bool defValue) const {
  return ReadValue(FNode, FPath, name, defValue);
}

std::int32_t TConfigSection::GetInt(std::string_view name, std::int32_t defValue) const {
  return ReadValue(FNode, FPath, name, defValue);
}

double TConfigSection::GetFloat(std::string_view name, double defValue) const {
  return ReadValue(FNode, FPath, name, defValue);
}

std::string TConfigSection::GetText(std::string_view name, std::string_view defValue) const {
  return FindValue(FNode, name).value_or(std::string(defValue));
}

void TConfigSection::Load(TXmlSubConfig& record) const {
  record.Initialize();
  if (!FNode) return;
  const auto* const config = MachineConfig();
  TXmlContext context{.File = config ? config->File().string() : std::string()};
  record.LoadFromXmlNode({FNode, &context});
}

void TConfigSection::LoadOver(TXmlSubConfig& record) const {
  if (!FNode) return;
  TXmlContext context{.Quiet = true};
  record.LoadFromXmlNode({FNode, &context});
}

TMachineConfig::TMachineConfig() : TXmlConfig("MachineConfig") {
  RestoredBy("ixocut config restore");
  AddSubConfig("Axes", FAxes);
  AddSubConfig("Gantry", FGantry);
  AddSubConfig("GasList", FGasList);
  AddSubConfig("GasBranches", FGasBranches);
  AddSubConfig("Slaves", FSlaves);
  AddSubConfig("CutHead", FCutHead);
  AddSubConfig("HeightController", FHeightController);
  AddSubConfig("NcParams", FNcParams);
  AddSubConfig("SwitchTable", FSwitchTable);
}

// The records go first: their globals are members here.
TMachineConfig::~TMachineConfig() { Die(); }

TConfigSection TMachineConfig::Root() const { return {Document().RootHandle(), ""}; }

TConfigSection ConfigSection(std::string_view name) {
  const TMachineConfig* config = MachineConfig();
  return config ? config->Section(name) : TConfigSection(nullptr, std::string(name));
}

std::optional<double> TableVolt(std::int32_t gasType, double bar) {
  TMachineConfig* const config = MachineConfig();
  const TGasBranchConfig* const gas = config ? config->GetGasBranch(gasType) : nullptr;
  return gas && gas->DAAdjustEnabled ? gas->DAAdjustTable.GetVolt(bar) : std::nullopt;
}

void GetGasStrValues(std::vector<std::string>& names, std::vector<std::string>& values) {
  names.clear();
  values.clear();
  TMachineConfig* const config = MachineConfig();
  if (!config) return;
  for (const auto& gas : config->GasList().Items) {
    names.push_back(gas->Name);
    values.push_back(gas->Value);
  }
  if (!values.empty()) return;
  for (const auto& branch : config->GasBranches().Items) {
    names.push_back(branch->Name);
    values.push_back(ValueText(branch->GasType));
  }
}

IXO_DEFINE_SERVICE(TMachineConfig, MachineConfig)

}  // namespace ixocamglue
