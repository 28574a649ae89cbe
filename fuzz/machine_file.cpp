// Any bytes as a machine file: it is refused, or checked, shown and read as a machine; what is saved reads back the
// same.
#include <sstream>

#include "fuzz/InputFile.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocut/Console.h"
#include "ixocut/Machines.h"
#include "ixocut/config/ConfigCommand.h"

using namespace ixocut;

namespace {

std::string Shown(TMachineFile& machine) {
  std::string text;
  for (const TPropertyView& view : ViewProperties(machine.Config(), false)) text += view.Path + "=" + view.Value + "\n";
  return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto file = fuzz::InputFile(data, size);
  try {
    std::ostringstream out;
    TConsole console(out, "config check");
    (void)RunConfigCheck(file, true, console);
    TMachineFile machine(Machines());
    machine.Load(file);
    const std::string before = Shown(machine);
    (void)machine.Config().Save().OrThrow(pbUnusable);
    machine.Load(file);
    if (Shown(machine) != before) std::abort();
  } catch (const EProblem& e) {
    if (*e.what() == '\0') std::abort();
  }
  return 0;
}
