// The operator texts of the motion steps: catalogue section "CamGlue", the key is the constant's name unless given.
#pragma once

#include <span>

#include "support/Texts.h"

namespace ixocamglue {

extern constinit TText SOpenShutter, SWaitShutter, SLaserOn, SDelay, SLaserOff;  // the timed shot's five lines
extern constinit TText SLaserOnDesc, SLaserOffOnlyDesc, SLaserOnTimeDesc;
extern constinit TText SGasOnDesc, SGasOffDesc, SWaitInportDesc;

[[nodiscard]] std::span<TText* const> MotionTexts();

}  // namespace ixocamglue
