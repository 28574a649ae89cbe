// A gas calibration in the controller that is asked, and what it has left. One thread, the client's. Throws EProblem as
// the client does.
#pragma once

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "controller/client/WireRun.h"
#include "controller/gas/GasReport.h"

namespace ixocontroller {

// What came of it, gas by gas; its verdicts in the client's language.
struct TWireGas {
  nlohmann::ordered_json Json;  // Results name its texts
  std::vector<TGasResult> Results;
};
[[nodiscard]] TWireGas GasResultsOf(TWireClient& client, const TWireRun& run);
// Its samples, into `file` and into the results. Throws also where the file cannot be written.
void FetchGasSamples(TWireClient& client, const TWireRun& run, const std::string& file,
                     std::vector<TGasResult>& results);

}  // namespace ixocontroller
