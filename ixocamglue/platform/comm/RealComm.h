// The machine's real communication parts, each in its own source. Not for users: they come through CommParts().
#pragma once

#include <memory>

#include "ixocamglue/platform/comm/Comm.h"

namespace ixocamglue {

std::unique_ptr<TCommCtrl> MakeRealSerial();
std::unique_ptr<TVkTcpClient> MakeRealTcp();
std::unique_ptr<TIcmpClient> MakeRealIcmp();
std::unique_ptr<TUDPClient> MakeRealUdp();

}  // namespace ixocamglue
