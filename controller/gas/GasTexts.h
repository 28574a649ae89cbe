// The operator texts of the gas commands: catalogue section "IxoCut", the key is the constant's name.
#pragma once

#include <span>

#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
using namespace ixocamglue;

extern constinit TText SGasTitle, SGasNotFitted, SGasUnsettled, SGasFlatPoints, SGasFewPoints, SGasKeptFile,
    SGasDescent;
extern constinit TText SGasColGas, SGasColPoints, SGasColTime, SGasColKnee, SGasColMax, SGasColResult;
extern constinit TText SGasOk, SGasRestored, SGasFailed, SGasSkipped, SGasUnfinished;
extern constinit TText SGasNoTable, SGasPressure;  // gas pressure

[[nodiscard]] std::span<TText* const> GasTexts();

}  // namespace ixocontroller
