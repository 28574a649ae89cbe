#include "controller/runs/Reentry.h"

#include <algorithm>
#include <cmath>
#include <set>

#include "controller/procedures/AxisPlaces.h"
#include "controller/runs/RunReport.h"
#include "ixocamglue/motion/Ulasersteps.h"
#include "ixocamglue/motion/Uoutputsteps.h"
#include "ixocamglue/motion/Uwaitsteps.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Lists.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

constexpr double kSamePlaceMm = 0.05;

struct TAxis {
  TBoundKind Kind;
  const char* Name;
  double (*At)(const TMachineSnapshot& machine);
};
constexpr TAxis kAxes[] = {{bkX, "X", [](const TMachineSnapshot& m) { return m.Pos.X; }},
                           {bkY, "Y", [](const TMachineSnapshot& m) { return m.Pos.Y; }},
                           {bkFocus, TrMark("focus"), [](const TMachineSnapshot& m) { return m.Focus; }}};

using TPorts = std::set<std::int32_t>;
TPorts OutputsOf(const TMachineSnapshot& machine) { return {machine.OutputsOn.begin(), machine.OutputsOn.end()}; }

// What the calls so far have left behind, each of them ended well.
class TLeft {
 public:
  explicit TLeft(const TMachineSnapshot& start) : FStartOutputs(OutputsOf(start)), FOutputs(FStartOutputs) {
    for (const TAxis& axis : kAxes) FPlaces.Stands(axis.Kind, axis.At(start));
  }

  void Pass(const TMotionCall& call) {
    FPlaces.Pass(call);
    const TProcedureFlags& flags = call.Row->Flags;
    const std::int32_t command = call.Row->Command;
    if (flags.LeavesBeam || command == TSmtEmissionOn::Cmd) FLit = true;
    if (command == TSmtLaserOff::Cmd) FLit = false;
    if (flags.LeavesGasOn) FGas = true;
    if (command == TSmtGasOffState::Cmd) FGas = false;
    if (flags.MovesZ) FFollows = flags.LeavesFollowing;
    const double port = call.Value("port");
    if (command == TSmtOpenOutport::Cmd && port >= 0) FOutputs.insert(static_cast<std::int32_t>(port));
    if (command == TSmtCloseOutport::Cmd && port >= 0) FOutputs.erase(static_cast<std::int32_t>(port));
  }

  [[nodiscard]] bool AtRest() const { return !FLit && !FGas && !FFollows && FOutputs == FStartOutputs; }
  [[nodiscard]] const TAxisPlaces& Places() const { return FPlaces; }

 private:
  TAxisPlaces FPlaces;
  TPorts FStartOutputs, FOutputs;
  bool FLit = false, FGas = false, FFollows = false;
};

std::string PortsText(const TMachineSnapshot& machine) {
  std::string text;
  for (const std::int32_t port : OutputsOf(machine)) AddToList(text, std::to_string(port));
  return text.empty() ? Tr("none") : text;
}

std::string NozzleText(const TMachineSnapshot& machine) {
  return machine.Nozzle < 0 ? Tr("not known to the machine") : std::to_string(machine.Nozzle);
}

TResult<> CheckQuiet(const TMachineSnapshot& now) {
  if (now.Laser || now.Emission || now.Gas || now.Following || now.Calibrating)
    return TProblem{.What = Tr("the machine is not dark and at rest"), .Where = {}, .Why = WhatIsOn(now)};
  if (now.Moving() || now.RackMoving) return TProblem{.What = Tr("something still moves")};
  return {};
}

