// A proportional gas valve with its line and its pressure sensor, made of software. V, bar, ms; stepped once per ms.
//
// The voltage is put out by a 15-bit converter; after a dead time the spool follows it with play; the spool's position
// gives a static pressure (dead band, rise, knee, supply), towards which the line fills, bleeds or vents; a small share
// of the pressure creeps after it. No thread of its own and no lock: whoever owns it takes turns. Nothing here fails.
#pragma once

#include <cstdint>
#include <deque>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

#include "machines/simulated/Random.h"

namespace ixocamglue {

inline constexpr double kFullScaleV = 10.0;  // of a proportional valve

struct TGasValveParams {
  double U0 = 0.42;     // V; below it the valve is shut
  double Uk = 4.8;      // V; where the rise would reach the supply pressure without a knee
  double Psup = 8.0;    // bar
  double Gamma = 1.08;  // bend of the rise
  double M = 9.0;       // sharpness of the knee
  double Play = 0.020;  // V; half the width
  std::int32_t DeadMs = 20;
  double FillMs = 70.0;  // time constants
  double BleedMs = 110.0;
  double VentMs = 60.0;
  double Creep = 0.012;  // share of the pressure that comes late
  double CreepMs = 1500.0;
  // The sensor's, in bar.
  double Noise = 0.010;   // deviation of one reading
  double Ripple = 0.006;  // deviation of the part that neighbouring readings share
  double RippleMs = 30.0;
  double Offset = 0.010;
  double Range = 16.0;  // of 4096 steps; it reads no higher
};

// The valves that a machine has unless its file says else, by gas type; the high-pressure gases 4 to 6 have those of 1
// to 3. Any other type has that of 1.
[[nodiscard]] TGasValveParams GasValveParams(std::int32_t gasType);

// The static pressure with the spool at `volt`, in bar; rises with the voltage, 0 up to U0.
[[nodiscard]] double StaticBar(const TGasValveParams& params, double volt);

// How a valve or its sensor can fail.
enum class TValveFault : std::uint8_t {
  vfNone,
  vfStuck,           // the spool stays where it is
  vfNoSupply,        // no gas comes
  vfLowSupply,       // three tenths of the supply pressure
  vfDeadSensor,      // reads 0
  vfNonFinite,       // every other reading is no number
  vfSlowLine,        // fills and bleeds twenty times as slowly
  vfSlowUpdate,      // a reading takes 60 ms
  vfNegativeOffset,  // reads half a bar too little
  vfWideDeadBand,    // opens 3 V later
};
using enum TValveFault;

inline constexpr std::uint32_t kSlowReadingMs = 60;

// "stuck", "no-supply", ..., "none"; none for any other text.
[[nodiscard]] std::optional<TValveFault> ValveFaultByName(std::string_view name);
[[nodiscard]] const char* ValveFaultName(TValveFault fault);
// All names, separated by a comma and a blank.
[[nodiscard]] std::string ValveFaultNames();

class TGasValve {
 public:
  explicit TGasValve(const TGasValveParams& params);

  void Output(double volt);  // limited to 0..10 V; no number: nothing happens
  void SetOpen(bool open);   // gas is switched through to it; without, the line vents
  void LimitSupply(double bar);
  void SetFault(TValveFault fault);
  // The line has this pressure, from whatever drove it before.
  void TakeLine(double bar);
  void Step();

  [[nodiscard]] double Volt() const { return FVolt; }    // as put out by the converter
  [[nodiscard]] double Spool() const { return FSpool; }  // V
  [[nodiscard]] double Bar() const;
  [[nodiscard]] bool Rests() const { return FRests; }                      // the next step changes nothing
  [[nodiscard]] const TGasValveParams& Params() const { return FParams; }  // with what the fault changes

 private:
  struct TDue {
    std::uint64_t AtStep = 0;
    double Volt = 0.0;
  };

  void Derive();
  void SetStatic();
  void Wake() { FRests = false; }

  const TGasValveParams FGiven;
  TGasValveParams FParams;
  TValveFault FFault = vfNone;
  double FFill = 0.0, FBleed = 0.0, FVent = 0.0, FCreep = 0.0;  // shares of the way per ms
  double FSupplyLimit = std::numeric_limits<double>::infinity();
  std::uint64_t FStep = 0;
  std::deque<TDue> FDue;  // voltages that the spool has not heard of
  double FVolt = 0.0;
  double FSpool = 0.0;
  double FStatic = 0.0;
  double FFast = 0.0;
  double FSlow = 0.0;
  bool FOpen = false;
  bool FRests = true;
};

// The pressure sensor of a gas branch. The same seed and the same times of reading give the same numbers.
class TPressureSensor {
 public:
  TPressureSensor(const TGasValveParams& params, std::uint64_t seed);

  void SetFault(TValveFault fault) { FFault = fault; }
  // What it reads at this time, in rising order, when the line has this pressure; bar, in steps of Range/4096. Two
  // readings within one ms are the same.
  [[nodiscard]] double Read(std::uint64_t nowMs, double bar);

 private:
  const TGasValveParams FParams;
  TSimRandom FRandom;
  TValveFault FFault = vfNone;
  std::optional<std::uint64_t> FReadMs;
  double FRipple = 0.0;
  double FReading = 0.0;
  std::uint64_t FCount = 0;
};

}  // namespace ixocamglue
