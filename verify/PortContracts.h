// What the headers of the ports promise, tried on a machine: for people's own drivers, and run on those that there are.
//
// It makes a controller of one's options on the machine that they name, in virtual or in real time, and calls the
// machine's ports on the state thread as steps do. The beam is lit, the gas is opened and the axes move: on a machine
// of software or in a laboratory, never on one with people.
//
// Tried is what is fitted:
// - laser: emission and beam come and are acknowledged off by reading back; an alarm and the latch keep them off; a
//   trip darkens from any thread and stays until the reset, and nothing is lit by the reset
// - gas: branch, pressure and valve are as they are read back; a pressure beyond the branch's is limited
// - axes, Z, focus: busy until done, at their target then; a target outside the limits moves nothing; a stop ends a
//   move from any moment, short of its target
// - outputs are read back
// - no call takes longer than its limit
// - with the connection cut: reads throw, an alarm that requires a stop and forbids the laser stands, the beam was
//   darkened, no call blocks; healed: reads answer again, the alarm ends, and nothing is lit or moves by itself
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "controller/Controller.h"

namespace ixoverify {
using namespace ixocontroller;

struct TContractRig {
  TControllerOptions Options;  // Realtime says how the time runs
  // Its devices do not answer from now on, and answer again; any thread. Empty: that is not tried.
  std::function<void()> Cut, Heal;
  bool CutsAxes = true;  // they and the follower are behind that connection too
  // ms, of real time; in virtual time a call takes none.
  std::uint32_t CallMs = 20;       // the longest that one call may take
  std::uint32_t AwayMs = 500;      // until a cut connection is noticed
  std::uint32_t BackMs = 10'000;   // until a healed one is
  std::uint32_t AnswerMs = 3'000;  // until a command is acknowledged
  double WayMm = 5.0;              // of each move
};

struct TContractViolation {
  std::string Port;  // "laser"
  std::string Text;  // what was promised and what came
};

// Main thread; what keeps the controller from being made is thrown as its EProblem.
[[nodiscard]] std::vector<TContractViolation> CheckPortContracts(const TContractRig& rig);

}  // namespace ixoverify