// What is read back against what the calls before the re-entry have left.
class TComparison {
 public:
  void Show(const char* what, double mm) { Lines.push_back(Format("%s %.2f mm", what, mm)); }
  void Same(const char* what, const std::string& is, const std::string& expected) {
    Lines.push_back(std::string(what) + ": " + is);
    if (is != expected && !Problem)
      Problem = TProblem{.What = Format(Tr("%s: %s now, but %s is expected"), what, is.c_str(), expected.c_str())};
  }
  void Near(const char* what, double mm, const std::optional<double>& expected) {
    Show(what, mm);
    if (Problem) return;
    if (!expected)
      Problem = TProblem{.What = Format(Tr("nobody knows where %s has to stand here"), what)};
    else if (std::abs(mm - *expected) > kSamePlaceMm)
      Problem = TProblem{.What = Format(Tr("%s stands at %.2f mm, but %.2f mm is expected"), what, mm, *expected)};
  }

  std::vector<std::string> Lines;
  std::optional<TProblem> Problem;
};

// What the first call moves goes where it belongs by itself.
TComparison Compare(const TMotionCall& first, const TLeft& left, const TListMachine& machine) {
  TComparison compared;
  for (const TAxis& axis : kAxes) {
    const double is = axis.At(machine.Now);
    if (TAxisPlaces::Moves(first, axis.Kind))
      compared.Show(Tr(axis.Name), is);
    else
      compared.Near(Tr(axis.Name), is, left.Places().At(axis.Kind));
  }
  compared.Show("Z", machine.Now.Z);
  compared.Same(Tr("outputs that are on"), PortsText(machine.Now), PortsText(machine.Start));
  compared.Same(Tr("nozzle in the head"), NozzleText(machine.Now), NozzleText(machine.End));
  compared.Same(Tr("docked pallet"), std::to_string(machine.Now.DockedTable),
                std::to_string(machine.Start.DockedTable));
  return compared;
}

}  // namespace

bool StandsAs(const TMachineSnapshot& machine, const TMachineSnapshot& shown) {
  const auto near = [](double a, double b) { return std::abs(a - b) <= kSamePlaceMm; };
  return std::ranges::all_of(kAxes, [&](const TAxis& axis) { return near(axis.At(machine), axis.At(shown)); }) &&
         near(machine.Z, shown.Z) && machine.OutputsOn == shown.OutputsOn && machine.DockedTable == shown.DockedTable &&
         machine.Nozzle == shown.Nozzle && machine.Collisions == shown.Collisions;
}

TResult<TReentry> FindReentry(std::span<const TMotionCall> calls, std::size_t ended, const TListMachine& machine) {
  if (ended >= calls.size()) return TProblem{.What = Tr("the list has come to its end")};
  if (const auto quiet = CheckQuiet(machine.Now); !quiet) return quiet.Problem();
  if (machine.Now.Collisions != machine.Start.Collisions)
    return TProblem{
        .What = Tr("something was struck since the list began"), .Where = {}, .Why = machine.Now.FirstCollision};

  const std::size_t none = calls.size();
  std::size_t from = none;
  std::optional<TLeft> before;
  TLeft left(machine.Start);
  for (std::size_t i = 0; i <= ended; ++i) {
    if (calls[i].Row->Flags.Reentry && left.AtRest()) {
      from = i;
      before = left;
    }
    if (calls[i].Row->Flags.Once) from = none;  // behind it, or not at all
    left.Pass(calls[i]);
  }
  if (from == none)
    return TProblem{
        .What = Tr("there is no place where it may begin again"),
        .Where = calls[ended].Text(),
        .Why = Tr("a list begins again only at a move that raises the head first, with the beam and the gas "
                  "off, and nothing of the rack is done twice"),
        .Remedy = Tr("start it from its beginning when the machine is ready for that")};
  TComparison compared = Compare(calls[from], *before, machine);
  if (compared.Problem) return *std::move(compared.Problem);

  TReentry reentry;
  reentry.From = from;
  reentry.Compared = std::move(compared.Lines);
  for (std::size_t i = from; i < calls.size(); ++i) {
    (i <= ended ? reentry.Again : reentry.Rest).push_back(calls[i].Text());
    reentry.LightsBeam = reentry.LightsBeam || calls[i].Row->Flags.LightsBeam;
  }
  return reentry;
}

}  // namespace ixocontroller
