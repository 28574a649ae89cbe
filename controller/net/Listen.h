// Sockets that a controller listens on, and the room for descriptors that it needs. Failures name what is in the way.
// Any thread; a descriptor belongs to one at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>

#include "controller/process/StateFiles.h"
#include "ixocamglue/support/Problem.h"

namespace ixocontroller {
using namespace ixocamglue;

inline constexpr std::uint16_t kWirePort = 8620;

// A descriptor that is closed with its owner.
class TOwnFd {
 public:
  explicit TOwnFd(int fd = -1) : FFd(fd) {}
  ~TOwnFd() { Close(); }
  TOwnFd(TOwnFd&& other) noexcept : FFd(other.Release()) {}
  TOwnFd& operator=(TOwnFd&& other) noexcept;
  [[nodiscard]] int Get() const { return FFd; }
  [[nodiscard]] int Release();
  void Close();

 private:
  int FFd;
};

[[nodiscard]] bool IsLoopback(const std::string& address);
// `port` 0: the system picks one. `address` is a number, not a name.
[[nodiscard]] TResult<TOwnFd> ListenTcp(const std::string& address, std::uint16_t port);
// What the system picked.
[[nodiscard]] std::uint16_t PortOf(int fd);
// kWireSocket in `folder`, whose whole path may be longer than a socket's name: it is reached through the folder, which
// is made for its owner alone (0700), as is the socket (0600). One that was left there is replaced: whoever calls has
// the state folder to itself.
[[nodiscard]] TResult<TOwnFd> ListenUnix(const std::filesystem::path& folder);
void RemoveUnix(const std::filesystem::path& folder);

// Raises the soft limit of descriptors as far as it goes. Answers how many are left for connections when `reserved`
// stay free for everything else.
[[nodiscard]] std::size_t RoomForConnections(std::size_t reserved);

}  // namespace ixocontroller
