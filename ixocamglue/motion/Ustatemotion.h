// The way in to the concrete steps, and the table of the commands that are made from their numbers. The table is
// constant: any thread, and nothing throws.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

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
  std::string_view Class;
  const TText* Desc;
  TStepFactory Make;
};

// Every command that AddMotionByCmd knows, rising.
[[nodiscard]] std::span<const TMotionCommand> MotionCommands();

}  // namespace ixocamglue
