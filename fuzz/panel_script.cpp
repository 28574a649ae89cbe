// Any bytes as a panel script: refused with file and line, or a list of steps.
#include "controller/panel/PanelScript.h"
#include "fuzz/InputFile.h"
#include "ixocamglue/support/Problem.h"

using namespace ixocontroller;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto file = ixocamglue::fuzz::InputFile(data, size);
  try {
    int before = 0;
    for (const TScriptLine& line : ReadScript(file)) {
      if (line.Words.empty() || line.Number <= before) std::abort();
      before = line.Number;
    }
  } catch (const ixocamglue::EProblem& e) {
    if (!std::string_view(e.what()).starts_with(file.string() + ":")) std::abort();
  }
  return 0;
}
