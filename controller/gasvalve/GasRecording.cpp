#include "controller/gasvalve/GasRecording.h"

#include <cmath>
#include <filesystem>
#include <iterator>
#include <limits>

#include <nlohmann/json.hpp>

#include "ixocamglue/monitor/Umonitorsink.h"
#include "ixocamglue/support/Files.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/JsonText.h"
#include "ixocamglue/support/Problem.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

using TJson = nlohmann::ordered_json;

constexpr const char* kFormat = "ixocut gas recording";
constexpr int kVersion = 1;
constexpr double kHighestVolt = 10.0;

TJson PairOf(const TDot& dot) {
  return {dot.X, std::isfinite(dot.Y) ? TJson(dot.Y) : TJson(nullptr)};  // JSON has no other way to say "no number"
}

TJson JsonOf(const TRecordedGas& gas) {
  TJson points = TJson::array();
  for (const TRecordedGasPoint& point : gas.Points) {
    TJson samples = TJson::array();
    for (const TDot& sample : point.Samples) samples.push_back(PairOf(sample));
    points.push_back({{"volt", point.Volt},
                      {"descending", point.Descending},
                      {"foreseen", point.Foreseen},
                      {"settled", point.Settled ? TJson(*point.Settled) : TJson(nullptr)},
                      {"samples", std::move(samples)}});
  }
  TJson table = TJson::array();
  for (const TDot& dot : gas.Table) table.push_back(PairOf(dot));
  return {{"gas", gas.Name},
          {"type", gas.GasType},
          {"stopped", gas.Stopped},
          {"maxPressure", gas.MaxPressure},
          {"zero", gas.Zero ? TJson(*gas.Zero) : TJson(nullptr)},
          {"points", std::move(points)},
          {"table", std::move(table)}};
}

// One value of the document with the way to it; whatever is not as it should be is an error that names this way.
class TReader {
 public:
  TReader(const std::string& file, const TJson& value, std::string path = {})
      : FFile(file), FValue(value), FPath(std::move(path)) {}

  [[noreturn]] void Fail(const std::string& why) const {
    throw EProblem(pbUnusable, TProblem{.What = why, .Where = FFile + (FPath.empty() ? "" : ": " + FPath)});
  }
  [[nodiscard]] TReader At(const char* name) const {
    if (!FValue.is_object()) Fail(Tr("not an object"));
    const auto it = FValue.find(name);
    if (it == FValue.end()) Fail(Format(Tr("\"%s\" is missing"), name));
    return {FFile, *it, (FPath.empty() ? "" : FPath + "/") + name};
  }
  // Whether there is such a value.
  [[nodiscard]] bool Has(const char* name) const { return FValue.is_object() && FValue.contains(name); }
  [[nodiscard]] std::vector<TReader> Items() const {
    if (!FValue.is_array()) Fail(Tr("not a list"));
    std::vector<TReader> items;
    items.reserve(FValue.size());
    for (const TJson& item : FValue)
      items.emplace_back(FFile, item, Format("%s[%zu]", FPath.c_str(), items.size() + 1));
    return items;
  }
  [[nodiscard]] double Number(double lowest, double highest) const {
    if (!FValue.is_number()) Fail(Tr("not a number"));
    const double number = FValue.get<double>();
    if (!(number >= lowest && number <= highest))
      Fail(Format(Tr("%.10g is not in %.10g..%.10g"), number, lowest, highest));
    return number;
  }
  [[nodiscard]] bool Flag() const {
    if (!FValue.is_boolean()) Fail(Tr("neither true nor false"));
    return FValue.get<bool>();
  }
  [[nodiscard]] std::string Text() const {
    if (!FValue.is_string()) Fail(Tr("not a text"));
    return FValue.get<std::string>();
  }
  [[nodiscard]] bool IsNull() const { return FValue.is_null(); }
  [[nodiscard]] TDot Pair(double highestX) const {
    const std::vector<TReader> items = Items();
    if (items.size() != 2) Fail(Tr("not a pair of numbers"));
    return {items[0].Number(0.0, highestX),
            items[1].IsNull() ? std::numeric_limits<double>::quiet_NaN() : items[1].Number(-kMost, kMost)};
  }

