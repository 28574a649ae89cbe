// What the process of a controller that stays up owes to whoever runs it: its service manager is told, notifications go
// out, and SIGHUP reads the files again where a service manager sent it. Main thread. Nothing here fails: a file that
// cannot be read again is logged, and what was read before stays.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "controller/service/Notifications.h"
#include "controller/service/Service.h"
#include "controller/serving/Notify.h"
#include "controller/serving/ReloadSignal.h"

namespace ixocontroller {

class TServiceProcess {
 public:
  // Made after TSignalStop and after the service has started; ended before the service ends.
  // `reread`: what else is read again then, besides the machine file; it throws nothing. May be empty.
  explicit TServiceProcess(TService& service, std::function<void()> reread = {});
  ~TServiceProcess() = default;
  TServiceProcess(const TServiceProcess&) = delete;
  TServiceProcess& operator=(const TServiceProcess&) = delete;

  // The wire listens.
  void Ready() { FNotify.Ready(); }
  // Every some ten ms: looks at the signal, and reads the files again as soon as no procedure runs.
  void Look();
  // From here on nobody is told of anything but the end.
  void Stopping() { FNotify.Stopping(); }

 private:
  TService& FService;
  const std::function<void()> FReread;
  TReloadSignal FReload;
  bool FAsked = false;  // and not yet begun
  // How far the machine file's reading is; the interface thread's too.
  enum class TReread : std::uint8_t { None, Reads, Done, Refused };
  const std::shared_ptr<std::atomic<TReread>> FReads = std::make_shared<std::atomic<TReread>>(TReread::None);
  TNotify FNotify;
  TNotifications FNotifications;
};

// One line of what it does: "shot, 12 s", "standby, 2 alarms". Any thread, in its language.
[[nodiscard]] std::string StatusLine(const TStatus& status);

}  // namespace ixocontroller
