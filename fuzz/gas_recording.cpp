// Any bytes as the recording of a calibration: refused with its place, or judged; what is written reads back and is
// judged the same.
#include "controller/gasvalve/GasVerdict.h"
#include "fuzz/InputFile.h"
#include "ixocamglue/support/Problem.h"

using namespace ixocontroller;

namespace {

std::string Judged(const TGasRecording& recording) {
  std::string text;
  for (const TRecordedGas& gas : recording.Gases)
    for (const TGasFinding& finding : JudgeGas(gas)) text += finding.Kind + (": " + finding.Sentence + "\n");
  return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string file = fuzz::InputFile(data, size).string();
  TGasRecording recording;
  try {
    recording = ReadGasRecording(file);
  } catch (const EProblem&) {
    return 0;
  }
  const std::string judged = Judged(recording);
  WriteGasRecording(file, recording);
  if (Judged(ReadGasRecording(file)) != judged) std::abort();
  return 0;
}
