// The promises of the ports on a LinuxCNC that runs: tests/linuxcnc/contracts.py starts it, and this in its namespaces.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <signal.h>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "fixture/Contracts.h"
#include "fixture/TempDir.h"
#include "machines/composed/Machine.h"
#include "machines/linuxcnc/Driver.h"
#include "machines/modbus/Driver.h"

namespace ixocamglue::test {
namespace {

constexpr const char* kHal = "ixocut-hal";
constexpr const char* kPlant = "ixocut";  // simulates the device on Modbus, where there is one

// Of the processes in these namespaces that are called so.
std::vector<pid_t> Called(const std::string& name) {
  std::vector<pid_t> pids;
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    std::string comm;
    if (std::getline(std::ifstream(entry.path() / "comm"), comm) && comm == name)
      pids.push_back(static_cast<pid_t>(std::stoi(entry.path().filename())));
  }
  return pids;
}

void SignalDevices(int signal) {
  if (Called(kHal).empty()) throw std::runtime_error("there is no ixocut-hal");
  for (const char* const name : {kHal, kPlant})
    for (const pid_t pid : Called(name)) kill(pid, signal);
}

TEST(LinuxcncContracts, OfTheMachineThatRunsAreKept) {
  const char* const state = std::getenv("XDG_STATE_HOME");
  if (!std::getenv("LINUXCNC_FOLDER") || !state) GTEST_SKIP() << "beside a LinuxCNC only: scripts/linuxcnc";
  TTempDir dir;
  const auto file = dir.Path() / "machine.xml";
  std::filesystem::copy_file(std::filesystem::path(state) / "ixocut" / "machine.xml", file);
  ixoverify::TContractRig rig{.Options = {.Machines = {ComposedMachine({LinuxcncDriver(), ModbusDriver()})},
                                          .MachineFile = file,
                                          .Realtime = true},
                              .Cut = [] { SignalDevices(SIGSTOP); },
                              .Heal = [] { SignalDevices(SIGCONT); },
                              .CallMs = 60};
  if (!Called(kPlant).empty()) rig.AwayMs = 3 * rig.AwayMs;
  ExpectPortContracts(rig);
}

}  // namespace
}  // namespace ixocamglue::test
