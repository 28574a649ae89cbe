// Waits on a native handle: Asio's synchronous reads and connects know no time limit, and poll does. Any thread. False:
// nothing came within the time, or the handle is none.
#pragma once

#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <limits>
#include <poll.h>

#include "ixocamglue/platform/services/Clock.h"

namespace ixocamglue {

// True when one of `events` (or an error) is there within `ms`, of which 0 looks once; beyond 2^31 it may end sooner.
inline bool WaitFd(int fd, short events, std::uint32_t ms) {
  pollfd entry{fd, events, 0};
  constexpr auto limit = static_cast<std::uint32_t>(std::numeric_limits<int>::max());
  const auto slice = [](std::uint64_t left) { return static_cast<int>(left < limit ? left : limit); };
  int found = ::poll(&entry, 1, slice(ms));
  if (found >= 0 || errno != EINTR) return found > 0;
  const std::uint64_t end = Clock().MonotonicMs() + ms;
  for (std::uint64_t now = end - ms; now < end; now = Clock().MonotonicMs()) {
    found = ::poll(&entry, 1, slice(end - now));
    if (found >= 0 || errno != EINTR) return found > 0;
  }
  return false;
}

// Of a handle that is none nothing, and no error.
inline void CloseOnExec(int fd) { ::fcntl(fd, F_SETFD, FD_CLOEXEC); }

}  // namespace ixocamglue