  static constexpr double kMost = 1e6;  // bar, ms

 private:
  const std::string& FFile;
  const TJson& FValue;
  std::string FPath;
};

TRecordedGasPoint PointOf(const TReader& reader) {
  TRecordedGasPoint point;
  point.Volt = reader.At("volt").Number(0.0, kHighestVolt);
  point.Descending = reader.At("descending").Flag();
  point.Foreseen = reader.At("foreseen").Flag();
  if (const TReader settled = reader.At("settled"); !settled.IsNull())
    point.Settled = settled.Number(-TReader::kMost, TReader::kMost);
  for (const TReader& sample : reader.At("samples").Items()) {
    point.Samples.push_back(sample.Pair(TReader::kMost));
    const std::size_t n = point.Samples.size();
    if (n > 1 && point.Samples[n - 1].X <= point.Samples[n - 2].X) sample.Fail(Tr("not later than the sample before"));
  }
  return point;
}

TRecordedGas GasOf(const TReader& reader) {
  TRecordedGas gas;
  gas.Name = reader.At("gas").Text();
  gas.GasType = static_cast<std::int32_t>(reader.At("type").Number(1, 6));
  gas.MaxPressure = reader.At("maxPressure").Number(0.0, TReader::kMost);
  gas.Stopped = reader.Has("stopped") && reader.At("stopped").Flag();  // as with the zero below
  if (reader.Has("zero") && !reader.At("zero").IsNull())               // older recordings have none
    gas.Zero = reader.At("zero").Number(-TReader::kMost, TReader::kMost);
  for (const TReader& point : reader.At("points").Items()) gas.Points.push_back(PointOf(point));
  for (const TReader& dot : reader.At("table").Items()) {
    gas.Table.push_back(dot.Pair(kHighestVolt));
    if (!std::isfinite(gas.Table.back().Y)) dot.Fail(Tr("not a pair of numbers"));
  }
  return gas;
}

}  // namespace

TJson GasRecordingJson(const TGasRecording& recording) {
  TJson gases = TJson::array();
  for (const TRecordedGas& gas : recording.Gases) gases.push_back(JsonOf(gas));
  return {{"format", kFormat},
          {"version", kVersion},
          {"nozzle", {{"type", recording.NozzType}, {"size", recording.NozzSize}}},
          {"gases", std::move(gases)}};
}

void WriteGasRecording(const std::string& file, const TGasRecording& recording) {
  const TJson document = GasRecordingJson(recording);
  TMonitorFileSink sink(file);
  sink.Write(document.dump(-1, ' ', false, TJson::error_handler_t::replace) + "\n");
  sink.Commit();
}

bool IsGasRecording(std::string_view head) { return head.starts_with("{") && head.find(kFormat) != head.npos; }

TGasRecording ReadGasRecording(const std::string& file) {
  const std::string text = ReadFile(std::filesystem::path(file)).OrThrow(pbUnusable);
  const TJson document = ParseJson(text, file).OrThrow(pbUnusable);
  const TReader root(file, document);
  if (root.At("format").Text() != kFormat) root.At("format").Fail(Tr("this is no gas recording"));
  if (root.At("version").Number(0, TReader::kMost) != kVersion)
    root.At("version").Fail(Tr("this version is not known"));
  TGasRecording recording;
  const TReader nozzle = root.At("nozzle");
  recording.NozzType = nozzle.At("type").Text();
  recording.NozzSize = nozzle.At("size").Number(0.0, 1000.0);
  for (const TReader& gas : root.At("gases").Items()) recording.Gases.push_back(GasOf(gas));
  return recording;
}

}  // namespace ixocontroller
