// The application's services: its log, its message box, and services found by identifier. Any thread. Nothing throws.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "ixocamglue/support/Installed.h"
#include "ixocamglue/support/Locks.h"

namespace ixocamglue {

// An interface identifier: "{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}".
struct TGuid {
  std::string_view Text;
};

class IAppService {
 public:
  virtual ~IAppService() = default;
};

class TAppSys {
 public:
  // Queues a line of the application log; never throws, never blocks.
  void LogMsg(std::int32_t kind, std::int32_t colour, std::string_view text, std::string_view source = {}) noexcept;
  // Shows the operator a message, through what SetMessageBox installed; without one it goes to the log.
  void ShowMessage(std::string_view text);
  void SetMessageBox(std::function<void(std::string_view)> show);  // before any thread starts

  // Registers under an identifier; a second service under the same identifier replaces the first.
  void Register(TGuid id, std::shared_ptr<IAppService> service);
  void Unregister(TGuid id);
  // Null when nobody offers the service, or when it is of another type: the caller skips its work.
  template <class Service>
  [[nodiscard]] std::shared_ptr<Service> Supports(TGuid id) const {
    return std::dynamic_pointer_cast<Service>(Find(id));
  }

 private:
  [[nodiscard]] std::shared_ptr<IAppService> Find(TGuid id) const;

  std::function<void(std::string_view)> FMessageBox;
  mutable TCriticalSection FLock;
  std::map<std::string, std::shared_ptr<IAppService>, std::less<>> FServices IXO_GUARDED_BY(FLock);
};

IXO_DECLARE_SERVICE(TAppSys, AppSys);

// AppSys()->LogMsg where there is an application.
void LogMsg(std::int32_t kind, std::int32_t colour, std::string_view text, std::string_view source = {}) noexcept;

}  // namespace ixocamglue
