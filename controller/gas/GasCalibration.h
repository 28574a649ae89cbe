// One gas calibration as the controller runs it: watches it, keeps what was measured, and puts a previous table
// back where the measured points cannot be a valve's curve.
//
// Two protections beside the machine state's own. A voltage at which the pressure has not settled for 15 s is answered
// with a stop. When all measured points lie within 0.1 bar of their mean, or fewer than three were measured, the gas's
// previous table and its backup come back before anything is saved under their name again. V, bar, ms.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "controller/Controller.h"
#include "ixocamglue/gascal/Uzemgasadjustmodel.h"

namespace ixocontroller {

inline constexpr std::uint64_t kUnsettledMs = 15'000;

struct TGasNozzle {
  std::string Type;
  double Size = 0.0;  // mm
};

// What was measured at one voltage.
struct TGasPoint {
  double Volt = 0.0;
  std::uint64_t AtMs = 0;  // when it was put out, from the start of the run
  bool Settled = false;
  bool Foreseen = false;  // Press is where the pressure will end, not where it rests
  double Press = 0.0;
  std::int32_t StableMs = 0, RiseMs = 0;
  std::vector<TDot> Samples;  // ms since the voltage was put out, bar
};

enum class TGasEnd : std::uint8_t {
  Unfinished,  // not begun, or cut off
  Skipped,     // the machine has no such branch, or no output for it
  Failed,      // flat: the state kept the old table
  Restored,    // the old table was put back
  Stored,
};

struct TGasResult {
  std::int32_t Gas = 0;
  TGasEnd End = TGasEnd::Unfinished;
  std::string Why;  // for the operator; empty when stored
  std::uint64_t DurationMs = 0;
  std::vector<TGasPoint> Points;
  std::vector<TDot> Curve;     // final; empty when there is none
  std::optional<double> Knee;  // V; none when the pressure rises up to full scale
  [[nodiscard]] double MaxBar() const;
};

class TGasCalibration {
 public:
  // The controller outlives it. Main thread, before the state's loop runs.
  TGasCalibration(TController& controller, std::vector<std::int32_t> gases, TGasNozzle nozzle);
  ~TGasCalibration();
  TGasCalibration(const TGasCalibration&) = delete;
  TGasCalibration& operator=(const TGasCalibration&) = delete;

  // False, with the reason, when the machine is not ready for it.
  [[nodiscard]] bool Start(std::string& reason);
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

  // After the end, and after the state's thread has ended where there is one.
  [[nodiscard]] const std::vector<TGasResult>& Results() const { return FResults; }
  // All gases went through; otherwise the machine file has not changed.
  [[nodiscard]] bool Completed() const { return FModel.GetProgess() >= 100.0; }
  [[nodiscard]] bool Success() const;

 private:
  struct TPrevious {
    TDAAdjustTable Table;
    bool Enabled = false;
    std::optional<TDAAdjustTable> Backup;
  };

  void KeepPrevious(std::int32_t gas);
  void Observe(const TGasAdjustEvent& event);
  void Judge(const TGasAdjustEvent& event, TGasResult& result);
  void PutBack(std::int32_t gas);
  [[nodiscard]] TGasResult& Result(std::int32_t gas);

  TController& FController;
  TZemGasAdjustModel& FModel;
  const TGasNozzle FNozzle;
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
