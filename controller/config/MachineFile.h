// A machine file with every section that is known, for who checks, shows, compares or edits it: commands, and a
// controller that runs beside it. Such a configuration is looked at for itself: it sets none of the globals of the one
// that a machine runs with. No locks; see XmlSubConfig.h.
#pragma once

#include <filesystem>
#include <initializer_list>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "controller/config/ConfigCheck.h"
#include "controller/config/ConfigView.h"
#include "ixocamglue/config/Uassistconfig.h"
#include "ixocamglue/panel/Kbpkeys.h"
#include "ixocamglue/platform/Machine.h"
#include "ixocamglue/platform/alarms/AlarmsConfig.h"
#include "ixocamglue/platform/xml/JogSections.h"
#include "ixocamglue/platform/xml/MachineConfig.h"

namespace ixocontroller {

// What a machine's own configuration has beside a TMachineConfig and its assist sections: what it reads at its start,
// and what it keeps records of its own for. Nothing fails but a load.
class TWholeConfig final : public TMachineConfig {
 public:
  // With the sections of each machine that has some; of one name the first.
  explicit TWholeConfig(std::span<const TMachineFactory> machines);
  ~TWholeConfig() override { Die(); }
  void Publish(TPublisher& p) override;

  // Those sections alone, with the values that this configuration has; its own, for SaveAlone of the configuration
  // that a machine runs with.
  [[nodiscard]] TXmlSubConfig& StartSections() { return FStart; }
  [[nodiscard]] const TJogRecord& Jog() const { return FJog; }

 private:
  class TStart final : public TXmlSubConfig {
   public:
    explicit TStart(TWholeConfig& whole) : FWhole(whole) {}
    void Publish(TPublisher& p) override;

   private:
    TWholeConfig& FWhole;
  };
  struct TOwn {
    std::string Name;
    std::unique_ptr<TXmlSubConfig> Record;
  };

  TMachineRecord FMachine;
  std::vector<TOwn> FDrivers;
  TJogRecord FJog;
  TAlarmsRecord* FAlarms = nullptr;
  TKeyDefinitionRecord* FKeys = nullptr;
  TCamSlots FCam;
  TStart FStart{*this};
};

class TMachineFile {
 public:
  // The machines that the file may name.
  explicit TMachineFile(std::vector<TMachineFactory> machines) : FMachines(std::move(machines)), FConfig(FMachines) {}
  TMachineFile(const TMachineFile&) = delete;
  TMachineFile& operator=(const TMachineFile&) = delete;

  // Throws EProblem (pbUnusable) when the file cannot be loaded.
  void Load(const std::filesystem::path& file, TXmlDetail detail = xdValues);
  // Before the load of a file that is to be changed. Throws EProblem: pbRefused when another process keeps it to itself
  // for longer than 2 s, pbUnusable when it cannot be locked.
  void Hold(const std::filesystem::path& file);
  // Does not fail.
  TWholeConfig& Config() { return FConfig; }
  // What is wrong with a file of this content, which has the configuration's values.
  [[nodiscard]] std::vector<TConfigFinding> Findings(const TXmlDocument& document);
  // What would be wrong with the file if it were saved now; the configuration has no document from here on.
  [[nodiscard]] std::vector<TConfigFinding> FindingsWhenSaved();
  // What is wrong in these sections, or with these properties; "" is everything.
  [[nodiscard]] std::vector<TConfigFinding> Wrong(std::initializer_list<std::string_view> sections);
  // Gives one property its value, in memory; the file was loaded with places. Answers what would be wrong then and was
  // not before: that is refused, with EProblem (pbRequest), unless `force`. Refused too are no value of the property
  // and no property.
  std::vector<TConfigFinding> Set(const std::string& path, const std::string& value, bool force);

 private:
  const std::vector<TMachineFactory> FMachines;
  TWholeConfig FConfig;
};

// A property that two files have different values of; the one that has none of it has null. Nothing of it fails.
struct TConfigDifference {
  const TPropertyView* From;
  const TPropertyView* To;

  [[nodiscard]] const std::string& Path() const { return (From ? From : To)->Path; }
};
// In the order of the left ones, then of the right ones. Both outlive the result. Does not fail.
[[nodiscard]] std::vector<TConfigDifference> Differences(const std::vector<TPropertyView>& left,
                                                         const std::vector<TPropertyView>& right);

// The supervisor's values that the file leaves to their defaults. Does not fail.
[[nodiscard]] std::vector<const TSupervisorConfig::TRow*> DefaultedLimits(const TMachineConfig& config);

}  // namespace ixocontroller
