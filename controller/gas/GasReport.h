// What is told of gases, their calibration and their stored tables: names, words and JSON. V, bar, ms. Any thread,
// while the configuration stands still. What is no gas or nozzle is a problem; nothing throws.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "controller/gas/GasCalibration.h"
#include "ixocamglue/config/Libmachinecfg.h"
#include "ixocamglue/gascal/Ugasnozzcaliconfig.h"

namespace ixocontroller {

inline constexpr const char* kGasHelp = TrMark("Air, O2, N2, H-Air, H-O2 or H-N2, or its number from 1");
inline constexpr double kLargestNozzleMm = 100.0;
inline constexpr std::int32_t kTableGases[] = {1, 2, 3};  // tables are stored for these only

// "Air", "2": gas types, each once and known; at least one.
[[nodiscard]] TResult<std::vector<std::int32_t>> ParseGases(const std::vector<std::string>& names);
// The nozzle has a type, and its diameter is above 0 to kLargestNozzleMm.
[[nodiscard]] TResult<> CheckNozzle(const TGasNozzle& nozzle);
// "Oxygen", as the machine or the language calls it; for text only.
[[nodiscard]] std::string ShownGas(std::int32_t gasType);
// "Air"; "?" for a number that is no gas type. For JSON and what people type.
[[nodiscard]] inline const char* GasName(std::int32_t gasType) { return GasTypeName(gasType); }
[[nodiscard]] const TText& TextOf(TGasEnd end);

[[nodiscard]] nlohmann::ordered_json FindingsJson(const std::vector<TGasFinding>& findings);
[[nodiscard]] nlohmann::ordered_json JsonOf(const TGasResult& result);
// The same backwards, as far as it is shown; as long as `json`, whose texts its findings name.
[[nodiscard]] TGasResult GasResultFromJson(const nlohmann::ordered_json& json);
// Its points with their samples, which only the recording of the calibration has.
void AddSamples(TGasResult& result, const TGasRecording& recording);

// A stored table of a nozzle; as long as the configuration that it is of.
struct TStoredTable {
  std::int32_t Gas = 0;
  const TGasCaliItem* Item = nullptr;
};
// Those of the gases; of one type of nozzle where `nozzle` is not empty, of one size where `size` is above 0.
[[nodiscard]] std::vector<TStoredTable> StoredTables(TGasCaliConfig& stored, const std::vector<std::int32_t>& gases,
                                                     std::string_view nozzle, double size);

// A stored table and the one in use, over the voltages of either.
struct TTableDifference {
  struct TPoint {
    double Volt = 0.0, StoredBar = 0.0, UsedBar = 0.0;
    [[nodiscard]] double Bar() const { return UsedBar - StoredBar; }
  };
  bool Equal = false;
  double LargestBar = 0.0;
  std::vector<TPoint> Points;
};
[[nodiscard]] TTableDifference CompareTables(const TDAAdjustTable& stored, const TDAAdjustTable& used);

[[nodiscard]] std::vector<TDot> DotsOf(const TDAAdjustTable& table);
[[nodiscard]] nlohmann::ordered_json JsonOf(const std::vector<TDot>& dots);
[[nodiscard]] nlohmann::ordered_json JsonOf(const TStoredTable& table);

}  // namespace ixocontroller
