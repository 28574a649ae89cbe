// Gas valves: what is fitted, their calibration, the stored tables and the verdict.
#include <algorithm>
#include <cmath>

#include "controller/api/Api.h"
#include "controller/api/Asked.h"
#include "controller/api/Body.h"
#include "controller/gas/GasReport.h"
#include "controller/service/GasDesk.h"
#include "ixocamglue/platform/services/LocaleManager.h"

namespace ixocontroller {
namespace {

using TJson = nlohmann::ordered_json;

constexpr std::uint64_t kLongestCalibrationMs = 3'600'000;  // machine time; a gas takes about a minute

TApiReply ShowGas(TService& service, const TApiRequest&) {
  const TMachineSnapshot& now = service.Status()->Machine;
  TApiReply reply;
  reply.Body = {{"branches", service.Gas().Branches()},
                {"now",
                 {{"on", now.Gas},
                  {"gas", now.GasBranch > 0 ? TJson(GasName(now.GasBranch)) : TJson()},
                  {"setBar", now.GasSetBar},
                  {"bar", now.GasBar},
                  {"volt", now.GasVolt}}},
                {"calibrating", GZemGasAdjustModel()->AjdustIsBusy()},
                {"lastRun", service.Gas().Last() ? TJson(service.Gas().Last()->Run) : TJson()}};
  return reply;
}

// The nozzle's diameter of a query; 0 where it is not named.
double SizeOf(const TApiRequest& request) {
  const std::string text = QueryOf(request, "size");
  if (text.empty()) return 0.0;
  const auto size = ParseNumber<double>(text);
  if (!size || !(*size > 0.0 && *size <= kLargestNozzleMm))
    throw EProblem(pbRequest, TProblem{.What = Format(Tr("\"%s\" is no diameter above 0 to 100 mm"), text.c_str()),
                                       .Where = "size"});
  return *size;
}

TApiReply ShowTables(TService&, const TApiRequest& request) {
  std::vector<std::int32_t> gases{std::begin(kTableGases), std::end(kTableGases)};
  if (const std::string gas = QueryOf(request, "gas"); !gas.empty()) gases = ParseGases({gas}).OrThrow(pbRequest);
  const double size = SizeOf(request);
  TGasCaliConfig stored;
  stored.Load(GasCaliConfigFile(), mfDefaults).OrThrow(pbUnusable);
  TJson tables = TJson::array();
  for (const TStoredTable& table : StoredTables(stored, gases, QueryOf(request, "nozzle"), size))
    tables.push_back(JsonOf(table));
  TApiReply reply;
  reply.Body = {{"tables", std::move(tables)}};
  return reply;
}

const TGasDesk::TLast& LastOf(TService& service, const TApiRequest& request) {
  const std::string run = QueryOf(request, "run");
  const auto& last = service.Gas().Last();
  const std::uint64_t asked = run.empty() ? 0 : WholeNumber(run, "run", 1, ~std::uint64_t{0});
  if (!last) throw EProblem(pbRefused, Tr("no gas was calibrated since the controller started"));
  if (asked != 0 && asked != last->Run)
    throw EProblem(pbRefused,
                   TProblem{.What = Tr("only the last calibration is kept with its samples"),
                            .Why = Format(Tr("the last one is run %llu"), static_cast<unsigned long long>(last->Run))});
  return *last;
}

TApiReply ShowVerdict(TService& service, const TApiRequest& request) {
  const TGasDesk::TLast& last = LastOf(service, request);
  TJson gases = TJson::array();
  bool good = !last.Recording.Gases.empty();
  for (const TRecordedGas& gas : last.Recording.Gases) {
    const std::vector<TGasFinding> findings = JudgeGas(gas);  // in the language of who asks
    good = good && !gas.Stopped && !FirstBad(findings);
    gases.push_back({{"gas", gas.Name},
                     {"text", Retold(ShownGas(gas.GasType))},
                     {"stopped", gas.Stopped},
                     {"good", !gas.Stopped && !FirstBad(findings)},
                     {"findings", FindingsJson(findings)}});
  }
  TApiReply reply;
  reply.Body = {{"run", last.Run},
                {"nozzle", last.Recording.NozzType},
                {"size", last.Recording.NozzSize},
                {"good", good},
                {"gases", std::move(gases)}};
  return reply;
}

TApiReply ShowRecording(TService& service, const TApiRequest& request) {
  TApiReply reply;
  reply.Body = GasRecordingJson(LastOf(service, request).Recording);
  return reply;
}

TGasNozzle NozzleOf(const TAskedBody& body) {
  TGasNozzle nozzle{body.Text("nozzle"), body.Number("size", 0.0, kLargestNozzleMm)};
  CheckNozzle(nozzle).OrThrow(pbRequest);
  return nozzle;
}

TApiReply Calibrate(TService& service, const TApiRequest& request) {
  const TAskedBody body(request, {"gases", "nozzle", "size", "method", "keep", "descend", "detach"});
  TGasOrder order{.Gases = ParseGases(body.Texts("gases")).OrThrow(pbRequest), .Nozzle = NozzleOf(body)};
  const std::string method = body.Has("method") ? body.Text("method") : "exact";
  if (method != "exact" && method != "refined")
    throw EProblem(pbRequest, TProblem{.What = Format(Tr("\"%s\" is not one of %s"), method.c_str(), "exact, refined"),
                                       .Where = "method"});
  order.Refined = method == "refined";
  order.Keep = body.Flag("keep", false);
  order.Descend = body.Flag("descend", false);
  service.AtRest().OrThrow(pbRefused);
  TRunRequest run;
  run.Procedure = kGasRun;
  run.JobParams = JsonOf(order);
  run.Job = service.Gas().MakeRun(std::move(order));
  run.LimitMs = kLongestCalibrationMs;
  run.Detached = body.Flag("detach", false);
  service.Run(std::move(run), request.Who).OrThrow(pbRefused);
  TApiReply reply;
  reply.Status = 201;
  reply.Body = RunHeadJson(*service.Runner().Current());
  return reply;
}

TApiReply UseTables(TService& service, const TApiRequest& request) {
  const TAskedBody body(request, {"gases", "nozzle", "size"});
  const std::vector<std::string> named = body.Texts("gases");
  std::vector<std::int32_t> gases{std::begin(kTableGases), std::end(kTableGases)};
  if (!named.empty()) gases = ParseGases(named).OrThrow(pbRequest);
  const TGasNozzle nozzle = NozzleOf(body);
  service.AtRest().OrThrow(pbRefused);
  TZemGasAdjustModel& model = *GZemGasAdjustModel();
  TJson loaded = TJson::array();
  std::optional<TProblem> problem;
  for (const std::int32_t gas : gases) {
    const TResult<> result = model.LoadGasData(gas, nozzle.Type, nozzle.Size);
    if (result)
      loaded.push_back(GasName(gas));
    else if (!problem)
      problem = result.Problem();
  }
  TJson messages = TJson::array();
  for (std::string text; model.GetMsg(text);) messages.push_back(text);
  if (problem && loaded.empty()) return Fail(409, *problem);
  TApiReply reply;
  reply.Body = {{"gases", std::move(loaded)},
                {"messages", std::move(messages)},
                {"problem", problem ? TJson(problem->Text()) : TJson()}};
  return reply;
}

constexpr TApiRoute kGasRoutes[] = {
    {"GET", "/api/v1/gas", roNone, false, true, &ShowGas, "The gas branches, and the pressure now"},
    {"GET", "/api/v1/gas/tables", roNone, false, true, &ShowTables, "The stored tables of nozzles"},
    {"GET", "/api/v1/gas/verdict", roNone, false, true, &ShowVerdict, "What the last calibration says of the valves"},
    {"GET", "/api/v1/gas/recording", roNone, false, true, &ShowRecording, "The last calibration with every sample"},
    {"POST", "/api/v1/gas/calibrate", roOperator, true, true, &Calibrate, "Calibrate gas valves, as a run"},
    {"POST", "/api/v1/gas/use", roOperator, true, true, &UseTables, "Put stored tables into the machine file"},
};

}  // namespace

std::span<const TApiRoute> GasRoutes() { return kGasRoutes; }

}  // namespace ixocontroller
