// What a calibration of the height sensor makes of its values, whatever the sensor counts in: for machines. One thread
// at a time. Nothing here fails. A calibration that is no good is a result as well. Values are in the sensor's unit.
#pragma once

#include <array>
#include <cstdint>

#include "ixocamglue/platform/ports/CutSystem.h"

namespace ixocamglue {

// Judges the values of one calibration: first those of the way down, then those at rest on the plate.
class TSensorJudgement {
 public:
  enum TError : std::int32_t { jeGood, jeNoPlate, jeNoisy, jeNotSmooth, jeInterrupted };
  // A spread above each costs a level; level 1 is best, and beyond the last it has failed.
  using TLimits = std::array<double, 3>;

  void Begin() { *this = {}; }
  void Approaching(double value);
  void Resting(double value);

  [[nodiscard]] std::uint32_t Rested() const { return FRested; }  // values at rest
  [[nodiscard]] double Range() const { return FMost - FLeast; }   // of all
  [[nodiscard]] TNcCaliResult Result(bool plateFound, const TLimits& limits) const;
  [[nodiscard]] static const char* ErrorText(std::int32_t error);  // a literal, for Tr; "unknown" for another number

 private:
  void See(double value);

  double FLeast = 0.0, FMost = 0.0;  // of all
  double FWorstDrop = 0.0;           // below the highest so far, on the way down
  double FRestLeast = 0.0, FRestMost = 0.0, FRestSum = 0.0;
  std::uint32_t FSeen = 0;
  std::uint32_t FRested = 0;
};

}  // namespace ixocamglue
