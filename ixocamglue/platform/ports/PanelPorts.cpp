#include "ixocamglue/platform/ports/PanelPorts.h"

#include <algorithm>
#include <utility>

namespace ixocamglue {

TNcWindows::THandle TWindowTable::Open(std::string_view title, TReceiver receive) {
  auto receiver = std::make_shared<const TReceiver>(std::move(receive));
  TGuard guard(FLock);
  std::erase_if(FWindows, [&](const auto& window) { return window.second.Title == title; });
  FWindows.emplace(++FLast, TWindow{std::string(title), std::move(receiver)});
  return FLast;
}

void TWindowTable::Close(THandle window) {
  TGuard guard(FLock);
  FWindows.erase(window);
}

TNcWindows::THandle TWindowTable::FindWindow(std::string_view title) {
  TGuard guard(FLock);
  const auto it = std::ranges::find_if(FWindows, [&](const auto& window) { return window.second.Title == title; });
  return it == FWindows.end() ? 0 : it->first;
}

void TWindowTable::PostMessage(THandle window, const TWindowMessage& message) {
  std::shared_ptr<const TReceiver> receive;
  {
    TGuard guard(FLock);
    if (const auto it = FWindows.find(window); it != FWindows.end()) receive = it->second.Receive;
  }
  if (receive && *receive) (*receive)(message);
}

IXO_DEFINE_SERVICE(TNcWindows, NcWindows)
IXO_DEFINE_SERVICE(TNcSysInts, NcSysInts)
IXO_DEFINE_SERVICE(TNcEmergencyStop, EmergencyStop)

}  // namespace ixocamglue
