// The machine procedures that the host knows by name: one table, in the order in which people look them up. A row is
// all that a procedure needs to be shown as a tree and to join the abort sweep.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string_view>

#include "ixocamglue/motion/Ustatemotion.h"
#include "ixocamglue/motion/Ustatemotionbase.h"

namespace ixocamglue {
class TSimMachine;
}

namespace ixocontroller {
using namespace ixocamglue;

struct TProcedure {
  const char* Name;
  const char* Summary;                      // English, for help pages
  TStepPtr (*Make)();                       // the root, not yet built
  void (*Prepare)(TSimMachine&) = nullptr;  // what the simulated machine needs for it, may be null
  bool UsesLaser = false;
  bool LeavesGasOn = false;      // on success
  bool UsesConfig = false;       // its machine is described by a file
  bool LeavesFollowing = false;  // on success
  bool DriverZ = false;          // its machine has no follower
  enum TOutputs : std::uint8_t { otOff, otStayAfterAbort, otStay } Outputs = otOff;
};

[[nodiscard]] std::span<const TProcedure> Procedures();
[[nodiscard]] const TProcedure* FindProcedure(std::string_view name);  // null: unknown

// Those that move the head, its devices and the rack: every composite and every single command of the step factory.
[[nodiscard]] std::span<const TProcedure> MachineProcedures();
// The same on machines that are fitted otherwise, for the abort sweep: a second follower, or none.
[[nodiscard]] std::span<const TProcedure> VariantProcedures();

// The timed laser shot, command 515.
[[nodiscard]] TStepPtr MakeShot(std::uint32_t ms);

// A root as the controller holds it: shared, and leaving through its error path when it dies loaded.
[[nodiscard]] std::shared_ptr<IStateMotion> ShareRoot(TStepPtr step);

}  // namespace ixocontroller
