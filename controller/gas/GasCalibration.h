// One gas calibration as the controller runs it: watches it, keeps what was measured, and puts a previous table
// back where the measured points cannot be a valve's curve.
//
// Protections beside the machine state's own. A voltage at which the pressure has not settled for 15 s is answered with
// a stop. The gas's previous table and its backup come back when all measured points lie within 0.1 bar of their mean,
// when fewer than three were measured, when the verdict (GasVerdict.h) is bad and was not to be kept all the same, and
// when a file could not be saved. V, bar, ms. One thread has it, but for Now; the state thread tells it what is
// measured.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "controller/Controller.h"
#include "controller/gasvalve/GasResult.h"
#include "ixocamglue/gascal/Uzemgasadjustmodel.h"

namespace ixocontroller {

inline constexpr std::uint64_t kUnsettledMs = 15'000;

struct TGasNozzle {
  std::string Type;
  double Size = 0.0;  // mm
};

// Start and the results are where a failure shows: whatever ends a calibration ends it for the gases that are left,
// each with the reason in its result.
class TGasCalibration {
 public:
  // The controller outlives it; made, started and ended on one thread, while no calibration runs. `keep`: a bad verdict
  // is stored all the same.
  TGasCalibration(TController& controller, const std::vector<std::int32_t>& gases, TGasNozzle nozzle,
                  bool keep = false);
  ~TGasCalibration();
  TGasCalibration(const TGasCalibration&) = delete;
  TGasCalibration& operator=(const TGasCalibration&) = delete;

  // Refused when the machine is not ready for it.
  [[nodiscard]] TResult<> Start();
  [[nodiscard]] bool Running() const { return FModel.AjdustIsBusy(); }
  void Stop() { FModel.StopAjdust(); }
  // Virtual time: passes until it has ended.
  void RunToEnd();
  // The protection against a pressure that does not settle. In virtual time called by the clock itself; in real time
  // by who waits for the end.
  void Watch(std::uint64_t nowMs);

  // What happens now; any thread.
  struct TNow {
    std::int32_t Gas = 0;
    double Volt = 0.0;
    double Press = 0.0;
  };
  [[nodiscard]] TNow Now() const { return {FGas.load(), FVolt.load(), FPress.load()}; }
  // The oldest line of the message log that was not taken yet.
  bool GetMsg(std::string& text) { return FModel.GetMsg(text); }
  [[nodiscard]] double Progress() const { return FModel.GetProgess(); }

  // After the end, when the state thread is done with it: takes the points measured downwards, and gives every gas its
  // final verdict.
  void Conclude(std::int32_t gas, std::vector<TGasPoint> downwards);
  void Conclude();
  [[nodiscard]] TGasRecording Recording() const;
  [[nodiscard]] const std::vector<TGasResult>& Results() const { return FResults; }
  // All gases went through; otherwise the machine file has not changed.
  [[nodiscard]] bool Completed() const { return FModel.GetProgess() >= 100.0; }
  [[nodiscard]] bool Success() const;
  [[nodiscard]] bool Unsaved() const;  // a file could not be saved

 private:
  struct TPrevious {
    TDAAdjustTable Table;
    bool Enabled = false;
    std::optional<TDAAdjustTable> Backup;
  };

  void KeepPrevious(std::int32_t gas);
  void Observe(const TGasAdjustEvent& event);
  void Judge(const TGasAdjustEvent& event, TGasResult& result);
  void ReadZero(TGasResult& result);
  // The present verdict; false when it is bad and not to be kept.
  [[nodiscard]] bool Good(TGasResult& result);
  void Saved(const TProblem& unsaved);
  void Refuse(TGasResult& result, TGasEnd end, std::string why);
  void PutBackTable(std::int32_t gas);  // into the branch
  void PutBack(std::int32_t gas);       // and into the file of the nozzles' tables
  [[nodiscard]] TGasResult& Result(std::int32_t gas);

  TController& FController;
  TZemGasAdjustModel& FModel;
  const TGasNozzle FNozzle;
  const bool FKeep;
  std::map<std::int32_t, TPrevious> FPrevious;
  std::optional<std::size_t> FTimer;
  std::uint64_t FStartMs = 0;
  // the state thread's until the end
  std::vector<TGasResult> FResults;
  std::uint64_t FGasStartMs = 0;

  static constexpr std::uint64_t kNever = ~std::uint64_t{0};
  std::atomic<std::uint64_t> FVoltAtMs{kNever};
  std::atomic<bool> FUnsettled{false};
  std::atomic<std::int32_t> FGas{0};
  std::atomic<double> FVolt{0.0};
  std::atomic<double> FPress{0.0};
};

}  // namespace ixocontroller
