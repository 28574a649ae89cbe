#include "controller/recordings/LiveRecording.h"

#include "ixocamglue/monitor/Statusmonitorsys.h"

namespace ixocontroller {

std::vector<std::string> MotorNames() {
  std::vector<std::string> motors;
  const TStatusMonitorSys status;
  status.GetMotorNames(motors, status.GetMotorCount() - 1);
  return motors;
}

TLiveRecording::TLiveRecording(const std::filesystem::path& file, const std::vector<TMonitorSignalKey>& signals,
                               const std::vector<std::string>& motors)
    : FSignals(signals.size()), FSink(file.string()), FWriter(FSink, motors), FRecorder(FWriter, signals) {}

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
