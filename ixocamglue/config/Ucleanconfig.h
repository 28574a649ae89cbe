// Assist records of the cutting head: nozzle cleaning, maintenance, float calibration, blanking, stroke measurement,
// system delay. Lengths mm, speeds mm/s, pressures bar, times ms. No locks. Nothing here fails but GetCurPos, with what
// the switch table throws.
#pragma once

#include <cstdint>
#include <vector>

#include "ixocamglue/platform/ports/MotionDriver.h"
#include "ixocamglue/platform/xml/XmlSubConfig.h"

namespace ixocamglue {

class TMachineConfig;

struct TPoint3 {
  double X = 0.0;
  double Y = 0.0;
  double Z = 0.0;
  friend bool operator==(const TPoint3&, const TPoint3&) = default;
};

// A position of X, Y, Z and a fourth axis, which is the focus where there is one.
struct TPoint4 {
  double X = 0.0;
  double Y = 0.0;
  double Z = 0.0;
  double A = 0.0;
  friend bool operator==(const TPoint4&, const TPoint4&) = default;
};

// A position whose coordinates are all 0 was never configured; nothing is sent there.
[[nodiscard]] constexpr bool IsConfigured(const TPoint3& pos) { return !(pos == TPoint3{}); }
[[nodiscard]] constexpr bool IsConfigured(const TPoint4& pos) { return !(pos == TPoint4{}); }

// "AutoCleanHead": the brushes and how to clean on them.
class TAutoCleanConfig : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;

  [[nodiscard]] TPoint3 GetCleanPos() const { return {CleanRefPtX, CleanRefPtY, CleanZPos}; }
  void SetCleanPos(const TPoint3& pos);
  [[nodiscard]] TPoint3 GetCleanPos2() const { return {CleanRefPtX2, CleanRefPtY2, CleanZPos2}; }
  void SetCleanPos2(const TPoint3& pos);
  // Of the brush to use now: the second exactly when there are two and pallet 2 is docked. Fourth axis 0. State thread:
  // asks the switch table.
  [[nodiscard]] TPoint4 GetCurPos() const;
  [[nodiscard]] bool GetCleanHeadEnabled() const { return CleanHeadEnabled; }
  void SetCleanHeadEnabled(bool enabled) { CleanHeadEnabled = enabled; }

  double CleanBrushHeight = 0.0;
  std::int32_t CleanCount = 0;
  std::int32_t CleanCurveStyle = 0;
  double CleanCurveLength = 0.0;
  double CleanCurveWidth = 0.0;
  std::int32_t CleanCurveDir = 0;
  bool CleanHeadEnabled = false;
  std::int32_t CleanGasBranch = 0;
  bool CleanGasOpen = false;
  double CleanGasPressure = 0.0;
  double CleanRefPtX = 0.0;
  double CleanRefPtY = 0.0;
  double CleanRefPtX2 = 0.0;
  double CleanRefPtY2 = 0.0;
  double CleanReturnXPos = 0.0;
  double CleanReturnYPos = 0.0;
  double CleanSpeed = 0.0;
  double CleanZPos = 0.0;
  double CleanZPos2 = 0.0;
  bool CleanZReturn0 = false;
  std::int32_t CleanReturnStyle = 0;
  bool Initialized = false;
  bool UseDoubleBrushes = false;
};

// "MaintainCutHead": where the head goes for maintenance.
class TCutHeadMaintainConfig : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  [[nodiscard]] TPoint4 GetMaintainPos() const { return {FPosX, FPosY, FPosZ, FFocus}; }  // A is the focus
  void SetMaintainPos(const TPoint4& pos);
  [[nodiscard]] bool GetEnable() const { return Enabled; }
  void SetEnable(bool enabled) { Enabled = enabled; }

  bool Enabled = false;

 private:
  double FPosX = 0.0;
  double FPosY = 0.0;
  double FPosZ = 0.0;
  double FFocus = 0.0;
};

// "FloatCalibration": the height sensor's calibration.
class TFloatCalibrationConfig : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  [[nodiscard]] TPoint3 GetFloatCaliPos() const { return {PosX, PosY, PosZ}; }
  void SetFloatCaliPos(const TPoint3& pos);
  [[nodiscard]] bool GetAutoCailEnabled() const { return AutoCailEnabled; }
  void SetAutoCailEnabled(bool enabled) { AutoCailEnabled = enabled; }
  [[nodiscard]] bool GetAdjustCapEnable() const { return AdjustCapPermitHeight > 0.0; }

  bool AutoCailEnabled = false;
  double AdjustCapPermitHeight = 0.0;
  bool FinishFirstCali = false;
  double PosX = 0.0;
  double PosY = 0.0;
  double PosZ = 0.0;
};

// "Blanking": where finished parts are dropped.
class TBlankingConfig : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  [[nodiscard]] bool GetEnabled() const { return Enabled; }
  void SetEnabled(bool enabled) { Enabled = enabled; }

  bool Enabled = false;
  double PosX = 0.0;
  double PosY = 0.0;
};

// "StrokeMeasurement": how far the axes were found to go.
class TStrokeMeasurement : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  // A soft limit of X or Y that lies beyond the measured range by more than 0.001 mm, on the side that the axis'
  // direction chooses.
  struct TMisfit {
    const char* Range;  // the property
    long double Measured;
    long double Limit;
  };
  // None for an axis that the configuration does not describe.
  [[nodiscard]] std::vector<TMisfit> Misfits(TMachineConfig& config) const;
  // Clears IsFinished where there is a misfit; nothing is ever set.
  void CheckRange(TMachineConfig& config);

  long double XNeg = 0.0L;
  long double XPos = 0.0L;
  long double YNeg = 0.0L;
  long double YPos = 0.0L;
  long double XMaxNeg = 0.0L;
  long double XMaxPos = 0.0L;
  long double YMaxNeg = 0.0L;
  long double YMaxPos = 0.0L;
  long double XNegativeRange = 0.0L;
  long double XPositiveRange = 0.0L;
  long double YNegativeRange = 0.0L;
  long double YPositiveRange = 0.0L;
  bool IsFinished = false;
};

// "SysDelay": the measured delay between motion and laser.
class TSysDelayConfig : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  bool IsFinished = false;
  double SysDelayX = 0.0;
  double SysDelayY = 0.0;
  double LastTime = 0.0;
  double MoveDis = 0.0;
  double MoveSpeed = 0.0;
};

}  // namespace ixocamglue
