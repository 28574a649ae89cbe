// Whether a procedure's beam goes on although its gas does not come any more: lit, with the gas on, and a supply that
// is not good for 200 ms on end. It reads atomics and TNcGas::SupplyGood only. State thread; monotonic ms. What
// SupplyGood throws passes through.
#pragma once

#include <cstdint>

#include "ixocamglue/platform/states/NcWatch.h"

namespace ixocamglue {

class TGasWatch {
 public:
  static constexpr std::uint64_t kLimitMs = 200;

  // Once in each pass. True: what runs has to end. `byHand`: what is lit there is no procedure's.
  [[nodiscard]] bool Round(const TNcWatch& watch, bool byHand, std::uint64_t nowMs);

 private:
  TNcSince FMissing;
};

}  // namespace ixocamglue
