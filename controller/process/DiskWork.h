// What waits for a disk, asked for on a thread that must not: the interface thread.
#pragma once

#include <cstdint>
#include <exception>
#include <functional>

namespace ixocontroller {

// Has `work` done on another thread, one after the other, and `then` on the thread that asked, later or at once.
using TDiskWork = std::function<void(std::function<void()> work, std::function<void()> then)>;

// Told once, on the thread that asked, when it is done or has failed; null: it is done, and `number` is its result.
using TDiskDone = std::function<void(std::uint64_t number, const std::exception_ptr& failed)>;

}  // namespace ixocontroller
