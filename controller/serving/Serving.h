// A controller that stays up and is asked over the wire, whole: from the lock on its state folder to its end, dark and
// in order. `ixocut serve` is this and a command line; a program of one's own is this and a loop. Main thread; threads
// and signals as Service.h, Server.h and ServiceProcess.h say.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "controller/Controller.h"
#include "controller/api/Api.h"
#include "controller/process/ControllerFile.h"
#include "controller/service/Service.h"
#include "controller/serving/ServiceProcess.h"
#include "controller/wire/Server.h"

namespace ixocontroller {

struct TServingOptions {
  std::filesystem::path StateFolder;
  // Asked for once the state folder is this process's. The alarm store and the log are added here.
  std::function<TControllerOptions()> Controller;
  double Speed = 1.0;  // of a virtual clock
  std::string Address = "127.0.0.1";
  std::uint16_t Port = kWirePort;          // 0: the system picks one
  std::vector<std::string> Hosts;          // further names that it is asked under
  std::filesystem::path Certificate, Key;  // PEM files, read again on SIGHUP; empty: no TLS
  bool Insecure = false;                   // other machines are let in without encryption
};

// Only its constructor fails. What goes wrong later is a matter of the service's log and, at the end, of
// TControllerOptions::EndFailed.
class TServing {
 public:
  // When it returns the controller runs and listens. Made after TSignalStop, so that a signal never keeps the end from
  // switching off. Throws EProblem: pbRefused while another controller has the state folder or the machine file,
  // pbUnusable for files, devices and a port that cannot be used.
  explicit TServing(TServingOptions options);
  ~TServing() { End(); }
  TServing(const TServing&) = delete;
  TServing& operator=(const TServing&) = delete;

  [[nodiscard]] TService& Service() { return *FService; }
  [[nodiscard]] std::string Url() const { return FServer->Url(); }
  [[nodiscard]] std::filesystem::path Socket() const;
  // Why nobody finds it by its state folder; nothing: it is found.
  [[nodiscard]] const std::optional<TProblem>& NotFound() const { return FNotFound; }

  // The service manager is told that it is ready. Once.
  void Ready() { FProcess->Ready(); }
  // At least every 100 ms, until it is to end: what a service manager asks for.
  void Look() { FProcess->Look(); }
  void End();

 private:
  void ReadTlsAgain();

  const TServingOptions FOptions;
  const std::shared_ptr<const TServerTls> FTls;  // as it was at the start; null: none
  TControllerLock FLock;
  std::unique_ptr<ILogSink> FLog;
  std::optional<TService> FService;
  std::optional<TApi> FApi;
  std::optional<TWireServer> FServer;
  std::optional<TServiceProcess> FProcess;
  std::optional<TProblem> FNotFound;
};

}  // namespace ixocontroller
