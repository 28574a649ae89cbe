#include "controller/serving/Serving.h"

#include <utility>

#include "controller/process/StateFiles.h"
#include "controller/process/StateFolder.h"
#include "controller/serving/ProcessLog.h"
#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Log.h"

namespace ixocontroller {
namespace {

TResult<std::shared_ptr<const TServerTls>> ReadTls(const TServingOptions& options) {
  if (options.Certificate.empty()) return std::shared_ptr<const TServerTls>();
  return TServerTls::Read(options.Certificate, options.Key);
}

}  // namespace

TServing::TServing(TServingOptions options)
    : FOptions(std::move(options)), FTls(ReadTls(FOptions).OrThrow(pbUnusable)) {
  const std::filesystem::path& state = FOptions.StateFolder;
  FLock.Take(state).OrThrow(FindController(state) ? pbRefused : pbUnusable);
  FLog = MakeProcessLog(state);
  TControllerOptions controller = FOptions.Controller();
  controller.Sinks.push_back(FLog.get());
  controller.AlarmDb = state / kAlarmStoreFile;
  FService.emplace(TServiceOptions{.Controller = std::move(controller), .Speed = FOptions.Speed, .StateFolder = state});
  FApi.emplace(*FService);
  FServer.emplace(*FApi, *FService,
                  TWireOptions{.Address = FOptions.Address,
                               .Port = FOptions.Port,
                               .StateFolder = state,
                               .Hosts = FOptions.Hosts,
                               .Tls = FTls,
                               .Insecure = FOptions.Insecure,
                               .OpenApi = ShareFolder() / "api" / "openapi.json",
                               .Pages = {.Console = ShareFolder() / "console",
                                         .Locale = ShareFolder() / "locale",
                                         .Plots = "/usr/share/javascript/dygraphs"},
                               .Limits = {}});
  FService->SetAddress(FServer->Url());
  FService->Start();
  FServer->Start();
  if (FTls) FTls->LogState();
  FProcess.emplace(*FService, [this] { ReadTlsAgain(); });
  if (const TResult<> described = FLock.Describe(FServer->Url(), Socket().string()); !described)
    FNotFound = described.Problem();
}

std::filesystem::path TServing::Socket() const { return std::filesystem::absolute(FOptions.StateFolder / kWireSocket); }

void TServing::ReadTlsAgain() {
  const auto again = ReadTls(FOptions);
  if (!again) return LogMsg(lkError, 0, again.Problem().Text(), "serve");
  if (!*again) return;
  (*again)->LogState();
  FServer->SetTls(*again);
}

void TServing::End() {
  if (!FProcess) return;
  FProcess->Stopping();
  FServer->End();
  FProcess.reset();
  FService->End();
  FLock.Release();
}

}  // namespace ixocontroller
