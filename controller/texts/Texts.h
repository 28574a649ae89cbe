// The texts of all units of the controller.
#pragma once

#include "controller/texts/GasTexts.h"
#include "controller/texts/HostTexts.h"
#include "controller/texts/PanelTexts.h"
#include "controller/texts/ProcedureTexts.h"

namespace ixocontroller {

inline constexpr TTextList kControllerTexts[] = {kHostTexts, kGasTexts, kPanelTexts, kProcedureTexts};

}  // namespace ixocontroller
