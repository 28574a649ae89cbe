#include "ixocamglue/platform/services/AppSys.h"

#include "ixocamglue/platform/services/Log.h"

namespace ixocamglue {

void TAppSys::LogMsg(std::int32_t kind, std::int32_t colour, std::string_view text, std::string_view source) noexcept {
  if (TLogService* logs = Logs()) logs->PostMsg(kind, colour, text, source);
}

void TAppSys::ShowMessage(std::string_view text) {
  if (FMessageBox)
    FMessageBox(text);
  else
    LogMsg(lkWarning, 0, text);
}

void TAppSys::SetMessageBox(std::function<void(std::string_view)> show) { FMessageBox = std::move(show); }

void TAppSys::Register(TGuid id, std::shared_ptr<IAppService> service) {
  TGuard guard(FLock);
  FServices.insert_or_assign(std::string(id.Text), std::move(service));
}

void TAppSys::Unregister(TGuid id) {
  TGuard guard(FLock);
  if (const auto it = FServices.find(id.Text); it != FServices.end()) FServices.erase(it);
}

std::shared_ptr<IAppService> TAppSys::Find(TGuid id) const {
  TGuard guard(FLock);
  const auto it = FServices.find(id.Text);
  return it == FServices.end() ? nullptr : it->second;
}

void LogMsg(std::int32_t kind, std::int32_t colour, std::string_view text, std::string_view source) noexcept {
  if (TAppSys* app = AppSys()) app->LogMsg(kind, colour, text, source);
}

IXO_DEFINE_SERVICE(TAppSys, AppSys)

}  // namespace ixocamglue
