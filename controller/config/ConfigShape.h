// The machine configuration with every section that the program reads, for `ixocut config`: beside the sections that
// have records of their own also those that are read by name, as records in the shape of what is read.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "ixocamglue/panel/Kbpkeys.h"
#include "ixocamglue/platform/alarms/AlarmsConfig.h"
#include "ixocamglue/platform/xml/JogSections.h"
#include "ixocamglue/platform/xml/MachineConfig.h"
#include "machines/simulated/Config.h"

namespace ixocontroller {
using namespace ixocamglue;

// What stands in one element: values, elements and lists of elements.
struct TConfigShape {
  std::vector<TSimProperty> Values;  // Path is the name alone
  struct TNamed {
    std::string Name;
    std::shared_ptr<TConfigShape> Shape;
  };
  std::vector<TNamed> Children, Lists;

  // Sorts a property in by its path.
  void Add(std::string_view path, const TSimProperty& property);
};

// A record in a shape, which it shares.
class TShapedRecord final : public TXmlSubConfig {
 public:
  explicit TShapedRecord(std::shared_ptr<const TConfigShape> shape);
  ~TShapedRecord() override;
  void Publish(TPublisher& p) override;

 private:
  class TItems;

  const std::shared_ptr<const TConfigShape> FShape;
  std::vector<decltype(TSimProperty::Default)> FValues;
  std::vector<std::unique_ptr<TShapedRecord>> FChildren;
  std::vector<std::unique_ptr<TItems>> FLists;
};

// To check, show and edit only: the process that runs a machine keeps its own record of the jog and alarm sections.
class TWholeConfig final : public TMachineConfig {
 public:
  TWholeConfig();
  ~TWholeConfig() override;
  void Publish(TPublisher& p) override;

 private:
  TJogRecord FJog;
  TAlarmsRecord* FAlarms = nullptr;
  TKeyDefinitionRecord* FKeys = nullptr;
  std::unique_ptr<TShapedRecord> FOthers;
};

// What the simulated machine asks for at this path ("Axes/Axis[2]/Name"); null: nothing.
[[nodiscard]] const TSimProperty* AskedFor(std::string_view path);
// "1..1000"; empty: no number.
[[nodiscard]] std::string RangeOf(const TSimProperty& property);

}  // namespace ixocontroller
