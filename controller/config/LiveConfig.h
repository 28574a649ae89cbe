// The machine file of a controller that runs: shown as it stands on the disk, changed in the controller's own records
// and saved by them. The controller's interface thread; changes only while no procedure runs.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "controller/config/MachineFile.h"
#include "ixocamglue/platform/Machine.h"
#include "ixocamglue/platform/xml/MachineConfig.h"

namespace ixocontroller {

class TLiveConfig {
 public:
  // The configuration that the machine runs with, and the machines that its file may name. Both outlive this.
  TLiveConfig(TMachineConfig& config, const std::vector<TMachineFactory>& machines)
      : FConfig(config), FMachines(machines) {}

  // Empty: the controller runs without one.
  [[nodiscard]] const std::filesystem::path& File() const { return FConfig.File(); }
  // Changes with each save of the file, whoever saves it.
  [[nodiscard]] TResult<std::string> Version() const { return VersionOf(File()); }
  // Any thread; waits for the disk.
  [[nodiscard]] static TResult<std::string> VersionOf(const std::filesystem::path& file);
  // Throws EProblem (pbUnusable).
  void Load(TMachineFile& into) const { into.Load(File(), xdPlaces); }

  struct TSet {
    TPropertyView View;  // with the new value
    std::string Before;
    std::vector<TConfigFinding> Wrong;  // by force
    bool Now = false;                   // in force at once; else from the next start on
    std::string Unsure;                 // what could not be made sure of; mostly empty
  };
  // As TMachineFile::Set; then the value is the controller's, and in its file. When it cannot be saved nothing is
  // changed. Throws EProblem.
  TSet Set(const std::string& path, const std::string& value, bool force);
  // As TXmlConfig::Restore; the values of the version that is back are the controller's. Throws EProblem.
  std::string Restore();
  // Takes over what somebody else has written into the file. A file that cannot be read changes nothing: EProblem.
  void Reread();

 private:
  // Whether the controller has a record of it, and reads the file again for nothing else.
  [[nodiscard]] bool HasRecord(std::string_view path) const;

  TMachineConfig& FConfig;
  const std::vector<TMachineFactory>& FMachines;
};

}  // namespace ixocontroller
