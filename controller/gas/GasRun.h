// A gas calibration on a controller of its own, which is made for it and ends with it; on one that stays up it is a run
// of the service (service/GasDesk.h). The thread that makes it.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "controller/Controller.h"
#include "controller/gas/GasJob.h"
#include "controller/process/SignalStop.h"

namespace ixocontroller {

class TGasRun {
 public:
  // `faults`: of the machine, by name. Throws EProblem for files that cannot be used.
  TGasRun(TControllerOptions options, TGasOrder order, const std::vector<std::string>& faults, TGasJob::TTold told);
  TGasRun(const TGasRun&) = delete;
  TGasRun& operator=(const TGasRun&) = delete;

  // Once, and first: until the machine has acknowledged standby. Throws EProblem when it does not.
  void Ready();
  // Once, behind it: measures to the end and concludes; `look` is called after each pass, in real time every 20 ms. A
  // signal stops it then, and a state thread that hangs does not keep it from ending. Throws EProblem where it cannot
  // be started.
  void Drive(const std::function<void()>& look);

  [[nodiscard]] TController& Controller() { return FController; }  // does not fail
  [[nodiscard]] const TGasJob& Job() const { return FJob; }        // does not fail

 private:
  bool Round(const std::function<void()>& look);

  std::optional<TSignalStop> FSignal;  // real time; until the controller has ended
  TController FController;
  TGasJob FJob;
};

}  // namespace ixocontroller
