// `ixocut machine arm` and `ixocut machine home`: what only a person orders a machine's drivers to do.
#include <algorithm>

#include "ixocamglue/platform/xml/MachineConfig.h"
#include "ixocut/Command.h"
#include "ixocut/Machines.h"
#include "ixocut/machine/MachineCommand.h"

namespace ixocut {
namespace {

using TOrder = std::function<TResult<>(const TConfigSection&)> TDriverFactory::*;

// Of each driver that the file has a section for, and that has such an order.
int RunOrder(const TControllerSettings& settings, TOrder order, TConsole& console) {
  TMachineConfig config;
  config.Load(settings.MachineFile()).OrThrow(pbUnusable);
  const TConfigSection root = config.Root();
  bool done = false;
  for (const TDriverFactory& driver : Drivers()) {
    if (!(driver.*order)) continue;
    const bool used = std::ranges::any_of(
        driver.Sections, [&](const TMachineSection& section) { return root.Child(section.Name).Exists(); });
    if (!used) continue;
    (driver.*order)(root).OrThrow(pbRefused);
    console.Say(Format(Tr("%s: done"), driver.Name.c_str()));
    done = true;
  }
  if (!done)
    throw EProblem(pbRequest, {.What = Tr("no driver of this machine file takes such an order"),
                               .Where = settings.MachineFile().string()});
  return kExitSuccess;
}

}  // namespace

void AddMachineOrderCommands(TCommand machine) {
  const auto add = [&](const char* name, const char* about, const char* notes, TOrder order, const char* example) {
    auto [command, settings] = AddOwn<TControllerSettings>(
        machine, name, about,
        [order](const TControllerSettings& own, TConsole& console) { return RunOrder(own, order, console); });
    AddControllerSettings(command, settings);
    command.Help({.Notes = notes,
                  .ExitCodes = Tr("0 success, 1 refused, 2 wrong command line, 3 a file cannot be used"),
                  .Examples = {example}});
  };
  add("arm", Tr("Release the emergency stop and switch the machine on"),
      Tr("Nothing else ever does: neither a start nor a connection that is back. It homes and moves nothing. A "
         "controller\n"
         "that runs on the machine loses its command for the moment; it takes it again by itself when nothing runs."),
      &TDriverFactory::Arm, "ixocut machine arm --machine share/machines/linuxcnc.xml");
  add("home", Tr("Home all axes"), Tr("The axes move. Stand clear, and have the emergency stop in reach."),
      &TDriverFactory::Home, "ixocut machine home --machine share/machines/linuxcnc.xml");
}

}  // namespace ixocut
