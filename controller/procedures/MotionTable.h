// Every motion command and every procedure of the host that can be run with parameters: one table, in the order of the
// command numbers. `ixocut procedures`, the options and the help of `ixocut run`, and the reader of sequence files all
// use it, so that a parameter has one name, one unit and one range wherever it is met.
#pragma once

#include <cmath>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "ixocamglue/motion/Usteptree.h"
#include "ixocamglue/platform/xml/Bounds.h"

namespace ixocontroller {
using namespace ixocamglue;

enum class TParamKind : std::uint8_t { pkNumber, pkWhole, pkSwitch };
using enum TParamKind;

// Where a parameter's range comes from: its own bounds, or the machine.
enum class TParamRange : std::uint8_t {
  prFixed,
  prX,
  prY,
  prZ,
  prFocus,
  prXYSpeed,
  prZSpeed,
  prFocusSpeed,
  prOutport,   // of the machine's, or -1
  prInport,    // the same
  prBranch,    // of the machine's gas branches
  prPressure,  // up to the highest of the branches
  prFollower
};
using enum TParamRange;

inline constexpr double kUnset = std::numeric_limits<double>::quiet_NaN();

// All values are held as numbers; a switch is 0 or 1.
struct TMotionParam {
  const char* Name;  // the option without "--", and the name in files
  const char* Unit;  // empty: none
  const char* Summary;
  TParamKind Kind;
  TParamRange Range;
  double Lowest, Highest;                                                      // with prFixed
  double Default;                                                              // kUnset: left as the step has it
  void (*Set)(TStateMotion& step, double value);                               // null: the row's Make reads it
  enum TNeed : std::uint8_t { Optional, Required, Together } Need = Optional;  // Together: with the others, or none
};

// What a row does to the beam; a file must end it in time.
enum class TBeam : std::uint8_t { bmNone, bmOn, bmOff };
using enum TBeam;

// Values in the order of the row's parameters; nullopt: not given.
using TMotionValues = std::vector<std::optional<double>>;

struct TMotionRow {
  std::int32_t Command;  // 0: a procedure of the host
  const char* Name;      // "clean-nozzle"
  const char* Variant;   // "manual"; empty: none
  bool VariantIsFlag;    // `clean-nozzle --manual`, not `go maintenance`
  const char* Summary;   // English, for help pages
  std::span<const TMotionParam> Params;
  // For what no command number makes; null otherwise. `values` as above. Throws EProblem for what cannot be made on
  // this machine.
  TStepPtr (*Make)(TCustomMotionState* ctrl, const TMotionValues& values);
  TBeam Beam = bmNone;

  [[nodiscard]] std::string FullName() const;  // "clean-nozzle-manual", as in files
  [[nodiscard]] std::string Usage() const;     // "clean-nozzle --manual", as on the command line
};

[[nodiscard]] std::span<const TMotionRow> MotionRows();
[[nodiscard]] const TMotionRow* FindMotionRow(std::string_view fullName);  // null: unknown
[[nodiscard]] const TMotionRow* FindMotionRow(std::int32_t command);       // the same

// What parameters may be on one machine.
class TMotionLimits {
 public:
  explicit TMotionLimits(TMachineBounds machine) : FMachine(std::move(machine)) {}
  // Throws EProblem for a machine file that cannot be used.
  [[nodiscard]] static TMotionLimits OfMachine(const std::filesystem::path& machineFile);
  [[nodiscard]] TLimits Of(const TMotionParam& param) const;
  // Empty, or what is wrong with the value: "5000 is not in 0..1600 mm/s".
  [[nodiscard]] std::string Check(const TMotionParam& param, double value) const;
  // The same for a text; fills `value` when there is nothing wrong.
  [[nodiscard]] std::string Parse(const TMotionParam& param, std::string_view text, double& value) const;
  // Of a whole row: what is missing. `prefix`: what stands before a parameter's name where it was asked for.
  [[nodiscard]] static std::string CheckNeeds(const TMotionRow& row, const TMotionValues& values, const char* prefix);

 private:
  const TMachineBounds FMachine;
};

// A step of the row with its values, and the row's defaults for those that are not given.
struct TMotionCall {
  const TMotionRow* Row = nullptr;
  TMotionValues Values;
  std::string Desc;  // empty: the step's own

  // Throws what the row's Make throws.
  [[nodiscard]] TStepPtr Make(TCustomMotionState* ctrl) const;
  // The values into a step that the command's number made.
  void Configure(TStateMotion& step) const;
  [[nodiscard]] std::string Text() const;  // "gas --on --branch 2"
};

// The number as it is written: "12.5", or a switch's "true".
[[nodiscard]] std::string ParamText(const TMotionParam& param, double value);

}  // namespace ixocontroller
