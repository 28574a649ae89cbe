// Quick calibration of a gas valve: which voltage to try next, when the pressure has settled, the final curve.
//
// Touches no device except for reading the pressure in SampleGasPress. State thread only; no locks. V, bar, ms.
// Nothing throws: false means not settled, no further voltage, no statistics; the outputs then stay as they were. What
// is proposed is 0 to kFullScaleVolt. Of what is recorded, a number that is not finite is dropped, and no range is
// checked.
//
// One calibration: SetBranch, Reset; then repeatedly GetNextAdjDA3P (or GetNextAdjDA), the voltage put out,
// ResetGasPressList, SampleGasPress and CheckGasPressStable until it succeeds, the settled pressure recorded with
// RecordPoint (RecordPress); without a further voltage ReBuildGasAdjList.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "ixocamglue/gascal/Ugasdots.h"

namespace ixocamglue {

inline constexpr double kFullScaleVolt = 10.0;
inline constexpr double kNearByVolt = 0.1;             // the rebuilt curve replaces a point within this distance
inline constexpr double kVoltStep = 1.0;               // searching upwards
inline constexpr double kMinSpacingVolt = 0.02;        // between two proposals of the three-band method
inline constexpr std::int32_t kMaxAdjPoints = 15;      // no proposals beyond
inline constexpr std::int64_t kStableLimitMs = 5000;   // of sampling; settled afterwards, agreed or not
inline constexpr std::int32_t kMinStableSamples = 10;  // none can have settled with fewer
inline constexpr std::int32_t kWindowSamples = 5;      // an averaging window holds more

class TQuickGasDAAdjust {
 public:
  void SetBranch(std::int32_t branch) { FBranch = branch; }  // a gas type, 1 "Air" ...; -1 none
  [[nodiscard]] std::int32_t Branch() const { return FBranch; }
  // Clears all lists and takes the branch's presets, window and tolerance; those of a branch that the machine
  // configuration does not have stay as they are.
  void Reset();

  // Bisection. Enters the proposed voltage into the calibration list with pressure 0, to be replaced by RecordPress.
  [[nodiscard]] bool GetNextAdjDA(double& da);
  // Three bands. Enters nothing: proposes the same again until RecordPoint is called.
  [[nodiscard]] bool GetNextAdjDA3P(double& da);
  void RecordPoint(double da, double press) { FCaliList.Append({da, press}); }
  // False when GetNextAdjDA has not entered this voltage.
  bool RecordPress(double da, double press);

  void SampleGasPress();                              // a reading that is no number is dropped
  void AddSample(std::int64_t timeMs, double press);  // the same with a reading from elsewhere
  void ResetGasPressList() { FSamples.Clear(); }      // whenever a new voltage is put out

  // `stableMs`: from the first sample to the start of the agreeing windows (or all of the time limit); `riseMs`: to the
  // first sample above 80 % of the settled pressure. `checkTrend`: a steady drift must be small.
  [[nodiscard]] bool CheckGasPressStable(double& press, std::int32_t& stableMs, std::int32_t& riseMs,
                                         bool checkTrend) const;
  // Of the last four windows: deviation from `target`, mean, and the pressures that 10 % lie below and above.
  [[nodiscard]] bool StatGasInfo(double target, double& rms, double& mean, double& low, double& high) const;
  // Whether two pressures agree within a fraction of the smaller one. Below 0.1 bar only equal ones do.
  [[nodiscard]] static bool CheckError(double fraction, double a, double b);

  // Turns measured points into the final curve: strictly increasing, from (0, 0), with its low end and its knee. Two
  // points or fewer stay as they are.
  void ReBuildGasAdjList(TIncList& list);

  [[nodiscard]] TIncList& CaliList() { return FCaliList; }
  [[nodiscard]] const TIncList& CaliList() const { return FCaliList; }
  [[nodiscard]] const TIncList& Samples() const { return FSamples; }  // times count from the clock's own zero
  [[nodiscard]] std::span<const double> Presets() const { return FPresets; }
  [[nodiscard]] std::int32_t WindowMs() const { return FWindowMs; }
  [[nodiscard]] double ErrorPercent() const { return FErrorPercent; }
  [[nodiscard]] std::int32_t SettleMs() const { return FSettleMs; }
  // The first point, from above, that has not the last one's pressure; 0 when all have it.
  [[nodiscard]] std::int32_t KneeIndex(const TIncList& list) const;

 private:
  [[nodiscard]] bool Enter(double& da, double volt);
  [[nodiscard]] bool ProposeInBand(double low, double high, double& da) const;
  [[nodiscard]] bool WindowMeans(double (&means)[4], std::int32_t& first) const;
  [[nodiscard]] double RiseTime(double press) const;
  void AddLowEnd(const TIncList& input, std::int32_t knee);
  void AddKnee(const TIncList& input, std::int32_t knee);
  void ReplaceNearBy(TDot dot);

  std::int32_t FBranch = -1;
  std::int32_t FSettleMs = 200;
  std::int32_t FWindowMs = 200;
  double FErrorPercent = 1.5;
  std::vector<double> FPresets;  // V, ascending
  TIncList FCaliList;
  TIncList FSamples;
  TIncList FRebuilt;  // the work list of ReBuildGasAdjList
};

}  // namespace ixocamglue
