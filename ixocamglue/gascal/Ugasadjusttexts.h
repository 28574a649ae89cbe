// The operator texts of the gas calibration: catalogue section "CamGlue", the key is the constant's name.
#pragma once

#include <span>

#include "ixocamglue/support/Texts.h"

namespace ixocamglue {

extern constinit TText SQAdjSucc, SQAdjAllSucc, SQAdjAllSameValue, SQAdjFailed, SQAdjBegin, SQAdjTermin;
extern constinit TText SQAdjNoGasData, SQAdjLoadDataBegin, SQAdjLoadDataSucc;

[[nodiscard]] std::span<TText* const> GasAdjustTexts();

}  // namespace ixocamglue
