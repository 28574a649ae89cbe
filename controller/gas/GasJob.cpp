#include "controller/gas/GasJob.h"

#include <filesystem>
#include <utility>

#include "controller/gas/GasReport.h"
#include "controller/gasvalve/GasDescent.h"
#include "controller/texts/GasTexts.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {

nlohmann::ordered_json JsonOf(const TGasOrder& order) {
  nlohmann::ordered_json json{
      {"gases", nlohmann::ordered_json::array()},      {"nozzle", order.Nozzle.Type}, {"size", order.Nozzle.Size},
      {"method", order.Refined ? "refined" : "exact"}, {"keep", order.Keep},          {"descend", order.Descend}};
  for (const std::int32_t gas : order.Gases) json["gases"].push_back(GasName(gas));
  return json;
}

// --- TDamagedTables ---

TDamagedTables::TDamagedTables()
    : FDamaged(!TGasCaliConfig().Load(GasCaliConfigFile(), mfDefaults)), FBefore(Aside()) {}

std::string TDamagedTables::Text() const {
  std::set<std::string> aside = FDamaged ? Aside() : std::set<std::string>();
  for (const std::string& before : FBefore) aside.erase(before);
  if (aside.empty()) return {};
  return Format(Tr("%s could not be read and is now %s: the tables of other nozzles and gases are no longer in use; "
                   "take them from there or from %s.bak"),
                GasCaliConfigFile().c_str(), aside.begin()->c_str(), GasCaliConfigFile().c_str());
}

std::set<std::string> TDamagedTables::Aside() {
  std::set<std::string> files;
  std::error_code error;
  const std::string start = GasCaliConfigFile().string() + ".broken";
  for (const auto& file : std::filesystem::directory_iterator(GasCaliConfigFile().parent_path(), error))
    if (file.path().string().starts_with(start)) files.insert(file.path().string());
  return files;
}

// --- TGasJob ---

TController& TGasJob::Unused(TController& controller) {
  TZemGasAdjustModel& model = *GZemGasAdjustModel();
  if (model.AjdustIsBusy()) throw EProblem(pbRefused, Tr("a gas calibration runs"));
  for (std::string stale; model.GetMsg(stale);) continue;  // of whatever came before
  return controller;
}

TGasJob::TGasJob(TController& controller, TGasOrder order, TTold told)
    : FController(Unused(controller)),
      FOrder(std::move(order)),
      FTold(std::move(told)),
      FCalibration(controller, FOrder.Gases, FOrder.Nozzle, FOrder.Keep) {
  GZemGasAdjustModel()->SetRefined(FOrder.Refined);
}

TResult<> TGasJob::Start() {
  FStartMs = Clock().MonotonicMs();
  FEnds = FController.Framework().EndsAsked();
  for (const TGasResult& result : FCalibration.Results())
    if (result.End == TGasEnd::Skipped) Tell(result.Why);
  return FCalibration.Start();
}

bool TGasJob::Round(std::uint64_t nowMs) {
  if (!FController.VirtualClock()) FCalibration.Watch(nowMs);
  TakeMessages();
  if (FCalibration.Running() || FController.Running()) return true;
  if (!FOrder.Descend || std::exchange(FDescentAsked, true) || !FCalibration.Completed()) return false;
  if (FController.Framework().EndsAsked() != FEnds) return false;  // a stop between the two
  FDescending = FController.Descents().Start(FController.Framework(), FCalibration.Results());
  return FDescending;
}

void TGasJob::Stop() { FController.Framework().Stop(); }

void TGasJob::Conclude() {
  if (FDescending)
    for (const TGasDescent& descent : FController.Descents().Items())
      FCalibration.Conclude(descent.Gas, descent.Points);
  FCalibration.Conclude();
  TakeMessages();
  if (const std::string text = FDamaged.Text(); !text.empty()) Tell(text);
}

void TGasJob::TakeMessages() {
  for (std::string text; FCalibration.GetMsg(text);) Tell(text);
}

void TGasJob::Tell(const std::string& text) {
  const std::uint64_t ms = LastedMs();
  FMessages.push_back({{"ms", ms}, {"text", text}});
  if (FTold) FTold(ms, text);
}

std::uint64_t TGasJob::LastedMs() const { return Clock().MonotonicMs() - FStartMs; }

nlohmann::ordered_json TGasJob::Json() const {
  auto gases = nlohmann::ordered_json::array();
  for (const TGasResult& result : FCalibration.Results()) gases.push_back(JsonOf(result));
  return {{"nozzle", FOrder.Nozzle.Type},
          {"size", FOrder.Nozzle.Size},
          {"method", FOrder.Refined ? "refined" : "exact"},
          {"completed", FCalibration.Completed()},
          {"success", FCalibration.Success()},
          {"gases", std::move(gases)},
          {"messages", FMessages}};
}

std::optional<TProblem> TGasJob::Problem() const {
  if (FCalibration.Success()) return {};
  TProblem problem{.What = Tr("not every gas was calibrated")};
  for (const TGasResult& result : FCalibration.Results())
    if (problem.Why.empty()) problem.Why = result.Why;
  return problem;
}

}  // namespace ixocontroller
