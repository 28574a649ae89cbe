#include "controller/client/WireGas.h"

#include "controller/gasvalve/GasRecording.h"
#include "ixocamglue/platform/xml/FileLayer.h"

namespace ixocontroller {

TWireGas GasResultsOf(TWireClient& client, const TWireRun& run) {
  TWireGas gas{.Json = run.Json.at("result")};
  const TWireAnswer verdict = client.AskAny("GET", "/api/v1/gas/verdict?run=" + std::to_string(run.Id));
  if (verdict.Status < 400)
    for (const auto& judged : verdict.Body.at("gases"))
      for (auto& told : gas.Json.at("gases"))
        if (told.at("gas") == judged.at("gas")) told["findings"] = judged.at("findings");
  for (const auto& told : gas.Json.at("gases")) gas.Results.push_back(GasResultFromJson(told));
  return gas;
}

void FetchGasSamples(TWireClient& client, const TWireRun& run, const std::string& file,
                     std::vector<TGasResult>& results) {
  ReplaceOrThrow(file, client.Get("/api/v1/gas/recording?run=" + std::to_string(run.Id)).dump(2) + "\n");
  const TGasRecording measured = ReadGasRecording(file);
  for (TGasResult& result : results) AddSamples(result, measured);
}

}  // namespace ixocontroller
