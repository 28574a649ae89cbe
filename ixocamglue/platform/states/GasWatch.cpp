#include "ixocamglue/platform/states/GasWatch.h"

#include "ixocamglue/platform/ports/CutSystem.h"

namespace ixocamglue {
namespace {

bool SupplyGood() {
  TNcGas* const gas = FittedGas();
  return !gas || gas->SupplyGood();
}

}  // namespace

bool TGasWatch::Round(const TNcWatch& watch, bool byHand, std::uint64_t nowMs) {
  if (byHand || !watch.LaserOn.Runs() || !watch.GasOn.Runs() || SupplyGood()) {
    FMissing.End();
    return false;
  }
  FMissing.Begin(nowMs);
  return FMissing.LastedMs(nowMs) >= kLimitMs;
}

}  // namespace ixocamglue
