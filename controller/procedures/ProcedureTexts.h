// The operator texts of the host's own procedures: catalogue section "IxoCut", the key is the constant's name.
#pragma once

#include <span>

#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
using namespace ixocamglue;

extern constinit TText SNozzleChangeDesc;
extern constinit TText SRackOver, SRackCapOpen, SRackCapClose, SRackStageUp, SRackStageDown, SRackWait, SRackCheck,
    SRackTakeOff, SRackPutOn, SRackRaise, SRackOutputsOff, SRackCalibrate;
extern constinit TText SInputCheckDesc, SInputNotMet;

[[nodiscard]] std::span<TText* const> ProcedureTexts();

}  // namespace ixocontroller
