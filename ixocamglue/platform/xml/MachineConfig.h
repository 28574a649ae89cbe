// The machine configuration: one XML file of sections.
//
// Two ways in. TConfigSection reads any value of the loaded file by name: section, child and value names are found
// without regard to case, an exact spelling first; a value is an attribute, or else the text of a child element.
// Reading never fails: a missing value gives the default; a text that is no number gives the default too and is logged
// with file, place and text. The records (platform sections below, the assist sections of config/) hold what the
// program edits and saves. Loaded before any thread starts; reading by TConfigSection is then safe from any thread and
// gives the values of the load, whatever has been saved since.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ixocamglue/platform/xml/MachineSections.h"
#include "ixocamglue/platform/xml/XmlConfig.h"
#include "ixocamglue/support/Installed.h"

namespace ixocamglue {

// A section of the loaded file, or a missing one, which has no values. Valid until the next load.
class TConfigSection {
 public:
  TConfigSection() = default;
  TConfigSection(pugi::xml_node_struct* node, std::string path) : FNode(node), FPath(std::move(path)) {}

  [[nodiscard]] bool Exists() const { return FNode != nullptr; }
  [[nodiscard]] const std::string& Path() const { return FPath; }                   // "Gas/Branch[2]"
  [[nodiscard]] TConfigSection Child(std::string_view name) const;                  // the first of this name
  [[nodiscard]] std::vector<TConfigSection> Children(std::string_view name) const;  // in document order

  [[nodiscard]] bool GetBool(std::string_view name, bool defValue) const;
  [[nodiscard]] std::int32_t GetInt(std::string_view name, std::int32_t defValue) const;
  [[nodiscard]] double GetFloat(std::string_view name, double defValue) const;  // in the file's unit
  [[nodiscard]] std::string GetText(std::string_view name, std::string_view defValue) const;
  // Gives the record its defaults and what the section says. Texts that are no value of their property are logged.
  void Load(TXmlSubConfig& record) const;
  // Gives the record what the section says, over what it holds; nothing is logged.
  void LoadOver(TXmlSubConfig& record) const;

 private:
  pugi::xml_node_struct* FNode = nullptr;
  std::string FPath;
};

class TMachineConfig : public TXmlConfig {
 public:
  TMachineConfig();
  ~TMachineConfig() override;

  [[nodiscard]] TConfigSection Root() const;
  [[nodiscard]] TConfigSection Section(std::string_view name) const { return Root().Child(name); }

  // The platform's records; they live as long as the configuration.
  [[nodiscard]] TAxesConfig& Axes() { return *FAxes; }
  [[nodiscard]] TGantryConfig& Gantry() { return *FGantry; }
  [[nodiscard]] TGasListConfig& GasList() { return *FGasList; }
  [[nodiscard]] TGasBranchesConfig& GasBranches() { return *FGasBranches; }
  // Null for a gas type without a branch.
  [[nodiscard]] TGasBranchConfig* GetGasBranch(std::int32_t gasType) { return FGasBranches->GetGasBranch(gasType); }
  [[nodiscard]] TSlavesConfig& Slaves() { return *FSlaves; }
  [[nodiscard]] TModelConfig& CutHead() { return *FCutHead; }
  [[nodiscard]] TModelConfig& HeightController() { return *FHeightController; }
  [[nodiscard]] TNcParamsConfig& NcParams() { return *FNcParams; }
  [[nodiscard]] TSwitchTableConfig& SwitchTable() { return *FSwitchTable; }

 private:
  TAxesConfig* FAxes = nullptr;
  TGantryConfig* FGantry = nullptr;
  TGasListConfig* FGasList = nullptr;
  TGasBranchesConfig* FGasBranches = nullptr;
  TSlavesConfig* FSlaves = nullptr;
  TModelConfig* FCutHead = nullptr;
  TModelConfig* FHeightController = nullptr;
  TNcParamsConfig* FNcParams = nullptr;
  TSwitchTableConfig* FSwitchTable = nullptr;
};

IXO_DECLARE_SERVICE(TMachineConfig, MachineConfig);

// MachineConfig()->Section(name), or a missing section where there is no configuration.
[[nodiscard]] TConfigSection ConfigSection(std::string_view name);

// The voltage that gives this pressure by the branch's calibrated table, as GetVolt says for one outside it; none where
// the branch has none that is in use.
// Whoever changes the table does so between two calls.
[[nodiscard]] std::optional<double> TableVolt(std::int32_t gasType, double bar);

// The NC string library's gas list: names and, under the same index, values as texts. The "GasList" section; without
// one, the gas branches. Empty without a configuration.
void GetGasStrValues(std::vector<std::string>& names, std::vector<std::string>& values);

}  // namespace ixocamglue
