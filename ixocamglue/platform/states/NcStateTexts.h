// Texts of the state framework.
#pragma once

#include "ixocamglue/support/Texts.h"

namespace ixocamglue {

inline constinit TText SNcWedged{"CamGlue", "SNcWedged", "状态 %d 的程序没有可等待的条件，无法继续"};

inline constexpr auto kNcStateTexts = TextList(SNcWedged);

}  // namespace ixocamglue
