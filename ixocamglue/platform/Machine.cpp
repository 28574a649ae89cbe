#include "ixocamglue/platform/Machine.h"

#include <algorithm>

#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/platform/states/NcState.h"
#include "ixocamglue/platform/xml/MachineConfig.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Lists.h"
#include "ixocamglue/support/Texts.h"

namespace ixocamglue {

std::string TSignal::Text() const {
  const char* const onOff = On ? "on" : "off";
  switch (Kind) {
    case sgState: return Format("state %d", Number);
    case sgEmission: return Format("emission %s", onOff);
    case sgLaser: return Format("laser %s", onOff);
    case sgAiming: return Format("aiming %s", onOff);
    case sgGas: return On ? Format("gas on %d %.2f", Number, Value) : "gas off";
    case sgGasVolt: return Format("da %d %.2f", Number, Value);
    case sgOutput: return Format("output %d %s", Number, onOff);
  }
  return {};
}

TMachineSnapshot IMachine::Snapshot() {
  TMachineSnapshot now;
  now.Ms = Clock().MonotonicMs();
  if (const TNcWatch* const watch = NcWatch()) {
    now.Laser = watch->LaserOn.Runs();
    now.Emission = watch->EmissionOn.Runs();
    now.Gas = watch->GasOn.Runs();
  }
  if (TNcLaser* const laser = FittedLaser())
    if (const char* const reason = laser->LatchReason()) {
      now.LatchTripped = true;
      now.LatchReason = reason;
    }
  if (const TNcStateFramework* const states = NcStates()) now.State = states->CurrentState();
  return now;
}

TResult<const TMachineFactory*> FindMachine(const TMachineConfig& config, std::span<const TMachineFactory> machines) {
  const std::string driver = config.Section("Machine").GetText("Driver", "");
  const auto factory = driver.empty() ? machines.begin() : std::ranges::find(machines, driver, &TMachineFactory::Name);
  if (factory != machines.end()) return &*factory;
  const std::string known = Joined(machines, &TMachineFactory::Name);
  return TProblem{.What = Format(Tr("\"%s\" is no machine driver; there are: %s"), driver.c_str(), known.c_str()),
                  .Where = config.File().string() + ": Machine/Driver"};
}

TMachineLimits TMachineFactory::LimitsOf(const TConfigSection& root, std::vector<TProblem>& problems) const {
  if (Limits) return Limits(root, problems);
  TMachineLimits any;
  any.Bounds.Read(root, problems);
  return any;
}

TResult<TMachineLimits> LimitsOf(const TMachineConfig& config, std::span<const TMachineFactory> machines) {
  auto factory = FindMachine(config, machines);
  if (!factory) return factory.Problem();
  std::vector<TProblem> problems;
  TMachineLimits limits = (*factory)->LimitsOf(config.Root(), problems);
  if (problems.empty()) return limits;
  return TProblem{.What = config.File().string() + ": " + problems.front().Text()};
}

}  // namespace ixocamglue
