#include "controller/procedures/ListCheck.h"

#include <set>
#include <string>

#include "controller/procedures/AxisPlaces.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

class TListCheck {
 public:
  explicit TListCheck(const TMachineLimits& machine) : FMachine(machine) {}

  [[nodiscard]] std::optional<TProblem> Wrong(const TMotionCall& call) {
    auto problem = Strikes(call);
    if (!problem) problem = WaitsInVain(call);
    FPlaces.Pass(call);
    return problem;
  }

 private:
  [[nodiscard]] std::optional<TProblem> Strikes(const TMotionCall& call) const {
    const std::int32_t command = call.Row->Command;
    const auto low = [&](bool second) -> std::optional<TProblem> {
      const auto z = FPlaces.At(bkZ, second);
      if (!z || *z <= FMachine.Bounds.SafeZ) return std::nullopt;
      return TProblem{
          .What = Format(Tr("%s is not allowed with head %d below its safe height"), call.Row->Name, second ? 2 : 1),
          .Why = Format(Tr("Z stands at %s, the safe height is %s"), NumberText(*z).c_str(),
                        NumberText(FMachine.Bounds.SafeZ).c_str()),
          .Remedy = Tr("raise it before (134)")};
    };
    if (command == TSmtMoveToXY::Cmd || command == TSmtCleanHeadCurve::Cmd || command == TSmtLubricateCurve::Cmd)
      if (auto problem = low(true)) return problem;
    if (command == TSmtLubricateCurve::Cmd) return low(false);
    if (!TAxisPlaces::Moves(call, bkZ)) return std::nullopt;
    const auto target = TAxisPlaces::TargetOf(call, bkZ);
    if (!target || *target <= FMachine.TableZ || Beside(call)) return std::nullopt;
    return TProblem{.What = Format(Tr("z %s is below the table's surface"), NumberText(*target).c_str()),
                    .Why = Format(Tr("the nozzle would touch at Z %s"), NumberText(FMachine.TableZ).c_str())};
  }

  // The head is known to be beside the table when Z moves.
  [[nodiscard]] bool Beside(const TMotionCall& call) const {
    const auto at = [&](TBoundKind axis) {
      return TAxisPlaces::Moves(call, axis) ? TAxisPlaces::TargetOf(call, axis) : FPlaces.At(axis);
    };
    const auto outside = [](std::optional<double> place, double least, double most) {
      return place && (*place < least || *place > most);
    };
    return outside(at(bkX), FMachine.Table.Min.X, FMachine.Table.Max.X) ||
           outside(at(bkY), FMachine.Table.Min.Y, FMachine.Table.Max.Y);
  }

  [[nodiscard]] std::optional<TProblem> WaitsInVain(const TMotionCall& call) {
    const std::int32_t command = call.Row->Command;
    if (command == TSmtOpenOutport::Cmd || command == TSmtCloseOutport::Cmd) FSwitched.insert(call.Value("port"));
    if (command != TSmtWaitInport::Cmd || call.Value("input") < 0.0) return std::nullopt;
    const double output = call.Value("output");
    if (output < 0.0 || call.Value("switch-output") == 1.0 || FSwitched.contains(output)) return std::nullopt;
    return TProblem{.What = Format(Tr("input %s never comes: it answers output %s, which nothing switches"),
                                   NumberText(call.Value("input")).c_str(), NumberText(output).c_str()),
                    .Remedy = Tr("give switch-output true, or switch the output before (172, 173)")};
  }

  const TMachineLimits& FMachine;
  TAxisPlaces FPlaces;
  std::set<double> FSwitched;
};

}  // namespace

std::optional<std::pair<std::size_t, TProblem>> CheckList(std::span<const TMotionCall> calls,
                                                          const TMachineLimits& machine) {
  TListCheck check(machine);
  for (std::size_t i = 0; i < calls.size(); ++i)
    if (auto problem = check.Wrong(calls[i])) return std::pair(i, std::move(*problem));
  return std::nullopt;
}

}  // namespace ixocontroller
