// A gas calibration from its order to its result, on a controller that lives before and after it: the calibration, the
// descent where it is asked for, then the verdict. It prints nothing.
//
// One thread, the interface thread where there is one: made, watched and ended there; no calibration runs before and
// after. V, bar, ms.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "controller/gas/GasCalibration.h"

namespace ixocontroller {

struct TGasOrder {
  std::vector<std::int32_t> Gases;
  TGasNozzle Nozzle;
  bool Refined = false;  // the method
  bool Keep = false;     // a bad verdict is stored all the same
  bool Descend = false;  // the same voltages once more downwards, for the record
};

// {"gases", "nozzle", "size", "method", "keep", "descend"}, as it is asked for over the wire. Does not fail.
[[nodiscard]] nlohmann::ordered_json JsonOf(const TGasOrder& order);

// The tables' file, when it cannot be read: the first save moves it aside, with the tables of all other nozzles.
class TDamagedTables {
 public:
  TDamagedTables();
  // What has become of it; empty when nothing has.
  [[nodiscard]] std::string Text() const;

 private:
  static std::set<std::string> Aside();

  const bool FDamaged;
  const std::set<std::string> FBefore;
};

// What fails behind Start shows in Problem and in the calibration's results.
class TGasJob {
 public:
  // Called with each line of the calibration's messages.
  using TTold = std::function<void(std::uint64_t ms, const std::string& text)>;

  // The controller outlives it. Throws EProblem (pbRefused) while a calibration runs.
  TGasJob(TController& controller, TGasOrder order, TTold told = {});

  [[nodiscard]] TResult<> Start();
  // Every few ms in real time, after each pass in virtual time. False from the end of all measuring on.
  bool Round(std::uint64_t nowMs);
  // Whatever runs of it.
  void Stop();
  // Once, after the end: the verdicts, and what they put back. In real time the machine file is saved here.
  void Conclude();

  [[nodiscard]] const TGasOrder& Order() const { return FOrder; }
  [[nodiscard]] bool Descending() const { return FDescending; }
  [[nodiscard]] double Progress() const { return FCalibration.Progress(); }
  [[nodiscard]] TGasCalibration::TNow Now() const { return FCalibration.Now(); }
  [[nodiscard]] std::uint64_t LastedMs() const;
  [[nodiscard]] const TGasCalibration& Calibration() const { return FCalibration; }
  // Tells a line of its own.
  void Tell(const std::string& text);
  // --- after Conclude ---
  [[nodiscard]] nlohmann::ordered_json Json() const;
  [[nodiscard]] std::optional<TProblem> Problem() const;  // none when every gas is stored

 private:
  static TController& Unused(TController& controller);
  void TakeMessages();

  TController& FController;
  const TGasOrder FOrder;
  const TTold FTold;
  const TDamagedTables FDamaged;
  TGasCalibration FCalibration;
  std::uint64_t FStartMs = 0;
  std::uint32_t FEnds = 0;  // that were asked for before the start
  bool FDescentAsked = false;
  bool FDescending = false;
  nlohmann::ordered_json FMessages = nlohmann::ordered_json::array();
};

}  // namespace ixocontroller
