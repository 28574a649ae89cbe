// The followers of a machine that has one or two of them. Constant after construction: any thread may ask it.
#pragma once

#include <cstdint>

#include "ixocamglue/platform/ports/CutSystem.h"

namespace ixocamglue {

class TNcFollowerPair final : public TNcMultiFollower {
 public:
  // Null: not fitted. They outlive it.
  TNcFollowerPair(TNcFollower* first, TNcFollower* second) : FFollowers{first, second} {}
  TNcFollower* GetFollower(std::int32_t index) override {
    return index == 0 || index == 1 ? FFollowers[index] : nullptr;
  }

 private:
  TNcFollower* const FFollowers[2];
};

}  // namespace ixocamglue
