// The texts of all units of the controller.
#pragma once

#include "controller/HostTexts.h"
#include "controller/gas/GasTexts.h"
#include "controller/panel/PanelTexts.h"
#include "controller/procedures/ProcedureTexts.h"

namespace ixocontroller {

inline constexpr TTextList kControllerTexts[] = {kHostTexts, kGasTexts, kPanelTexts, kProcedureTexts};

}  // namespace ixocontroller
