// The machine's real communication parts, each in its own source. Not for users: they come through CommParts(). Any
// thread may make one; a part belongs to one user at a time. What a device or the network does is answered, never
// thrown (Comm.h).
#pragma once

#include <memory>

#include "ixocamglue/platform/comm/Comm.h"

namespace ixocamglue {

std::unique_ptr<TCommCtrl> MakeRealSerial();
std::unique_ptr<TVkTcpClient> MakeRealTcp();
std::unique_ptr<TIcmpClient> MakeRealIcmp();
std::unique_ptr<TUDPClient> MakeRealUdp();

}  // namespace ixocamglue
