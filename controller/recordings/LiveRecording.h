// A recording of a machine that runs into a monitor file. One thread at a time.
#pragma once

#include <cstdint>
#include <exception>
#include <filesystem>
#include <string>
#include <vector>

#include "controller/recordings/Recorder.h"
#include "ixocamglue/monitor/Umonitorsink.h"

namespace ixocontroller {

// What is only asked does not fail.
class TLiveRecording {
 public:
  // Opens the file before anything is sampled; a file of this name is replaced at the end. `motors` are the machine's,
  // as MotorNames gives them. Throws EProblem where the file cannot be written.
  TLiveRecording(const std::filesystem::path& file, const std::vector<TMonitorSignalKey>& signals,
                 const std::vector<std::string>& motors);

  // The machine at `nowMs`. One sample per ms is written: a ms that was missed gets what is seen now. What fails ends
  // the sampling, not the machine, and is kept for Finish.
  void Sample(std::uint64_t nowMs, const TMachineSnapshot& now);
  // Once, last: the file has its name. Throws what failed meanwhile, and EProblem.
  void Finish();

  [[nodiscard]] std::size_t Signals() const { return FSignals; }
  [[nodiscard]] std::uint64_t Samples() const { return FRecorder.Samples(); }
  [[nodiscard]] bool Failed() const { return FFailure != nullptr; }

 private:
  const std::size_t FSignals;
  TMonitorFileSink FSink;
  TMonitorWriter FWriter;
  TRecorder FRecorder;
  std::uint64_t FNextMs = 0;
  std::exception_ptr FFailure;
};

// Of the machine, for the file's header. Where the machine's configuration may be read. Does not fail.
[[nodiscard]] std::vector<std::string> MotorNames();

}  // namespace ixocontroller
