// The machine configuration: one XML file of sections, read by name.
//
// Section, child and value names are found without regard to case, an exact spelling first. A value is an attribute, or
// else the text of a child element. Reading never fails: a missing value gives the default; a text that is no number
// gives the default too and is logged with file, place and text. Loaded before any thread starts; reading is then safe
// from any thread.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Installed.h"

namespace ixocamglue {

struct TConfigNode;

// A section of the configuration, or a missing one, which has no values. Valid as long as its configuration.
class TConfigSection {
 public:
  TConfigSection() = default;
  TConfigSection(const TConfigNode* node, std::string path) : FNode(node), FPath(std::move(path)) {}

  [[nodiscard]] bool Exists() const { return FNode != nullptr; }
  [[nodiscard]] const std::string& Path() const { return FPath; }                   // "Gas/Branch[2]"
  [[nodiscard]] TConfigSection Child(std::string_view name) const;                  // the first of this name
  [[nodiscard]] std::vector<TConfigSection> Children(std::string_view name) const;  // in document order

  [[nodiscard]] bool GetBool(std::string_view name, bool defValue) const;
  [[nodiscard]] std::int32_t GetInt(std::string_view name, std::int32_t defValue) const;
  [[nodiscard]] double GetFloat(std::string_view name, double defValue) const;
  [[nodiscard]] std::string GetText(std::string_view name, std::string_view defValue) const;

 private:
  const TConfigNode* FNode = nullptr;
  std::string FPath;
};

class TMachineConfig {
 public:
  TMachineConfig();
  ~TMachineConfig();

  // Empty on success, else the reason with file, line and column; the configuration is then empty.
  [[nodiscard]] std::string Load(const std::filesystem::path& file);

  [[nodiscard]] const std::filesystem::path& File() const { return FFile; }
  [[nodiscard]] TConfigSection Root() const;
  [[nodiscard]] TConfigSection Section(std::string_view name) const { return Root().Child(name); }

 private:
  std::filesystem::path FFile;
  std::unique_ptr<TConfigNode> FRoot;
};

IXO_DECLARE_SERVICE(TMachineConfig, MachineConfig);

// MachineConfig()->Section(name), or a missing section where there is no configuration.
[[nodiscard]] TConfigSection ConfigSection(std::string_view name);

}  // namespace ixocamglue
