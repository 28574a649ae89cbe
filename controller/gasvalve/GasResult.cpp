#include "controller/gasvalve/GasResult.h"

#include <algorithm>

namespace ixocontroller {

double TGasResult::MaxBar() const {
  double highest = 0.0;
  for (const TGasPoint& point : Points)
    if (point.Settled) highest = std::max(highest, point.Press);
  return highest;
}

}  // namespace ixocontroller
