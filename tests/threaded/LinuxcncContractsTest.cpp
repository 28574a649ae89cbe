// The promises of the ports on a LinuxCNC that runs: tests/linuxcnc/contracts.py starts it, and this in its namespaces.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <signal.h>
#include <string>

#include <gtest/gtest.h>

#include "fixture/Faults.h"
#include "fixture/TempDir.h"
#include "machines/composed/Machine.h"
#include "machines/linuxcnc/Driver.h"
#include "verify/PortContracts.h"

namespace ixocamglue::test {
namespace {

// Of the one process in these namespaces that is called so.
pid_t PidOf(const std::string& name) {
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    std::string comm;
    if (std::getline(std::ifstream(entry.path() / "comm"), comm) && comm == name)
      return static_cast<pid_t>(std::stoi(entry.path().filename()));
  }
  throw std::runtime_error("no process is called " + name);
}

TEST(LinuxcncContracts, OfTheMachineThatRunsAreKept) {
  const char* const state = std::getenv("XDG_STATE_HOME");
  if (!std::getenv("LINUXCNC_FOLDER") || !state) GTEST_SKIP() << "beside a LinuxCNC only: scripts/linuxcnc";
  TTempDir dir;
  const auto file = dir.Path() / "machine.xml";
  std::filesystem::copy_file(std::filesystem::path(state) / "ixocut" / "machine.xml", file);
  ixoverify::TContractRig rig;
  rig.Options.Machines = {ComposedMachine({LinuxcncDriver()})};
  rig.Options.MachineFile = file;
  rig.Options.Realtime = true;
  rig.Cut = [] { kill(PidOf("ixocut-hal"), SIGSTOP); };
  rig.Heal = [] { kill(PidOf("ixocut-hal"), SIGCONT); };
  rig.CallMs = 60;
  auto violations = ixoverify::CheckPortContracts(rig);
  if (!violations.empty()) violations = ixoverify::CheckPortContracts(rig);  // somebody else may have had the processor
  for (const auto& violation : violations) ADD_FAILURE() << violation.Port << ": " << violation.Text;
}

}  // namespace
}  // namespace ixocamglue::test
