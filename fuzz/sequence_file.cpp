// Any bytes as a file of motion commands: it is refused by an EProblem, or all that it asks for is known.
#include "controller/procedures/SequenceFile.h"
#include "fuzz/InputFile.h"
#include "ixocamglue/support/Problem.h"

using namespace ixocontroller;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto file = fuzz::InputFile(data, size);
  try {
    for (const TMotionCall& call : ReadSequenceFile(file, TMachineLimits{}).Calls)
      if (!call.Row || call.Values.size() != call.Row->Params.size()) std::abort();
  } catch (const EProblem& e) {
    if (*e.what() == '\0') std::abort();
  }
  return 0;
}
