#include "controller/recordings/LiveRecording.h"

#include <string>

#include "ixocamglue/monitor/Statusmonitorsys.h"

namespace ixocontroller {
namespace {

std::vector<std::string> MotorNames() {
  std::vector<std::string> motors;
  const TStatusMonitorSys status;
  status.GetMotorNames(motors, status.GetMotorCount() - 1);
  return motors;
}

}  // namespace

TLiveRecording::TLiveRecording(const std::filesystem::path& file, std::vector<TMonitorSignalKey> signals)
    : FSignals(signals.size()), FSink(file.string()), FWriter(FSink, MotorNames()), FRecorder(FWriter, signals) {}

void TLiveRecording::Sample(std::uint64_t nowMs, const TMachineSnapshot& now) {
  if (FFailure) return;
  if (FRecorder.Samples() == 0) FNextMs = nowMs;
  try {
    for (; FNextMs <= nowMs; ++FNextMs) FRecorder.Sample(now);
  } catch (...) {
    FFailure = std::current_exception();
  }
}

void TLiveRecording::Finish() {
  if (FFailure) std::rethrow_exception(FFailure);
  FRecorder.Finish();
  FSink.Commit();
}

}  // namespace ixocontroller
