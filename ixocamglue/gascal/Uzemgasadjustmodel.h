// The gas calibration as the interface sees it: start, stop, progress, message log, nozzle, stored tables.
//
// Any thread, unless said; the tables of the machine configuration are touched by the state thread while a calibration
// runs, otherwise by whoever calls LoadGasData. bar, V; nozzle sizes in mm, any number; gas types as in
// config/Libmachinecfg.h, one outside is a gas without a branch.
// What does not say how it fails does not.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "ixocamglue/gascal/Ugasdots.h"
#include "ixocamglue/gascal/Ugasnozzcaliconfig.h"
#include "ixocamglue/support/Locks.h"
#include "ixocamglue/support/Problem.h"

namespace ixocamglue {

class TQuickGasDAAdjust;

// What happens while a calibration runs, for who wants to draw or record it.
struct TGasAdjustEvent {
  enum class TKind : std::uint8_t {
    Voltage,  // Volt was put out
    Sample,   // TimeMs, Press; no number where the sensor gave none
    Settled,  // Press, StableMs, RiseMs at Volt
    Rebuilt,  // the points were made into the final curve; Good: it has gone into the branch's table
    Saved,    // after the last gas: the machine configuration
  };
  TKind Kind = TKind::Voltage;
  std::int32_t Gas = 0;
  double Volt = 0.0;
  std::int64_t TimeMs = 0;  // monotonic
  double Press = 0.0;
  std::int32_t StableMs = 0;
  std::int32_t RiseMs = 0;
  bool Foreseen = false;  // Press is where the pressure will end, not where it rests
  bool Good = false;
  const TIncList* Measured = nullptr;  // valid during the call
  const TIncList* Curve = nullptr;
  const TProblem* Unsaved = nullptr;  // why the backup (Rebuilt) or the configuration (Saved) is not in its file
};

class TZemGasAdjustModel {
 public:
  // Requests the calibration of these gases, one after the other. False when one runs already, when the list is empty
  // or when there is no state framework. Of several threads one gets its calibration.
  bool StartAjdust(std::vector<std::int32_t> gasTypes);
  void StopAjdust();                        // a stop, while one runs or is about to
  [[nodiscard]] bool AjdustIsBusy() const;  // from the request until it has ended or was withdrawn

  // The gas's branch exists and has an analogue output.
  [[nodiscard]] bool CheckGasValid(std::int32_t gasType) const;
  // Puts a stored table into the machine configuration and saves that. A problem, said in the message log too, when
  // there is no such table, it has no entries or cannot be used (see TGasCaliConfig::CheckTable), or a file cannot be
  // read or saved; without a word there while a calibration runs. The configuration then has what it had.
  TResult<> LoadGasData(std::int32_t gasType, std::string_view nozzType, double nozzSize);
  // Stores the branch's present table, when it has entries, under the present nozzle. A problem, which the caller
  // tells, when the file cannot be saved. Gas types 4 to 6 have no stored tables.
  TResult<> BackupCaliInfo(std::int32_t gasType);
  [[nodiscard]] double GetMaxPress(std::int32_t gasType) const;  // the largest of the branch's table; 0 without

  void AddMsg(std::string text);
  bool GetMsg(std::string& text);  // takes the oldest line; false when there is none
  [[nodiscard]] double GetProgess() const { return FProgress.load(std::memory_order_acquire); }  // 0..100
  void SetNozzType(std::string_view nozzType, double nozzSize);
  // Whether runs that start from now on go on after the exact method (see Refine.h); not unless asked.
  void SetRefined(bool refined) { FRefinedAsked.store(refined, std::memory_order_release); }
  [[nodiscard]] bool Refined() const { return FRefinedAsked.load(std::memory_order_acquire); }

  // Called on the state thread; tells what could not be saved, which is else said in the message log. Set while no
  // calibration runs; must not throw.
  void SetObserver(std::function<void(const TGasAdjustEvent&)> observer) { FObserver = std::move(observer); }

  // --- for the state ---
  [[nodiscard]] std::vector<std::int32_t> GasTypes() const;
  void Begin() { FProgress.store(0.0, std::memory_order_release); }
  void Progress(double percent);  // 0 to 100, of its one caller; never falls
  // The observer hears of it, or the message log of what could not be saved.
  void Tell(const TGasAdjustEvent& event);

 private:
  std::function<void(const TGasAdjustEvent&)> FObserver;
  std::atomic<bool> FRefinedAsked{false};
  std::atomic<double> FProgress{0.0};
  TCriticalSection FStarting;  // held over the request to the state framework, which calls nobody back
  mutable TCriticalSection FLock;
  std::vector<std::int32_t> FGasTypes IXO_GUARDED_BY(FLock);
  std::string FNozzType IXO_GUARDED_BY(FLock);
  double FNozzSize IXO_GUARDED_BY(FLock) = 0.0;
  std::deque<std::string> FMessages IXO_GUARDED_BY(FLock);
};

// The program's model; null before ZemGasAdjustModel_Create and after ZemGasAdjustModel_Destroy. Creating it also
// registers the machine state; part of the library's life.
[[nodiscard]] TZemGasAdjustModel* GZemGasAdjustModel();
void ZemGasAdjustModel_Create();
void ZemGasAdjustModel_Destroy();

// The gas's shown name, from the gas type dictionary; its number for a gas that is not listed.
[[nodiscard]] std::string GasDesc(std::int32_t gasType);
// "%.2f(V)---%.4f(Bar)" of any number.
[[nodiscard]] std::string AdjustPointText(double volt, double press);

}  // namespace ixocamglue
