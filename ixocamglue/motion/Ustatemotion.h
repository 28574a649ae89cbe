// The way in to the concrete steps, and the factory that makes a step from a command number.
#pragma once

#include <cstdint>
#include <span>

#include "ixocamglue/motion/Ucleansteps.h"
#include "ixocamglue/motion/Uheadsteps.h"
#include "ixocamglue/motion/Ulasersteps.h"
#include "ixocamglue/motion/Umovesteps.h"
#include "ixocamglue/motion/Unozzlesteps.h"
#include "ixocamglue/motion/Uoutputsteps.h"
#include "ixocamglue/motion/Uwaitsteps.h"

namespace ixocamglue {

struct TMotionCommand {
  std::int32_t Command;
  TStepFactory Make;
};

// Every command that AddMotionByCmd knows, rising.
[[nodiscard]] std::span<const TMotionCommand> MotionCommands();

// Makes the step of a command, appends it to the composite and, with `build`, builds its data. False, and nothing
// made, for an unknown command or a composite that is full.
bool AddMotionByCmd(std::int32_t command, TSmtComposite& composite, bool build);

}  // namespace ixocamglue
