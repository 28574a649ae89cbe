// What people run: every motion command and every procedure of the controller in one table, in the order of the command
// numbers. `ixocut run`, `record`, `tree`, `sweep` and `procedures`, their help and the reader of sequence files all
// take names, sentences, parameters and ranges from here. An application adds rows of its own before it runs anything.
// The table is read by any thread and changed while no other runs. What is not found is null, or a problem that names
// what was probably meant.
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "ixocamglue/motion/Usequence.h"
#include "ixocamglue/motion/Ustatemotion.h"
#include "ixocamglue/motion/Ustatemotionbase.h"
#include "ixocamglue/platform/xml/Bounds.h"
#include "ixocamglue/support/Problem.h"

namespace ixocontroller {
using namespace ixocamglue;

enum class TParamKind : std::uint8_t { pkNumber, pkWhole, pkSwitch };
using enum TParamKind;

inline constexpr double kUnset = std::numeric_limits<double>::quiet_NaN();

// A parameter's value in a step of the row's class; null: the row's Make takes it.
struct TParamAccess {
  TParamKind Kind;
  void (*Set)(TStateMotion& step, double value) = nullptr;
  double (*Get)(TStateMotion& step) = nullptr;  // kUnset: the step has none
};

// All values are held as numbers; a switch is 0 or 1.
struct TMotionParam {
  const char* Name;  // the option without "--", and the name in files
  TUnit Unit;
  const char* Summary;  // shown through Tr
  TBound Bound;         // a pressure's names the parameter that names its branch
  double Default;       // kUnset: left as the step has it
  TParamAccess At;
  enum TNeed : std::uint8_t { Optional, Required, Together } Need = Optional;  // Together: with the others, or none
};

// Values in the order of the row's parameters; nullopt: not given.
using TMotionValues = std::vector<std::optional<double>>;

// What a row needs and does.
struct TProcedureFlags {
  bool MovesXY = false, MovesZ = false, MovesFocus = false;
  bool LightsBeam = false;       // laser and emission are off again when it ends, at the latest
  bool LeavesBeam = false;       // in a list of commands the beam stays on behind it
  bool EndsBeam = false;         // in a list of commands the beam is off behind it
  bool NeedsEmission = false;    // alone it waits for ever, or stays dark
  bool LeavesGasOn = false;      // on success
  bool LeavesFollowing = false;  // on success
  // First of all it raises the head, then it travels to a place of its own: a list that was ended may begin here again,
  // dark, without gas, and with everything else as the calls before it have left it.
  bool Reentry = false;
  bool Once = false;  // takes or leaves a nozzle: what it has done once must not be done again
  enum TOutputs : std::uint8_t { otOff, otStayAfterAbort, otStay } Outputs = otOff;
};

struct TProcedure {
  const char* Name;          // "safe-move": small letters, digits and hyphens
  std::int32_t Command;      // 0: none
  const char* Summary = "";  // shown through Tr
  TProcedureFlags Flags = {};
  std::vector<TMotionParam> Params = {};
  TMotionValues Sample = {};  // short and safe, for trees and the abort sweep; what is left out has its default
  // What the command's number does not make; null otherwise. Throws EProblem for what cannot be made on this machine.
  TStepPtr (*Make)(TCustomMotionState* ctrl, const TMotionValues& values) = nullptr;
  std::vector<std::string_view> Was = {};  // names that it had; refused with this one

  // The sample, as long as the parameters are.
  [[nodiscard]] TMotionValues SampleValues() const;
};

inline constexpr std::uint64_t kShotLimitMs = 60'000;
// The laser's latch ends a beam at 65 s; a shot stays below it.
inline constexpr std::uint64_t kShotLongestMs = 64'000;

// The controller's own rows.
[[nodiscard]] const std::vector<TProcedure>& ProcedureTable();
// The whole table; a row keeps its address.
[[nodiscard]] std::vector<const TProcedure*> Procedures();
[[nodiscard]] const TProcedure* FindProcedure(std::string_view name);  // null: unknown
[[nodiscard]] const TProcedure* FindProcedure(std::int32_t command);   // the same
// The row, or what is wrong with the name: what it is called now, or what was probably meant.
[[nodiscard]] TResult<const TProcedure*> AskProcedure(std::string_view name);
[[nodiscard]] bool WasProcedure(std::string_view name);
[[nodiscard]] std::string ProcedureNames();  // "move-xy, clean-curve, ..."

// The rows of an application, for its life: made before, ended after whatever uses the table. Throws EProblem for a row
// that has no step, or a name or number that is taken.
class TAddedProcedures {
 public:
  explicit TAddedProcedures(std::vector<TProcedure> rows);
  ~TAddedProcedures();
  TAddedProcedures(const TAddedProcedures&) = delete;
  TAddedProcedures& operator=(const TAddedProcedures&) = delete;

 private:
  std::vector<TProcedure> FRows;
};

// A step of the row with its values, and the row's defaults for those that are not given.
struct TMotionCall {
  const TProcedure* Row = nullptr;
  TMotionValues Values;
  std::string Desc;  // empty: the step's own

  // Throws what the row's Make throws.
  [[nodiscard]] TStepPtr Make(TCustomMotionState* ctrl) const;
  [[nodiscard]] std::string Text() const;  // "gas-on --branch 2 --pressure 1.5"
  // The value of a parameter as the step will have it, in its unit; kUnset: it has none.
  [[nodiscard]] double Value(std::string_view param) const;
  // What the parameter may be on this machine, beside the call's other values.
  [[nodiscard]] TLimits LimitsOf(const TMotionParam& param, const TMachineBounds& machine) const;
  // What is wrong with the value of one parameter.
  [[nodiscard]] TResult<> Check(const TMotionParam& param, const TMachineBounds& machine) const;
  // What is missing. `prefix`: what stands before a parameter's name where it was asked for.
  [[nodiscard]] TResult<> CheckNeeds(const char* prefix) const;
};

// The value of a text in the parameter's unit, as the command line has it.
[[nodiscard]] TResult<double> ParseParam(const TMotionParam& param, std::string_view text);

// A position of a list. Throws EProblem for what cannot be made.
[[nodiscard]] TSequenceItem ItemOf(const TMotionCall& call);
// What runs: a single procedure stands for itself; commands become a list, whose leave protects the machine. Throws
// EProblem for what cannot be made.
[[nodiscard]] TStepPtr MakeRoot(const std::string& name, std::span<const TMotionCall> calls);

// The number, in the parameter's unit, as it is written: "12.5", or a switch's "true".
[[nodiscard]] std::string ParamText(const TMotionParam& param, double value);

// The timed laser shot, command 515.
[[nodiscard]] TStepPtr MakeShot(std::uint32_t ms);

// A root as the controller holds it: shared, and leaving through its error path when it dies loaded.
[[nodiscard]] std::shared_ptr<IStateMotion> ShareRoot(TStepPtr step);

}  // namespace ixocontroller
